#!/usr/bin/env bash
# The UDP benchmark of the SIP responder: three stateless SIP responders side by side on
# loopback, each pinned to core 1 while the load comes from core 0:
#   responder  examples' zn-sip-responder, on the library
#   bare       bench/udp/bare_responder.cpp: the same replies with plain recvfrom/sendto, one
#              thread; the practical limit of the machine
#   kamailio   Debian's Kamailio, stateless (bench/udp/kamailio.cfg: sl_send_reply, one UDP
#              worker, errors-only logging), run in the foreground here, never as the service
# The load is OPTIONS at stepped rates, a few seconds a step, from bench/udp/load_generator.cpp
# (zn-load-generator: several sockets, one thread, answers matched by Call-ID, retransmission
# after T1 = 500 ms like a SIP client). It drives every step, so that one client measures all
# three: SIPp (bench/udp/options.xml) passes 90 % of its core well below the bare responder's
# knee. SIPp runs once per system, at the knee of the first repetition, as a cross-check; its
# calls, failures, retransmissions and share of its core are printed.
# Figures per system and repetition:
#   knee       the highest step with under 0.1 % failed requests (lost or answered other than
#              2xx) and no retransmission; stepping stops at the first step that misses either
#   req/CPU-s  answered requests per CPU-second of the system under test (utime + stime of its
#              processes over the step, from /proc/<pid>/stat) at the knee
#   p50, p99   response time, first send to first answer, in one extra run at half the knee
# The systems alternate (a, b, c, a, b, c, ...), three repetitions by default; the table gives
# the medians and the ratios responder/bare and responder/Kamailio. Raw lines, the summary as
# JSON and CSV, and the systems' logs go to <build>/bench-udp/.
#
#   scripts/bench-udp.sh [--quick] [--repetitions N] [--duration S] [--rates "R R ..."]
#                        [--systems "responder bare kamailio"] [--build-dir DIR] [--port P]
#                        [--sipp-rate R] [--no-realtime] [--no-install]
#   --sipp-rate R: SIPp's cross-check at R calls/s instead of at each system's first knee.
#   --quick: one repetition, fewer and coarser steps of 2 s (a check that everything runs).
# The systems, the load generator and SIPp run under SCHED_RR (chrt -r 10) when the script may
# (root): a responder that has its core is measured, not the other work of the machine, whose
# preemptions would otherwise overflow the socket buffers (some 200 KB, a few milliseconds of
# requests) long before the core is busy. --no-realtime keeps the ordinary scheduler.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="$root/build-bench"
repetitions=3
duration=3
rates="2000 5000 10000 20000 30000 40000 50000 60000 70000 80000 90000 100000 120000 140000"
rates="$rates 160000 180000 200000 250000 300000"
systems="responder bare kamailio"
port=35060
sipp_rate=0
install=1
quick=0
realtime=1

while [ $# -gt 0 ]; do
    case "$1" in
    --quick) quick=1 ;;
    --repetitions) repetitions="$2"; shift ;;
    --duration) duration="$2"; shift ;;
    --rates) rates="$2"; shift ;;
    --systems) systems="$2"; shift ;;
    --build-dir) build="$(cd "$(dirname "$2")" && pwd)/$(basename "$2")"; shift ;;
    --port) port="$2"; shift ;;
    --sipp-rate) sipp_rate="$2"; shift ;;
    --no-realtime) realtime=0 ;;
    --no-install) install=0 ;;
    -h | --help) sed -n '2,/^set -euo/p' "${BASH_SOURCE[0]}" | sed '$d; s/^# \{0,1\}//'; exit 0 ;;
    *) echo "bench-udp: unknown option $1" >&2; exit 2 ;;
    esac
    shift
done
if [ "$quick" -eq 1 ]; then
    repetitions=1
    duration=2
    rates="5000 10000 20000 40000 60000 80000 120000 160000 200000 300000"
fi
sipp_port=$((port + 1))
if [ "$(nproc)" -lt 2 ]; then
    echo "bench-udp: only one core: the load and the system under test share it" >&2
fi

