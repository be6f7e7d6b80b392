#!/usr/bin/env bash
# Installs Codex from the npm registry into the folder given as the only
# argument and prints the path of its `codex` command (see install-npm-agent.sh;
# exit 77 when the registry cannot be reached).
# Pinned so the tests see the same agent every run; TIDEWICK_CODEX_VERSION tries
# another.
exec "$(dirname "$0")/install-npm-agent.sh" "${1:?usage: install-codex.sh FOLDER}" \
  @openai/codex "${TIDEWICK_CODEX_VERSION:-0.169.0}" codex
