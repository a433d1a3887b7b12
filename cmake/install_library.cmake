# What cmake --install gives a host programmer: the library, its header, and what lets CMake,
# pkg-config and man find them.

include(CMakePackageConfigHelpers)
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/ZVQRN)

install(TARGETS ZVQRN EXPORT ZVQRNTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES include/zvqrn/zvqrn.h include/zvqrn/zvqrn.hpp DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zvqrn)

# As with the soname, a minor version before 1.0 takes nobody's place.
if(PROJECT_VERSION_MAJOR GREATER 0)
  set(compatibility SameMajorVersion)
else()
  set(compatibility SameMinorVersion)
endif()
configure_package_config_file(cmake/ZVQRNConfig.cmake.in ZVQRNConfig.cmake
  INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(ZVQRNConfigVersion.cmake COMPATIBILITY ${compatibility})
install(EXPORT ZVQRNTargets NAMESPACE ZVQRN:: DESTINATION ${package_folder})
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/ZVQRNConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/ZVQRNConfigVersion.cmake
  DESTINATION ${package_folder})

if(WIN32)
  install(FILES ${MSVC_LIBRARY} ${CALLERS_LIST} DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(FILES ${DEBUG_SYMBOLS} DESTINATION ${CMAKE_INSTALL_BINDIR})
else()
  file(RELATIVE_PATH PREFIX_FROM_PC
    /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
  configure_file(cmake/zvqrn.pc.in zvqrn.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zvqrn.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  foreach(page libzvqrn QRNStartService QRNStopService QRNSendData QRNGetPCName QRNSetPCName)
    configure_file(docs/man/${page}.3.in ${page}.3 @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${page}.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)
  endforeach()
endif()
