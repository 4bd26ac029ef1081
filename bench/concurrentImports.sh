#!/usr/bin/env bash
# Runs two kivo-meta imports of different nodes into one scene at the same
# moment, ROUNDS times, and counts the rounds that lost an update although
# both commands exited 0. Usage:
#   bench/concurrentImports.sh KIVO_META SCENE.ta|SCENE.tb IMPORT_TEXT [ROUNDS]
set -uo pipefail
tool=$1 scene=$2 text=$3 rounds=${4:-50}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
name=$work/$(basename "$scene")
lost=0 busy=0
for ((round = 1; round <= rounds; ++round)); do
  cp "$scene" "$name"
  "$tool" import "$name" --node "first$round" "$text" >/dev/null 2>"$work/e1" &
  first=$!
  "$tool" import "$name" --node "second$round" "$text" >/dev/null 2>"$work/e2" &
  second=$!
  wait $first; code1=$?
  wait $second; code2=$?
  found=$("$tool" list "$name" | grep -cE "^  node (first|second)$round\$")
  if [ "$code1" -eq 0 ] && [ "$code2" -eq 0 ] && [ "$found" -ne 2 ]; then ((++lost)); fi
  if [ "$code1" -ne 0 ] || [ "$code2" -ne 0 ]; then ((++busy)); cat "$work/e1" "$work/e2"; fi
done
echo "$(basename "$scene"): $rounds rounds, lost updates with exit 0: $lost, rounds with a refusal: $busy"
