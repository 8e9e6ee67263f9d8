#!/usr/bin/env bash
# Measures what the tests catch: applies each mutation of scripts/mutants.txt
# to the tree in turn (a changed comparison or constant, a dropped
# statement, a swapped branch, an off-by-one, a lost free), rebuilds
# incrementally, runs the test programs the mutation names, and says whether
# they failed (killed) or passed (survived); then the kill rate.
#   scripts/mutants.sh [ID...]      every mutation, or only those named
# Builds in build/mutants (no optimisation: it rebuilds fastest). Every
# mutated file is restored afterwards, also when the script is interrupted.
# A mutation whose text is not found exactly once, or that does not
# compile, is reported as such and left out of the rate. Exit status 0
# whatever the rate; 2 when the list itself is broken.
set -euo pipefail
cd "$(dirname "$0")/.."

list=scripts/mutants.txt
build=build/mutants
jobs="$(nproc 2>/dev/null || echo 2)"
python=/usr/bin/python3
per_test_timeout=300

scripts/deps.sh >/dev/null
echo "== mutants: configuring $build"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-O0 \
      -DCMAKE_C_FLAGS_DEBUG=-O0 -DTAVLOMS_BUILD_BENCH=OFF -DTAVLOMS_BUILD_EXAMPLES=OFF >/dev/null
echo "== mutants: building the unmutated tree"
cmake --build "$build" -j "$jobs" >/dev/null

backup="$(mktemp -d)"
current=""
restore() {
    if [[ -n "$current" ]]; then
        cp "$backup/file" "$current"
        current=""
    fi
}
trap 'restore; rm -rf "$backup"' EXIT
trap 'exit 130' INT TERM

# Replaces the one occurrence of FROM in FILE by TO; exit 3 when FROM is not
# there exactly once. "<NL>" in FROM and TO stands for a line end.
apply() {
    "$python" - "$1" "$2" "$3" <<'PY'
import sys
path, old, new = sys.argv[1:4]
old, new = old.replace("<NL>", "\n"), new.replace("<NL>", "\n")
text = open(path, encoding="utf-8").read()
if text.count(old) != 1:
    sys.exit(3)
open(path, "w", encoding="utf-8").write(text.replace(old, new))
PY
}

# Every test program of the build, by its short name.
all_tests=()
for program in "$build"/tests/tavloms_*_tests; do
    name="${program##*/tavloms_}"
    all_tests+=("${name%_tests}")
done

wanted=" $* "
killed=0
survived=0
broken=0
unbuilt=0
start=$SECONDS
tab=$'\t'
# The list comes in on a descriptor of its own: test programs read standard
# input.
while IFS= read -r line <&3; do
    [[ -z "$line" || "$line" == \#* ]] && continue
    # Five fields; "to" may be empty, so they are cut at each tab in turn.
    id="${line%%"$tab"*}"; line="${line#*"$tab"}"
    file="${line%%"$tab"*}"; line="${line#*"$tab"}"
    from="${line%%"$tab"*}"; line="${line#*"$tab"}"
    to="${line%%"$tab"*}"; tests="${line#*"$tab"}"
    [[ $# -gt 0 && "$wanted" != *" $id "* ]] && continue
    cp "$file" "$backup/file"
    current="$file"
    if ! apply "$file" "$from" "$to"; then
        restore
        echo "$id not found once in $file: the list is out of date"
        broken=$((broken + 1))
        continue
    fi
    if ! cmake --build "$build" -j "$jobs" >"$backup/build.log" 2>&1; then
        restore
        echo "$id does not compile ($file)"
        unbuilt=$((unbuilt + 1))
        continue
    fi
    # The programs named, then with "..." every other one.
    programs=()
    for name in $tests; do
        if [[ "$name" == ... ]]; then
            for other in "${all_tests[@]}"; do
                [[ " ${programs[*]} " == *" $other "* ]] || programs+=("$other")
            done
        else
            programs+=("$name")
        fi
    done
    for name in "${programs[@]}"; do
        if [[ ! -x "$build/tests/tavloms_${name}_tests" ]]; then
            restore
            echo "$id names tavloms_${name}_tests, which the build does not have" >&2
            exit 2
        fi
    done
    verdict=survived
    for name in "${programs[@]}"; do
        # In a shell of its own (kept from exec'ing the program by the exit),
        # whose report of a crash goes to the log too.
        if ! (timeout "$per_test_timeout" "$build/tests/tavloms_${name}_tests" --gtest_brief=1
              exit $?) \
                </dev/null >"$backup/test.log" 2>&1; then
            verdict="killed by $name"
            break
        fi
    done
    restore
    if [[ "$verdict" == survived ]]; then
        survived=$((survived + 1))
    else
        killed=$((killed + 1))
    fi
    echo "$id $verdict  ($file: $from)"
done 3<"$list"

# Leave the build as the unmutated tree has it.
cmake --build "$build" -j "$jobs" >/dev/null
total=$((killed + survived))
echo "== mutants: $killed of $total killed ($(( total > 0 ? 100 * killed / total : 0 ))%)," \
     "$survived survived, $unbuilt did not compile, $broken not found; $((SECONDS - start)) s"
[[ $broken -eq 0 ]] || exit 2
