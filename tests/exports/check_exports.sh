#!/bin/sh
# Compares the dynamic symbols a shared library defines with the lists in a directory.
#   check_exports.sh NM LIBRARY LIST_DIR [SKIPPED_LIST...]
# Every LIST_DIR/*.txt line (CMakeLists.txt aside) is "C name" (undecorated symbol) or "C++ signature" (mangled
# symbol, as nm -C prints it). Reports each missing, leaked or wrongly linked name; exits 1 if
# there is any.
set -u
if [ $# -lt 3 ]; then
  echo "usage: $0 NM LIBRARY LIST_DIR [SKIPPED_LIST...]" >&2
  exit 2
fi
nm_tool=$1
lib=$2
dir=$3
shift 3
LC_ALL=C
export LC_ALL

tmp=$(mktemp -d "${TMPDIR:-/tmp}/bv_exports.XXXXXX") || exit 2
trap 'rm -rf "$tmp"' EXIT INT TERM

# Symbol table order is the same with and without demangling, so the two listings pair up
# line by line. Drop the address and type, the version suffix and the version node itself.
names() {
  "$nm_tool" -D --defined-only --no-sort "$@" "$lib" | sed -e 's/^[^ ]* [^ ] //' -e 's/@.*$//'
}
names > "$tmp/raw" || { echo "FAIL: $nm_tool could not read $lib"; exit 1; }
names -C > "$tmp/demangled" || { echo "FAIL: $nm_tool -C could not read $lib"; exit 1; }
if [ "$(wc -l < "$tmp/raw")" -ne "$(wc -l < "$tmp/demangled")" ]; then
  echo "FAIL: plain and demangled listings differ in length"
  exit 1
fi
paste "$tmp/raw" "$tmp/demangled" | awk -F '\t' '
  $1 == "BIVISTA_DISPTODEPTH_1" { next }
  $1 ~ /^_Z/ { print "C++ " $2; next }
  { print "C " $1 }' | sort -u > "$tmp/actual"

status=0
: > "$tmp/listed"
for list in "$dir"/*.txt; do
  [ -e "$list" ] || continue
  base=$(basename "$list")
  [ "$base" = CMakeLists.txt ] && continue
  skip=0
  for s in "$@"; do
    [ "$s" = "$base" ] && skip=1
  done
  if [ "$skip" = 1 ]; then
    echo "note: $base skipped"
    continue
  fi
  bad=$(grep -v -n -E '^(C [^ ]+|C\+\+ .+)$' "$list")
  if [ -n "$bad" ]; then
    echo "FAIL: $base: lines must be 'C name' or 'C++ signature':"
    echo "$bad" | sed 's/^/  /'
    status=1
  fi
  if ! sort -c "$list" 2>/dev/null; then
    echo "FAIL: $base is not sorted (LC_ALL=C sort)"
    status=1
  fi
  cat "$list" >> "$tmp/listed"
done

sort "$tmp/listed" | uniq -d > "$tmp/twice"
while IFS= read -r line; do
  echo "FAIL: listed more than once: $line"
  status=1
done < "$tmp/twice"
sort -u "$tmp/listed" > "$tmp/expected"

# A name present with the other linkage is reported as such rather than as missing + leaked.
comm -23 "$tmp/expected" "$tmp/actual" > "$tmp/missing"
comm -13 "$tmp/expected" "$tmp/actual" > "$tmp/leaked"
awk '
  function bare(s) { sub(/^C\+\+ /, "", s); sub(/^C /, "", s); sub(/\(.*$/, "", s); return s }
  FILENAME == ARGV[1] { leaked[bare($0)] = $0; next }
  { b = bare($0)
    if (b in leaked) print "FAIL: wrong linkage: listed \"" $0 "\", exported \"" leaked[b] "\""
    else print "FAIL: missing: " $0 }' "$tmp/leaked" "$tmp/missing" > "$tmp/report"
awk '
  function bare(s) { sub(/^C\+\+ /, "", s); sub(/^C /, "", s); sub(/\(.*$/, "", s); return s }
  FILENAME == ARGV[1] { missing[bare($0)] = 1; next }
  !(bare($0) in missing) { print "FAIL: leaked (exported but not listed): " $0 }' \
  "$tmp/missing" "$tmp/leaked" >> "$tmp/report"
if [ -s "$tmp/report" ]; then
  cat "$tmp/report"
  status=1
fi

echo "$(wc -l < "$tmp/actual") exported names, $(wc -l < "$tmp/expected") listed"
[ "$status" = 0 ] && echo "PASS"
exit $status
