#!/usr/bin/env bash
# Builds the library in Release and runs the bundled examples: the first
# builds a database in memory, looks things up, copies it, writes the copy as
# a database file and reads it back; the second shares a database file between
# two managers, locks it and sends the change notification.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release -j "$(nproc 2>/dev/null || echo 2)" --target first_database shared_databases
build/release/examples/first_database
build/release/examples/shared_databases
