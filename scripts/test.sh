#!/usr/bin/env bash
# Builds and runs every test through CTest, after installing whatever Debian packages are missing.
#   scripts/test.sh           the default preset (RelWithDebInfo)
#   scripts/test.sh asan      address and undefined-behaviour sanitizers
#   scripts/test.sh tsan      thread sanitizer
# Extra arguments after the preset go to ctest (for example -L unit).
set -euo pipefail
cd "$(dirname "$0")/.."

preset="${1:-default}"
shift || true

scripts/install-deps.sh

jobs="$(nproc 2>/dev/null || echo 2)"
cmake --preset "$preset"
cmake --build --preset "$preset" -j "$jobs"
ctest --preset "$preset" "$@"
