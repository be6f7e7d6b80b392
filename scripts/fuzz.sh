#!/usr/bin/env bash
# Builds the libFuzzer programs with clang (the fuzz preset: AddressSanitizer and
# UndefinedBehaviorSanitizer; it also builds the whole core library and the hook
# command, which must compile with clang too) and runs each one on its starting inputs
# in fuzz/corpus/<surface>/ for a while: 20 s each by default, or the seconds given
# as the first argument. Two run at a time. New inputs go to a scratch folder, so
# the inputs in the repository stay as they are; an input that breaks a program is
# kept as build/fuzz/crash-<surface>-… and the script fails.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-20}
jobs=$(nproc)

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j"$jobs" >build/fuzz/build.log 2>&1 || {
  cat build/fuzz/build.log >&2
  exit 1
}

scratch=$(mktemp -d /tmp/tidewick-fuzz-XXXXXX)
trap 'rm -rf "$scratch"' EXIT
run() {
  local surface=$1
  mkdir -p "$scratch/$surface"
  if build/fuzz/bin/fuzz_"$surface" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
      -print_final_stats=1 -artifact_prefix="build/fuzz/crash-$surface-" \
      "$scratch/$surface" "fuzz/corpus/$surface" >"$scratch/$surface.log" 2>&1; then
    echo "fuzz_$surface: $(grep -o 'stat::number_of_executed_units: *[0-9]*' "$scratch/$surface.log" |
      grep -o '[0-9]*$') runs, nothing found"
  else
    tail -40 "$scratch/$surface.log" >&2
    echo "fuzz_$surface: FAILED (input kept under build/fuzz/crash-$surface-*)" >&2
    return 1
  fi
}

surfaces=(json wire adapters sessions control editors)
failed=0
for ((i = 0; i < ${#surfaces[@]}; i += jobs)); do
  pids=()
  for surface in "${surfaces[@]:i:jobs}"; do
    run "$surface" &
    pids+=($!)
  done
  for pid in "${pids[@]}"; do
    wait "$pid" || failed=1
  done
done
exit $failed
