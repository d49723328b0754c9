#!/usr/bin/env bash
# Installs every Debian package the Linux build, the Windows cross build and all suites need.
# Safe to run again: apt skips what is already there.
set -euo pipefail

packages=(
  cmake make g++ pkg-config binutils clang libclang-rt-14-dev
  libssl-dev openssl libgcrypt20-dev libgpg-error-dev libksba-dev
  nlohmann-json3-dev libcli11-dev
  libgtest-dev googletest libbenchmark-dev
  g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix mingw-w64-tools
  libgcrypt-mingw-w64-dev libgpg-error-mingw-w64-dev libksba-mingw-w64-dev
  wine64
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
