#!/usr/bin/env bash
# Times `tavlo decode` into /dev/null, on one thread, in each output form, on
# a generated log of random frames of a generated database of 2,000
# messages of 8 signals, and reports frames per second (the median of the
# runs). The aims are 3,000,000 frames per second for text and 2,000,000
# for the other forms; the script exits 1 when a form falls below its aim.
#
#   bench/decode_speed.sh [--frames N] [--runs R] [BUILD_DIR]
#
# BUILD_DIR is a Release build (default build/release; it is configured and
# the command built when needed). The database and the log are made once by
# tavloms_make_decode_input and kept in BUILD_DIR/bench.
set -euo pipefail
cd "$(dirname "$0")/.."

frames=1000000
runs=5
build=build/release
while [ $# -gt 0 ]; do
  case "$1" in
    --frames) frames="$2"; shift 2 ;;
    --runs) runs="$2"; shift 2 ;;
    -h|--help) sed -n '2,11p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    -*) echo "decode_speed.sh: unknown option $1" >&2; exit 2 ;;
    *) build="$1"; shift ;;
  esac
done

if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
fi
if ! grep -q '^CMAKE_BUILD_TYPE:STRING=Release$' "$build/CMakeCache.txt"; then
  echo "decode_speed.sh: $build is not a Release build" >&2
  exit 2
fi
cmake --build "$build" --target tavlo tavloms_make_decode_input \
  -j "$(nproc 2>/dev/null || echo 2)" >/dev/null

db="$build/bench/generated-2000.dbc"
log="$build/bench/generated-$frames.log"
if [ ! -s "$log" ] || [ ! -s "$db" ]; then
  mkdir -p "$build/bench"
  echo "making $db and $log ($frames frames) ..." >&2
  "$build/bench/tavloms_make_decode_input" "$db.tmp" "$log.tmp" "$frames"
  mv "$db.tmp" "$db"
  mv "$log.tmp" "$log"
fi

# The median wall time of the runs, in seconds.
median_seconds() {
  local times=()
  for _ in $(seq "$runs"); do
    local start end
    start=$(date +%s.%N)
    "$build/tools/tavlo" decode "$@" "$db" "$log" >/dev/null
    end=$(date +%s.%N)
    times+=("$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.6f", b - a }')")
  done
  printf '%s\n' "${times[@]}" | sort -g | sed -n "$(( (runs + 1) / 2 ))p"
}

status=0
for format in text json csv; do
  seconds=$(median_seconds --format "$format")
  rate=$(awk -v f="$frames" -v s="$seconds" 'BEGIN { printf "%.0f", f / s }')
  printf 'tavlo decode --format %-4s  %d frames  %.3f s  %.0f frames/s  (median of %d)\n' \
    "$format" "$frames" "$seconds" "$rate" "$runs"
  aim=2000000
  if [ "$format" = text ]; then
    aim=3000000
  fi
  if [ "$rate" -lt "$aim" ]; then
    echo "tavlo decode --format $format: below the aim of $aim frames per second" >&2
    status=1
  fi
done
exit "$status"
