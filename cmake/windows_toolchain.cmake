# What the two Windows toolchain files share: Debian's MinGW-w64 for the machine that
# CMAKE_SYSTEM_PROCESSOR names, whose programs begin with ZVQRN_MINGW.  The variant with the system's
# own threads is used: the library starts its threads through the run-time and needs no thread
# library beside the DLL.  The tests need std::thread and take the other variant.
if(NOT ZVQRN_MINGW_THREADS)
  set(ZVQRN_MINGW_THREADS win32)
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZVQRN_MINGW_THREADS)
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_C_COMPILER ${ZVQRN_MINGW}-gcc-${ZVQRN_MINGW_THREADS})
set(CMAKE_CXX_COMPILER ${ZVQRN_MINGW}-g++-${ZVQRN_MINGW_THREADS})
set(CMAKE_RC_COMPILER ${ZVQRN_MINGW}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${ZVQRN_MINGW})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
