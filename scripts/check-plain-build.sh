#!/usr/bin/env bash
# Builds Tidewick the way someone without the presets would: a plain Release
# build (CMake's default flags, -O3, warnings left as warnings) on a machine
# without GoogleTest or Google Benchmark, installed into a temporary prefix.
# Passes when only the two programs were built, the installed `tidewick`
# runs, and it installs the `tidewick-hook` that sits beside it; then packs
# the same build into the Debian package and checks that (check-package.sh).
set -euo pipefail
source=$(cd "$(dirname "$0")/.." && pwd)
scratch=$(mktemp -d /tmp/tidewick-plain-XXXXXX)
trap 'rm -rf "$scratch"' EXIT

# The build writes nothing into the source tree, so the sources as they are
# stand in for a clean clone. Disabling the two packages stands in for a
# machine where they are missing.
cmake -S "$source" -B "$scratch/build" -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON -DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON >/dev/null
cmake --build "$scratch/build" -j"$(nproc)" >"$scratch/build.log" 2>&1 || {
  cat "$scratch/build.log" >&2
  exit 1
}
cmake --install "$scratch/build" --prefix "$scratch/prefix" >/dev/null

fail() {
  echo "check-plain-build: $*" >&2
  exit 1
}
built=$(cd "$scratch/build/bin" && ls | tr '\n' ' ')
[ "$built" = "tidewick tidewick-hook " ] || fail "expected only the two programs, built: $built"
installed=$(cd "$scratch/prefix/bin" && ls | tr '\n' ' ')
[ "$installed" = "tidewick tidewick-hook " ] || fail "expected both programs installed, got: $installed"
for file in share/man/man1/tidewick.1.gz share/bash-completion/completions/tidewick \
  share/zsh/vendor-completions/_tidewick share/fish/vendor_completions.d/tidewick.fish; do
  [ -f "$scratch/prefix/$file" ] || fail "not installed: $file"
done
grep -qx "ExecStart=$scratch/prefix/bin/tidewick app --headless" \
  "$scratch/prefix/lib/systemd/user/tidewick.service" || fail "the user unit does not run the installed tidewick"

"$scratch/prefix/bin/tidewick" --version | grep -q '^tidewick ' || fail "tidewick --version failed"

# `connect` copies the hook command found beside tidewick into Tidewick's own folder.
home="$scratch/home"
mkdir -p "$home/.claude"
TIDEWICK_HOME="$home" HOME="$home" PATH=/usr/bin:/bin \
  "$scratch/prefix/bin/tidewick" connect claude --yes >/dev/null ||
  fail "tidewick connect claude failed"
cmp -s "$home/Library/Application Support/Tidewick/bin/tidewick-hook" \
  "$scratch/prefix/bin/tidewick-hook" || fail "tidewick did not find tidewick-hook beside itself"
if grep -q 'warning:' "$scratch/build.log"; then
  grep 'warning:' "$scratch/build.log" >&2
  fail "the plain build warns"
fi
echo "check-plain-build: plain Release build, install and hook lookup all work"
"$source/scripts/check-package.sh" "$scratch/build"
