#!/usr/bin/env bash
# Duplicate search benchmark: tarnbridge-cli against jdupes and rdfind on one generated tree.
#
#   bench/duplicates_bench.sh [--build DIR] [--files N] [--bytes N] [--runs N] [--seed S] [--parent DIR]
#                             [--keep]
#
# Builds a Release tree (build/bench unless --build says otherwise) and runs
# duplicates_bench, which makes a tree of 20,000 files and 2 GB of real data below /tmp, times
# each tool after one warm-up run, checks that all of them find the groups the tree was built
# with, and removes the tree unless --keep leaves it. See the top of bench/duplicates_bench.cpp
# for the details.
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/bench
if [ "${1:-}" = "--build" ]; then
  build="$2"
  shift 2
fi
case "${1:-}" in -h|--help) sed -n '2,11p' "$0"; exit 0 ;; esac
for tool in jdupes rdfind; do
  command -v "$tool" >/dev/null || { echo "duplicates_bench: $tool is not installed" >&2; exit 2; }
done

cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTARNBRIDGE_TESTS=OFF >/dev/null
cmake --build "$build" --parallel "$(nproc)" --target tarnbridge-cli duplicates_bench >/dev/null
df -h /tmp | tail -n 1 | awk '{print "Free below /tmp: " $4}'
exec "$build/bench/duplicates_bench" --cli "$build/src/cli/tarnbridge-cli" "$@"
