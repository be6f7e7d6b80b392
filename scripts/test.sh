#!/usr/bin/env bash
# Sets everything up and runs the whole test suite: every test under
# AddressSanitizer and UndefinedBehaviorSanitizer, the concurrency tests also
# under ThreadSanitizer, a plain build and install without the presets, and
# each fuzz program for 20 s.
# Exits non-zero when any test fails.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
jobs=$(nproc)

cmake --preset dev >/dev/null
cmake --build --preset dev -j"$jobs"
ctest --preset dev -j"$jobs"

# ThreadSanitizer: only the programs that hold concurrency tests.
cmake --preset tsan >/dev/null
cmake --build --preset tsan -j"$jobs" --target concurrencyTests
ctest --preset tsan -j"$jobs"

# What someone without the presets gets: a plain Release build and install.
scripts/check-plain-build.sh

# The fuzz programs, built with clang, on their starting inputs and beyond.
scripts/fuzz.sh 20
