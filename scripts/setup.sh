#!/usr/bin/env bash
# Installs the Debian packages Tidewick builds and tests with. Idempotent: it
# asks apt only for what is missing, and says nothing when all is in place.
set -euo pipefail

packages=(
  build-essential cmake pkg-config ninja-build
  libutf8proc-dev libcli11-dev libsqlite3-dev libncurses-dev libsystemd-dev
  libgtest-dev libgmock-dev libbenchmark-dev nlohmann-json3-dev
  tmux dbus python3
  clang libclang-rt-14-dev llvm
  # systemd-analyze and a private user manager for the service tests; man -l for the
  # manual page; zsh and fish to try their completions.
  systemd man-db groff-base zsh fish
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
  echo "setup: missing packages: ${missing[*]} (run as root to install them)" >&2
  exit 1
fi

export DEBIAN_FRONTEND=noninteractive
apt-get update -qq >/dev/null
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
