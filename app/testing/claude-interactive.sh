#!/usr/bin/env bash
# Plays one interactive Claude Code session in tmux against the model stand-in,
# answering what it holds in Tidewick from the command line, for the end-to-end
# tests. Run it in a network namespace of its own (`unshare -n`): the stand-in,
# tmux and Claude Code then reach loopback only, while `tidewick` and the hook
# still reach the application through its socket files.
#
#   claude-interactive.sh MODE CLAUDE STAND_IN TIDEWICK HOME WORK SCRATCH
#
# MODE "always": the stand-in asks for `touch first.txt` then `touch second.txt`;
# the first request is answered with `tidewick allow SESSION --always`.
# MODE "question": the stand-in asks one AskUserQuestion question, answered with
# `tidewick answer SESSION blue`.
# HOME is both HOME and TIDEWICK_HOME (Tidewick already connected there); the
# stand-in's requests land in SCRATCH/requests.jsonl. Exit 0 when the session
# ran to its end; 1 with the pane on standard error otherwise.
set -u
mode=$1 claude=$2 stand_in=$3 tidewick=$4 home=$5 work=$6 scratch=$7
sock="$scratch/tmux.sock"
stand_in_pid=

cleanup() {
    tmux -S "$sock" kill-server 2>/dev/null
    if [ -n "$stand_in_pid" ]; then
        kill "$stand_in_pid" 2>/dev/null
        wait "$stand_in_pid" 2>/dev/null
    fi
}
fail() {
    echo "FAILED: $*" >&2
    tmux -S "$sock" capture-pane -p -t cc 2>/dev/null | grep -v '^\s*$' >&2
    cleanup
    exit 1
}
# Polls until COMMAND succeeds, for at most SECONDS (tenths of a second apart).
wait_for() {
    local seconds=$1 i
    shift
    for i in $(seq $((seconds * 10))); do
        "$@" && return 0
        sleep 0.1
    done
    return 1
}
pane_has() { tmux -S "$sock" capture-pane -p -t cc 2>/dev/null | grep -Eq -- "$1"; }
type_line() {
    tmux -S "$sock" send-keys -t cc -l "$1"
    # The input box takes the text before Enter, or Enter may go to a popup.
    sleep 0.3
    tmux -S "$sock" send-keys -t cc Enter
}
# The session identifier of the first request Tidewick holds; nothing while none is held.
held_session() {
    TIDEWICK_HOME="$home" "$tidewick" pending --json 2>/dev/null | python3 -c '
import json, sys
held = json.load(sys.stdin)
if held:
    print(held[0]["session"]["sessionId"])'
}

is_held() { [ -n "$(held_session)" ]; }

# A fresh network namespace starts with loopback down.
ip link set lo up 2>/dev/null || true

case $mode in
always)
    scenario='{"steps":[{"bash":"touch first.txt","description":"Make the first file"},
                        {"bash":"touch second.txt","description":"Make the second file"}],
               "final_text":"Both files are there."}'
    prompt="make two files" ending="Both files are there" ;;
question)
    scenario='{"steps":[{"tool":"AskUserQuestion","input":{"questions":[
                 {"question":"Which colour should the button be?","header":"Colour","multiSelect":false,
                  "options":[{"label":"Red","description":"A warm red"},{"label":"Blue","description":"A calm blue"}]}]}}],
               "final_text":"Blue it is."}'
    prompt="pick a colour" ending="Blue it is" ;;
*) fail "unknown mode $mode" ;;
esac
echo "$scenario" > "$scratch/scenario.json"

python3 "$stand_in" 0 --scenario "$scratch/scenario.json" --log "$scratch/stand-in.log" \
    --requests "$scratch/requests.jsonl" > "$scratch/port" &
stand_in_pid=$!
wait_for 10 test -s "$scratch/port" || fail "the stand-in did not start"
port=$(head -n 1 "$scratch/port")

# Answers Claude Code's first-run screens: onboarding, the API key, trusting the folder.
python3 - "$home" "$work" <<'PY'
import json, os, sys
home, work = sys.argv[1], os.path.realpath(sys.argv[2])
json.dump({"hasCompletedOnboarding": True,
           "customApiKeyResponses": {"approved": ["test-key"], "rejected": []},
           "projects": {work: {"hasTrustDialogAccepted": True}}},
          open(os.path.join(home, ".claude.json"), "w"))
PY

tmux -S "$sock" new-session -d -s cc -x 200 -y 50 \
    "cd $(printf '%q' "$work") && env HOME=$(printf '%q' "$home") TIDEWICK_HOME=$(printf '%q' "$home") \
     ANTHROPIC_BASE_URL=http://127.0.0.1:$port ANTHROPIC_API_KEY=test-key DISABLE_AUTOUPDATER=1 \
     DISABLE_TELEMETRY=1 CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC=1 \
     CLAUDE_CODE_DISABLE_OFFICIAL_MARKETPLACE_AUTOINSTALL=1 TERM=xterm-256color \
     $(printf '%q' "$claude") --permission-mode manual; echo CLAUDE-EXITED-\$?; sleep 600"
wait_for 60 pane_has 'manual mode on' || fail "Claude Code did not start"
type_line "$prompt"

# The request reaches Tidewick (the dialog shows in Claude Code meanwhile).
wait_for 60 is_held || fail "nothing was held in Tidewick"
session=$(held_session)
case $mode in
always) TIDEWICK_HOME="$home" "$tidewick" allow "$session" --always > "$scratch/answer.out" 2>&1 ;;
question) TIDEWICK_HOME="$home" "$tidewick" answer "$session" blue > "$scratch/answer.out" 2>&1 ;;
esac || fail "tidewick could not answer: $(cat "$scratch/answer.out")"

wait_for 60 pane_has "$ending" || fail "the turn did not end"
type_line "/exit"
wait_for 30 pane_has 'CLAUDE-EXITED' || fail "Claude Code did not exit"
cleanup
exit 0
