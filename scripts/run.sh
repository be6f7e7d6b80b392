#!/usr/bin/env bash
# Sets everything up, builds the optimised programs and starts Tidewick:
# the full-screen interface on a terminal, headless otherwise. Arguments go
# to `tidewick app` (for example --headless).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release -j"$(nproc)" --target tidewick tidewick-hook
exec build/release/bin/tidewick app "$@"
