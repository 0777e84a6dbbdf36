#!/bin/bash
# Runs the tests under the thread sanitizer. The distribution's oneTBB is not
# instrumented and floods the report with its own lock-free code, so one is built
# from the distribution's source package with the sanitizer on.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
jobs=${VELMOR_JOBS:-$(nproc)}
place=$PWD/build/tbb-tsan
made=$place/done

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# Adds source packages to the machine's own entries, in a list of our own.
enable_source_packages() {
  if apt-get indextargets --format '$(CREATED_BY)' | grep -qx Sources; then return; fi
  local list sources
  list=$(mktemp -d)
  for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    if [ -f "$file" ]; then sed -n 's/^deb\([[:space:]]\)/deb-src\1/p' "$file"; fi
  done >"$list/velmor-source.list"
  for file in /etc/apt/sources.list.d/*.sources; do
    if [ -f "$file" ]; then
      sed -n 's/^Types:.*/Types: deb-src/; /^#/!p' "$file"
      echo
    fi
  done >"$list/velmor-source.sources"
  for sources in "$list"/*; do
    if [ -s "$sources" ]; then
      as_root install -m 644 "$sources" /etc/apt/sources.list.d/
    fi
  done
  rm -rf "$list"
  # Entries of other vendors may hold no sources; what matters is that ours come.
  as_root apt-get -q update || true
}

if [ ! -f "$made" ]; then
  rm -rf "$place"
  mkdir -p "$place/source"
  enable_source_packages
  (cd "$place/source" && apt-get -q source --only-source onetbb)
  source=$(find "$place/source" -mindepth 1 -maxdepth 1 -type d)
  cmake -G Ninja -S "$source" -B "$place/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DTBB_SANITIZE=thread -DTBB_TEST=OFF -DTBB_STRICT=OFF -DTBBMALLOC_BUILD=OFF \
    -DCMAKE_INSTALL_PREFIX="$place/install" -DCMAKE_INSTALL_LIBDIR=lib
  cmake --build "$place/build" -j "$jobs"
  cmake --install "$place/build"
  touch "$made"
fi

cmake --preset tsan -Wno-dev -DTBB_DIR="$place/install/lib/cmake/TBB"
cmake --build --preset tsan -j "$jobs"
ctest --preset tsan -j "$jobs"
