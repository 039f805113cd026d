#!/usr/bin/env bash
# Compares the interface tqbase.dll exports with the one the Linux shared
# library exports. Usage: scripts/compare-exports.sh LIBTQBASE.so TQBASE.dll
#
# Both lists are demangled and compared as names without their parameter
# lists, one line per overload (the same signature spells its types
# differently on the two systems: DWORD is unsigned int on LP64 Linux and
# unsigned long on Windows). Left out on both sides: the C++ runtime's own
# template code (std::, __gnu_cxx::), run-time type names, which each
# compiler emits as it needs, and the resolvers of functions GCC builds
# for several instruction sets (target_clones), which it exports whatever
# their visibility. The Windows calls that winport.h supplies off
# Windows (GlobalAlloc, IntersectRect, ...) are the system's on Windows:
# they must be exported by the Linux library and not by the DLL.
# Exit status 1 when the interfaces differ.
set -euo pipefail
cd "$(dirname "$0")/.."
so=$1
dll=$2
objdump=${OBJDUMP:-x86_64-w64-mingw32-objdump}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Name without parameters: "A::f(int) const" -> "A::f"; operators keep
# their own parentheses ("operator()").
strip_params() {
  sed -E 's/ \[clone [^]]*\]//g; s/(operator\(\))?\(.*$/\1/' | sed -E 's/^.* ([^ ]*::)/\1/'
}
keep_interface() {
  grep -Ev '^(std::|__gnu_cxx::|typeinfo|__cxa|__gxx)|(^| )(std|__gnu_cxx)::' || true
}

nm -D --defined-only "$so" | awk 'NF >= 3 {print $3}' | c++filt | grep -v ' \[clone \.resolver\]$' |
  keep_interface | strip_params | sort > "$work/linux"
"$objdump" -p "$dll" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' | tail -n +2 | awk '/^[[:space:]]*\[/ {print $NF}' |
  c++filt | keep_interface | strip_params | sort > "$work/windows"

# The Windows calls winport.h declares for other systems.
sed -n '/^#else$/,/^#endif  \/\/ !_WIN32$/p' include/tqbase/winport.h |
  grep -o 'TQBASE_API [^(]*(' | sed -E 's/.*[ *]([A-Za-z_0-9]+)\($/\1/' | sort -u > "$work/system"
grep -Fxv -f "$work/system" "$work/linux" > "$work/linux-own" || true

status=0
missing=$(grep -Fxf "$work/system" "$work/linux" | sort -u | comm -13 - "$work/system")
if [[ -n $missing ]]; then
  echo "compare-exports: the Linux library lacks Windows calls that winport.h declares:" $missing
  status=1
fi
if grep -Fxq -f "$work/system" "$work/windows"; then
  echo "compare-exports: tqbase.dll exports calls that are the system's on Windows:"
  grep -Fx -f "$work/system" "$work/windows"
  status=1
fi
if ! diff -u --label linux --label windows "$work/linux-own" "$work/windows" > "$work/diff"; then
  echo "compare-exports: the exported interfaces differ (- Linux only, + Windows only):"
  grep -E '^[-+][^-+]' "$work/diff"
  status=1
fi
echo "compare-exports: $(wc -l < "$work/windows") exports of tqbase.dll, $(wc -l < "$work/linux-own") of" \
  "$(basename "$so") besides $(wc -l < "$work/system") Windows calls of winport.h:" \
  "$([[ $status == 0 ]] && echo same interface || echo DIFFERENT)"
exit $status
