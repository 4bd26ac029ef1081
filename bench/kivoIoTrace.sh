#!/usr/bin/env bash
# Counts what the kernel is asked for while kivo reads the metadata of each
# benchmark scene: read(2)/pread64(2) calls and the bytes they returned, and
# lseek(2) calls, on the scene file's descriptors only. strace sees every
# request the C++ library makes on kivo's behalf, whatever its buffering.
# Usage: bench/kivoIoTrace.sh BUILD/bench/kivo_bench
set -euo pipefail
bench=${1:?usage: $0 path/to/kivo_bench}
command -v strace >/dev/null || { echo "kivoIoTrace.sh needs strace" >&2; exit 1; }
dir=$(mktemp -d "${TMPDIR:-/tmp}/kivo-io-XXXXXX")
trap 'rm -rf "$dir"' EXIT
"$bench" --kivo_make_scenes="$dir"
printf '%-18s %12s %12s %8s %8s\n' scene "file bytes" "bytes read" reads seeks
for file in "$dir"/scene_*; do
  strace -o "$dir/trace" -e trace=openat,read,pread64,lseek,close \
    "$bench" --kivo_read_scene="$file"
  awk -v file="$file" -v name="$(basename "$file")" -v size="$(stat -c %s "$file")" '
    function result(line,  n, parts) { n = split(line, parts, "= "); return parts[n] + 0 }
    index($0, "openat(") == 1 {
      rest = substr($0, index($0, "\"") + 1)
      if (substr(rest, 1, index(rest, "\"") - 1) == file && result($0) >= 0) open[result($0)] = 1
      next
    }
    {
      call = substr($0, 1, index($0, "(") - 1)
      rest = substr($0, index($0, "(") + 1)
      fd = substr(rest, 1, match(rest, /[,)]/) - 1) + 0
      if (!(fd in open)) next
      if (call == "read" || call == "pread64") { reads++; if (result($0) > 0) bytes += result($0) }
      else if (call == "lseek") seeks++
      else if (call == "close") delete open[fd]
    }
    END { printf "%-18s %12d %12d %8d %8d\n", name, size, bytes, reads, seeks }
  ' "$dir/trace"
done
