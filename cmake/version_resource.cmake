# What Windows shows as the properties of a program or a library: its description and the version.

function(add_version_resource TARGET FILE_DESCRIPTION)
  get_target_property(type ${TARGET} TYPE)
  if(type STREQUAL "EXECUTABLE")
    set(FILE_NAME ${TARGET}.exe)
    set(FILE_TYPE VFT_APP)
  else()
    set(FILE_NAME ${TARGET}.dll)
    set(FILE_TYPE VFT_DLL)
  endif()
  configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in version_${TARGET}.rc @ONLY)
  # A library of its own, because the resource compiler does not know the compilers' options.
  add_library(${TARGET}_version OBJECT ${CMAKE_CURRENT_BINARY_DIR}/version_${TARGET}.rc)
  target_sources(${TARGET} PRIVATE $<TARGET_OBJECTS:${TARGET}_version>)
endfunction()
