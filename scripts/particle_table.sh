#!/bin/bash
# Makes the surface of every particle set in the data beside the project (or in
# the folder given) with nothing but defaults, and draws it from the same place
# as the particles, which are spheres of the surface's radius. Writes the table
# into docs/particle-sets.md and the pictures into docs/pictures/particle-sets.png.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
velmor=build/release/bin/velmor
data=$(cd "${1:-../shared/data}" && pwd)
radius=1.4 # voxels: what --levelset-surface-radius is if left out
view=(--size 300x224 --samples 4)
# Font files have no name that holds everywhere.
font=/usr/share/fonts/truetype/dejavu/DejaVuSansCondensed.ttf

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
rows="| | file | particles | voxel size | vertices | open edges | covered by spheres | by the surface |
|---|---|---|---|---|---|---|---|"
refused=''
pairs=()
number=0

# Draws and measures one file, and adds its row.
add() {
  local file=$1 place=$2
  local cache=$place/cache eye target
  "$velmor" render "$cache" --spheres "$radius" "${view[@]}" --json -o "$place/spheres.png" \
    >"$place/spheres.json"
  eye=$(jq -r '.eye | join(",")' "$place/spheres.json")
  target=$(jq -r '.target | join(",")' "$place/spheres.json")
  # A mesh that is not closed has a row of its own to say so.
  "$velmor" surface "$cache" --object set --render-component Particle --json --allow-open \
    --mesh "$place/set.ply" --render "$place/surface.png" "${view[@]}" \
    --eye="$eye" --target="$target" >"$place/surface.json" 2>"$place/surface.txt"
  number=$((number + 1))
  rows+=$'\n'$(jq -r -n --arg file "$file" --arg number "$number" \
    --slurpfile read "$place/import.json" --slurpfile spheres "$place/spheres.json" \
    --slurpfile surface "$place/surface.json" '
      def percent: . * 1000 | round / 10;
      $surface[0].frames[0] as $frame
      | "| \($number) | \($file) | \($read[0].frames[0].particles)"
        + " | \($read[0].voxel_size * 10000 | round / 10000)"
        + " | \($frame.vertices) | \($frame.open_edges)"
        + " | \($spheres[0].covered | percent) % | \($frame.covered | percent) % |"')
  montage -font "$font" "$place/spheres.png" "$place/surface.png" -background '#e8ecf0' \
    -tile 2x1 -geometry 150x112+0+0 "$place/pair.png"
  pairs+=(-label "$number  $(basename "$file")" "$place/pair.png")
}

while read -r file; do
  place=$work/${file//\//-}
  mkdir "$place"
  if "$velmor" import "$data/$file" --object set --cache "$place/cache" --json \
    >"$place/import.json" 2>"$place/import.txt"; then
    add "$file" "$place"
  elif [ "${file##*.}" != vdb ]; then # most of those hold grids of voxels
    refused+="* $file: $(tail -1 "$place/import.txt" | sed "s|.*/$file: *\(frame 1: \)\?||")"$'\n'
  fi
done < <(cd "$data" && find . -type f -printf '%P\n' |
  grep -E '\.(bgeo|geo|vtk|vtu|vtp|ply|csv|xyz|grid|gz|vdb)$' | LC_ALL=C sort)

[ "$number" -gt 0 ] || { echo "particle_table: no particles below $data" >&2; exit 3; }
printf '%s\n\nRefused:\n\n%s' "$rows" "$refused" | scripts/insert_table.sh docs/particle-sets.md
montage -font "$font" -pointsize 11 -background '#e8ecf0' "${pairs[@]}" -tile 4x -geometry +4+3 \
  "$work/sheet.png"
convert "$work/sheet.png" -strip +dither -colors 64 PNG8:docs/pictures/particle-sets.png
