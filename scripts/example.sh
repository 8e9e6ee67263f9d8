#!/usr/bin/env bash
# Builds the library and the tavlo command in Release and runs them on the
# bundled examples: `tavlo decode` decodes the example bus log with the
# example vehicle database (the first lines are shown; the whole output is
# kept in build/release/examples/vehicle.decoded.txt); then the two example
# programs run: the first builds a database in memory, looks things up,
# copies it, writes the copy as a database file and reads it back; the second
# shares a database file between two managers, locks it and sends the change
# notification.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release -j "$(nproc 2>/dev/null || echo 2)" \
  --target tavlo first_database shared_databases

decoded=build/release/examples/vehicle.decoded.txt
echo "\$ tavlo decode examples/vehicle.dbc examples/vehicle.log"
build/release/tools/tavlo decode examples/vehicle.dbc examples/vehicle.log >"$decoded"
sed -n '1,12p' "$decoded"
echo "... $(wc -l <"$decoded") frames decoded in all (see $decoded)"
echo

build/release/examples/first_database
build/release/examples/shared_databases
