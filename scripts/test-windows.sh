#!/usr/bin/env bash
# Builds tqBase for 64-bit Windows with MinGW-w64 (tqbase.dll, its import
# library, the test programs and tqbase.exe; warnings as errors) in
# build-win64/ and runs the whole test suite under wine64, headless, in a
# throw-away wine prefix. Then compares what the DLL exports with what the
# Linux library exports, and the byte streams both builds write from the
# same seeded inputs (the Linux side is built in build/, as scripts/test.sh
# builds it). Runs the 32-bit tests as well where wine32 is installed.
# Installs the Debian packages it needs when they are missing.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
jobs=$(nproc)

scripts/setup.sh --windows

wine64=$(command -v wine64 || echo /usr/lib/wine/wine64)
wine32=$(command -v wine32 || echo /usr/lib/wine/wine)

# A throw-away prefix, no debug chatter, no Mono or Gecko installers.
WINEPREFIX=$(mktemp -d -t tqbase-wine.XXXXXX)
export WINEPREFIX WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
wineserver=$(command -v wineserver || echo "$(dirname "$wine64")/wineserver")
cleanup() {
  "$wineserver" -k 2>/dev/null || true
  rm -rf "$WINEPREFIX"
}
trap cleanup EXIT
trap 'exit 130' INT TERM  # through the EXIT trap
# One wine session for the tests: a persistent server, the prefix set up
# by wineboot, which starts wine's system processes (services.exe and
# others), and a desktop (explorer /desktop), started just before the tests
# so that it does not exit idle first. They must start here, on /dev/null:
# a desktop started by a test program (the library loads user32) inherits
# the program's output pipe and holds it open until it exits idle, twenty
# seconds later, and ctest waits as long for every test program. Without a
# persistent server every program that finds none starts the system
# processes anew.
start_wine_session() {
  "$wineserver" -p </dev/null >/dev/null 2>&1
  "$wine64" wineboot --init </dev/null >/dev/null 2>&1 || true
  "$1" explorer /desktop </dev/null >/dev/null 2>&1 &
  sleep 2
}

echo "== Windows x86-64: build (MinGW-w64, warnings as errors)"
cmake -S . -B build-win64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-mingw-x86_64.cmake \
  -DCMAKE_CROSSCOMPILING_EMULATOR="$wine64" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DTQBASE_WERROR=ON -DTQBASE_BUILD_TESTS=ON -DTQBASE_BUILD_TOOLS=ON \
  -DTQBASE_BUILD_BENCH=OFF -DTQBASE_BUILD_FUZZ=OFF >/dev/null
cmake --build build-win64 -j"$jobs"
ls -l build-win64/bin/tqbase.dll build-win64/tqbase/libtqbase.dll.a build-win64/bin/tqbase.exe

# Runs the suites of a cross build under wine (one ctest entry per test
# program), then sums up their GoogleTest results and names every skipped
# test with its reason.
run_suites() {
  local dir=$1 log=$1/ctest-wine.log status=0
  ctest --test-dir "$dir" -V -j"$jobs" --timeout 300 > "$log" 2>&1 || status=$?
  grep -E '^ *[0-9]+/[0-9]+ Test +#' "$log" || true
  sed -E 's/^[0-9]+: //' "$log" | awk '
    /^\[  PASSED  \] [0-9]+ tests?\./ { passed += $4 }
    /^\[  FAILED  \] [0-9]+ tests?,/ { failed += $4 }
    /^\[  SKIPPED \] [0-9]+ tests?,/ { skipped += $4 }
    /^\[ RUN      \]/ { name = $4; why = ""; inskip = 0 }
    /: Skipped$/ { inskip = 1; next }
    inskip && /^\[  SKIPPED \]/ { reasons[name] = why; inskip = 0 }
    inskip { why = why (why == "" ? "" : " ") $0 }
    END {
      printf "GoogleTest under wine: %d passed, %d failed, %d skipped\n", passed, failed, skipped
      for (n in reasons) printf "  skipped %s: %s\n", n, reasons[n]
    }'
  if ((status != 0)); then
    sed -E 's/^[0-9]+: //' "$log" | grep -E -B2 -A12 '(Failure|\[  FAILED  \] [A-Z]|\*\*\*Timeout|\*\*\*Failed)' | head -300
  fi
  grep -E 'tests passed|tests failed' "$log" || true
  return $status
}

