#!/usr/bin/env bash
# Instruction profile of velmora over the first N messages of a benchmark corpus. Callgrind
# counts instructions, so its figures repeat from run to run whatever else the machine does.
#   bench/profile.sh CORPUS [N]      e.g. bench/profile.sh small 2000; bench/profile.sh zip-heavy 3
# Needs valgrind, and the corpora that `make bench` writes. Builds an optimised velmora with
# debug information in build/profile first.
set -eu
corpus=${1:?usage: bench/profile.sh mixed|small|zip-heavy [N]}
count=${2:-500}
data=${VELMORA_BENCH_DIR:-${TMPDIR:-/tmp}/velmora-bench}
root=$(cd "$(dirname "$0")/.." && pwd)
cmake -S "$root" -B "$root/build/profile" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_CXX_FLAGS="-g -fno-omit-frame-pointer" -DVELMORA_TESTS=OFF >/dev/null
cmake --build "$root/build/profile" --target velmora >"$root/build/profile/build.log" 2>&1 ||
  { cat "$root/build/profile/build.log"; exit 1; }
velmora=$root/build/profile/velmora
[ -x "$velmora" ] || velmora=$root/build/profile/host/velmora
out=${TMPDIR:-/tmp}/velmora-profile-$corpus.out
cd "$data/$corpus"
# The requests name files relative to the corpus folder, as the server names its queue files.
head -n "$count" requests.txt |
  valgrind --tool=callgrind --callgrind-out-file="$out" "$velmora" \
    >/dev/null 2>"$out.log"
callgrind_annotate "$out" | sed -n '/^Ir/,$p' | head -30
echo "Whole profile: callgrind_annotate --inclusive=yes $out"
