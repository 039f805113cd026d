#!/usr/bin/env bash
# Installs tqBase into a scratch prefix and builds a small consumer against
# it twice, with CMake's find_package and with pkg-config; then builds the
# Debian package with cpack. Usage: scripts/check-install.sh [BUILD_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build-install}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DTQBASE_BUILD_TESTS=OFF -DTQBASE_BUILD_TOOLS=ON \
      -DCMAKE_INSTALL_PREFIX=/usr >/dev/null
cmake --build "$build" -j"$(nproc)" >/dev/null
DESTDIR="$work/root" cmake --install "$build" >/dev/null
prefix="$work/root/usr"
libdir="$(dirname "$(dirname "$(find "$prefix" -name tqbase.pc | head -1)")")"
cat > "$work/consumer.cpp" <<'CPP'
#include <tqbase/tqbase.h>
#include <cstdio>
int main() {
  CRstLines r;
  r.Create(RECT{0, 0, 10, 10});
  std::printf("%d\n", r.IsEmpty() ? 0 : (int)r.GetBox().right);
  return r.GetBox().right == 9 ? 0 : 1;
}
CPP
cat > "$work/CMakeLists.txt" <<'CMK'
cmake_minimum_required(VERSION 3.20)
project(consumer CXX)
find_package(tqbase REQUIRED)
add_executable(consumer consumer.cpp)
target_link_libraries(consumer PRIVATE tqbase::tqbase)
CMK
cmake -S "$work" -B "$work/b" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/b" >/dev/null
LD_LIBRARY_PATH="$libdir" "$work/b/consumer" >/dev/null
echo "check-install: consumer built with find_package(tqbase)"
pc="$(PKG_CONFIG_PATH="$libdir/pkgconfig" PKG_CONFIG_SYSROOT_DIR="$work/root" pkg-config --cflags --libs tqbase)"
# shellcheck disable=SC2086
g++ -std=c++17 "$work/consumer.cpp" $pc -o "$work/consumer-pc"
LD_LIBRARY_PATH="$libdir" "$work/consumer-pc" >/dev/null
echo "check-install: consumer built with pkg-config ($pc)"
"$prefix/bin/tqbase" version >/dev/null 2>&1 || LD_LIBRARY_PATH="$libdir" "$prefix/bin/tqbase" version >/dev/null
(cd "$build" && cpack -G DEB >/dev/null)
deb="$(ls "$build"/tqbase_*.deb | head -1)"
dpkg-deb --info "$deb" >/dev/null
echo "check-install: $(basename "$deb") ($(dpkg-deb -c "$deb" | wc -l) entries)"
