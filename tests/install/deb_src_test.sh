#!/usr/bin/env bash
# scripts/setup.sh --deb-src-entries on a made-up apt directory: deb822 and one-line entries of
# this release become source entries with the same URIs, suites, components and keyring;
# disabled stanzas, other releases and existing source entries do not.
#   deb_src_test.sh SOURCE_DIR
set -euo pipefail
here="$1"
apt="$(mktemp -d "${TMPDIR:-/tmp}/bv_apt.XXXXXX")"
trap 'rm -rf "$apt"' EXIT
mkdir -p "$apt/sources.list.d"
cat > "$apt/sources.list.d/main.sources" <<'SRC'
# comment
Types: deb
URIs: http://archive.invalid/debian
Suites: rel rel-updates
Components: main contrib
Signed-By: /usr/share/keyrings/archive.gpg

Types: deb deb-src
URIs: http://security.invalid/debian-security
Suites: rel-security
Components: main

Types: deb
URIs: http://off.invalid/debian
Suites: rel
Components: main
Enabled: no
SRC
cat > "$apt/sources.list.d/other.sources" <<'SRC'
Types: deb
URIs: https://vendor.invalid/apt
Suites: nodistro
Components: main
SRC
cat > "$apt/sources.list" <<'SRC'
deb [arch=amd64 signed-by=/etc/keys/one.gpg] http://oneline.invalid/debian rel main non-free # tail
deb-src http://oneline.invalid/debian rel main
# deb http://commented.invalid/debian rel main
deb http://oneline.invalid/debian rel-backports main
SRC
expected="Types: deb-src
URIs: http://oneline.invalid/debian
Suites: rel
Components: main non-free
Signed-By: /etc/keys/one.gpg

Types: deb-src
URIs: http://oneline.invalid/debian
Suites: rel-backports
Components: main

Types: deb-src
URIs: http://archive.invalid/debian
Suites: rel rel-updates
Components: main contrib
Signed-By: /usr/share/keyrings/archive.gpg

Types: deb-src
URIs: http://security.invalid/debian-security
Suites: rel-security
Components: main"
actual="$(bash "$here/scripts/setup.sh" --deb-src-entries "$apt" rel)"
if [ "$actual" != "$expected" ]; then
  echo "FAIL: source entries differ"
  diff <(echo "$expected") <(echo "$actual") || true
  exit 1
fi
echo PASS
