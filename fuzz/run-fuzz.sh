#!/usr/bin/env bash
# Runs every fuzz target for a bounded time, one after the other (the machine is shared).
# usage: fuzz/run-fuzz.sh BUILD_DIR SECONDS
#   FUZZ_TARGETS  the targets to run (default: all), e.g. "zip_directory cli_answer"
#   FUZZ_RUNS     stop a target after this many executions (default: time only)
# Crashes, leaks and broken invariants are saved as BUILD_DIR/crashes/<target>/crash-*; copy
# each into tests/data/fuzz/<target>/ with its fix so that `make test` replays it.
set -u
build=${1:?build dir}
seconds=${2:-60}
src=$(cd "$(dirname "$0")/.." && pwd)
all="request_line cli_answer pop3_retrieve zip_directory attachment_names dataset_reader transfer_decoders message_walker"
targets=${FUZZ_TARGETS:-$all}

seed() {  # target corpus: the target's seeds, its saved inputs, and test data that fits it
  local t=$1 corpus=$2
  mkdir -p "$corpus"
  for d in "$src/fuzz/seeds/$t" "$src/tests/data/fuzz/$t"; do
    [ -d "$d" ] && find "$d" -type f -exec cp -n {} "$corpus/" \;
  done
  case $t in
    message_walker) cp -n "$src"/tests/data/messages/* "$corpus/" 2>/dev/null ;;
    dataset_reader)
      find "$src/tests/data/base" -type f -size -64k | while read -r f; do
        cp -n "$f" "$corpus/$(echo "${f#"$src"/}" | tr / _)"
      done ;;
  esac
}

# A small quarantine: use-after-free is still caught, without the page faults of a large one.
export ASAN_OPTIONS=${ASAN_OPTIONS:-quarantine_size_mb=16}

status=0
summary=""
for t in $targets; do
  bin="$build/fuzz/${t}_fuzzer"
  [ -x "$bin" ] || { echo "missing $bin (cmake --build --preset fuzz)" >&2; exit 2; }
  corpus="$build/corpus/$t"
  crashes="$build/crashes/$t"
  log="$build/logs/$t.log"
  mkdir -p "$crashes" "$(dirname "$log")"
  seed "$t" "$corpus"
  extra=()
  [ -n "${FUZZ_RUNS:-}" ] && extra+=("-runs=$FUZZ_RUNS")
  [ "$t" = message_walker ] && extra+=("-max_len=16384")
  echo "== $t: ${seconds}s"
  "$bin" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
    -dict="$src/fuzz/dict/$t.dict" -artifact_prefix="$crashes/" "${extra[@]}" "$corpus" \
    >"$log" 2>&1
  rc=$?
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  cov=$(grep -o 'cov: [0-9]*' "$log" | tail -1)
  ft=$(grep -o 'ft: [0-9]*' "$log" | tail -1)
  line="$t: rc=$rc executions=${runs:-?} ${cov:-cov: ?} ${ft:-ft: ?}"
  if [ $rc -ne 0 ]; then
    status=1
    line="$line FINDING (see $log)"
  fi
  echo "$line"
  summary="$summary$line"$'\n'
done
echo
echo "$summary"
saved=$(find "$build/crashes" -type f 2>/dev/null)
[ -n "$saved" ] && printf 'saved inputs:\n%s\n' "$saved"
exit $status
