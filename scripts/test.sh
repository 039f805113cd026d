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
  # GCC 12's ThreadSanitizer runtime maps its shadow at fixed addresses and
  # dies at start on kernels that randomise mmap with more than 28 bits. The
  # probe finds a way to run it: as is, without address randomisation
  # (setarch -R), or with the randomisation lowered to 28 bits (root only).
  mkdir -p build-tsan
  printf '#include <thread>\nint main(){int v=0;std::thread t([&]{v=1;});t.join();return v-1;}\n' \
    > build-tsan/probe.cpp
  g++ -std=c++17 -fsanitize=thread -pthread build-tsan/probe.cpp -o build-tsan/probe
  run=()
  if ! build-tsan/probe 2>/dev/null; then
    if setarch "$(uname -m)" -R build-tsan/probe 2>/dev/null; then
      run=(setarch "$(uname -m)" -R)
    elif [[ -w /proc/sys/vm/mmap_rnd_bits ]] && echo 28 > /proc/sys/vm/mmap_rnd_bits \
         && build-tsan/probe 2>/dev/null; then
      echo "test.sh --tsan: vm.mmap_rnd_bits lowered to 28 for ThreadSanitizer"
    else
      echo "test.sh --tsan: SKIPPED: ThreadSanitizer cannot start on this kernel" \
           "(vm.mmap_rnd_bits=$(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo '?'))," \
           "and neither setarch -R nor lowering it is allowed here"
      exit 0
    fi
  fi
  cmake -S . -B build-tsan "${args[@]}" >/dev/null
  "${run[@]}" cmake --build build-tsan -j"$(nproc)" --target test_errorinfo test_memorymanage
  "${run[@]}" ctest --test-dir build-tsan --output-on-failure -R '^(ErrorInfo|MemoryManager)\.'
  exit 0
fi
cmake -S . -B "$dir" "${args[@]}" >/dev/null
cmake --build "$dir" -j"$(nproc)"
ctest --test-dir "$dir" --output-on-failure -j"$(nproc)"
