#!/usr/bin/env bash
# Kills kivo-meta (SIGKILL, injected with strace) just before each of its
# file-changing system calls while it changes a scene, and then RANDOM more
# times (default 50) at a random moment of its run, lets the next command
# recover the file, and counts how the file came out: the old bytes, the new
# bytes, or anything else. Usage (RANDOM_RUNS=N in the environment):
#   bench/crashRuns.sh KIVO_META SCENE.ta|SCENE.tb 'import --node aFirst plane.txt' [more commands]
# The commands run in the scene's folder, FILE standing for the scene.
set -uo pipefail
tool=$1 scene=$2
shift 2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$(dirname "$scene")"/*.txt "$work"/ 2>/dev/null || true
name=$(basename "$scene")
old=$work/old new=$work/new
cp "$scene" "$old"
calls=(write pwrite64 ftruncate fsync fallocate unlink)
randomRuns=${RANDOM_RUNS:-50}
for command in "$@"; do
  cp "$old" "$work/$name"
  (cd "$work" && $tool ${command/FILE/$name} >/dev/null) || { echo "clean run failed: $command"; exit 1; }
  cp "$work/$name" "$new"
  runs=0 oldFile=0 newFile=0 other=0
  tally() {
    ((++runs))
    (cd "$work" && $tool list "$name" >/dev/null 2>&1)
    if cmp -s "$work/$name" "$old"; then ((++oldFile))
    elif cmp -s "$work/$name" "$new"; then ((++newFile))
    else ((++other)); fi
  }
  for call in "${calls[@]}"; do
    for ((n = 1; ; ++n)); do
      cp "$old" "$work/$name"
      rm -f "$work/$name.kivo-journal"
      (cd "$work" && strace -f -o /dev/null -e trace="$call" -e inject="$call":signal=KILL:when=$n \
        $tool ${command/FILE/$name} >/dev/null 2>&1)
      status=$?
      [ $status -eq 0 ] && break  # no n-th call: the command ran to its end
      tally
    done
  done
  echo "$name, $command, before each call: $runs kills, old file $oldFile, new file $newFile, other $other"
  # Random moments: a delay up to the clean run's own duration.
  start=$(date +%s%N)
  cp "$old" "$work/$name"
  (cd "$work" && $tool ${command/FILE/$name} >/dev/null 2>&1)
  span=$(( ($(date +%s%N) - start) / 1000 ))
  runs=0 oldFile=0 newFile=0 other=0
  for ((i = 0; i < randomRuns; ++i)); do
    cp "$old" "$work/$name"
    rm -f "$work/$name.kivo-journal"
    (cd "$work" && exec $tool ${command/FILE/$name} >/dev/null 2>&1) &
    pid=$!
    sleep "$(printf '0.%06d' $(( (RANDOM * 32768 + RANDOM) % (span + 1) )))"
    kill -KILL $pid 2>/dev/null
    wait $pid 2>/dev/null
    tally
  done
  echo "$name, $command, at random moments: $runs kills, old file $oldFile, new file $newFile, other $other"
done
