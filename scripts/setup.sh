#!/usr/bin/env bash
# Installs what the build needs from Debian's packages; fast and silent when all is present.
#   scripts/setup.sh [base] [bench] [fuzz] [aarch64]
#   scripts/setup.sh --deb-src-entries [APT_DIR [CODENAME]]   print the source entries it would add
set -euo pipefail
here="$(cd "$(dirname "$0")/.." && pwd)"

# Source-package entries mirroring the machine's own binary entries: the same URIs, suites and
# components (and keyring) with Types: deb-src, in deb822 form. Reads the deb822 files
# (sources.list.d/*.sources) and the one-line files (sources.list, sources.list.d/*.list) under
# the given apt directory; disabled stanzas are skipped. Only entries of this release's suites
# (the codename and its -updates/-security companions) are mirrored: other repositories often
# publish no sources.
#   deb_src_entries APT_DIR CODENAME
deb_src_entries() {
  local dir="$1" codename="$2"
  local files=()
  local f
  for f in "$dir"/sources.list.d/*.sources; do [ -f "$f" ] && files+=("$f"); done
  # One-line files become stanzas first (options [signed-by=... arch=...] kept as fields).
  {
    for f in "$dir/sources.list" "$dir"/sources.list.d/*.list; do
      [ -f "$f" ] || continue
      sed -e 's/#.*//' "$f" | awk '
        $1 == "deb" {
          opts = ""; i = 2
          if ($2 ~ /^\[/) {
            while (i <= NF) { opts = opts " " $i; if ($i ~ /\]$/) { i++; break } i++ }
            gsub(/[\[\]]/, "", opts)
          }
          printf "Types: deb\nURIs: %s\nSuites: %s\nComponents:", $i, $(i + 1)
          for (j = i + 2; j <= NF; j++) printf " %s", $j
          printf "\n"
          n = split(opts, o, " ")
          for (k = 1; k <= n; k++) {
            split(o[k], kv, "=")
            if (kv[1] == "signed-by") printf "Signed-By: %s\n", kv[2]
            if (kv[1] == "trusted") printf "Trusted: %s\n", kv[2]
          }
          printf "\n"
        }'
    done
    for f in "${files[@]}"; do cat "$f"; printf '\n'; done
  } | awk -v codename="$codename" '
    function flush(   n, s, i, kept) {
      if (types ~ /(^| )deb( |$)/ && tolower(enabled) != "no" && uris != "" && suites != "") {
        n = split(suites, s, " "); kept = ""
        for (i = 1; i <= n; i++)
          if (s[i] == codename || index(s[i], codename "-") == 1 || index(s[i], codename "/") == 1)
            kept = kept (kept == "" ? "" : " ") s[i]
        if (kept != "") {
          printf "Types: deb-src\nURIs: %s\nSuites: %s\n", uris, kept
          if (comps != "") printf "Components: %s\n", comps
          if (signed != "") printf "Signed-By: %s\n", signed
          if (trusted != "") printf "Trusted: %s\n", trusted
          printf "\n"
        }
      }
      types = uris = suites = comps = signed = trusted = enabled = ""
    }
    /^[ \t]*#/ { next }
    /^[ \t]*$/ { flush(); next }
    /^[ \t]/ { if (k == "signed-by") signed = signed "\n" $0; next }  # an inline key
    {
      key = $1; sub(/:$/, "", key); val = $0; sub(/^[^:]*:[ \t]*/, "", val)
      k = tolower(key)
      if (k == "types") types = val
      else if (k == "uris") uris = val
      else if (k == "suites") suites = val
      else if (k == "components") comps = val
      else if (k == "signed-by") signed = val
      else if (k == "trusted") trusted = val
      else if (k == "enabled") enabled = val
    }
    END { flush() }'
}

if [ "${1:-}" = "--deb-src-entries" ]; then
  deb_src_entries "${2:-/etc/apt}" "${3:-$(. /etc/os-release && echo "${VERSION_CODENAME:-}")}"
  exit 0
fi

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
    fuzz) want+=(clang libclang-rt-dev) ;;
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
  if ! grep -rqsE '^Types:.*deb-src' /etc/apt/sources.list.d/ &&
     ! grep -rqsE '^[[:space:]]*deb-src[[:space:]]' /etc/apt/sources.list /etc/apt/sources.list.d/; then
    codename="$(. /etc/os-release && echo "${VERSION_CODENAME:-}")"
    entries="$(deb_src_entries /etc/apt "$codename")"
    if [ -n "$entries" ]; then
      printf '%s\n' "$entries" | $SUDO tee "$srcfile" >/dev/null
      echo "setup: source entries for ${codename} written to $srcfile"
      updated=false
    else
      echo "setup: no apt entry of release '${codename}' to take source entries from" >&2
    fi
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
