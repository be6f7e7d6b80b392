#!/usr/bin/env bash
# Installs one coding agent from the npm registry into a folder, for the
# end-to-end tests that run it, and prints the path of its command. A copy of
# the wanted version already there is reused, so a build folder downloads it
# once. Exits 77 when npm or the registry cannot be reached, so the test can skip.
#
#   install-npm-agent.sh FOLDER PACKAGE VERSION COMMAND
#
# The installed command is asked for its version with HOME pointed into FOLDER:
# agents write into their home even for --version, and never the user's.
set -uo pipefail

dest=${1:?usage: install-npm-agent.sh FOLDER PACKAGE VERSION COMMAND}
package=${2:?package missing}
version=${3:?version missing}
command_name=${4:?command missing}
program="$dest/node_modules/.bin/$command_name"

mkdir -p "$dest/.home"
# Tests running side by side install into the same folder: one at a time.
exec 9>"$dest/.install-lock"
flock 9

# The first word of `COMMAND --version` that looks like a version number.
installed_version() {
  HOME="$dest/.home" CODEX_HOME="$dest/.home/.codex" "$program" --version 2>/dev/null |
    grep -oE '[0-9]+\.[0-9]+\.[0-9]+[^ ]*' | head -n 1
}

if [ -x "$program" ] && [ "$(installed_version)" = "$version" ]; then
  echo "$program"
  exit 0
fi

if ! command -v npm >/dev/null 2>&1; then
  echo "npm is not installed, so $package cannot be installed" >&2
  exit 77
fi

export npm_config_cache="$dest/.npm-cache"
if ! timeout 600 npm install --prefix "$dest" --no-audit --no-fund --loglevel=error \
    "$package@$version" >&2; then
  echo "npm could not install $package@$version (is the registry reachable?)" >&2
  exit 77
fi

if [ "$(installed_version)" != "$version" ]; then
  echo "the installed $command_name command does not run or is not version $version" >&2
  exit 1
fi
echo "$program"
