#!/usr/bin/env bash
# Installs the Debian packages tqBase builds with, when any is missing.
# Usage: scripts/setup.sh [--fuzz] [--windows]
#   --fuzz     adds clang and its sanitizer runtime (scripts/fuzz.sh)
#   --windows  adds the MinGW-w64 cross compilers, the GoogleTest sources
#              and wine64 (scripts/cross-windows.sh, scripts/test-windows.sh)
set -euo pipefail
pkgs=(cmake g++ make pkg-config libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev
      libpng-dev libpixman-1-dev libagg-dev libtiff-dev libb64-dev libopencv-imgproc-dev
      liblcms2-dev libgs-common)
for arg in "$@"; do
  case "$arg" in
    --fuzz) pkgs+=(clang libclang-rt-14-dev) ;;
    --windows) pkgs+=(googletest g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix wine64) ;;
    *) echo "setup: unknown option $arg" >&2; exit 2 ;;
  esac
done
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}" >&2
  sudo_cmd=()
  if [[ $(id -u) -ne 0 ]]; then sudo_cmd=(sudo); fi
  export DEBIAN_FRONTEND=noninteractive
  "${sudo_cmd[@]}" apt-get update -qq
  "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
