#!/usr/bin/env bash
# Runs every libFuzzer harness of a KIVO_BUILD_FUZZ build for a fixed time,
# starting from its seed corpus, and fails when any of them reports a
# finding (crash, sanitizer report, leak, objects left behind, a timeout over
# 2 s or more than 2 GiB of memory).
#
#   fuzz/runAll.sh BUILD_DIR [SECONDS_EACH] [HARNESS...]
#
# With KIVO_FUZZ_RUNS=N in the environment a harness also stops after N
# executions (the longer runs use 10000000 and a generous time). Those runs
# also default AddressSanitizer to malloc_context_size=0: it stops recording
# a stack for every allocation, which gives the harnesses a third more
# executions a second or better; a finding still saves its input, and
# replaying it shows the full stacks.
#
# New inputs go to BUILD_DIR/fuzz/work/<harness>/ (kept between runs, so a
# second run goes on where the first stopped); a finding is saved as
# BUILD_DIR/fuzz/artifacts/<harness>-crash-... and can be replayed with
# BUILD_DIR/fuzz/kivo_fuzz_<harness> FILE.
set -uo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
build="${1:?usage: $0 BUILD_DIR [SECONDS_EACH] [HARNESS...]}"
seconds="${2:-20}"
runs="${KIVO_FUZZ_RUNS:--1}"
if [ "$runs" != -1 ]; then
  export ASAN_OPTIONS="${ASAN_OPTIONS:-malloc_context_size=0}"
fi
shift $(( $# > 1 ? 2 : 1 ))
harnesses=("$@")
if [ ${#harnesses[@]} -eq 0 ]; then
  harnesses=($(ls "$here/corpus"))
fi
mkdir -p "$build/fuzz/artifacts"
failed=()
for h in "${harnesses[@]}"; do
  binary="$build/fuzz/kivo_fuzz_$h"
  work="$build/fuzz/work/$h"
  mkdir -p "$work"
  log="$build/fuzz/work/$h.log"
  "$binary" -max_total_time="$seconds" -runs="$runs" -timeout=2 -rss_limit_mb=2048 -print_final_stats=1 \
    -dict="$here/kivo.dict" -artifact_prefix="$build/fuzz/artifacts/$h-" \
    "$work" "$here/corpus/$h" >"$log" 2>&1
  status=$?
  executed=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  if [ $status -ne 0 ]; then
    failed+=("$h")
    echo "FAIL $h after ${executed:-?} runs (exit $status); log: $log"
    grep -E -m 5 'ERROR|SUMMARY|kivo fuzz check failed|Test unit written' "$log"
  else
    echo "ok   $h: ${executed:-?} runs within ${seconds}s"
  fi
done
if [ ${#failed[@]} -ne 0 ]; then
  echo "findings in: ${failed[*]}"
  exit 1
fi
