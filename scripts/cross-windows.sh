#!/usr/bin/env bash
# Cross-builds tqBase as a 32-bit Windows DLL with MinGW-w64 and warnings
# as errors (build-win32/bin/tqbase.dll and build-win32/tqbase/libtqbase.dll.a),
# installing the cross compiler when it is missing. The test suites run
# under wine in scripts/test-windows.sh (64-bit, and 32-bit where wine32 is
# installed).
set -euo pipefail
cd "$(dirname "$0")/.."
if ! command -v i686-w64-mingw32-g++-posix >/dev/null; then
  sudo_cmd=()
  if [[ $(id -u) -ne 0 ]]; then sudo_cmd=(sudo); fi
  export DEBIAN_FRONTEND=noninteractive
  "${sudo_cmd[@]}" apt-get update -qq
  "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends g++-mingw-w64-i686-posix >/dev/null
fi
cmake -S . -B build-win32 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-mingw-i686.cmake \
  -DTQBASE_BUILD_TESTS=OFF -DTQBASE_BUILD_TOOLS=OFF -DTQBASE_WERROR=ON >/dev/null
cmake --build build-win32 -j"$(nproc)"
ls -l build-win32/bin/tqbase.dll build-win32/tqbase/libtqbase.dll.a