# What is missing, the build (the bench preset's settings, with the examples).
if [ "$install" -eq 1 ]; then
    had_kamailio=0
    if dpkg-query -W -f='${Status}' kamailio 2>/dev/null | grep -q 'install ok installed'; then
        had_kamailio=1
    fi
    "$root/scripts/install-deps.sh" sip-tester kamailio
    # Debian's package enables and starts its service on a system with systemd; the benchmark
    # runs a Kamailio of its own, so a service this run brought along is stopped and disabled.
    if [ "$had_kamailio" -eq 0 ] && [ -d /run/systemd/system ] &&
        systemctl is-enabled --quiet kamailio 2>/dev/null; then
        echo "bench-udp: disabling the kamailio service that the package installation started"
        sudo_cmd=()
        [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
        "${sudo_cmd[@]}" systemctl disable --now kamailio
    fi
fi
if [ "$build" = "$root/build-bench" ]; then
    cmake --preset bench -DZNUTIL_BUILD_EXAMPLES=ON >/dev/null
else
    cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
        -DZNUTIL_BUILD_TESTING=OFF -DZNUTIL_BUILD_BENCHMARKS=ON -DZNUTIL_BUILD_EXAMPLES=ON \
        >/dev/null
fi
targets=(zn-bare-responder zn-load-generator)
have_responder=0
if [ -f "$root/examples/zn_sip_responder.cpp" ]; then
    targets+=(zn-sip-responder)
    have_responder=1
fi
cmake --build "$build" -j "$(nproc 2>/dev/null || echo 2)" --target "${targets[@]}"

generator="$build/bench/zn-load-generator"
declare -A program=(
    [responder]="$build/examples/zn-sip-responder"
    [bare]="$build/bench/zn-bare-responder"
)
wanted=()
for system in $systems; do
    case "$system" in
    responder)
        if [ "$have_responder" -eq 0 ]; then
            echo "bench-udp: examples/zn_sip_responder.cpp is not there yet: no responder" >&2
            continue
        fi ;;
    bare | kamailio) ;;
    *) echo "bench-udp: unknown system $system" >&2; exit 2 ;;
    esac
    wanted+=("$system")
