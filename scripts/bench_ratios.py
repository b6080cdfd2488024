#!/usr/bin/env python3
"""Prints how ZnUtil's benchmark times compare with the standard library's.

Reads the JSON files that Google Benchmark writes (--benchmark_out) with repetitions and
aggregates, pairs each BM_ZnString_<Op>/<size> with BM_StdString_<Op>/<size> and each
BM_ZnHandle_<Op> with BM_SharedPtr_<Op>, and prints the median real times and their ratio
(ZnUtil / std): below 1 ZnUtil is faster, above 1 slower. A family may have several baselines;
it is then paired with each of them that ran the same operation.

Latencies that a benchmark reports as user counters named *_ns or *_us (p50_ns, p99_us, ...)
are printed after the times, with the same pairing and the same sense of the ratio.
"""

import json
import sys

# ZnUtil's name for a family, then the name of its standard library baseline (or a tuple of
# names, for a family measured against several).
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
# BM_ZnEventQueue_<One|Two>Producer[s]: one consumer thread, against ACE_Message_Queue and a
# std::mutex + std::condition_variable ring; BM_ZnDispatcherThread_Pool<...> against either
# queue with a consumer thread and a std::thread pool, and its Latency against the mutex ring.
FAMILIES["ZnEventQueue"] = ("AceMessageQueue", "MutexCondvarQueue")
FAMILIES["ZnDispatcherThread"] = ("AceMessageQueue", "MutexCondvarQueue")
# BM_ZnMonitorThread_TimerLateness against a std::thread sleeping on a std::priority_queue.
FAMILIES["ZnMonitorThread"] = "PriorityQueueThread"
# BM_ZnScheduler_ScheduleCancel against a std::multimap behind a std::mutex.
FAMILIES["ZnScheduler"] = "StdMultimap"
# Baselines whose operation has another name than ZnUtil's: (family, operation) -> operation.
BASELINE_OPERATIONS = {("ZnByteArrayOutputStream", "Write"): "Append"}

TO_NS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}
# User counters that are latencies, by the unit their name ends with.
LATENCY_SUFFIXES = ("_ns", "_us")


def read_medians(paths):
    """Median real time in ns of every benchmark in the files, by run name; and the medians of
    its latency counters, by run name and counter name."""
    medians = {}
    latencies = {}
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
            for key, value in bench.items():
                if key.endswith(LATENCY_SUFFIXES) and isinstance(value, (int, float)):
                    latencies[(name, key)] = float(value)
    return medians, latencies


def baselines_of(family):
    """The baseline families of a ZnUtil family, as a tuple."""
    baselines = FAMILIES[family]
    return (baselines,) if isinstance(baselines, str) else tuple(baselines)


def baseline_name(baseline, family, operation, args):
    """The run name of the baseline's run of what ZnUtil's family ran as operation and args."""
    baseline_operation = BASELINE_OPERATIONS.get((family, operation), operation)
    return "BM_%s_%s" % (baseline, baseline_operation) + ("/" + args if args else "")


def print_table(table):
    """Prints rows of cells: the first two left-aligned, the rest right-aligned, the first row
    as a header with a rule under it."""
    widths = [max(len(row[i]) for row in table) for i in range(len(table[0]))]
    for i, row in enumerate(table):
        cells = [row[0].ljust(widths[0]), row[1].ljust(widths[1])]
        cells += [cell.rjust(width) for cell, width in zip(row[2:], widths[2:])]
        print("  ".join(cells))
        if i == 0:
            print("  ".join("-" * width for width in widths))


def ratio_text(ours, base):
    """ours / base; "-" where a ratio says nothing: a baseline of 0 or below, or a negative
    figure of ours (a timer that fired early)."""
    return "%.2f" % (ours / base) if base > 0 and ours >= 0 else "-"


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
    medians, latencies = read_medians(argv[1:])
    rows = []
    latency_rows = []
    for name, ours in medians.items():
        parts = split(name)
        if parts is None or parts[0] not in FAMILIES:
            continue
        family, operation, args = parts
        size = int(args) if args.isdigit() else 0
        looked_for = []
        found = False
        for baseline in baselines_of(family):
            other = baseline_name(baseline, family, operation, args)
            looked_for.append(other)
            base = medians.get(other)
            if base is None:
                continue
            found = True
            rows.append((family, operation, size, args or "-", ours, base, baseline))
            for (run, counter), value in sorted(latencies.items()):
                if run != name or (other, counter) not in latencies:
                    continue
                latency_rows.append((family, operation, size, args or "-", counter, value,
                                     latencies[(other, counter)], baseline))
        if not found:
            print("no baseline for %s (looked for %s)" % (name, " or ".join(looked_for)),
                  file=sys.stderr)
    if not rows:
        print("no benchmark pairs found", file=sys.stderr)
        return 1
    rows.sort(key=lambda row: (row[0], row[1], row[2], row[6]))
    header = ("class", "operation", "size", "ZnUtil ns", "std ns", "ZnUtil/std", "baseline")
    print_table([header] + [
        (family, op, args, "%.2f" % ours, "%.2f" % base, ratio_text(ours, base), baseline)
        for family, op, _, args, ours, base, baseline in rows
    ])
    if latency_rows:
        latency_rows.sort(key=lambda row: (row[0], row[1], row[2], row[7], row[4]))
        header = ("class", "operation", "size", "latency", "ZnUtil", "baseline value",
                  "ZnUtil/std", "baseline")
        print()
        print_table([header] + [
            (family, op, args, counter, "%.2f" % ours, "%.2f" % base, ratio_text(ours, base),
             baseline)
            for family, op, _, args, counter, ours, base, baseline in latency_rows
        ])
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
