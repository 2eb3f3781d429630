#!/usr/bin/env bash
# Prepares the sample drawing for re-layering, as a CAD manager would: the
# default layer standard, then a project "Maison témoin" with the building
# "Bâtiment A" and two levels; the walls and columns (with the structural
# entities on COLUMNS) belong to "Niveau 1", the rest goes to the level being
# worked on, "Niveau 0".
#
#   examples/prepare_sample.sh ZEFTLAYER DATA_DIR OUT.dxf
#
# ZEFTLAYER is the program, DATA_DIR the data folder whose standards folder
# receives the default standard; examples/sample.dxf itself is not changed.
set -euo pipefail
if [[ $# -ne 3 ]]; then
  echo "usage: $0 ZEFTLAYER DATA_DIR OUT.dxf" >&2
  exit 2
fi
zeftlayer=$1 data=$2 out=$3
here=$(cd "$(dirname "$0")" && pwd)

"$zeftlayer" --data-dir "$data" install "$here/sample.dxf" Beltrix -o "$out"
project() { "$zeftlayer" project "$out" "$@" >/dev/null; }
project set --project "Maison témoin" --building "Bâtiment A" --mode level
project level add "Niveau 0"
project level add "Niveau 1"
project level assign "Niveau 1" --layer WALLS --layer COLUMNS
project set --active "Niveau 0"
echo "Project \"Maison témoin\": building \"Bâtiment A\", levels \"Niveau 0\" (active) and \"Niveau 1\" (walls, columns)"
