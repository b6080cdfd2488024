#!/usr/bin/env bash
# Builds the benchmarks in Release (build-bench), runs both programs three times each with
# aggregates only, keeps their JSON results in build-bench/, and prints the ratio of ZnUtil's
# median time to the standard library's for each operation.
# Extra arguments go to both programs, for example --benchmark_filter=Hash.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="$root/build-bench"

generator=()
if command -v ninja >/dev/null 2>&1; then
    generator=(-G Ninja)
fi

cmake -S "$root" -B "$build" "${generator[@]}" \
    -DCMAKE_BUILD_TYPE=Release \
    -DZNUTIL_BUILD_BENCHMARKS=ON \
    -DZNUTIL_BUILD_TESTING=OFF \
    -DZNUTIL_BUILD_EXAMPLES=OFF
cmake --build "$build" --target ZnHandleBenchmark ZnStringBenchmark

results=()
for program in ZnHandleBenchmark ZnStringBenchmark; do
    out="$build/$program.json"
    "$build/bench/$program" \
        --benchmark_repetitions=3 \
        --benchmark_report_aggregates_only=true \
        --benchmark_out="$out" \
        --benchmark_out_format=json \
        "$@"
    results+=("$out")
done

echo
python3 "$root/scripts/bench_ratios.py" "${results[@]}"
