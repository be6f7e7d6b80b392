#!/usr/bin/env bash
# The terminal interface at rest under load: starts `tidewick app` in a tmux
# pane with a temporary home, fills it with 200 sessions of which 50 hold a
# permission request (real tidewick-hook processes), then reports
#  - the interface's CPU use over 10 s of idling (from /proc/<pid>/stat),
#  - how long a key takes to show on screen (End, then Home; capture-pane polls).
# By default the interface runs the application in its own process (the
# figure covers the service and its 50 waiting connection threads too). With
# --attached the application runs headless in the background and the pane's
# `tidewick app` attaches to it: the figures are then the attached interface's
# alone, and the application's beside them.
# Usage: bench/TerminalUIIdle.sh [bin directory, default build/release/bin] [--attached]
set -euo pipefail
bin=$(cd "${1:-build/release/bin}" && pwd)
attached=${2:-}
home=$(mktemp -d)
socket="tw-idle-$$"
seconds=10
hooks=()
app=
tmx() { tmux -L "$socket" -f /dev/null "$@"; }
cleanup() {
  tmx send-keys -t ui q y 2>/dev/null || true
  sleep 1
  tmx kill-server 2>/dev/null || true
  for pid in "${hooks[@]}"; do kill "$pid" 2>/dev/null || true; done
  [ -n "$app" ] && kill "$app" 2>/dev/null && wait "$app" 2>/dev/null
  rm -rf "$home"
}
trap cleanup EXIT

export TIDEWICK_HOME="$home"
if [ "$attached" = "--attached" ]; then
  env -i TIDEWICK_HOME="$home" HOME="$home" "$bin/tidewick" app --headless >"$home/app.out" 2>&1 &
  app=$!
  for _ in $(seq 100); do grep -q "Tidewick is running" "$home/app.out" 2>/dev/null && break; sleep 0.1; done
fi
tmx new-session -d -s ui -x 120 -y 40 \
  "exec env -i TERM=\"\$TERM\" LANG=C.UTF-8 TIDEWICK_HOME='$home' HOME='$home' '$bin/tidewick' app"
for _ in $(seq 100); do "$bin/tidewick" sessions >/dev/null 2>&1 && break; sleep 0.1; done

for i in $(seq 150); do
  printf '{"hook_event_name":"UserPromptSubmit","session_id":"busy-%03d","cwd":"/home/ana/src/project-%03d","prompt":"Keep going"}' "$i" "$i" |
    "$bin/tidewick-hook" --agent claude --event UserPromptSubmit >/dev/null
done
for i in $(seq 50); do
  if (( i % 2 )); then
    printf '{"hook_event_name":"PermissionRequest","session_id":"held-%02d","cwd":"/home/ana/src/held-%02d","tool_name":"Bash","tool_input":{"command":"rm -rf build-%02d"}}' "$i" "$i" "$i" |
      "$bin/tidewick-hook" --agent claude --event PermissionRequest >/dev/null &
  else
    printf '{"conversation_id":"held-%02d","workspace_roots":["/home/ana/src/held-%02d"],"command":"git push --force origin branch-%02d"}' "$i" "$i" "$i" |
      "$bin/tidewick-hook" --agent cursor --event beforeShellExecution >/dev/null &
  fi
  hooks+=($!)
done
for _ in $(seq 200); do
  held=$("$bin/tidewick" pending 2>/dev/null | wc -l)
  [ "$held" -ge 50 ] && break
  sleep 0.1
done
echo "sessions: $("$bin/tidewick" sessions | wc -l), held requests: $held"

pid=$(tmx display-message -p -t ui '#{pane_pid}')
ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; }
sleep 2 # let the burst of arrivals settle
start=$(ticks "$pid")
[ -n "$app" ] && appStart=$(ticks "$app")
sleep "$seconds"
end=$(ticks "$pid")
hz=$(getconf CLK_TCK)
report() {
  awk -v d="$2" -v hz="$hz" -v s="$seconds" -v who="$1" \
    'BEGIN { printf "%s idle CPU over %d s: %.2f%% of one core (%d ticks at %d Hz)\n", who, s, 100 * d / (hz * s), d, hz }'
}
if [ -n "$app" ]; then
  report "attached interface" $((end - start))
  report "headless application" $(($(ticks "$app") - appStart))
else
  report "interface with the application in it" $((end - start))
fi

# Key to screen: the selection marker moves to the last row and back.
now_ms() { date +%s%3N; }
for key in End Home; do
  before=$(tmx capture-pane -p -t ui | grep '▸' || true)
  t0=$(now_ms)
  tmx send-keys -t ui "$key"
  for _ in $(seq 500); do
    after=$(tmx capture-pane -p -t ui | grep '▸' || true)
    [ "$after" != "$before" ] && break
  done
  echo "key $key shown after $(( $(now_ms) - t0 )) ms (including capture-pane polling)"
done
echo "screen:"
tmx capture-pane -p -t ui
