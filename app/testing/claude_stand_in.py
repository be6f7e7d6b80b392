#!/usr/bin/env python3
"""Scriptable loopback stand-in for the model API that Claude Code talks to.

Made for Tidewick's end-to-end tests (checked against Claude Code 2.1.328).
Standard library only.

    claude_stand_in.py PORT [--scenario FILE] [--log FILE] [--requests FILE]
                            [--command CMD]

PORT 0 picks a free port; the port actually used is the first stdout line
(flushed). SIGTERM / SIGINT end it cleanly.

Scenario file (JSON):

    {"steps": [
        {"bash": "touch a.txt"},                        # one Bash tool_use
        {"bash": "ls", "description": "List files"},    # description optional
        {"tool": "AskUserQuestion", "input": {"questions": [...]}},
        {"tools": [{"tool": "Bash", "input": {...}},    # several tool_use blocks
                   {"bash": "echo b"}]},                #   in one reply
        {"text": "Before the tool", "bash": "echo x"},  # text block, then tool_use
        {"text": "All done."}                           # text only: ends the turn
     ],
     "final_text": "Done: the scenario is over.",       # once steps run out
     "side_text": "Tidewick test",                      # for side queries
     "response_headers": {"x-name": "value"}}           # added to every Messages reply

Every "main" request (one that offers Claude Code's Bash tool) takes the next
step, in order, across the whole life of the server: a turn resumed later or a
turn continued by a Stop hook simply takes the following steps. Once the steps
are used up every main request gets "final_text". Requests that offer no Bash
tool (side queries such as titles or summaries) get "side_text" and never
consume a step.

Sub-agents run concurrently with the main conversation (Claude Code 2.1.328
launches them in the background), so they get their own step lists, chosen by
a marker in the first user message of the request (the prompt given to the
Agent tool):

     "subagents": {"SUBAGENT-MARKER": {"steps": [...], "final_text": "Sub done."}}

A request whose first user message contains the marker is logged with role
"sub:<marker>" and takes that list's steps.

Without --scenario the steps are [{"bash": CMD}] (CMD from --command, default
"echo tidewick-e2e"), i.e. one Bash call and then the final text, as the
older stand-in did for a single turn.

--log FILE       one summary line per request (default stderr)
--requests FILE  one JSON line per request: {"seq", "method", "path", "role"
                 ("main"/"sub:<marker>"/"side"/"other"), "step" (index or null), "reply"
                 (summary of what we answered), "body" (the parsed request)}.
                 Tests read it to check what the model received.
"""

import argparse
import json
import signal
import sys
import threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

DEFAULT_COMMAND = "echo tidewick-e2e"
DEFAULT_FINAL = "Done: the marker command has run."
DEFAULT_SIDE = "Tidewick test"


class Track:
    """One list of steps and the position in it."""

    def __init__(self, spec, default_final):
        self.steps = spec.get("steps") or []
        self.final_text = spec.get("final_text", default_final)
        self.next = 0


class Script:
    """The scenario and the positions in it; shared by all handler threads."""

    def __init__(self, scenario):
        self.main = Track(scenario, DEFAULT_FINAL)
        self.side_text = scenario.get("side_text", DEFAULT_SIDE)
        self.headers = scenario.get("response_headers") or {}
        self.subagents = {marker: Track(spec, "Sub-agent done.") for marker, spec in (scenario.get("subagents") or {}).items()}
        self._seq = 0
        self._lock = threading.Lock()

    def track_for(self, request):
        """(role, track) for a Messages request; track None for side queries."""
        first = first_user_text(request)
        for marker, track in self.subagents.items():
            if marker in first:
                return "sub:" + marker, track
        if offers_bash(request):
            return "main", self.main
        return "side", None

    def take(self, track):
        """Returns (index, step), or (None, None) once the track is used up."""
        with self._lock:
            if track.next >= len(track.steps):
                return None, None
            track.next += 1
            return track.next - 1, track.steps[track.next - 1]

    def sequence(self):
        with self._lock:
            self._seq += 1
            return self._seq


