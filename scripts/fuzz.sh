#!/usr/bin/env bash
# Fuzzes the database file reader with libFuzzer under AddressSanitizer and
# UndefinedBehaviorSanitizer (leaks checked).
#   scripts/fuzz.sh [seconds]     default 60
# Prints "SKIPPED: fuzz: <reason>" and succeeds when the package archive keeps
# clang or its runtimes from being installed.
# Builds build/fuzz with clang, seeds build/fuzz/seeds from the database files
# under tests/ and small generated databases, and fuzzes for the given time;
# new inputs are kept in build/fuzz/corpus. A crash, leak, timeout or memory
# overrun fails the script; the input that caused it is saved in
# fuzz-findings/.
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
cmake --build "$build" -j "$jobs" --target read_fuzzer generate_database

echo "== fuzz: seeds"
seeds="$build/seeds"
rm -rf "$seeds"
mkdir -p "$seeds" "$build/corpus" fuzz-findings
while IFS= read -r -d '' file; do
    name="${file#tests/}"
    head -c "$max_len" "$file" > "$seeds/${name//\//_}"
done < <(find tests -type f \( -iname '*.dbc' \) -print0 | sort -z)
for messages in 3 40; do   # every kind of line the generator makes, under 64 KB
    "$build/fuzz/generate_database" "$messages" "$seeds/generated_$messages.dbc"
done
echo "$(ls "$seeds" | wc -l) seed files"

echo "== fuzz: running for $seconds s"
export ASAN_OPTIONS="detect_leaks=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
status=0
"$build/fuzz/read_fuzzer" -max_total_time="$seconds" -max_len="$max_len" -timeout=10 \
    -rss_limit_mb=2048 -dict=fuzz/dbc.dict -artifact_prefix=fuzz-findings/ \
    -print_final_stats=1 "$build/corpus" "$seeds" || status=$?
if [[ $status -ne 0 ]]; then
    echo "== fuzz: FAILED (exit $status); the input is in fuzz-findings/" >&2
    exit "$status"
fi
echo "== fuzz: no crash, leak or timeout in $seconds s"