done
[ ${#wanted[@]} -gt 0 ] || { echo "bench-udp: no system to measure" >&2; exit 1; }

sched=()
scheduling="the ordinary scheduler"
if [ "$realtime" -eq 1 ]; then
    if chrt -r 10 true 2>/dev/null; then
        sched=(chrt -r 10)
        scheduling="SCHED_RR priority 10"
    else
        echo "bench-udp: chrt -r 10 is not allowed here: the ordinary scheduler" >&2
    fi
fi

out="$build/bench-udp"
mkdir -p "$out/logs"
rm -f "$out"/logs/*
results="$out/results.jsonl"
: >"$results"
rundir="$(mktemp -d /tmp/bench-udp.XXXXXX)"

sut_pid=""
sut_pids=""
stop_sut() {
    [ -n "$sut_pid" ] || return 0
    local status=0 _
    kill -TERM "$sut_pid" 2>/dev/null || true
    for _ in $(seq 100); do
        kill -0 "$sut_pid" 2>/dev/null || break
        sleep 0.1
    done
    if kill -0 "$sut_pid" 2>/dev/null; then
        echo "bench-udp: $sut_name did not end within 10 s of SIGTERM: killed" >&2
        kill -KILL "$sut_pid" 2>/dev/null || true
    fi
    wait "$sut_pid" 2>/dev/null || status=$?
    [ "$status" -eq 0 ] || echo "bench-udp: $sut_name exited with status $status" >&2
    sut_pid=""
    sut_pids=""
}
cleanup() {
    stop_sut
    rm -rf "$rundir"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# True when no UDP socket is bound to the port (else a stranger could answer in our place).
port_free() {
    ! awk -v port="$(printf ':%04X' "$1")" 'NR > 1 && substr($2, length($2) - 4) == port {
        found = 1 } END { exit !found }' /proc/net/udp
}

# Starts a system under test on core 1 and waits until it answers an OPTIONS.
start_sut() {
    sut_name="$1"
    local log="$out/logs/$1-$2.log"
    if ! port_free "$port"; then
        echo "bench-udp: udp port $port is taken; choose another with --port" >&2
        exit 1
    fi
    case "$1" in
    kamailio)
        # -DD: no daemon, the main process stays our child; its workers are its children.
        "${sched[@]}" taskset -c 1 kamailio -f "$root/bench/udp/kamailio.cfg" \
            -A "BENCH_PORT=$port" -DD -E -P "$rundir/kamailio.pid" -Y "$rundir" -m 64 -M 8 \
            >"$log" 2>&1 &
        ;;
    *)
        "${sched[@]}" taskset -c 1 "${program[$1]}" --address 127.0.0.1 --port "$port" \
            >"$log" 2>&1 &
        ;;
    esac
    sut_pid=$!
    if ! "$generator" --address 127.0.0.1 --port "$port" --wait-ready 15 ||
        ! kill -0 "$sut_pid" 2>/dev/null; then
        echo "bench-udp: $1 does not answer on 127.0.0.1:$port; its log:" >&2
        cat "$log" >&2
        exit 1
    fi
    sut_pids="$sut_pid"
    local child
    for child in $(ps -o pid= --ppid "$sut_pid"); do
        sut_pids="$sut_pids,$child"
    done
}

# utime + stime of a comma-separated list of processes, in clock ticks.
cpu_ticks() {
    local total=0 pid stat
    for pid in ${1//,/ }; do
        stat="$(cat "/proc/$pid/stat" 2>/dev/null)" || continue
        stat="${stat##*) }"
        # shellcheck disable=SC2086
        set -- $stat
        total=$((total + ${12} + ${13}))
    done
    echo "$total"
}

record() { # system repetition kind json
    local json="$4"
    echo "{\"system\":\"$1\",\"repetition\":$2,\"kind\":\"$3\",${json#\{}" >>"$results"
}

# Reads a generator line: "pass", "fail" or "generator" (the generator fell behind its rate, or
# the step failed while the generator used more than 90 % of its core).
judge() {
    python3 -c '
import json, sys
d = json.loads(sys.argv[1])
good = d["failed"] * 1000 < d["sent"] and d["retransmitted"] == 0
if d["send_rate"] < 0.97 * d["rate"] or (not good and d["gen_cpu_s"] > 0.9 * d["duration_s"]):
    print("generator")
elif good:
    print("pass")
else:
    print("fail")' "$1"
}

field() { python3 -c 'import json,sys; print(json.loads(sys.argv[1])[sys.argv[2]])' "$1" "$2"; }

run_load() { # rate duration
    "${sched[@]}" taskset -c 0 "$generator" --address 127.0.0.1 --port "$port" \
        --rate "$1" --duration "$2" --cpu-pids "$sut_pids"
}

run_sipp() { # system rate
    local screen="$out/logs/sipp-$1.screen" timing="$rundir/sipp.time" rc=0
    local calls before after
    calls="$(python3 -c 'import sys; print(round(float(sys.argv[1]) * float(sys.argv[2])))' \
        "$2" "$duration")"
    rm -f "$screen"
    before="$(cpu_ticks "$sut_pids")"
    {
        TIMEFORMAT='%R %U %S'
        # A receive buffer of 4 MB (at most net.core.rmem_max): SIPp's own 64 KB overflows
        # long before its core is busy.
        time "${sched[@]}" taskset -c 0 sipp "127.0.0.1:$port" \
            -sf "$root/bench/udp/options.xml" -i 127.0.0.1 -p "$sipp_port" -r "$2" -m "$calls" \
            -buff_size 4194304 -nostdin -timeout 60s -trace_screen -screen_file "$screen" \
            >/dev/null 2>&1 || rc=$?
    } 2>"$timing"
    after="$(cpu_ticks "$sut_pids")"
    python3 - "$1" "$2" "$calls" "$rc" "$(cat "$timing")" "$((after - before))" \
        "$(getconf CLK_TCK)" "$screen" >>"$results" <<'EOF'
import json, re, sys
system, rate, calls, rc, timing, ticks, hz, screen = sys.argv[1:9]
wall, user, sys_ = (float(x) for x in timing.split())
text = open(screen, errors="replace").read() if screen else ""
def counter(name):
    found = re.findall(r"^\s*%s\s*\|[^|]*\|\s*(\d+)" % re.escape(name), text, re.M)
    return int(found[-1]) if found else None
retrans = re.findall(r"OPTIONS ---------->\s+\d+\s+(\d+)", text)
print(json.dumps({"system": system, "repetition": 1, "kind": "sipp", "rate": int(rate),
                  "calls": int(calls), "exit_status": int(rc),
                  "successful": counter("Successful call"), "failed": counter("Failed call"),
                  "retransmissions": int(retrans[-1]) if retrans else None,
                  "sipp_cpu_s": round(user + sys_, 3), "wall_s": wall,
                  "sut_cpu_s": int(ticks) / int(hz)}, separators=(",", ":")))
EOF
}

load_warning() {
    local load
    load="$(cut -d' ' -f1 /proc/loadavg)"
    if python3 -c "import sys; sys.exit(0 if float(sys.argv[1]) > 0.5 else 1)" "$load"; then
        echo "bench-udp: load average $load: other work on this machine skews the figures" >&2
    fi
}

echo "bench-udp: ${wanted[*]}; $repetitions repetition(s); $scheduling;" \
    "steps of $duration s at $rates req/s"
load_warning
began=$(date +%s)
for repetition in $(seq "$repetitions"); do
    for system in "${wanted[@]}"; do
        start_sut "$system" "$repetition"
        knee=0
        printf '%-10s #%d:' "$system" "$repetition"
        for rate in $rates; do
            line="$(run_load "$rate" "$duration")"
            verdict="$(judge "$line")"
            record "$system" "$repetition" step "$line"
            if [ "$verdict" != pass ]; then
                printf ' %s:%s' "$rate" "$verdict"
                if [ "$verdict" = generator ]; then
                    record "$system" "$repetition" note "{\"note\":\"generator-limited at $rate\"}"
                fi
                break
            fi
            printf ' %s' "$rate"
            knee="$rate"
            sleep 0.5
        done
        if [ "$knee" -gt 0 ]; then
            sleep 0.5
            half=$((knee / 2))
            line="$(run_load "$half" "$duration")"
            record "$system" "$repetition" half "$line"
            printf ' | half knee %s: p50 %s us, p99 %s us' "$half" \
                "$(field "$line" p50_us)" "$(field "$line" p99_us)"
        fi
        echo
        # SIPp at the knee (or --sipp-rate): does an independent client agree, and could it
        # have driven that step within 90 % of its core?
        sipp_at="$sipp_rate"
        [ "$sipp_at" -gt 0 ] || sipp_at="$knee"
        if [ "$repetition" -eq 1 ] && [ "$sipp_at" -gt 0 ]; then
            sleep 0.5
            run_sipp "$system" "$sipp_at"
        fi
        stop_sut
    done
done
elapsed=$(($(date +%s) - began))

python3 - "$results" "$out" "$elapsed" "$scheduling" <<'EOF'
import csv, json, statistics, sys

results, out, elapsed, scheduling = sys.argv[1], sys.argv[2], int(sys.argv[3]), sys.argv[4]
lines = [json.loads(l) for l in open(results) if l.strip()]
systems = []
for l in lines:
    if l["system"] not in systems:
        systems.append(l["system"])
repetitions = sorted({l["repetition"] for l in lines if l["kind"] == "step"})


def passes(d):
    return d["send_rate"] >= 0.97 * d["rate"] and d["failed"] * 1000 < d["sent"] \
        and d["retransmitted"] == 0


def steps(s, r):
    return [l for l in lines if l["system"] == s and l["repetition"] == r and l["kind"] == "step"]


def per_cpu(d):
    return round(d["answered"] / d["sut_cpu_s"]) if d and d["sut_cpu_s"] > 0 else None


def knee_of(s, r):
    good = [d for d in steps(s, r) if passes(d)]
    return max(good, key=lambda d: d["rate"]) if good else None


# The common step of a repetition: the highest rate every system passed, where their CPU costs
# compare at the same load.
common = {}
for r in repetitions:
    knees = [knee_of(s, r) for s in systems if steps(s, r)]
    common[r] = min(k["rate"] for k in knees) if knees and all(knees) else None

per = {}
for s in systems:
    rows = []
    for r in repetitions:
        if not steps(s, r):
            continue
        knee = knee_of(s, r)
        half = next((l for l in lines if l["system"] == s and l["repetition"] == r
                     and l["kind"] == "half"), None)
        at_common = next((d for d in steps(s, r) if d["rate"] == common[r]), None)
        rows.append({
            "repetition": r,
            "knee": knee["rate"] if knee else 0,
            "generator_limited": any(l["kind"] == "note" and l["system"] == s
                                     and l["repetition"] == r for l in lines),
            "req_per_cpu_s": per_cpu(knee),
            "sut_core_share_at_knee":
                round(knee["sut_cpu_s"] / knee["duration_s"], 3) if knee else None,
            "common_rate": common[r],
            "common_req_per_cpu_s": per_cpu(at_common),
            "half_rate": half["rate"] if half else None,
            "p50_us": half["p50_us"] if half else None,
            "p99_us": half["p99_us"] if half else None,
            "anomalies": sum(d["no_tag"] + d["stray"] + d["errors"] for d in steps(s, r)),
        })
    per[s] = rows


def median(values):
    values = [v for v in values if v is not None]
    return statistics.median(values) if values else None


columns = ["knee", "req_per_cpu_s", "common_req_per_cpu_s", "p50_us", "p99_us"]
summary = {s: {c: median([r[c] for r in per[s]]) for c in columns} for s in systems}
for s in systems:
    summary[s]["repetitions"] = len(per[s])
    summary[s]["generator_limited"] = any(r["generator_limited"] for r in per[s])
    summary[s]["knees"] = [r["knee"] for r in per[s]]

ratios = {}
for other in ("bare", "kamailio"):
    if "responder" in summary and other in summary:
        ratios["responder/" + other] = {
            c: (round(summary["responder"][c] / summary[other][c], 3)
                if summary["responder"][c] and summary[other][c] else None) for c in columns}

sipp = [l for l in lines if l["kind"] == "sipp"]
json.dump({"systems": summary, "repetitions": per, "ratios": ratios, "sipp": sipp,
           "common_rates": common, "elapsed_s": elapsed, "scheduling": scheduling},
          open(out + "/summary.json", "w"), indent=2)
with open(out + "/summary.csv", "w", newline="") as f:
    w = csv.writer(f)
    w.writerow(["row"] + columns)
    for s in systems:
        w.writerow([s] + [summary[s][c] for c in columns])
    for name, r in ratios.items():
        w.writerow([name] + [r[c] for c in columns])


def cell(v, ratio=False):
    if v is None:
        return "-"
    if ratio:
        return "%.2f" % v
    return "%.0f" % v if abs(v) >= 100 else "%.1f" % v


print()
print("UDP SIP responders: OPTIONS on loopback, the system under test on core 1, the load on "
      "core 0, under " + scheduling + ";")
print("medians of %s repetition(s). knee: the highest step with < 0.1 %% failed and no "
      "retransmission;" % "/".join(str(summary[s]["repetitions"]) for s in systems))
print("req/CPU-s: answered requests per CPU-second of the system under test, at its knee and at "
      "the common step")
print("(the highest step every system passed: %s req/s); p50, p99: response time at half the "
      "knee." % " ".join(str(common[r]) for r in repetitions))
print()
row = "%-19s %11s %13s %14s %9s %9s"
header = row % ("", "knee req/s", "req/CPU-s", "req/CPU-s", "p50 us", "p99 us")
print(header)
print(row % ("", "", "at knee", "common step", "half knee", "half knee"))
print("-" * len(header))
for s in systems:
    d = summary[s]
    mark = "+" if d["generator_limited"] else ""
    print(row % (s, cell(d["knee"]) + mark, cell(d["req_per_cpu_s"]),
                 cell(d["common_req_per_cpu_s"]), cell(d["p50_us"]), cell(d["p99_us"])))
for name, r in ratios.items():
    print(row % (name, cell(r["knee"], True), cell(r["req_per_cpu_s"], True),
                 cell(r["common_req_per_cpu_s"], True), cell(r["p50_us"], True),
                 cell(r["p99_us"], True)))
print()
for s in systems:
    print("knees of %-10s %s" % (s, " ".join(str(k) for k in summary[s]["knees"])))
if any(summary[s]["generator_limited"] for s in systems):
    print("+ the load generator could not hold the next step: the knee is at least this")
for s in systems:
    if any(r["anomalies"] for r in per[s]):
        print("note: %s gave answers without a To tag, non-2xx answers or unknown Call-IDs" % s)
for l in sipp:
    share = l["sipp_cpu_s"] / (l["calls"] / l["rate"])
    print("SIPp at %d/s against %s: %s of %d calls successful, %s failed, %s retransmissions; "
          "SIPp needed %.0f %% of its core%s"
          % (l["rate"], l["system"], l["successful"], l["calls"], l["failed"],
             l["retransmissions"], 100 * share,
             ": past 90 %, it could not drive this step" if share > 0.9 else ""))
print("zn-load-generator drove every step; SIPp ran once per system, at the knee of the first "
      "repetition, as a cross-check.")
print("Raw lines: %s; summary: %s/summary.json and summary.csv; %d s of measurement."
      % (results, out, elapsed))
EOF
load_warning
