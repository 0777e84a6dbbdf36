#!/bin/bash
# Replaces what stands between the markers "<!-- table -->" and
# "<!-- end of table -->" of a document by standard input.
set -euo pipefail
document=$1
new=$(mktemp)
trap 'rm -f "$new"' EXIT
table=$(cat)
[ -n "$table" ] || { echo "insert_table: nothing to put into $document" >&2; exit 1; }
TABLE=$table awk '
  /^<!-- end of table -->$/ { inside = 0; ended = 1 }
  !inside { print }
  /^<!-- table -->$/ { inside = 1; print ENVIRON["TABLE"] }
  END { exit !ended }' "$document" >"$new" || {
  echo "insert_table: $document has no place for a table" >&2
  exit 1
}
cat "$new" >"$document"
