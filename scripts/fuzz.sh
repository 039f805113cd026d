#!/usr/bin/env bash
# fuzz.sh [seconds [runs]] - builds the libFuzzer targets with clang, ASan
# and UBSan (in build-fuzz/) and runs each one for a bounded time (default
# 20 s), or until it has run `runs` inputs when that comes first, on a
# scratch copy of its seed corpus. TQBASE_FUZZ_TARGETS="fuzz_a fuzz_b"
# runs only those. Exits non-zero when a target crashes or a check fails;
# the reproducer is left in build-fuzz/artifacts/. A long run of every
# target: scripts/fuzz.sh 1800 10000000.
set -euo pipefail

seconds="${1:-20}"
runs="${2:-0}"
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${TQBASE_FUZZ_BUILD:-$root/build-fuzz}"
jobs="${TQBASE_FUZZ_JOBS:-2}"

cmake -S "$root" -B "$build" \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DTQBASE_BUILD_FUZZ=ON -DTQBASE_BUILD_TESTS=OFF -DTQBASE_BUILD_TOOLS=OFF \
  -DTQBASE_SANITIZE=address,undefined >/dev/null

targets=()
for src in "$root"/fuzz/fuzz_*.cpp; do
  targets+=("$(basename "$src" .cpp)")
done
if [[ -n "${TQBASE_FUZZ_TARGETS:-}" ]]; then
  read -r -a targets <<<"$TQBASE_FUZZ_TARGETS"
fi
cmake --build "$build" -j "$jobs" --target "${targets[@]}"

mkdir -p "$build/artifacts"
status=0
for t in "${targets[@]}"; do
  work="$build/corpus-run/$t"
  rm -rf "$work"
  mkdir -p "$work"
  if [ -d "$root/fuzz/corpus/$t" ]; then
    cp -r "$root/fuzz/corpus/$t/." "$work/"
  fi
  echo "== $t (${seconds}s)"
  if ! ASAN_OPTIONS="detect_leaks=1:abort_on_error=1" UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1" \
      "$build/fuzz/$t" -max_total_time="$seconds" -runs="$((runs > 0 ? runs : -1))" -timeout=10 -rss_limit_mb=2048 \
      -artifact_prefix="$build/artifacts/$t-" -print_final_stats=1 "$work" 2>"$build/$t.log"; then
    echo "!! $t failed; see $build/$t.log and $build/artifacts/" >&2
    tail -n 40 "$build/$t.log" >&2
    status=1
  else
    grep -E "stat::number_of_executed_units|cov:" "$build/$t.log" | tail -n 2
  fi
done
exit "$status"
