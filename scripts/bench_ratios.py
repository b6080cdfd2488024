#!/usr/bin/env python3
"""Prints how ZnUtil's benchmark times compare with the standard library's.

Reads the JSON files that Google Benchmark writes (--benchmark_out) with repetitions and
aggregates, pairs each BM_ZnString_<Op>/<size> with BM_StdString_<Op>/<size> and each
BM_ZnHandle_<Op> with BM_SharedPtr_<Op>, and prints the median real times and their ratio
(ZnUtil / std): below 1 ZnUtil is faster, above 1 slower.
"""

import json
import sys

# ZnUtil's name for a family, then the name of its standard library baseline.
FAMILIES = {"ZnString": "StdString", "ZnHandle": "SharedPtr"}
# BM_ZnKeyTable_<Op>/threads:<n> against a std::unordered_map behind a std::mutex.
FAMILIES["ZnKeyTable"] = "StdMap"
# BM_ZnBufferedInputStream_<Op>[/<size>] against memcpy of the same bytes.
FAMILIES["ZnBufferedInputStream"] = "Memcpy"
# BM_ZnByteArrayOutputStream_Write/<size> against BM_StdString_Append/<size>.
FAMILIES["ZnByteArrayOutputStream"] = "StdString"
# BM_ZnStreamTokenizer_<Op> against plain C splitters (memchr lines, strcspn tokens).
FAMILIES["ZnStreamTokenizer"] = "Memchr"
# BM_MD5_Digest/<size> and BM_Base64_Encode/<size> against OpenSSL (EVP MD5, EVP_EncodeBlock).
FAMILIES["MD5"] = "OpenSSL"
FAMILIES["Base64"] = "OpenSSL"
# BM_ZnParameters_ParseGetString against a std::string find loop into pairs, joined back.
FAMILIES["ZnParameters"] = "StdSplit"
# Baselines whose operation has another name than ZnUtil's: (family, operation) -> operation.
BASELINE_OPERATIONS = {("ZnByteArrayOutputStream", "Write"): "Append"}

TO_NS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def read_medians(paths):
    """Median real time in ns of every benchmark in the files, by run name."""
    medians = {}
    for path in paths:
        with open(path, encoding="utf-8") as f:
            report = json.load(f)
        for bench in report.get("benchmarks", []):
            if bench.get("aggregate_name") != "median":
                continue
            if bench.get("error_occurred"):
                continue
            name = bench.get("run_name") or bench["name"].rsplit("_median", 1)[0]
            medians[name] = bench["real_time"] * TO_NS[bench.get("time_unit", "ns")]
    return medians


def split(name):
    """("ZnString", "Create", "8") from "BM_ZnString_Create/8"; None for other names."""
    if not name.startswith("BM_"):
        return None
    head, _, args = name[3:].partition("/")
    family, _, operation = head.partition("_")
    if not operation:
        return None
    return family, operation, args


def main(argv):
    if len(argv) < 2:
        print("usage: bench_ratios.py RESULT.json...", file=sys.stderr)
        return 2
    medians = read_medians(argv[1:])
    rows = []
    for name, ours in medians.items():
        parts = split(name)
        if parts is None or parts[0] not in FAMILIES:
            continue
        family, operation, args = parts
        baseline_operation = BASELINE_OPERATIONS.get((family, operation), operation)
        baseline_name = "BM_%s_%s" % (FAMILIES[family], baseline_operation) + (
            "/" + args if args else "")
        baseline = medians.get(baseline_name)
        if baseline is None:
            print("no baseline for %s (looked for %s)" % (name, baseline_name), file=sys.stderr)
            continue
        size = int(args) if args.isdigit() else 0
        rows.append((family, operation, size, args or "-", ours, baseline, ours / baseline))
    if not rows:
        print("no benchmark pairs found", file=sys.stderr)
        return 1
    rows.sort(key=lambda row: (row[0], row[1], row[2]))
    header = ("class", "operation", "size", "ZnUtil ns", "std ns", "ZnUtil/std")
    table = [header] + [
        (family, op, args, "%.2f" % ours, "%.2f" % base, "%.2f" % ratio)
        for family, op, _, args, ours, base, ratio in rows
    ]
    widths = [max(len(row[i]) for row in table) for i in range(len(header))]
    for i, row in enumerate(table):
        cells = [row[0].ljust(widths[0]), row[1].ljust(widths[1])]
        cells += [cell.rjust(width) for cell, width in zip(row[2:], widths[2:])]
        print("  ".join(cells))
        if i == 0:
            print("  ".join("-" * width for width in widths))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
