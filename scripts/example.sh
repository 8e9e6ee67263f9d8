#!/usr/bin/env bash
# Builds the library in Release and runs the bundled example, which builds a
# database in memory, looks things up, copies it, writes the copy as a database
# file and reads it back.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release -j "$(nproc 2>/dev/null || echo 2)" --target first_database
build/release/examples/first_database
