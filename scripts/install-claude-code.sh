#!/usr/bin/env bash
# Installs Claude Code from the npm registry into the folder given as the only
# argument, for the end-to-end test that runs it, and prints the path of its
# `claude` command. A copy of the wanted version already there is reused.
# Exits 77 when npm or the registry cannot be reached, so the test can skip.
set -uo pipefail

dest=${1:?usage: install-claude-code.sh FOLDER}
# Pinned so the test sees the same agent every run; override to try another.
version=${TIDEWICK_CLAUDE_CODE_VERSION:-2.1.197}
claude="$dest/node_modules/.bin/claude"

mkdir -p "$dest"
# Tests running side by side install into the same folder: one at a time.
exec 9>"$dest/.install-lock"
flock 9

installed_version() {
  "$claude" --version 2>/dev/null | awk '{print $1}'
}

if [ -x "$claude" ] && [ "$(installed_version)" = "$version" ]; then
  echo "$claude"
  exit 0
fi

if ! command -v npm >/dev/null 2>&1; then
  echo "npm is not installed, so Claude Code cannot be installed" >&2
  exit 77
fi

export npm_config_cache="$dest/.npm-cache"
if ! timeout 600 npm install --prefix "$dest" --no-audit --no-fund --loglevel=error \
    "@anthropic-ai/claude-code@$version" >&2; then
  echo "npm could not install @anthropic-ai/claude-code@$version (is the registry reachable?)" >&2
  exit 77
fi

if [ "$(installed_version)" != "$version" ]; then
  echo "the installed claude command does not run or is not version $version" >&2
  exit 1
fi
echo "$claude"
