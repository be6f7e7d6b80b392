#!/bin/bash
# Runs real Claude Code turns offline against claude_stand_in.py and checks that
# the hooks in a throwaway HOME see the whole turn.
#
#   plain turn:      claude -p, one read-only Bash call (echo) that runs without
#                    asking -> SessionStart UserPromptSubmit PreToolUse PostToolUse
#                    Stop SessionEnd
#   print-mode permission: claude -p and a Bash call that needs approval ->
#                    PermissionRequest, which our hook answers with "allow", so the
#                    command really runs
#   permission turn: the same through stream-json with --permission-prompt-tool stdio
#
# Exit 0 when all pass, 1 when one fails, 77 (skipped) when Claude Code or
# python3 is missing. Set CLAUDE=/path/to/claude to pick the binary.
# Only loopback is used; where possible the whole run sits in a private network
# namespace so that even a stray lookup cannot leave the machine.

set -u
here=$(cd "$(dirname "$0")" && pwd)

skip() {
    echo "skipped: $*"
    exit 77
}

find_claude() {
    local candidate
    for candidate in "${CLAUDE:-}" "$here/../../build/dev/claude-code/node_modules/.bin/claude" "$(command -v claude 2>/dev/null)"; do
        if [ -n "$candidate" ] && [ -x "$candidate" ]; then
            echo "$candidate"
            return 0
        fi
    done
    return 1
}

claude=$(find_claude) || skip "Claude Code not installed (scripts/install-claude-code.sh build/dev/claude-code, or set CLAUDE)"
command -v python3 > /dev/null || skip "python3 not found (the model stand-in needs it)"

# Re-run inside a fresh network namespace (loopback only) when the system allows
# it; otherwise (or with TIDEWICK_SMOKE_NETNS=off) the environment below already
# keeps Claude Code on loopback.
if [ -z "${TIDEWICK_SMOKE_NETNS:-}" ] && command -v unshare > /dev/null && command -v ip > /dev/null; then
    for flags in -n -rn; do
        if unshare $flags true 2> /dev/null; then
            export TIDEWICK_SMOKE_NETNS=inside
            exec unshare $flags bash "$0" "$@"
        fi
    done
fi
if [ "${TIDEWICK_SMOKE_NETNS:-}" = inside ]; then
    ip link set lo up || { echo "FAIL: cannot bring up loopback in the network namespace"; exit 1; }
fi

echo "Claude Code: $("$claude" --version 2> /dev/null) at $claude"
scratch=$(mktemp -d "${TMPDIR:-/tmp}/claude-turn-smoke.XXXXXX")
stand_in_pid=""
cleanup() {
    if [ -n "$stand_in_pid" ]; then kill "$stand_in_pid" 2> /dev/null; wait "$stand_in_pid" 2> /dev/null; fi
    rm -rf "$scratch"
}
trap cleanup EXIT

# Starts the stand-in for one case; sets $port. $1 = case dir, $2 = Bash command to ask for.
start_stand_in() {
    python3 "$here/claude_stand_in.py" 0 --log "$1/stand-in.log" --command "$2" > "$1/port" &
    stand_in_pid=$!
    for _ in $(seq 100); do
        [ -s "$1/port" ] && break
        sleep 0.05
    done
    port=$(head -n 1 "$1/port")
    [ -n "$port" ]
}

stop_stand_in() {
    kill "$stand_in_pid" 2> /dev/null
    wait "$stand_in_pid" 2> /dev/null
    stand_in_pid=""
}

# Makes $1/home with a hook on every event of interest. The hook appends
# "=== Event" and its stdin to $1/hooks.log, and allows permission requests.
make_home() {
    mkdir -p "$1/home/.claude" "$1/work"
    cat > "$1/hook.sh" << EOF
#!/bin/sh
{ printf '=== %s\n' "\$1"; cat; printf '\n'; } >> '$1/hooks.log'
if [ "\$1" = PermissionRequest ]; then
    printf '%s' '{"hookSpecificOutput":{"hookEventName":"PermissionRequest","decision":{"behavior":"allow"}}}'
fi
EOF
    chmod +x "$1/hook.sh"
    python3 - "$1/hook.sh" "$1/home/.claude/settings.json" << 'EOF'
import json, sys
hook, settings = sys.argv[1:]
tool_events = ["PreToolUse", "PermissionRequest", "PostToolUse", "PostToolUseFailure"]
other_events = ["SessionStart", "UserPromptSubmit", "Notification", "Stop", "SessionEnd"]
hooks = {}
for event in tool_events + other_events:
    entry = {"hooks": [{"type": "command", "command": f"{hook} {event}"}]}
    if event in tool_events:
        entry["matcher"] = "Bash"
    hooks[event] = [entry]
with open(settings, "w") as out:
    json.dump({"hooks": hooks}, out, indent=2)
EOF
}