class Sink:
    """Append-only line file (or stderr) shared by all threads."""

    def __init__(self, path, fallback=None):
        self._lock = threading.Lock()
        self._stream = open(path, "a", encoding="utf-8") if path else fallback

    def write(self, line):
        if self._stream is None:
            return
        with self._lock:
            self._stream.write(line + "\n")
            self._stream.flush()


def first_user_text(request):
    """Text of the first user message, without <system-reminder> blocks."""
    for message in request.get("messages") or []:
        if message.get("role") != "user":
            continue
        content = message.get("content")
        if isinstance(content, str):
            return content
        return "\n".join(b.get("text", "") for b in content or []
                         if isinstance(b, dict) and b.get("type") == "text"
                         and not b.get("text", "").startswith("<system-reminder>"))
    return ""


def offers_bash(request):
    return any(isinstance(t, dict) and t.get("name") == "Bash" for t in request.get("tools") or [])


def tool_block(spec, seq, k):
    """One tool_use block from {"bash": CMD[, "description"]} or {"tool", "input"}."""
    if "bash" in spec:
        name = "Bash"
        command = spec["bash"]
        description = spec.get("description") or ("Print a marker" if command == DEFAULT_COMMAND else "Run the test command")
        tool_input = {"command": command, "description": description}
    else:
        name = spec["tool"]
        tool_input = spec.get("input") or {}
    return {"type": "tool_use", "id": f"toolu_standin_{seq:04d}_{k}", "name": name, "input": tool_input}


def blocks_for(step, seq):
    """Content blocks and stop reason for one step."""
    blocks = []
    if step.get("text"):
        blocks.append({"type": "text", "text": step["text"]})
    specs = list(step.get("tools") or [])
    if "bash" in step or "tool" in step:
        specs.append(step)
    for k, spec in enumerate(specs):
        blocks.append(tool_block(spec, seq, k))
    if not blocks:
        blocks.append({"type": "text", "text": ""})
    return blocks, ("tool_use" if specs else "end_turn")


def message_shell(request, seq):
    return {
        "id": f"msg_standin_{seq:04d}",
        "type": "message",
        "role": "assistant",
        "model": request.get("model") or "stand-in",
        "content": [],
        "stop_reason": None,
        "stop_sequence": None,
        "usage": {"input_tokens": 10, "output_tokens": 1, "cache_creation_input_tokens": 0, "cache_read_input_tokens": 0},
    }


def sse(event, data):
    return f"event: {event}\ndata: {json.dumps(data)}\n\n"


def stream_body(request, seq, blocks, stop_reason):
    """The SSE events the Messages API sends for the same reply, in order."""
    events = [sse("message_start", {"type": "message_start", "message": message_shell(request, seq)})]
    for index, block in enumerate(blocks):
        if block["type"] == "text":
            start = {"type": "text", "text": ""}
            deltas = [{"type": "text_delta", "text": block["text"]}]
        else:
            start = dict(block, input={})
            # Input arrives as JSON fragments; split it so the client really has to join them.
            text = json.dumps(block["input"])
            half = len(text) // 2
            deltas = [{"type": "input_json_delta", "partial_json": p} for p in (text[:half], text[half:])]
        events.append(sse("content_block_start", {"type": "content_block_start", "index": index, "content_block": start}))
        for delta in deltas:
            events.append(sse("content_block_delta", {"type": "content_block_delta", "index": index, "delta": delta}))
        events.append(sse("content_block_stop", {"type": "content_block_stop", "index": index}))
    events.append(sse("message_delta", {"type": "message_delta",
                                         "delta": {"stop_reason": stop_reason, "stop_sequence": None},
                                         "usage": {"output_tokens": 12}}))
    events.append(sse("message_stop", {"type": "message_stop"}))
    return "".join(events).encode()


