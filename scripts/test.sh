#!/usr/bin/env bash
# Builds tqBase with warnings as errors (benchmarks included) and runs the
# test suites. Usage: scripts/test.sh [--sanitize | --tsan]
#   --sanitize  builds in build-asan with AddressSanitizer and
#               UndefinedBehaviorSanitizer and runs the suites there.
#   --tsan      builds the suites that use threads (the error record, the
#               buffer lender and the codecs that borrow it) in build-tsan
#               with ThreadSanitizer and runs them.
set -euo pipefail
cd "$(dirname "$0")/.."
"$PWD/scripts/setup.sh"
dir=build
args=(-DTQBASE_WERROR=ON -DTQBASE_BUILD_TESTS=ON -DTQBASE_BUILD_TOOLS=ON -DTQBASE_BUILD_BENCH=ON)
if [[ "${1:-}" == "--sanitize" ]]; then
  dir=build-asan
  args=(-DTQBASE_WERROR=ON -DTQBASE_BUILD_TESTS=ON -DTQBASE_BUILD_TOOLS=ON -DTQBASE_BUILD_BENCH=OFF
        -DCMAKE_BUILD_TYPE=Debug -DTQBASE_SANITIZE=address,undefined)
  export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
  export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
fi
if [[ "${1:-}" == "--tsan" ]]; then
  args=(-DTQBASE_WERROR=ON -DTQBASE_BUILD_TESTS=ON -DTQBASE_BUILD_TOOLS=OFF -DTQBASE_BUILD_BENCH=OFF
        -DCMAKE_BUILD_TYPE=Debug -DTQBASE_SANITIZE=thread)
  export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
  cmake -S . -B build-tsan "${args[@]}" >/dev/null
  cmake --build build-tsan -j"$(nproc)" --target test_errorinfo test_memorymanage
  ctest --test-dir build-tsan --output-on-failure -R '^(ErrorInfo|MemoryManager)\.'
  exit 0
fi
cmake -S . -B "$dir" "${args[@]}" >/dev/null
cmake --build "$dir" -j"$(nproc)"
ctest --test-dir "$dir" --output-on-failure -j"$(nproc)"
