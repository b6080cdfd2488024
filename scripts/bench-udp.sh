#!/usr/bin/env bash
# The UDP benchmark of the SIP responder: three stateless SIP responders side by side on
# loopback, each pinned to core 1 while the load comes from core 0:
#   responder  examples' zn-sip-responder, on the library
#   bare       bench/udp/bare_responder.cpp: the same replies with plain recvfrom/sendto, one
#              thread; the practical limit of the machine
#   kamailio   Debian's Kamailio, stateless (bench/udp/kamailio.cfg: sl_send_reply, one UDP
#              worker, errors-only logging), run in the foreground here, never as the service
# The load is OPTIONS at stepped rates, a few seconds a step. SIPp drives the steps
# (bench/udp/options.xml, on core 0, with a 4 MB receive buffer) as long as it has the CPU for
# them: its utime + stime over the step (from /proc/<pid>/stat) is measured, and once it passes
# 90 % of its core (or falls behind its rate), that step and the ones above are run with
# bench/udp/load_generator.cpp (zn-load-generator: several sockets, one thread, answers matched
# by Call-ID, retransmission after T1 = 500 ms like a SIP client). A SIPp step fails when more
# than 0.1 % of its calls fail or it retransmits; its response times come from -trace_rtt, which
# SIPp keeps in whole milliseconds ("<1000" us in the table: under a millisecond). --tool sipp
# or --tool generator drives every step with one of them.
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
#                        [--tool sipp|generator|auto] [--sipp-rate R] [--no-realtime]
#                        [--no-install]
#   --tool: what drives the steps; auto (the default) is SIPp up to 90 % of its core, then the
#           load generator.
#   --sipp-rate R: in the first repetition, one more SIPp run of each system at R calls/s, a
#           cross-check that is not part of the figures.
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
tool=auto
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
    --tool) tool="$2"; shift ;;
    --no-realtime) realtime=0 ;;
    --no-install) install=0 ;;
    -h | --help) sed -n '2,/^set -euo/p' "${BASH_SOURCE[0]}" | sed '$d; s/^# \{0,1\}//'; exit 0 ;;
    *) echo "bench-udp: unknown option $1" >&2; exit 2 ;;
    esac
    shift
done
case "$tool" in
sipp | generator | auto) ;;
*) echo "bench-udp: --tool is sipp, generator or auto, not $tool" >&2; exit 2 ;;
esac
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

# Reads a step's line: "pass", "fail", "generator" (the generator fell behind its rate, or the
# step failed while the generator used more than 90 % of its core), "busy" (SIPp passed the step
# on more than 90 % of its core) or "sipp" (SIPp failed the step on more than 90 % of its core, or
# fell behind its rate).
judge() {
    python3 -c '
import json, sys
d = json.loads(sys.argv[1])
good = d["failed"] * 1000 < d["sent"] and d["retransmitted"] == 0
slow = d["send_rate"] < 0.97 * d["rate"]
if d.get("tool") == "sipp":
    busy = d["sipp_cpu_s"] > 0.9 * d["duration_s"]
    print("busy" if busy and good and not slow else
          "sipp" if busy or (slow and good) else "pass" if good else "fail")
elif slow or (not good and d["gen_cpu_s"] > 0.9 * d["duration_s"]):
    print("generator")
elif good:
    print("pass")
else:
    print("fail")' "$1"
}

field() { python3 -c 'import json,sys; print(json.loads(sys.argv[1])[sys.argv[2]])' "$1" "$2"; }

run_load() { # rate duration
    "${sched[@]}" taskset -c 0 "$generator" --address 127.0.0.1 --port "$port" \
        --rate "$1" --duration "$2" --cpu-pids "$sut_pids" |
        python3 -c 'import json, sys; d = json.loads(sys.stdin.read()); d["tool"] = "generator"
print(json.dumps(d, separators=(",", ":")))'
}

