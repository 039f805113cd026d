# Cross-compiles tqBase for 64-bit Windows with MinGW-w64 (Debian's
# g++-mingw-w64-x86-64-posix). Used by scripts/test-windows.sh, which runs
# the result under wine64.
set(TQ_MINGW_ARCH x86_64)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-cross.cmake)
