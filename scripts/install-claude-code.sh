#!/usr/bin/env bash
# Installs Claude Code from the npm registry into the folder given as the only
# argument and prints the path of its `claude` command (see install-npm-agent.sh;
# exit 77 when the registry cannot be reached).
# Pinned so the tests see the same agent every run; TIDEWICK_CLAUDE_CODE_VERSION
# tries another.
exec "$(dirname "$0")/install-npm-agent.sh" "${1:?usage: install-claude-code.sh FOLDER}" \
  @anthropic-ai/claude-code "${TIDEWICK_CLAUDE_CODE_VERSION:-2.1.328}" claude
