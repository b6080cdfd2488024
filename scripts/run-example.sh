#!/usr/bin/env bash
# Builds the library and runs its main example, after installing whatever Debian packages are
# missing: the stateless SIP responder zn-sip-responder, in the foreground on 127.0.0.1:5060 (UDP).
# Ctrl-C (SIGINT) or SIGTERM stops it.
#
#   scripts/run-example.sh [--seconds N] [responder options...]
#       --seconds N   stop the responder with SIGTERM after N seconds (a run that ends by itself)
#       responder options: --address A, --port P, --config FILE, --help
#   scripts/run-example.sh --demo [demo options...]
#       the short tour of the library's foundation (examples/zn_foundation_demo.cpp) instead
set -euo pipefail
cd "$(dirname "$0")/.."

demo=0
seconds=""
args=()
while [ $# -gt 0 ]; do
    case "$1" in
    --demo)
        demo=1
        shift
        ;;
    --seconds)
        [ $# -ge 2 ] || { echo "run-example: --seconds needs a number" >&2; exit 2; }
        seconds="$2"
        shift 2
        ;;
    --seconds=*)
        seconds="${1#--seconds=}"
        shift
        ;;
    *)
        args+=("$1")
        shift
        ;;
    esac
done
if [ -n "$seconds" ] && ! [[ "$seconds" =~ ^[1-9][0-9]*$ ]]; then
    echo "run-example: --seconds needs a whole number of seconds above 0, not '$seconds'" >&2
    exit 2
fi

scripts/install-deps.sh

jobs="$(nproc 2>/dev/null || echo 2)"
cmake --preset default >/dev/null

if [ "$demo" -eq 1 ]; then
    cmake --build --preset default -j "$jobs" --target zn-foundation-demo
    exec build/examples/zn-foundation-demo "${args[@]}"
fi

cmake --build --preset default -j "$jobs" --target zn-sip-responder
if [ -z "$seconds" ]; then
    exec build/examples/zn-sip-responder "${args[@]}"
fi

# A run of a given length: the responder in the background, stopped by SIGTERM when the time is
# up, or earlier when this script gets SIGINT or SIGTERM. Its exit code is the script's.
build/examples/zn-sip-responder "${args[@]}" &
pid=$!
trap 'kill -TERM "$pid" 2>/dev/null || true' INT TERM
end=$((SECONDS + seconds))
while kill -0 "$pid" 2>/dev/null; do
    if [ "$SECONDS" -ge "$end" ]; then
        kill -TERM "$pid" 2>/dev/null || true
        break
    fi
    sleep 0.2
done
status=0
# A trapped signal interrupts wait; wait again until the responder has really ended.
while :; do
    wait "$pid" && status=0 || status=$?
    kill -0 "$pid" 2>/dev/null || break
done
exit "$status"
