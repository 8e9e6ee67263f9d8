#!/usr/bin/env bash
# pip install --no-build-isolation . of a copy of the source tree, into a
# fresh virtual environment that sees Debian's packages, nothing fetched;
# then the installed package, imported from outside any tree, loads a
# database and decodes a log.
#   tests/python/pip_install.sh PYTHON SOURCE_DIR WORK_DIR
set -euo pipefail
python=$1
source=$2
work=$3
rm -rf "$work"
mkdir -p "$work/tree"
tar -C "$source" --exclude='./build*' --exclude=./.git --exclude='*.egg-info' -cf - . |
    tar -C "$work/tree" -xf -
"$python" -m venv --system-site-packages "$work/env"
"$work/env/bin/pip" install --quiet --no-build-isolation --no-deps --no-index "$work/tree"
cd "$work"
"$work/env/bin/python" - "$source/examples" <<'CHECK'
import sys
from pathlib import Path
import tavloms
installed = Path(tavloms.__file__).resolve()
assert installed.is_relative_to(Path(sys.prefix).resolve()), installed
db = tavloms.load(sys.argv[1] + "/vehicle.dbc", strict=True)
tables = db.decode_log(sys.argv[1] + "/vehicle.log")
assert tables and all(len(table) for table in tables.values()), tables
print("installed at", installed.parent, "with", len(tables), "messages decoded")
CHECK
