#!/usr/bin/env bash
# Builds the library and runs its main example, after installing whatever Debian packages are
# missing. Arguments go to the example.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

jobs="$(nproc 2>/dev/null || echo 2)"
cmake --preset default >/dev/null
cmake --build --preset default -j "$jobs" --target zn-foundation-demo
exec build/examples/zn-foundation-demo "$@"
