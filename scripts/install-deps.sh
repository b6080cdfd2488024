#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the examples need, and nothing else.
# Idempotent: when every package is already there it only runs dpkg-query and returns.
set -euo pipefail

packages=(
    build-essential cmake ninja-build pkg-config clang
    libace-dev liblog4cplus-dev libssl-dev openssl
    libgtest-dev libgmock-dev libbenchmark-dev
    sip-tester
)
# sip-tester is SIPp (the command sipp), the SIP client of the interop tests of the responder.
# Extra packages a caller asks for.
packages+=("$@")

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$p")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

echo "install-deps: installing ${missing[*]}"
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
    sudo_cmd=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
# A package list older than a day (or none at all) is refreshed once before installing.
lists=/var/lib/apt/lists
if [ -z "$(find "$lists" -maxdepth 1 -name '*Packages*' -mmin -1440 2>/dev/null | head -1)" ]; then
    "${sudo_cmd[@]}" apt-get update -qq
fi
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
