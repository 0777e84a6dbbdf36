#!/bin/bash
# Installs the Debian packages of the given purposes (see packages.txt); asks
# nothing, and touches nothing where all of them are there.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

wanted=()
for purpose in "${@:-build}"; do
  while read -r kind package; do
    if [ "$kind" = "$purpose" ]; then wanted+=("$package"); fi
  done <"$here/packages.txt"
done

missing=()
for package in "${wanted[@]}"; do
  state=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
  if [ "$state" != installed ]; then missing+=("$package"); fi
done
if [ ${#missing[@]} -eq 0 ]; then exit 0; fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "setup: these packages are missing and there is no sudo to install them; as root, run:" >&2
    echo "  apt-get install ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi

echo "setup: installing ${missing[*]}"
"${as_root[@]}" apt-get -q update
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get -q -y --no-install-recommends install "${missing[@]}"
