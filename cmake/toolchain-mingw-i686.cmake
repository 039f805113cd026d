# Cross-compiles tqBase as a 32-bit Windows DLL with MinGW-w64 (Debian's
# g++-mingw-w64-i686-posix). Used by scripts/cross-windows.sh, and by
# scripts/test-windows.sh where wine32 runs the tests.
set(TQ_MINGW_ARCH i686)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-cross.cmake)
