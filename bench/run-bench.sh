#!/usr/bin/env bash
# make bench: writes the corpora once (outside the repository), then times velmora over them.
#   bench/run-bench.sh BUILD_DIR [velmora-bench options, e.g. --runs 3 --only small]
# VELMORA_BENCH_DIR chooses where the corpora live (about 600 MB).
set -eu
build=${1:-build/bench}
shift || true
data=${VELMORA_BENCH_DIR:-${TMPDIR:-/tmp}/velmora-bench}
"$build/bench/velmora-bench-corpus" "$data"
exec "$build/bench/velmora-bench" --corpora "$data" "$@"
