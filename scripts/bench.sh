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

# ZnKeyTable against a std::unordered_map behind a std::mutex, from one thread and from two.
cmake --build "$build" --target ZnKeyTableBenchmark
table_out="$build/ZnKeyTableBenchmark.json"
"$build/bench/ZnKeyTableBenchmark" \
    --benchmark_repetitions=3 \
    --benchmark_report_aggregates_only=true \
    --benchmark_out="$table_out" \
    --benchmark_out_format=json \
    "$@"
echo
python3 "$root/scripts/bench_ratios.py" "$table_out" || echo "no ZnKeyTable pairs in this run"

# ZnBufferedInputStream over a memory source, by byte and in blocks, against memcpy (MB/s above).
cmake --build "$build" --target ZnBufferedInputStreamBenchmark
buffered_out="$build/ZnBufferedInputStreamBenchmark.json"
"$build/bench/ZnBufferedInputStreamBenchmark" \
    --benchmark_repetitions=3 \
    --benchmark_report_aggregates_only=true \
    --benchmark_out="$buffered_out" \
    --benchmark_out_format=json \
    "$@"
echo
python3 "$root/scripts/bench_ratios.py" "$buffered_out" || echo "no ZnBufferedInputStream pairs in this run"

# ZnByteArrayOutputStream writes of 1 and 100 bytes, against std::string::append of the same bytes.
cmake --build "$build" --target ZnByteArrayOutputStreamBenchmark
array_out="$build/ZnByteArrayOutputStreamBenchmark.json"
"$build/bench/ZnByteArrayOutputStreamBenchmark" \
    --benchmark_repetitions=3 \
    --benchmark_report_aggregates_only=true \
    --benchmark_out="$array_out" \
    --benchmark_out_format=json \
    "$@"
echo
python3 "$root/scripts/bench_ratios.py" "$array_out" || echo "no ZnByteArrayOutputStream pairs in this run"
