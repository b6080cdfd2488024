#!/usr/bin/env bash
# Builds the benchmarks in Release (the bench preset, build-bench/), runs every benchmark
# program three times with aggregates only, keeps their JSON results in build-bench/, and prints
# the ratio of ZnUtil's median time to its baseline's for each operation.
#   scripts/bench.sh [NAME...] [-- benchmark options]   e.g. scripts/bench.sh ZnKeyTable
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="$root/build-bench"
cd "$root"

names=()
while [ $# -gt 0 ] && [ "$1" != "--" ]; do
    names+=("$1")
    shift
done
[ "${1:-}" = "--" ] && shift

scripts/install-deps.sh
cmake --preset bench >/dev/null
cmake --build --preset bench -j "$(nproc 2>/dev/null || echo 2)"

if [ ${#names[@]} -eq 0 ]; then
    for program in "$build"/bench/*Benchmark; do
        [ -x "$program" ] || continue
        base="$(basename "$program")"
        names+=("${base%Benchmark}")
    done
fi

results=()
for name in "${names[@]}"; do
    program="$build/bench/${name}Benchmark"
    out="$build/${name}Benchmark.json"
    "$program" \
        --benchmark_repetitions=3 \
        --benchmark_report_aggregates_only=true \
        --benchmark_out="$out" \
        --benchmark_out_format=json \
        "$@"
    results+=("$out")
done

echo
python3 "$root/scripts/bench_ratios.py" "${results[@]}"
