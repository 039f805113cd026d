#!/usr/bin/env bash
# Cross-builds tqBase as a 32-bit Windows DLL with MinGW-w64 and warnings
# as errors (build-win32/bin/tqbase.dll and build-win32/tqbase/libtqbase.dll.a),
# installing the cross compilers when they are missing. The test suites run
# under wine in scripts/test-windows.sh (64-bit, and 32-bit where wine32 is
# installed).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh --windows
cmake -S . -B build-win32 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-mingw-i686.cmake \
  -DTQBASE_BUILD_TESTS=OFF -DTQBASE_BUILD_TOOLS=OFF -DTQBASE_WERROR=ON >/dev/null
cmake --build build-win32 -j"$(nproc)"
ls -l build-win32/bin/tqbase.dll build-win32/tqbase/libtqbase.dll.a
