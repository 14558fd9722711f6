#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (ASan+UBSan) in ./build-fuzz and runs one of them.
# Usage: scripts/fuzz.sh [target] [seconds]     e.g. scripts/fuzz.sh SarQueryParse_fuzz 600
#                                               or scripts/fuzz.sh SarIndexCheck_fuzz 3600
set -euo pipefail
cd "$(dirname "$0")/.."
target=${1:-SarQueryParse_fuzz}
seconds=${2:-600}
for p in clang libclang-rt-14-dev; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' ||
    { apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "$p"; }
done
cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
  -DSARVANE_FUZZ=ON -DBUILD_TESTING=ON
cmake --build build-fuzz --target "$target"
corpus=build-fuzz/corpus/${target%_fuzz}
mkdir -p "$corpus"
cp -n tests/fuzz/corpus/${target%_fuzz}/* "$corpus"/ 2>/dev/null || true
# A target whose seed is built rather than kept in the tree (the checker's: a whole slice) gets it from its
# bounded test.
if [ ! -d "tests/fuzz/corpus/${target%_fuzz}" ]; then
  cmake --build build-fuzz --target "fuzz_${target}_test"
  SARVANE_FUZZ_SEEDS="$corpus" ./build-fuzz/tests/"fuzz_${target}_test"
fi
./build-fuzz/tests/"$target" -max_total_time="$seconds" -timeout=5 -rss_limit_mb=2048 "$corpus"