# Runs Claude Code in $1 with the offline environment; the rest are its arguments.
run_claude() {
    local dir=$1
    shift
    (
        cd "$dir/work" &&
            env HOME="$dir/home" \
                ANTHROPIC_BASE_URL="http://127.0.0.1:$port" \
                ANTHROPIC_API_KEY=test-key \
                DISABLE_AUTOUPDATER=1 \
                DISABLE_TELEMETRY=1 \
                CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC=1 \
                timeout 60 "$claude" "$@"
    )
}

failures=0
fail() {
    echo "FAIL ($case_name): $*"
    failures=$((failures + 1))
}

# Checks that $1/hooks.log holds every named event, in any order.
expect_events() {
    local dir=$1 event
    shift
    for event in "$@"; do
        grep -qx "=== $event" "$dir/hooks.log" 2> /dev/null || fail "hook $event did not fire"
    done
}

show_logs() {
    echo "--- stand-in requests"
    cat "$1/stand-in.log" 2> /dev/null
    echo "--- hook events"
    grep '^===' "$1/hooks.log" 2> /dev/null
    echo "--- claude stderr"
    tail -n 20 "$1/err" 2> /dev/null
}

# Plain print-mode turn: echo is read-only, and --allowedTools keeps it allowed
# even if a later Claude Code version judges it otherwise.
case_name="plain turn"
dir=$scratch/plain
make_home "$dir"
start_stand_in "$dir" "echo tidewick-e2e" || fail "stand-in did not start"
run_claude "$dir" -p "say hi" --allowedTools Bash --output-format text > "$dir/out" 2> "$dir/err"
status=$?
stop_stand_in
[ $status -eq 0 ] || fail "claude exited with $status"
grep -q "marker command has run" "$dir/out" || fail "final text missing from output: $(head -c 300 "$dir/out")"
expect_events "$dir" SessionStart UserPromptSubmit PreToolUse PostToolUse Stop SessionEnd
grep -A1 -x '=== PostToolUse' "$dir/hooks.log" 2> /dev/null | grep -q '"stdout":"tidewick-e2e"' ||
    fail "PostToolUse does not carry the command's output"
[ $failures -eq 0 ] && echo "ok: $case_name" || show_logs "$dir"

# Print-mode permission: since 2.1.328 plain print mode asks the PermissionRequest
# hooks too (before, it refused on the spot); our hook allows, so the command runs.
case_name="print-mode permission"
before=$failures
dir=$scratch/print-permission
make_home "$dir"
start_stand_in "$dir" "touch tidewick-e2e.txt" || fail "stand-in did not start"
run_claude "$dir" -p "say hi" --output-format text > "$dir/out" 2> "$dir/err"
status=$?
stop_stand_in
[ $status -eq 0 ] || fail "claude exited with $status"
expect_events "$dir" PermissionRequest PostToolUse Stop
[ -e "$dir/work/tidewick-e2e.txt" ] || fail "the allowed command did not run"
[ $failures -eq $before ] && echo "ok: $case_name" || show_logs "$dir"

# Permission turn with a permission prompt tool: "stdio" sends the prompt as a
# control_request on stdout and waits for an answer on stdin, racing the hooks;
# our hook answers first. stdin must stay open until the result arrives, because
# closing it fails any pending permission request.
case_name="permission turn"
before=$failures
dir=$scratch/permission
make_home "$dir"
start_stand_in "$dir" "touch tidewick-e2e.txt" || fail "stand-in did not start"
mkfifo "$dir/stdin"
run_claude "$dir" -p --input-format stream-json --output-format stream-json --verbose \
    --permission-prompt-tool stdio < "$dir/stdin" > "$dir/out" 2> "$dir/err" &
claude_pid=$!
exec 3> "$dir/stdin"
printf '%s\n' '{"type":"user","message":{"role":"user","content":"say hi"}}' >&3
for _ in $(seq 600); do
    grep -q '"type":"result"' "$dir/out" && break
    kill -0 "$claude_pid" 2> /dev/null || break
    sleep 0.1
done
exec 3>&-
wait "$claude_pid"
status=$?
stop_stand_in
[ $status -eq 0 ] || fail "claude exited with $status"
# Key order in the result line changes between versions: read it as JSON.
python3 -c '
import json, sys
lines = [json.loads(l) for l in open(sys.argv[1]) if l.strip().startswith("{")]
sys.exit(0 if any(l.get("type") == "result" and l.get("subtype") == "success" for l in lines) else 1)
' "$dir/out" || fail "no successful result line"
expect_events "$dir" SessionStart UserPromptSubmit PreToolUse PermissionRequest PostToolUse Stop SessionEnd
[ -e "$dir/work/tidewick-e2e.txt" ] || fail "the allowed command did not run"
[ $failures -eq $before ] && echo "ok: $case_name" || show_logs "$dir"

if [ $failures -ne 0 ]; then
    echo "claude-turn-smoke: $failures check(s) failed"
    exit 1
fi
echo "claude-turn-smoke: all checks passed"
exit 0
