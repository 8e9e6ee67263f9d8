#!/usr/bin/env bash
# Fuzzes with libFuzzer under AddressSanitizer and UndefinedBehaviorSanitizer
# (leaks checked), one target after another, sharing out the time: half to
# the database file reader (read), a quarter each to the JSON converter
# module's import (json) and to the log readers of tavlo decode (logline: candump, ASC, BLF, TRC).
#   scripts/fuzz.sh [seconds]     default 60, for all three together
# Builds build/fuzz with clang and seeds build/fuzz/seeds/<target>: the reader
# from the database files under tests/ and small generated databases, the
# import from the JSON export of those files (by the tavlo command built in
# the same tree), the log-line parser from the logs of the tool tests and the
# example. New inputs are kept in build/fuzz/corpus/<target>. A crash, leak,
# timeout or memory overrun in any target fails the script; the input that
# caused it is saved in fuzz-findings/, named after its target. Prints
# "SKIPPED: fuzz: <reason>" and succeeds when the package archive keeps
# clang or its runtimes from being installed.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-60}"
[[ "$seconds" =~ ^[0-9]+$ ]] || { echo "usage: scripts/fuzz.sh [seconds]" >&2; exit 2; }
jobs="$(nproc 2>/dev/null || echo 2)"
build=build/fuzz
max_len=65536

status=0
scripts/deps.sh fuzz || status=$?
[[ $status -eq 3 ]] && exit 0  # skipped, having said why: clang cannot be had
[[ $status -eq 0 ]] || exit "$status"

echo "== fuzz: configuring $build"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
      -DTAVLOMS_BUILD_FUZZ=ON -DTAVLOMS_BUILD_TESTS=OFF \
      -DTAVLOMS_BUILD_BENCH=OFF -DTAVLOMS_BUILD_EXAMPLES=OFF >/dev/null
echo "== fuzz: building"
cmake --build "$build" -j "$jobs" --target read_fuzzer json_fuzzer logline_fuzzer \
      generate_database tavlo tavlo_json

echo "== fuzz: seeds"
seeds="$build/seeds"
rm -rf "$seeds"
mkdir -p "$seeds/read" "$seeds/json" "$seeds/logline" fuzz-findings
while IFS= read -r -d '' file; do
    name="${file#tests/}"
    name="${name//\//_}"
    head -c "$max_len" "$file" > "$seeds/read/$name"
    # A file the reader refuses has no export.
    "$build/tools/tavlo" convert "$file" "$seeds/json/${name%.*}.json" >/dev/null 2>&1 || true
done < <(find tests -type f \( -iname '*.dbc' \) -print0 | sort -z)
for messages in 3 40; do   # every kind of line the generator makes, under 64 KB
    "$build/fuzz/generate_database" "$messages" "$seeds/read/generated_$messages.dbc"
done
cp tests/tools/data/*.log "$seeds/logline/"
head -n 100 examples/vehicle.log > "$seeds/logline/vehicle.log"
# The forms the logs above do not show: screen form, FD and remote frames.
printf '%s\n' '  can0  123   [4]  11 22 33 44' '  vcan1  1F334455   [8]  01 02 03 04 05 06 07 08' \
    '(1600000000.000100) can0 123##1112233' '(1600000000.000200) can0 123#R' \
    > "$seeds/logline/forms.log"
for target in read json logline; do
    count="$(ls "$seeds/$target" | wc -l)"
    [[ "$count" -gt 0 ]] || { echo "== fuzz: no seeds for $target" >&2; exit 1; }
    echo "$target: $count seed files"
done

export ASAN_OPTIONS="detect_leaks=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
failed=()
# fuzz TARGET SECONDS MAX_LEN [libFuzzer options]; a share of 0 s would
# have libFuzzer run without end, so every target has a second at least.
fuzz() {
    local target="$1" time="$2" length="$3"
    shift 3
    (( time > 0 )) || time=1
    echo "== fuzz: $target for $time s"
    mkdir -p "$build/corpus/$target"
    "$build/fuzz/${target}_fuzzer" -max_total_time="$time" -max_len="$length" -timeout=10 \
        -rss_limit_mb=2048 -artifact_prefix="fuzz-findings/$target-" -print_final_stats=1 \
        "$@" "$build/corpus/$target" "$seeds/$target" || failed+=("$target")
}
fuzz read $((seconds / 2)) "$max_len" -dict=fuzz/dbc.dict
# The module's complaint about every refused document would flood the log.
fuzz json $((seconds / 4)) "$max_len" -dict=fuzz/json.dict -close_fd_mask=2
fuzz logline $((seconds - seconds / 2 - seconds / 4)) 4096

if [[ ${#failed[@]} -ne 0 ]]; then
    echo "== fuzz: FAILED: ${failed[*]}; the inputs are in fuzz-findings/" >&2
    exit 1
fi
echo "== fuzz: no crash, leak or timeout in $seconds s"
