#!/usr/bin/env bash
# Times `kmeta import` into the memory store, a store file and a PostgreSQL store, each as a
# whole process: seconds, MB/s, peak memory, and for the persistent stores the bytes they
# take against the bytes of the records they hold. Two documents: the generated one of
# MEGABYTES (parts of four values each), and a million values side by side in one group.
# The PostgreSQL store lives on a scratch server that the script starts (fsync on, as a real
# server has it; a Unix socket only). Asserts nothing; prints figures to compare across
# versions.
#   bench/kmeta_import_bench.sh BUILD_DIR [MEGABYTES]     (50 by default)
set -euo pipefail
build=${1:?usage: kmeta_import_bench.sh BUILD_DIR [MEGABYTES]}
megabytes=${2:-50}
# The script runs again beside the server, with libpq's environment pointing at it.
if [ -z "${KPL_BENCH_SERVER:-}" ]; then
  exec env KPL_BENCH_SERVER=1 "$build/bench/with_scratch_postgres" "$0" "$@"
fi
kmeta=$build/tools/kmeta/kmeta
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$build/bench/kmeta_bench_document" "$megabytes" > "$work/parts.xml"
"$build/bench/kmeta_bench_document" --siblings 1000000 > "$work/siblings.xml"
printf '%-9s %-9s %9s %8s %8s %10s %10s %11s %10s\n' \
    document store doc-MB seconds MB/s peak-MB records record-MB store-MB

# One import: $1 names the document, $2 the kind of store, $3 is the --store argument.
import() {
  local document=$work/$1.xml start end
  start=$(date +%s.%N)
  "$kmeta" import --stats --store "$3" "$document" > "$work/stats"
  end=$(date +%s.%N)
  # "records N used U peak-kb K". Each offset ever given out costs the store 8 bytes of
  # used(), and an import frees none, so the records' own bytes are U - 8 N.
  read -r _ records _ used _ peak < "$work/stats"
  local size=-
  case $2 in
    file) size=$(stat -c %s "$3") ;;
    postgres) size=$(psql -XAt -d "$1" -c "SELECT sum(pg_total_relation_size(t))
                       FROM unnest('{kpl_stores,kpl_records,kpl_free}'::regclass[]) AS t") ;;
  esac
  awk -v document="$1" -v name="$2" -v s="$(awk -v a="$start" -v b="$end" 'BEGIN { print b - a }')" \
      -v bytes="$(stat -c %s "$document")" -v peak="$peak" -v records="$records" \
      -v used="$used" -v size="$size" \
      'BEGIN { printf "%-9s %-9s %9.1f %8.2f %8.1f %10.1f %10d %11.1f %10s\n", document, name,
               bytes / 1e6, s, bytes / 1e6 / s, peak / 1024, records, (used - 8 * records) / 1e6,
               size == "-" ? "-" : sprintf("%.1f", size / 1e6) }'
}

for document in parts siblings; do
  import "$document" memory :memory:
  import "$document" file "$work/$document.db"
  psql -XAq -c "CREATE DATABASE $document"
  import "$document" postgres "postgresql:///$document?store=bench"
done