class Handler(BaseHTTPRequestHandler):
    # HTTP/1.1 with exact Content-Length lets the client reuse connections as against the real API.
    protocol_version = "HTTP/1.1"
    server_version = "ClaudeStandIn/2"

    def log_message(self, format, *args):
        pass  # Our own logs are the ones tests read.

    def read_body(self):
        if "chunked" in self.headers.get("Transfer-Encoding", "").lower():
            chunks = []
            while True:
                size = int(self.rfile.readline().split(b";")[0].strip() or b"0", 16)
                if size == 0:
                    self.rfile.readline()
                    return b"".join(chunks)
                chunks.append(self.rfile.read(size))
                self.rfile.readline()
        return self.rfile.read(int(self.headers.get("Content-Length") or 0))

    def send(self, status, content_type, body, extra_headers=None):
        self.send_response(status)
        for name, value in (extra_headers or {}).items():
            self.send_header(name, str(value))
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(body)))
        self.send_header("request-id", "req_standin")
        self.end_headers()
        if self.command != "HEAD":
            self.wfile.write(body)

    def send_json(self, value, status=200):
        self.send(status, "application/json", json.dumps(value).encode())

    def handle_any(self):
        raw = self.read_body()
        path = self.path.split("?", 1)[0]
        script = self.server.script
        seq = script.sequence()
        record = {"seq": seq, "method": self.command, "path": self.path, "role": "other", "step": None}
        try:
            body = json.loads(raw) if raw else None
        except ValueError:
            body = raw.decode("utf-8", "replace")
        record["body"] = body
        try:
            if self.command == "POST" and path == "/v1/messages" and isinstance(body, dict):
                record.update(self.answer_messages(body, seq))
            elif path == "/v1/messages/count_tokens":
                self.send_json({"input_tokens": 100})
            else:
                self.send_json({})
        except (KeyError, TypeError, AttributeError) as error:
            record["reply"] = f"stand-in error: {error!r}"
            self.send_json({"type": "error", "error": {"type": "api_error", "message": record["reply"]}}, 500)
        summary = record.get("reply")
        self.server.log.write(f"{seq} {self.command} {self.path} {record['role']}"
                              f"{'' if record['step'] is None else ' step ' + str(record['step'])}"
                              f"{' -> ' + json.dumps(summary) if summary else ''}")
        self.server.requests.write(json.dumps(record))

    def answer_messages(self, request, seq):
        script = self.server.script
        role, track = script.track_for(request)
        index, step = script.take(track) if track else (None, None)
        if step is not None:
            blocks, stop_reason = blocks_for(step, seq)
        else:
            text = track.final_text if track else script.side_text
            blocks, stop_reason = [{"type": "text", "text": text}], "end_turn"
        if request.get("stream"):
            self.send(200, "text/event-stream", stream_body(request, seq, blocks, stop_reason), script.headers)
        else:
            message = message_shell(request, seq)
            message.update(content=blocks, stop_reason=stop_reason)
            message["usage"]["output_tokens"] = 12
            self.send(200, "application/json", json.dumps(message).encode(), script.headers)
        return {"role": role, "step": index, "reply": {"stop_reason": stop_reason, "content": blocks}}

    do_GET = do_POST = do_PUT = do_DELETE = do_HEAD = do_PATCH = do_OPTIONS = handle_any


def main():
    parser = argparse.ArgumentParser(description="Scriptable loopback stand-in for the model API")
    parser.add_argument("port", type=int, help="port on 127.0.0.1, 0 picks a free one")
    parser.add_argument("--scenario", help="JSON scenario file (see the module help)")
    parser.add_argument("--command", default=DEFAULT_COMMAND, help="Bash command when no scenario is given")
    parser.add_argument("--log", help="append one summary line per request here instead of stderr")
    parser.add_argument("--requests", help="append one JSON line per request (with its body) here")
    options = parser.parse_args()

    if options.scenario:
        with open(options.scenario, encoding="utf-8") as f:
            scenario = json.load(f)
    else:
        scenario = {"steps": [{"bash": options.command}]}

    server = ThreadingHTTPServer(("127.0.0.1", options.port), Handler)
    server.daemon_threads = True  # A client holding a keep-alive connection must not block exit.
    server.script = Script(scenario)
    server.log = Sink(options.log, sys.stderr)
    server.requests = Sink(options.requests)

    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    signal.signal(signal.SIGINT, lambda *_: sys.exit(0))
    print(server.server_address[1], flush=True)
    try:
        server.serve_forever()
    finally:
        server.server_close()


if __name__ == "__main__":
    main()
