#!/bin/bash
# Runs every benchmark program (those whose name holds the argument, if one is
# given) and writes the medians of three runs into docs/performance.md.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
bin=build/release/bin
results=build/bench
mkdir -p "$results"

for program in "$bin"/*_bench; do
  name=$(basename "$program")
  case "$name" in *"${1:-}"*) ;; *) continue ;; esac
  echo "== $name"
  "$program" --benchmark_repetitions="${VELMOR_REPETITIONS:-3}" \
    --benchmark_report_aggregates_only=true --benchmark_out_format=json \
    --benchmark_out="$results/$name.json"
done

{
  echo "$(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1), $(nproc) processors," \
    "$(c++ --version | head -n 1), $(date +%F)."
  echo
  "$bin/velmor-bench-table" "$results"/*.json
} | scripts/insert_table.sh docs/performance.md
echo "docs/performance.md is up to date"
