#!/bin/bash
# Makes a cache, looks into it, meshes it and draws the mesh; then simulates a
# splash and makes the surface of each of its frames.
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

started=$SECONDS
echo
echo "Simulating a splash ..."
"$bin/velmor-demo-splash" "$place/particles"
echo
echo "velmor import $place/particles/particles.####.ply --object splash --cache $place/liquid"
"$bin/velmor" import "$place/particles/particles.####.ply" --object splash \
  --cache "$place/liquid" --droplet-threshold 0.5
mkdir -p "$place/surface"
echo
echo "velmor surface $place/liquid --object splash --render-component Particle ..."
"$bin/velmor" surface "$place/liquid" --object splash --frames 1-48 \
  --render-component Particle --levelset-resolution-factor 2 --levelset-surface-radius 1.0 \
  --levelset-droplet-radius 0.75 --smooth 0.5 --smooth-iterations 2 \
  --mesh "$place/surface/splash.####.ply" --normals --attributes velocity \
  --render "$place/surface/splash.####.png" --size 960x540 \
  --eye 6.5,3.4,6.5 --target 1.9,1.15,0.8 --fov 34
"$bin/velmor-demo-animate" "$place/splash-animated.png" "$place"/surface/splash.*.png
echo "The splash took $((SECONDS - started)) seconds."

echo
echo "The mesh:    $place/splash.ply"
echo "Its picture: $place/splash.png"
echo "The splash:  $place/splash-animated.png (open it in a browser)"
echo "Its frames:  $place/surface"
