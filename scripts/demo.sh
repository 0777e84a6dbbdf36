#!/bin/bash
# Makes a cache, looks into it, meshes it and draws the mesh.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
bin=build/release/bin
place=${1:-build/demo}
mkdir -p "$place"

echo
echo "Making a cache ..."
"$bin/velmor-demo-cache" "$place/cache"
echo
echo "velmor info $place/cache"
"$bin/velmor" info "$place/cache"
echo
echo "velmor mesh $place/cache -o $place/splash.ply"
"$bin/velmor" mesh "$place/cache" -o "$place/splash.ply"
"$bin/velmor-demo-picture" "$place/splash.ply" "$place/splash.png"
echo
echo "The mesh:    $place/splash.ply"
echo "Its picture: $place/splash.png"