echo "== Windows x86-64: tests under wine64"
start_wine_session "$wine64"
run_suites build-win64

echo "== Linux library and stream writer (build/)"
if [[ -f build/CMakeCache.txt ]]; then
  cmake -S . -B build >/dev/null  # with its cached settings; finds new sources
else
  cmake -S . -B build -DTQBASE_WERROR=ON -DTQBASE_BUILD_TESTS=ON -DTQBASE_BUILD_TOOLS=ON \
    -DTQBASE_BUILD_BENCH=ON >/dev/null
fi
cmake --build build -j"$jobs" --target tqbase test_streams

echo "== same interface: exports of tqbase.dll and libtqbase.so"
scripts/compare-exports.sh build/tqbase/libtqbase.so build-win64/bin/tqbase.dll
if [[ -f build-win32/bin/tqbase.dll ]]; then  # the 32-bit DLL of scripts/cross-windows.sh
  OBJDUMP=i686-w64-mingw32-objdump scripts/compare-exports.sh build/tqbase/libtqbase.so build-win32/bin/tqbase.dll
fi

echo "== same bytes: every stream format written by both builds"
streams=$(mktemp -d -t tqbase-streams.XXXXXX)
trap 'cleanup; rm -rf "$streams"' EXIT
mkdir -p "$streams/linux" "$streams/windows"
TQTEST_STREAM_DIR="$streams/linux" build/tests/test_streams --gtest_brief=1 >/dev/null
TQTEST_STREAM_DIR="Z:$streams/windows" "$wine64" build-win64/bin/test_streams.exe --gtest_brief=1 >/dev/null
same=0 differ=0
for f in "$streams"/linux/*; do
  name=$(basename "$f")
  if cmp -s "$f" "$streams/windows/$name"; then
    same=$((same + 1))
  else
    echo "test-windows: $name differs between the Linux and the Windows build" >&2
    differ=$((differ + 1))
  fi
done
if [[ $(ls "$streams/windows" | wc -l) -ne $(ls "$streams/linux" | wc -l) ]]; then
  echo "test-windows: the builds wrote different sets of files" >&2
  differ=$((differ + 1))
fi
echo "streams: $same files identical ($(cat "$streams"/linux/* | wc -c) bytes), $differ different"
((differ == 0))

echo "== Windows x86 (32-bit)"
# Debian's wine32 is an i386 package: it needs the i386 architecture
# (dpkg --add-architecture i386) and its package lists.
if [[ ! -x $wine32 ]] && dpkg --print-foreign-architectures | grep -qx i386 &&
   apt-cache policy wine32:i386 2>/dev/null | grep -q 'Candidate: [0-9]'; then
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends wine32:i386 >/dev/null || true
fi
if [[ -x $wine32 ]]; then
  cmake -S . -B build-win32-tests -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-mingw-i686.cmake \
    -DCMAKE_CROSSCOMPILING_EMULATOR="$wine32" -DTQBASE_WERROR=ON -DTQBASE_BUILD_TESTS=ON \
    -DTQBASE_BUILD_TOOLS=ON >/dev/null
  cmake --build build-win32-tests -j"$jobs"
  start_wine_session "$wine32"
  run_suites build-win32-tests
else
  echo "test-windows: wine32 is not installed and no i386 package of it can be had here: the 32-bit" \
    "tests are not run (scripts/cross-windows.sh builds the 32-bit DLL warning-free)"
fi
