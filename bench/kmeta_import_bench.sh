#!/usr/bin/env bash
# Times `kmeta import` of a generated document into a store file and into the memory store,
# each as a whole process: seconds, MB/s, peak memory, and for the file, its size against the
# bytes of the records it holds. Asserts nothing; prints figures to compare across versions.
#   bench/kmeta_import_bench.sh BUILD_DIR [MEGABYTES]     (50 by default)
set -euo pipefail
build=${1:?usage: kmeta_import_bench.sh BUILD_DIR [MEGABYTES]}
megabytes=${2:-50}
kmeta=$build/tools/kmeta/kmeta
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$build/bench/kmeta_bench_document" "$megabytes" > "$work/document.xml"
bytes=$(stat -c %s "$work/document.xml")
printf 'document: %.1f MB\n' "$(awk -v b="$bytes" 'BEGIN { print b / 1e6 }')"
printf '%-8s %8s %8s %10s %10s %12s %12s\n' store seconds MB/s peak-MB records record-MB file-MB

# One import: $1 names the row, $2 is the --store argument.
import() {
  local start end
  start=$(date +%s.%N)
  "$kmeta" import --stats --store "$2" "$work/document.xml" > "$work/stats"
  end=$(date +%s.%N)
  # "records N used U peak-kb K". Each offset ever given out costs the store 8 bytes of
  # used(), and an import frees none, so the records' own bytes are U - 8 N.
  read -r _ records _ used _ peak < "$work/stats"
  local file=-
  [ "$2" != :memory: ] && file=$(awk -v b="$(stat -c %s "$2")" 'BEGIN { printf "%.1f", b / 1e6 }')
  awk -v name="$1" -v s="$(awk -v a="$start" -v b="$end" 'BEGIN { print b - a }')" \
      -v bytes="$bytes" -v peak="$peak" -v records="$records" -v used="$used" -v file="$file" \
      'BEGIN { printf "%-8s %8.2f %8.1f %10.1f %10d %12.1f %12s\n", name, s, bytes / 1e6 / s,
               peak / 1024, records, (used - 8 * records) / 1e6, file }'
}

import memory :memory:
import file "$work/store"
