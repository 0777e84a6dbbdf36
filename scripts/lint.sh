#!/bin/bash
# Formatting, clang-tidy, and a build with clang. With --format the formatting is
# put right instead of being reported; other arguments restrict clang-tidy to
# sources whose path holds one of them.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
jobs=${VELMOR_JOBS:-$(nproc)}

mapfile -t ours < <(git ls-files '*.cpp' '*.h')
if [ "${1:-}" = --format ]; then
  clang-format -i "${ours[@]}"
  shift
else
  clang-format --dry-run --Werror "${ours[@]}"
fi

cmake --preset clang -Wno-dev
cmake --build --preset clang -j "$jobs" --target all benchmarks

filter=$(IFS='|' && echo "${*:-.}")
git ls-files '*.cpp' | grep -E "$filter" | while read -r source; do
  if grep -q "\"[^\"]*/$source\"" build/clang/compile_commands.json; then echo "$source"; fi
done | xargs -P "$jobs" -n 1 clang-tidy -p build/clang --quiet
