#!/usr/bin/env python3
"""Writes the starting inputs of the fuzz programs into fuzz/corpus/<surface>/.

They are made from the agents' recorded payloads in ../shared/fixtures/
(beside the repository), cut to a few kilobytes each, plus a few hand-made
inputs for what the recordings do not cover (Cursor and Antigravity payloads,
configuration files, the control protocol). Run it again when the recordings
change; the inputs themselves are kept in the repository.

Usage: fuzz/make_corpora.py [fixtures folder, default ../shared/fixtures]
"""

import glob
import hashlib
import json
import os
import re
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
SECRET = "fuzz-secret"  # the secret the fuzz programs expect
CONTROL_VERSION = 2  # the control protocol's version
MAX_INPUT = 4096


def write(surface, text):
    data = text.encode() if isinstance(text, str) else text
    data = data[:MAX_INPUT]
    folder = os.path.join(HERE, "corpus", surface)
    os.makedirs(folder, exist_ok=True)
    name = hashlib.sha1(data).hexdigest()[:16]
    with open(os.path.join(folder, name), "wb") as out:
        out.write(data)


def compact(value):
    return json.dumps(value, separators=(",", ":"), ensure_ascii=False)


def recorded(fixtures):
    """(agent, event, payload) of every recorded payload."""
    for path in sorted(glob.glob(os.path.join(fixtures, "claude", "*.json"))):
        payload = json.load(open(path))
        yield "claude", payload.get("hook_event_name", ""), payload
    for path in sorted(glob.glob(os.path.join(fixtures, "codex", "payloads", "*", "*.json"))):
        payload = json.load(open(path))
        yield "codex", payload.get("hook_event_name", ""), payload


HANDMADE = [
    ("cursor", "beforeShellExecution",
     {"conversation_id": "c-1", "workspace_roots": ["/w"], "command": "git push --force"}),
    ("cursor", "beforeMCPExecution",
     {"conversation_id": "c-1", "tool_name": "search", "tool_input": "{\"q\":1}"}),
    ("cursor", "stop", {"conversation_id": "c-1", "status": "completed", "loop_count": 0}),
    ("cursor", "afterAgentResponse", {"conversation_id": "c-1", "text": "Done."}),
    ("antigravity", "PreToolUse",
     {"conversationId": "g-1", "workspacePaths": ["/ws"],
      "toolCall": {"name": "run_command", "args": {"CommandLine": "npm test"}}}),
    ("antigravity", "Stop", {"conversationId": "g-1", "workspacePaths": ["/ws"]}),
]

CONFIGS = [
    ("claude", ""),
    ("claude", "{}"),
    ("claude", '{"model": "opus", "hooks": {"PreToolUse": [{"matcher": "Bash", "hooks": '
               '[{"type": "command", "command": "./guard.sh"}]}], "Stop": [{"hooks": '
               '[{"type": "command", "command": "say done"}]}]}}'),
    ("claude", '{"hooks": {"Stop": [{"hooks": [{"type": "command", "command": '
               '"\'/Users/me/Library/Application Support/Tidewick/bin/tidewick-hook\' '
               '--agent claude --event Stop", "timeout": 90000}]}]}, "disableAllHooks": true}'),
    ("codex", '{"hooks": {"SessionStart": [{"hooks": [{"type": "command", "command": "echo hi"}]}]}}'),
    ("cursor", '{"version": 1, "hooks": {"afterFileEdit": [{"command": "./hooks/format.sh"}]}}'),
    ("antigravity", '{"hooks": [{"type": "command", "command": "log.sh"}]}'),
    ("claude", '{"hooks": []}'),
]


