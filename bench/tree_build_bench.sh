#!/usr/bin/env bash
# Builds one document's hierarchy through the object model (tree_build_bench) and with HDF5
# (the peers' hdf5_build: one group per container, one attribute per primitive, in memory),
# one after the other in one sitting, and prints both rates and their ratio. Asserts nothing.
#   bench/tree_build_bench.sh BUILD_DIR HDF5_BUILD DOCUMENT [RUNS]     (3 runs by default)
set -euo pipefail
build=${1:?usage: tree_build_bench.sh BUILD_DIR HDF5_BUILD DOCUMENT [RUNS]}
hdf5=${2:?usage: tree_build_bench.sh BUILD_DIR HDF5_BUILD DOCUMENT [RUNS]}
document=${3:?usage: tree_build_bench.sh BUILD_DIR HDF5_BUILD DOCUMENT [RUNS]}
runs=${4:-3}

# Both print "NAME BYTES BEST_S MB/S MEDIAN_S" and their counts on standard error; ours adds
# the time of its client's own part (reading the names and values, building nothing).
read -r _ _ ours_s ours _ client_s < <("$build/bench/tree_build_bench" "$document" "$runs")
read -r _ _ hdf5_s theirs _ < <("$hdf5" "$document" "$runs")
printf '%-12s %9s %8s\n' builder best_s MB/s
printf '%-12s %9s %8s\n' kpl "$ours_s" "$ours" hdf5 "$hdf5_s" "$theirs"
awk -v a="$ours" -v b="$theirs" 'BEGIN {printf "kpl builds %.1f x as fast as hdf5\n", a / b}'
awk -v c="$client_s" -v k="$ours_s" -v h="$hdf5_s" 'BEGIN {
  printf "of kpl'"'"'s %.4f s, the client reading names and values takes %.4f s and the library %.4f s\n", k, c, k - c
  printf "10 x hdf5 would be %.4f s in all, %.4f s for the library\n", h / 10, h / 10 - c }'
