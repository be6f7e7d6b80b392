#!/usr/bin/env python3
"""Loopback stand-in for the model API Claude Code talks to.

End-to-end tests run a real `claude -p` turn with no network. This server plays
the model for exactly one scripted turn:

  * no tool_result in the conversation yet -> ask for one Bash tool call;
  * a tool_result is present               -> answer with plain text, end the turn.

Requests that do not offer a Bash tool (Claude Code's side queries, e.g. titles
or summaries made with a small model) always get plain text, so they never start
a tool call of their own. Every other path gets a harmless JSON answer so that
nothing in Claude Code waits on us.

Usage: model_stand_in.py PORT [--log FILE] [--command "echo tidewick-e2e"]
  PORT 0 picks a free port; the chosen port is printed on the first stdout line.
Standard library only: the tests must not need anything installed.
"""

import argparse
import json
import secrets
import signal
import sys
import threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

DEFAULT_COMMAND = "echo tidewick-e2e"
FINAL_TEXT = "Done: the marker command has run."
SIDE_TEXT = "Tidewick test"


class Log:
    """Line log shared by all handler threads; stderr unless a file is given."""

    def __init__(self, path):
        self._lock = threading.Lock()
        self._stream = open(path, "a", encoding="utf-8") if path else sys.stderr

    def write(self, line):
        with self._lock:
            self._stream.write(line + "\n")
            self._stream.flush()


def has_tool_result(messages):
    """True once Claude Code has sent back the result of our tool call."""
    for message in messages:
        content = message.get("content")
        if isinstance(content, list):
            for block in content:
                if isinstance(block, dict) and block.get("type") == "tool_result":
                    return True
    return False


def offers_bash(request):
    return any(isinstance(t, dict) and t.get("name") == "Bash" for t in request.get("tools") or [])


def describe(command):
    return "Print a marker" if command == DEFAULT_COMMAND else "Run the test command"


def plan_reply(request, command):
    """Returns the content blocks and stop reason for one Messages request."""
    messages = request.get("messages") or []
    if offers_bash(request) and not has_tool_result(messages):
        tool_use = {
            "type": "tool_use",
            "id": "toolu_" + secrets.token_hex(12),
            "name": "Bash",
            "input": {"command": command, "description": describe(command)},
        }
        return [tool_use], "tool_use"
    text = FINAL_TEXT if offers_bash(request) else SIDE_TEXT
    return [{"type": "text", "text": text}], "end_turn"


def message_shell(request):
    """An assistant message without content, as message_start carries it."""
    return {
        "id": "msg_" + secrets.token_hex(12),
        "type": "message",
        "role": "assistant",
        "model": request.get("model") or "stand-in",
        "content": [],
        "stop_reason": None,
        "stop_sequence": None,
        "usage": {
            "input_tokens": 10,
            "output_tokens": 1,
            "cache_creation_input_tokens": 0,
            "cache_read_input_tokens": 0,
        },
    }


def sse(event, data):
    return f"event: {event}\ndata: {json.dumps(data)}\n\n"


def stream_body(request, blocks, stop_reason):
    """The SSE events the Messages API sends for the same reply, in order."""
    events = [sse("message_start", {"type": "message_start", "message": message_shell(request)})]
    for index, block in enumerate(blocks):
        if block["type"] == "text":
            start = {"type": "text", "text": ""}
            deltas = [{"type": "text_delta", "text": block["text"]}]
        else:
            start = dict(block, input={})
            # Input arrives as JSON fragments; split it so the client really has to join them.
            text = json.dumps(block["input"])
            half = len(text) // 2
            deltas = [{"type": "input_json_delta", "partial_json": part} for part in (text[:half], text[half:])]
        events.append(sse("content_block_start", {"type": "content_block_start", "index": index, "content_block": start}))
        for delta in deltas:
            events.append(sse("content_block_delta", {"type": "content_block_delta", "index": index, "delta": delta}))
        events.append(sse("content_block_stop", {"type": "content_block_stop", "index": index}))
    events.append(
        sse(
            "message_delta",
            {
                "type": "message_delta",
                "delta": {"stop_reason": stop_reason, "stop_sequence": None},
                "usage": {"output_tokens": 12},
            },
        )
    )
    events.append(sse("message_stop", {"type": "message_stop"}))
    return "".join(events).encode()


class Handler(BaseHTTPRequestHandler):
    # HTTP/1.1 with exact Content-Length lets the client reuse connections as it would against the real API.
    protocol_version = "HTTP/1.1"
    server_version = "ModelStandIn/1"

    def log_message(self, format, *args):
        pass  # The request log below is the one the tests read.

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

    def send(self, status, content_type, body):
        self.send_response(status)
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(body)))
        self.send_header("request-id", "req_" + secrets.token_hex(8))
        self.end_headers()
        if self.command != "HEAD":
            self.wfile.write(body)

    def send_json(self, value, status=200):
        self.send(status, "application/json", json.dumps(value).encode())

    def handle_any(self):
        body = self.read_body()
        path = self.path.split("?", 1)[0]
        note = ""
        try:
            if self.command == "POST" and path == "/v1/messages":
                note = self.answer_messages(json.loads(body or b"{}"))
            elif path == "/v1/messages/count_tokens":
                self.send_json({"input_tokens": 100})
            else:
                self.send_json({})
        except (ValueError, AttributeError) as error:
            note = f"bad request: {error}"
            self.send_json({"type": "error", "error": {"type": "invalid_request_error", "message": note}}, 400)
        self.server.log.write(f"{self.command} {self.path}{' ' + note if note else ''}")

    def answer_messages(self, request):
        blocks, stop_reason = plan_reply(request, self.server.command)
        if request.get("stream"):
            self.send(200, "text/event-stream", stream_body(request, blocks, stop_reason))
        else:
            message = message_shell(request)
            message.update(content=blocks, stop_reason=stop_reason)
            message["usage"]["output_tokens"] = 12
            self.send_json(message)
        kind = "stream" if request.get("stream") else "json"
        return f"-> {stop_reason} ({kind}, model {request.get('model')}, {len(request.get('tools') or [])} tools)"

    do_GET = do_POST = do_PUT = do_DELETE = do_HEAD = do_PATCH = handle_any


def main():
    parser = argparse.ArgumentParser(description="Loopback stand-in for the model API")
    parser.add_argument("port", type=int, help="port on 127.0.0.1, 0 picks a free one")
    parser.add_argument("--log", help="append request lines here instead of stderr")
    # echo is read-only, so Claude Code runs it without asking; a writing command
    # such as "touch x" makes it ask first, which is how a test reaches PermissionRequest.
    parser.add_argument("--command", default=DEFAULT_COMMAND, help="the Bash command the model asks for")
    options = parser.parse_args()

    server = ThreadingHTTPServer(("127.0.0.1", options.port), Handler)
    server.daemon_threads = True  # A client holding a keep-alive connection must not block exit.
    server.log = Log(options.log)
    server.command = options.command

    # Tests stop us with SIGTERM; leave serve_forever through SystemExit so the socket is closed.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    signal.signal(signal.SIGINT, lambda *_: sys.exit(0))

    print(server.server_address[1], flush=True)
    try:
        server.serve_forever()
    finally:
        server.server_close()


if __name__ == "__main__":
    main()
