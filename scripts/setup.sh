#!/usr/bin/env bash
# Installs what the build needs from Debian's packages; fast and silent when all is present.
#   scripts/setup.sh [base] [bench] [aarch64]
set -euo pipefail
here="$(cd "$(dirname "$0")/.." && pwd)"
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive

profiles=("$@")
[ ${#profiles[@]} -gt 0 ] || profiles=(base)

want=()
want_arm64=false
for p in "${profiles[@]}"; do
  case "$p" in
    base) want+=(cmake ninja-build g++ pkg-config libhwy-dev libgtest-dev libbenchmark-dev libpng-dev dpkg-dev binutils) ;;
    bench) want+=(libopencv-contrib-dev libopencv-dev libyuv-dev) ;;
    aarch64) want+=(g++-aarch64-linux-gnu binutils-aarch64-linux-gnu qemu-user); want_arm64=true ;;
    *) echo "setup.sh: unknown profile '$p'" >&2; exit 2 ;;
  esac
done
if $want_arm64; then
  want+=(libc6:arm64 libstdc++6:arm64 libhwy-dev:arm64 libgtest-dev:arm64 libpng-dev:arm64
        libbenchmark-dev:arm64)
fi

updated=false
apt_update() { $updated || { $SUDO apt-get update -qq; updated=true; }; }

if $want_arm64 && ! dpkg --print-foreign-architectures | grep -qx arm64; then
  $SUDO dpkg --add-architecture arm64
  updated=false
fi

missing=()
for pkg in "${want[@]}"; do
  dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" || missing+=("$pkg")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  apt_update
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# tinyxml2 is compiled into the library from Debian's source package.
tx="$here/third_party/tinyxml2"
if [ ! -f "$tx/tinyxml2.cpp" ]; then
  srcfile=/etc/apt/sources.list.d/bivista-deb-src.sources
  if ! grep -rqs '^Types:.*deb-src' /etc/apt/sources.list.d/ && ! grep -qs '^deb-src' /etc/apt/sources.list; then
    codename="$(. /etc/os-release && echo "${VERSION_CODENAME:-bookworm}")"
    $SUDO tee "$srcfile" >/dev/null <<SRC
Types: deb-src
URIs: http://deb.debian.org/debian
Suites: ${codename}
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
SRC
    updated=false
  fi
  apt_update
  work="$(mktemp -d)"
  if (cd "$work" && apt-get source -qq tinyxml2 >/dev/null 2>&1); then
    dir="$(find "$work" -maxdepth 1 -type d -name 'tinyxml2-*' | head -n 1)"
    mkdir -p "$tx"
    cp "$dir/tinyxml2.cpp" "$dir/tinyxml2.h" "$tx/"
    cp "$dir/LICENSE.txt" "$tx/" 2>/dev/null || true
    echo "setup: tinyxml2 source from $(basename "$dir")"
  else
    echo "setup: could not obtain the tinyxml2 source package; the build will use the system library" >&2
    want_sys=(libtinyxml2-dev)
    dpkg-query -W -f='${Status}' libtinyxml2-dev 2>/dev/null | grep -q "install ok installed" ||
      $SUDO apt-get install -y -qq --no-install-recommends "${want_sys[@]}" >/dev/null
  fi
  rm -rf "$work"
fi
