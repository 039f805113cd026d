#!/usr/bin/env bash
# Builds the tqbase command-line tool and runs its demo on the built-in
# sample. Extra arguments go to `tqbase demo`.
set -euo pipefail
cd "$(dirname "$0")/.."
"$PWD/scripts/setup.sh"
cmake -S . -B build -DTQBASE_BUILD_TOOLS=ON >/dev/null
cmake --build build -j"$(nproc)" --target tqbase_tool
exec ./build/tools/tqbase demo "$@"
