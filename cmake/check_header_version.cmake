# The public header states the version of the project, as a text and in numbers.

set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS include/zvqrn/zvqrn.h)
file(STRINGS include/zvqrn/zvqrn.h header_version REGEX "^#define QRN_VERSION(_[A-Z]+)? ")
list(TRANSFORM header_version REPLACE "^#define QRN_VERSION(_[A-Z]+)? " "")
set(project_version ${PROJECT_VERSION_MAJOR} ${PROJECT_VERSION_MINOR} ${PROJECT_VERSION_PATCH}
  \"${PROJECT_VERSION}\")
if(NOT header_version STREQUAL project_version)
  message(FATAL_ERROR
    "include/zvqrn/zvqrn.h has the version ${header_version}, the project ${PROJECT_VERSION}")
endif()