def main():
    fixtures = os.path.abspath(sys.argv[1] if len(sys.argv) > 1
                               else os.path.join(HERE, "..", "..", "shared", "fixtures"))
    # Inputs made here are named by their hash; inputs kept by hand (the ones that once
    # broke a program) have names of their own and stay.
    for made in glob.glob(os.path.join(HERE, "corpus", "*", "*")):
        if re.fullmatch(r"[0-9a-f]{16}", os.path.basename(made)):
            os.remove(made)
    events = list(recorded(fixtures))

    for path in sorted(glob.glob(os.path.join(fixtures, "**", "*.json*"), recursive=True)):
        text = open(path, encoding="utf-8").read()
        write("json", text.splitlines()[0] if path.endswith(".jsonl") else text)

    for agent, event, payload in events + HANDMADE:
        write("adapters", f"{agent}\n{event}\n{compact(payload)}")
        request = {"v": 1, "secret": SECRET, "agent": agent, "event": event, "pid": 4242,
                   "payload": payload, "host": "com.apple.Terminal", "agentPid": 4200}
        write("wire", compact(request))
    write("wire", compact({"v": 1, "stdout": '{"decision":"block","reason":"go on"}', "exit": 0}))
    write("wire", compact({"v": 1, "stdout": "", "exit": 2}))

    sessions = []
    for n, (agent, event, payload) in enumerate(events[:6]):
        sessions.append({
            "key": {"agent": agent, "sessionId": payload.get("session_id", "s")},
            "projectPath": payload.get("cwd"), "title": event, "status": "working",
            "startedAt": 1763700000.123 + n, "lastActivityAt": 1763700001.5 + n,
            "transcriptPath": payload.get("transcript_path"), "agentPid": 4200,
            "pending": [{"id": "0f8fad5b-d9cb-469f-a165-70867728950e", "kind": "permission",
                         "title": "Run rm -rf build", "detail": "rm -rf build",
                         "createdAt": 1763700001.373, "deadline": 1763700301.373}],
            "timeline": [{"id": "16fd2706-8baf-433b-82eb-8c7fada847da", "time": 1763700000.999,
                          "kind": "shell", "text": "npm test", "detail": "exit 0"}],
        })
    for size in (0, 1, len(sessions)):
        write("sessions", compact(sessions[:size]))

    key = {"agent": "claude", "sessionId": "d4e23369-98ea-4e04-8cd7-5fb639c89c36"}
    v = CONTROL_VERSION
    for command, extra in [("sessions", {}), ("pending", {}), ("allow", {"session": "d4e2"}),
                           ("deny", {"session": "d4e2", "message": "not now"}),
                           ("reply", {"session": "d4e2", "agent": "claude", "text": "go on"}),
                           ("letStop", {"session": "d4"}), ("subscribe", {}),
                           ("transcriptStep", {"session": "d4e2", "step": 41}),
                           ("allowAlways", {"session": "d4e2", "rule": "npm test:*"}),
                           ("answer", {"session": "d4e2", "answers": ["Yes", "later"]}),
                           ("continue", {"session": "d4e2", "text": "and the tests"}),
                           ("end", {"session": "d4e2"}), ("pause", {"until": 1763703600.5}),
                           ("resume", {}), ("forget", {"session": "d4e2"}), ("forgetAll", {}),
                           ("setting", {"setting": "quickReplies", "text": "Go on",
                                        "change": "add"})]:
        write("control", compact({"v": v, "secret": SECRET, "command": command, **extra}))
    write("control", compact({"v": 1, "secret": SECRET, "command": "sessions"}))
    write("control", compact({"v": v, "outcome": "done", "sessions": sessions[:2],
                              "shortIds": {key["sessionId"]: "d4e2"}}))
    write("control", compact({"v": v, "outcome": "done", "pending": [
        {"session": key, "request": sessions[0]["pending"][0]}]}))
    write("control", compact({"v": v, "outcome": "notDelivered", "message": "Nothing waits.",
                              "session": key}))
    write("control", compact({"v": v, "event": "change",
                              "change": {"kind": "session", "key": key, "session": sessions[0]}}))
    write("control", compact({"v": v, "event": "change", "change": {
        "kind": "pending", "key": key, "pending": sessions[0]["pending"]}}))
    write("control", compact({"v": v, "event": "change",
                              "change": {"kind": "removed", "key": key}}))
    write("control", compact({"v": v, "event": "alert", "alert": {
        "kind": "needsPermission", "session": key, "title": "Run rm -rf build",
        "detail": "rm -rf build", "requestId": "0f8fad5b-d9cb-469f-a165-70867728950e",
        "informational": False, "turnEnded": False, "alsoHeld": 2}}))
    write("control", compact({"v": v, "event": "ready"}))

    for agent, text in CONFIGS:
        write("editors", f"{agent}\n{text}")


if __name__ == "__main__":
    main()
