#!/usr/bin/env bash
# Builds the libFuzzer harnesses (fuzz preset: clang, ASan, UBSan) and runs each for a bounded
# time on a copy of its seed corpus.
#   scripts/fuzz.sh [SECONDS] [NAME...]     default 60 seconds, every harness
# Findings (crash-*, leak-*, timeout-*) land in build-fuzz/findings/<Name>/; the run log of
# each harness in build-fuzz/findings/<Name>.log, whose last lines give the executions.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-60}"
shift || true

scripts/install-deps.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc 2>/dev/null || echo 2)"

names=("$@")
if [ ${#names[@]} -eq 0 ]; then
    for harness in build-fuzz/fuzz/*Fuzzer; do
        [ -x "$harness" ] || continue
        base="$(basename "$harness")"
        names+=("${base%Fuzzer}")
    done
fi

status=0
for name in "${names[@]}"; do
    harness="build-fuzz/fuzz/${name}Fuzzer"
    findings="build-fuzz/findings/$name"
    work="build-fuzz/corpus-work/$name"
    mkdir -p "$findings" "$work"
    if [ -d "fuzz/corpus/$name" ]; then
        cp -n fuzz/corpus/"$name"/* "$work"/ 2>/dev/null || true
    fi
    echo "== $name: ${seconds}s"
    if ! "$harness" "$work" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
            -artifact_prefix="$findings/" -print_final_stats=1 > "build-fuzz/findings/$name.log" 2>&1; then
        echo "   FINDING: see build-fuzz/findings/$name.log and $findings/"
        status=1
    fi
    grep -E '^stat::number_of_executed_units|^Done [0-9]+ runs' "build-fuzz/findings/$name.log" | sed 's/^/   /' || true
done
exit $status
