# 64-bit Windows.
set(CMAKE_SYSTEM_PROCESSOR AMD64)
set(ZVQRN_MINGW x86_64-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/windows_toolchain.cmake)
