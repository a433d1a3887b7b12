# libZVQRN.so: its exports and its version.

set(export_list ${CMAKE_CURRENT_SOURCE_DIR}/src/service/ZVQRN.map)
target_link_options(ZVQRN PRIVATE -Wl,--version-script=${export_list})
set_target_properties(ZVQRN PROPERTIES LINK_DEPENDS ${export_list})

# The soname says which hosts the library serves.  From 1.0 on that is the major version; before,
# each minor version may change the interface, and the soname carries both numbers.  Hosts that load
# at run time use the plain name, libZVQRN.so, which is a link to the library.
if(PROJECT_VERSION_MAJOR GREATER 0)
  set(interface_version ${PROJECT_VERSION_MAJOR})
else()
  set(interface_version ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
endif()
set_target_properties(ZVQRN PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${interface_version})