# One SIPp run of rate * duration calls at the rate; prints a line with the generator's fields
# (those SIPp knows) and SIPp's own CPU time. SIPp is waited for without being reaped, so that
# its /proc/<pid>/stat still holds its utime + stime when it has ended.
run_sipp() { # rate duration stat-copy
    python3 - "$1" "$2" "$3" "$sut_pids" "$port" "$sipp_port" "$root/bench/udp/options.xml" \
        "$rundir" "${sched[@]}" <<'EOF'
import glob, json, os, shutil, subprocess, sys, tempfile, time

rate, duration, stat_copy, sut_pids, port, sipp_port, scenario, rundir = sys.argv[1:9]
sched = sys.argv[9:]
rate, duration = int(rate), float(duration)
calls = max(1, round(rate * duration))
hz = os.sysconf("SC_CLK_TCK")


def ticks(pid):  # utime + stime; a process that is gone counts 0
    try:
        fields = open("/proc/%s/stat" % pid).read().rsplit(")", 1)[1].split()
    except OSError:
        return 0
    return int(fields[11]) + int(fields[12])


def sut_ticks():
    return sum(ticks(p) for p in sut_pids.split(",") if p)


work = tempfile.mkdtemp(dir=rundir)  # SIPp writes its rtt file to its working directory
stat = os.path.join(work, "stat.csv")
# A receive buffer of 4 MB (at most net.core.rmem_max): SIPp's own 64 KB overflows long before
# its core is busy.
argv = sched + ["taskset", "-c", "0", "sipp", "127.0.0.1:" + port, "-sf", scenario,
                "-i", "127.0.0.1", "-p", sipp_port, "-r", str(rate), "-m", str(calls),
                "-buff_size", "4194304", "-nostdin", "-timeout", "%ds" % (duration + 60),
                "-trace_stat", "-stf", stat, "-fd", "60", "-trace_rtt", "-rtt_freq", "1000"]
sut_before = sut_ticks()
began = time.monotonic()
sipp = subprocess.Popen(argv, cwd=work, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
os.waitid(os.P_PID, sipp.pid, os.WEXITED | os.WNOWAIT)
wall = time.monotonic() - began
sipp_ticks = ticks(sipp.pid)  # chrt and taskset exec SIPp: the child is SIPp itself
status = sipp.wait()
sut_after = sut_ticks()

rows = [l.rstrip("\n").split(";") for l in open(stat, errors="replace")] \
    if os.path.exists(stat) else []
final = dict(zip(rows[0], rows[-1])) if len(rows) > 1 else {}


def counter(name):
    return int(final.get(name + "(C)", 0) or 0)


# Each line: the time of the answer and the response time, in ms since SIPp began; their
# difference is the first send of the call, whose span gives the rate SIPp achieved.
times, sends = [], []
for name in glob.glob(os.path.join(work, "*_rtt.csv")):
    for l in open(name):
        parts = l.split(";")
        if len(parts) >= 2 and parts[0] != "Date_ms":
            times.append(float(parts[1]) * 1000)
            sends.append(float(parts[0]) - float(parts[1]))
times.sort()
span = (max(sends) - min(sends)) / 1000 if sends else 0


def percentile(q):  # as the load generator takes them
    return times[min(len(times) - 1, int(q * len(times)))] if times else 0


sent = counter("OutgoingCall")
if stat_copy and os.path.exists(stat):
    shutil.copyfile(stat, stat_copy)
shutil.rmtree(work, ignore_errors=True)
print(json.dumps({
    "tool": "sipp", "rate": rate, "duration_s": calls / rate, "calls": calls,
    "exit_status": status, "sent": sent, "answered": counter("SuccessfulCall"),
    "lost": counter("FailedMaxUDPRetrans") + counter("FailedTimeoutOnRecv"),
    "errors": counter("FailedUnexpectedMessage"),
    "failed": counter("FailedCall") + calls - sent,
    "retransmitted": counter("Retransmissions"), "retransmissions": counter("Retransmissions"),
    "stray": counter("OutOfCallMsgs") + counter("DeadCallMsgs"), "no_tag": 0,
    "send_rate": round((len(sends) - 1) / span, 1) if span > 0 else 0,
    "p50_us": percentile(0.50), "p99_us": percentile(0.99),
    "max_us": times[-1] if times else 0, "rtt_resolution_us": 1000,
    "sut_cpu_s": (sut_after - sut_before) / hz, "sipp_cpu_s": sipp_ticks / hz,
    "wall_s": round(wall, 3)}, separators=(",", ":")))
EOF
}

# One run at a rate (kind "step" or "half") with the tool that --tool picks: in auto, SIPp
# below the rate where it passed 90 % of its core, else (and from there on) the load generator.
# Records the line and sets line, verdict and used (the tool that drove the run).
sipp_busy_at=0
drive() { # system repetition kind rate
    used=generator
    # SIPp times responses in whole milliseconds: the run at half the knee, which gives the
    # response times, is always timed by the load generator, in microseconds.
    if [ "$3" = half ]; then
        :
    elif [ "$tool" = sipp ] || { [ "$tool" = auto ] &&
        { [ "$sipp_busy_at" -eq 0 ] || [ "$4" -lt "$sipp_busy_at" ]; }; }; then
        used=sipp
        line="$(run_sipp "$4" "$duration" "$out/logs/sipp-$1-$2-$3-$4.csv")"
        verdict="$(judge "$line")"
        if [ "$tool" = auto ] && { [ "$verdict" = busy ] || [ "$verdict" = sipp ]; }; then
            # At this step SIPp's figures are its own limits as much as the system's.
            record "$1" "$2" "$3-sipp-busy" "$line"
            if [ "$sipp_busy_at" -eq 0 ] || [ "$4" -lt "$sipp_busy_at" ]; then
                sipp_busy_at="$4"
                sipp_reason="$(python3 -c 'import json, sys; d = json.loads(sys.argv[1])
share = d["sipp_cpu_s"] / d["duration_s"]
print("%.0f %% of its core" % (100 * share) + ("" if share > 0.9 else
      ", %.0f of %d req/s" % (d["send_rate"], d["rate"])))' "$line")"
            fi
            sleep 0.5
            used=generator
        elif [ "$verdict" = busy ]; then
            verdict=pass
        fi
    fi
    if [ "$used" = generator ]; then
        line="$(run_load "$4" "$duration")"
        verdict="$(judge "$line")"
    fi
    record "$1" "$2" "$3" "$line"
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
        knee_tool=""
        sipp_busy_at=0
        sipp_reason=""
        shown=""
        printf '%-10s #%d:' "$system" "$repetition"
        for rate in $rates; do
            drive "$system" "$repetition" step "$rate"
            [ "$used" = "$shown" ] || printf ' [%s]' "$used"
            shown="$used"
            if [ "$verdict" != pass ]; then
                printf ' %s:%s' "$rate" "$verdict"
                if [ "$verdict" = generator ] || [ "$verdict" = sipp ]; then
                    record "$system" "$repetition" note \
                        "{\"note\":\"$verdict-limited at $rate\",\"tool\":\"$verdict\"}"
                fi
                break
            fi
            printf ' %s' "$rate"
            knee="$rate"
            knee_tool="$used"
            sleep 0.5
        done
        if [ "$knee" -gt 0 ]; then
            sleep 0.5
            half=$((knee / 2))
            drive "$system" "$repetition" half "$half"
            p50="$(field "$line" p50_us) us"
            p99="$(field "$line" p99_us) us"
            [ "$used" = generator ] || { p50="${p50/#0.0 us/<1 ms}"; p99="${p99/#0.0 us/<1 ms}"; }
            printf ' | knee by %s; half knee %s by %s: p50 %s, p99 %s' "$knee_tool" "$half" \
                "$used" "$p50" "$p99"
        fi
        if [ "$sipp_busy_at" -gt 0 ]; then
            printf ' | SIPp handed over at %s (%s)' "$sipp_busy_at" "$sipp_reason"
        fi
        echo
        # --sipp-rate: one more SIPp run, a cross-check outside the figures.
        if [ "$repetition" -eq 1 ] && [ "$sipp_rate" -gt 0 ]; then
            sleep 0.5
            line="$(run_sipp "$sipp_rate" "$duration" "$out/logs/sipp-$system-check.csv")"
            record "$system" "$repetition" sipp "$line"
        fi
        stop_sut
    done
done
elapsed=$(($(date +%s) - began))

python3 - "$results" "$out" "$elapsed" "$scheduling" "$tool" <<'EOF'
import csv, json, statistics, sys

results, out, elapsed, scheduling, tool = sys.argv[1:6]
elapsed = int(elapsed)
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
            "knee_tool": knee.get("tool", "generator") if knee else None,
            "tool_limited": next((l["tool"] for l in lines if l["kind"] == "note"
                                  and l["system"] == s and l["repetition"] == r), None),
            "sipp_busy_at": min((l["rate"] for l in lines if l["kind"] == "step-sipp-busy"
                                 and l["system"] == s and l["repetition"] == r), default=None),
            "req_per_cpu_s": per_cpu(knee),
            "sut_core_share_at_knee":
                round(knee["sut_cpu_s"] / knee["duration_s"], 3) if knee else None,
            "common_rate": common[r],
            "common_req_per_cpu_s": per_cpu(at_common),
            "half_rate": half["rate"] if half else None,
            "half_tool": half.get("tool", "generator") if half else None,
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
    summary[s]["tool_limited"] = any(r["tool_limited"] for r in per[s])
    summary[s]["knee_tools"] = sorted({r["knee_tool"] for r in per[s] if r["knee_tool"]})
    summary[s]["half_tools"] = sorted({r["half_tool"] for r in per[s] if r["half_tool"]})
    summary[s]["knees"] = [r["knee"] for r in per[s]]

ratios = {}
for other in ("bare", "kamailio"):
    if "responder" in summary and other in summary:
        same_clock = summary["responder"]["half_tools"] == summary[other]["half_tools"]
        ratios["responder/" + other] = {
            c: (round(summary["responder"][c] / summary[other][c], 3)
                if summary["responder"][c] and summary[other][c]
                and (same_clock or not c.endswith("_us")) else None) for c in columns}

sipp = [l for l in lines if l["kind"] == "sipp"]
json.dump({"systems": summary, "repetitions": per, "ratios": ratios, "sipp": sipp,
           "tool": tool,
           "common_rates": common, "elapsed_s": elapsed, "scheduling": scheduling},
          open(out + "/summary.json", "w"), indent=2)
with open(out + "/summary.csv", "w", newline="") as f:
    w = csv.writer(f)
    w.writerow(["row"] + columns)
    for s in systems:
        w.writerow([s] + [summary[s][c] for c in columns])
    for name, r in ratios.items():
        w.writerow([name] + [r[c] for c in columns])


def cell(v, ratio=False, ms=False):
    if v is None:
        return "-"
    if ms and v < 1000:
        return "<1000"
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
row = "%-19s %11s %10s %13s %14s %9s %9s"
header = row % ("", "knee req/s", "knee by", "req/CPU-s", "req/CPU-s", "p50 us", "p99 us")
print(header)
print(row % ("", "", "", "at knee", "common step", "half knee", "half knee"))
print("-" * len(header))
for s in systems:
    d = summary[s]
    mark = "+" if d["tool_limited"] else ""
    ms = "sipp" in d["half_tools"]
    print(row % (s, cell(d["knee"]) + mark, "/".join(d["knee_tools"]) or "-",
                 cell(d["req_per_cpu_s"]), cell(d["common_req_per_cpu_s"]),
                 cell(d["p50_us"], ms=ms), cell(d["p99_us"], ms=ms)))
for name, r in ratios.items():
    print(row % (name, cell(r["knee"], True), "", cell(r["req_per_cpu_s"], True),
                 cell(r["common_req_per_cpu_s"], True), cell(r["p50_us"], True),
                 cell(r["p99_us"], True)))
print()
for s in systems:
    print("knees of %-10s %s" % (s, "  ".join(
        "%d (%s%s)" % (r["knee"], r["knee_tool"] or "-",
                       "; SIPp handed over at %d" % r["sipp_busy_at"]
                       if r["sipp_busy_at"] else "") for r in per[s])))
    print("half knee %-10s %s" % (s, "  ".join(
        "%s by %s" % (r["half_rate"], r["half_tool"]) for r in per[s] if r["half_rate"])))
if any(summary[s]["tool_limited"] for s in systems):
    print("+ the tool that drove the steps could not hold the next one: the knee is at least this")
if any("sipp" in summary[s]["half_tools"] for s in systems):
    print("SIPp times responses in whole milliseconds: <1000 is under a millisecond; response "
          "times of different tools are not compared.")
for s in systems:
    if any(r["anomalies"] for r in per[s]):
        print("note: %s gave answers without a To tag, non-2xx answers or unknown Call-IDs" % s)
for l in sipp:
    share = l["sipp_cpu_s"] / l["duration_s"]
    print("SIPp cross-check at %d/s against %s: %s of %d calls successful, %s failed, %s "
          "retransmissions; SIPp needed %.0f %% of its core"
          % (l["rate"], l["system"], l["answered"], l["calls"], l["failed"],
             l["retransmissions"], 100 * share))
print("Steps by %s." % {
    "auto": "SIPp up to 90 % of its core (utime + stime of SIPp over the step) or until it "
            "fell behind its rate, from there on by zn-load-generator",
    "sipp": "SIPp only", "generator": "zn-load-generator only"}[tool])
print("Raw lines: %s; summary: %s/summary.json and summary.csv; %d s of measurement."
      % (results, out, elapsed))
EOF
load_warning
