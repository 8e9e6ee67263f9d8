#!/usr/bin/env bash
# Times `tavlo decode` of a generated candump log of a million frames into
# /dev/null, on one thread, in text and JSON form, and reports frames per
# second (the median of the runs). The aim is 1,000,000 frames per second or
# more; the script exits 1 when the text form falls below it.
#
#   bench/decode_speed.sh [--frames N] [--runs R] [BUILD_DIR]
#
# BUILD_DIR is a Release build (default build/release; it is configured and
# the command built when needed). The log is made once by
# examples/make_log.py and kept in BUILD_DIR/bench.
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
cmake --build "$build" --target tavlo -j "$(nproc 2>/dev/null || echo 2)" >/dev/null

log="$build/bench/vehicle-$frames.log"
if [ ! -s "$log" ]; then
  mkdir -p "$build/bench"
  echo "making $log ($frames frames) ..." >&2
  python3 examples/make_log.py --frames "$frames" --seed 1 --output "$log.tmp"
  mv "$log.tmp" "$log"
fi

# The median wall time of the runs, in seconds.
median_seconds() {
  local times=()
  for _ in $(seq "$runs"); do
    local start end
    start=$(date +%s.%N)
    "$build/tools/tavlo" decode "$@" examples/vehicle.dbc "$log" >/dev/null
    end=$(date +%s.%N)
    times+=("$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.6f", b - a }')")
  done
  printf '%s\n' "${times[@]}" | sort -g | sed -n "$(( (runs + 1) / 2 ))p"
}

status=0
for format in text json; do
  seconds=$(median_seconds --format "$format")
  rate=$(awk -v f="$frames" -v s="$seconds" 'BEGIN { printf "%.0f", f / s }')
  printf 'tavlo decode --format %-4s  %d frames  %.3f s  %.0f frames/s  (median of %d)\n' \
    "$format" "$frames" "$seconds" "$rate" "$runs"
  if [ "$format" = text ] && [ "$rate" -lt 1000000 ]; then
    status=1
  fi
done
if [ "$status" != 0 ]; then
  echo "below the aim of 1,000,000 frames per second" >&2
fi
exit "$status"
