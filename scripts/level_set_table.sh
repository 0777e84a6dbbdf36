#!/bin/bash
# Meshes every level set in the data beside the project (or in the folder given)
# and writes what came of it into docs/level-sets.md.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build/release/bin/velmor-level-set-table "${1:-../shared/data}" |
  scripts/insert_table.sh docs/level-sets.md
