#!/usr/bin/env bash
# The terminal interface at rest. Starts `tidewick app` in a tmux pane with a
# temporary home and reports its CPU use over 10 s of idling (from
# /proc/<pid>/stat) in these states:
#  1. under load: 200 sessions of which 50 hold a permission request (real
#     tidewick-hook processes), the avatar on and animating ("needs you"),
#  2. the same with the avatar switched off (settings avatarEnabled: false),
#  3. one working session, the avatar animating ("working"),
#  4. the same once the avatar has fallen asleep (a replacement avatar.json that
#     sleeps 6 s after the measure of 3 ends): it no longer animates;
# and, under load, how long a key takes to show on screen (Page Down, then Page
# Up; capture-pane polls).
# By default the interface runs the application in its own process (the figure
# covers the service and its waiting connection threads too). With --attached
# the application runs headless in the background and the pane's `tidewick app`
# attaches to it: the figures are then the attached interface's alone, and the
# application's beside them.
# Usage: bench/TerminalUIIdle.sh [bin directory, default build/release/bin] [--attached]
# (SECONDS_PER_MEASURE=30 measures longer, for a finer figure: a tick is 10 ms).
set -euo pipefail
bin=$(cd "${1:-build/release/bin}" && pwd)
attached=${2:-}
seconds=${SECONDS_PER_MEASURE:-10}
hooks=()
homes=()
servers=()
apps=()
cleanup() {
  for server in "${servers[@]}"; do
    tmux -L "$server" -f /dev/null send-keys -t ui q y 2>/dev/null || true
  done
  sleep 1
  for server in "${servers[@]}"; do tmux -L "$server" -f /dev/null kill-server 2>/dev/null || true; done
  for pid in "${hooks[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in "${apps[@]}"; do kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null || true; done
  for home in "${homes[@]}"; do rm -rf "$home"; done
}
trap cleanup EXIT

# start_app NAME: a fresh home and `tidewick app` in tmux server NAME, pane "ui"
# (attached to a headless application of its own with --attached).
start_app() {
  local name=$1
  home=$(mktemp -d)
  homes+=("$home")
  servers+=("$name")
  app_support="$home/Library/Application Support/Tidewick"
  mkdir -p "$app_support"
  [ -n "${avatar:-}" ] && printf '%s' "$avatar" >"$app_support/avatar.json"
  export TIDEWICK_HOME="$home"
  app=
  if [ "$attached" = "--attached" ]; then
    env -i TIDEWICK_HOME="$home" HOME="$home" "$bin/tidewick" app --headless >"$home/app.out" 2>&1 &
    app=$!
    apps+=("$app")
    for _ in $(seq 100); do grep -q "Tidewick is running" "$home/app.out" 2>/dev/null && break; sleep 0.1; done
  fi
  tmux -L "$name" -f /dev/null new-session -d -s ui -x 120 -y 40 \
    "exec env -i TERM=xterm-256color LANG=C.UTF-8 TIDEWICK_HOME='$home' HOME='$home' '$bin/tidewick' app"
  for _ in $(seq 100); do "$bin/tidewick" sessions >/dev/null 2>&1 && break; sleep 0.1; done
  pid=$(tmux -L "$name" -f /dev/null display-message -p -t ui '#{pane_pid}')
}

ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; }
report() {
  awk -v d="$2" -v hz="$(getconf CLK_TCK)" -v s="$seconds" -v label="$1" \
    'BEGIN { printf "idle CPU over %d s, %s: %.2f%% of one core (%d ticks at %d Hz)\n", s, label, 100 * d / (hz * s), d, hz }'
}

# measure LABEL: the interface's CPU share over $seconds seconds (and the
# application's, when the interface is attached to it).
measure() {
  local start end appStart=0
  start=$(ticks "$pid")
  [ -n "$app" ] && appStart=$(ticks "$app")
  sleep "$seconds"
  end=$(ticks "$pid")
  if [ -n "$app" ]; then
    report "$1, attached interface" $((end - start))
    report "$1, headless application" $(($(ticks "$app") - appStart))
  else
    report "$1, interface with the application in it" $((end - start))
  fi
}

# --- Under load ---------------------------------------------------------------
start_app "tw-idle-load-$$"
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
sleep 2 # let the burst of arrivals settle
measure "200 sessions, 50 held, avatar on"
# Settings apply while the interface runs.
printf '{"avatarEnabled": false}\n' >"$app_support/settings.json"
sleep 2
measure "200 sessions, 50 held, avatar off"
rm "$app_support/settings.json"

# Key to screen: the selection marker moves ten rows down and back up (Page Down,
# Page Up; tmux sends Home and End in a form xterm's terminfo does not know). The
# age column is left out of the comparison: it changes by itself every second.
now_ms() { date +%s%3N; }
selected() {
  tmux -L "tw-idle-load-$$" -f /dev/null capture-pane -p -t ui | grep '▸' | sed 's/ *[0-9]*[smhd] *│$//' || true
}
for key in PageDown PageUp; do
  before=$(selected)
  t0=$(now_ms)
  tmux -L "tw-idle-load-$$" -f /dev/null send-keys -t ui "$key"
  for _ in $(seq 500); do
    [ "$(selected)" != "$before" ] && break
  done
  echo "key $key shown after $(( $(now_ms) - t0 )) ms (including capture-pane polling)"
done
echo "screen:"
tmux -L "tw-idle-load-$$" -f /dev/null capture-pane -p -t ui

# --- One working session, awake then asleep -------------------------------------
# A replacement avatar (which also shows that one is taken up): 2 frames a second
# while working, asleep once the first measure is over.
frames='[["(o_o)"],["(o_O)"]]'
avatar="{\"sleepAfterSeconds\": $((seconds + 6)), \"poses\": {"
for pose in needsYou error working finished idle sleeping; do
  avatar+="\"$pose\": {\"expression\": \"$pose\", \"framesPerSecond\": 2, \"frames\": $frames},"
done
avatar="${avatar%,}}}"
start_app "tw-idle-quiet-$$"
printf '{"hook_event_name":"UserPromptSubmit","session_id":"busy","cwd":"/home/ana/src/project","prompt":"Keep going"}' |
  "$bin/tidewick-hook" --agent claude --event UserPromptSubmit >/dev/null
sleep 1
tmux -L "tw-idle-quiet-$$" -f /dev/null capture-pane -p -t ui | grep -q 'o_[oO])  *working' ||
  echo "(the replacement avatar is not shown working)"
measure "1 working session, avatar animating"
sleep 7 # long enough without news: asleep
tmux -L "tw-idle-quiet-$$" -f /dev/null capture-pane -p -t ui | grep -q sleeping || echo "(the avatar is not asleep yet)"
measure "1 working session, avatar asleep"
