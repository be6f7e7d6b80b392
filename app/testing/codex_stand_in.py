#!/usr/bin/env python3
"""Loopback stand-in for the OpenAI Responses API, enough to drive Codex CLI 0.169.0
offline in Tidewick's end-to-end tests. Standard library only.

    codex_stand_in.py [--port 0] [--log requests.jsonl] [--scenario s.json] [flags]

The first line on stdout is the port (then stdout is flushed). SIGTERM / SIGINT
stop the server cleanly, within about 0.2 s even with a stream still open.
Codex finds it through a custom provider in config.toml (`base_url =
"http://127.0.0.1:PORT/v1"`, `wire_api = "responses"`, `env_key`,
`supports_websockets = false`).

What Codex calls:
  POST /v1/responses      streaming SSE; the only call a turn needs
  GET  /v1/models         never seen with a custom provider; answered with an empty list
  anything else           404, logged

How a reply to POST /v1/responses is chosen (the first rule that applies):
  0. Requests that are not part of a turn get "Summary from the stand-in." and take
     no step: Codex marks them in the x-codex-turn-metadata header ("request_kind":
     "compaction" for thread/compact/start), or they hold no user message at all.
  1. The next of the scenario's "steps", if any is left. Every turn request takes
     one, in order, for the life of the server: the first request of a turn, the one
     after a tool ran (or was refused), the one after a Stop hook sent the turn back.
       {"exec": CMD}                        call the shell tool with CMD in the sandbox
       {"exec": CMD, "escalated": true}     ... asking to run it outside the sandbox
                                            (sandbox_permissions=require_escalated), which
                                            needs approval under "on-request"
       {"reply": TEXT}                      answer TEXT (ends the turn)
       {"hang": true}                       see [hang]
  2. The newest input is a tool's output  -> "Done: tool said <output>"
  3. The newest user message holds a <hook_prompt ...> (how a Stop hook's
     {"decision":"block","reason":...} comes back) -> "Continued: <that message>"
  4. Directives in the newest user message (checked in this order):
       [hang]              keep the stream open without finishing (until the client goes
                           away, or --hang-seconds pass), to test interrupts
       [escalate: CMD]     as {"exec": CMD, "escalated": true}
       [exec: CMD]         as {"exec": CMD}
       [reply: TEXT]       answer TEXT
  5. --command CMD (+ --escalated) -> a shell tool call, otherwise --reply TEXT
     (default "Hello from the stand-in.").

Rate-limit headers (--primary-used 42 --primary-window 300 --primary-reset-in 3600 or
--primary-reset-at UNIX_SECONDS; the same for secondary) go with every /v1/responses
answer as x-codex-primary-used-percent / -window-minutes / -reset-at. Codex copies
them into the rollout's token_count event as payload.rate_limits.primary/secondary
{used_percent, window_minutes, resets_at}.

Every request is appended to --log as one JSON line:
  {"seq":N,"method":"POST","path":"/v1/responses","headers":{...},"body":<parsed JSON or text>,
   "reply":{"kind":"text"|"exec"|"hang",...,"step":index or absent},"sent_headers":{...}}
A scenario file is JSON with any of the long flag names as keys (underscored),
plus "steps", e.g.
  {"reply": "ok", "primary_used": 42,
   "steps": [{"exec": "ls"}, {"reply": "listed"}, {"exec": "touch /x", "escalated": true}]}
Flags given on the command line win over the scenario file.
"""
import argparse
import json
import re
import signal
import sys
import threading
import time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

DEFAULTS = {
    "port": 0,
    "log": None,
    "command": None,
    "escalated": False,
    "justification": "stand-in wants to run this outside the sandbox",
    "reply": "Hello from the stand-in.",
    "hang_seconds": 120.0,
    "primary_used": None,
    "primary_window": 300,
    "primary_reset_in": 3600,
    "primary_reset_at": None,
    "secondary_used": None,
    "secondary_window": 10080,
    "secondary_reset_in": 259200,
    "secondary_reset_at": None,
    "model": "gpt-5.1-codex",
}


class StandIn:
    def __init__(self, cfg):
        self.cfg = cfg
        self.lock = threading.Lock()
        self.seq = 0
        self.calls = 0
        self.stopping = threading.Event()
        self.steps = list(cfg.get("steps") or [])
        self.taken = 0

    # ---- logging -------------------------------------------------------------------------
    def log(self, record):
        with self.lock:
            self.seq += 1
            record = {"seq": self.seq, "time": time.time(), **record}
            if self.cfg["log"]:
                with open(self.cfg["log"], "a", encoding="utf-8") as f:
                    f.write(json.dumps(record) + "\n")
            return self.seq

    def next_call_id(self):
        with self.lock:
            self.calls += 1
            return self.calls

    # ---- deciding what the "model" does -------------------------------------------------
    @staticmethod
    def text_of(item):
        content = item.get("content")
        if isinstance(content, str):
            return content
        parts = []
        for c in content or []:
            if isinstance(c, dict) and isinstance(c.get("text"), str):
                parts.append(c["text"])
        return "\n".join(parts)

    def decide(self, body, request_kind="turn"):
        if request_kind not in ("turn", None):
            # compaction and other side requests: a plain answer, steps untouched
            return {"kind": "text", "text": "Summary from the stand-in.", "request_kind": request_kind}
        items = body.get("input") or []
        if not isinstance(items, list):
            items = []
        user_msgs = [i for i in items if isinstance(i, dict) and i.get("role") == "user"
                     and i.get("type", "message") == "message"]
        if not user_msgs:
            return {"kind": "text", "text": "Summary from the stand-in.", "request_kind": request_kind}
        with self.lock:
            step = self.steps.pop(0) if self.steps else None
            index = self.taken
            self.taken += step is not None
        if step is not None:
            return dict(self.from_step(step), step=index)
        last = items[-1]
        if isinstance(last, dict) and last.get("type") in ("function_call_output", "custom_tool_call_output"):
            out = last.get("output")
            if not isinstance(out, str):
                out = json.dumps(out)
            return {"kind": "text", "text": "Done: tool said " + out}
        newest = self.text_of(user_msgs[-1])
        if "<hook_prompt" in newest:
            return {"kind": "text", "text": "Continued: " + newest}
        if "[hang]" in newest:
            return {"kind": "hang"}
        m = re.search(r"\[escalate:\s*(.*?)\]", newest, re.S)
        if m:
            return {"kind": "exec", "cmd": m.group(1).strip(), "escalated": True}
        m = re.search(r"\[exec:\s*(.*?)\]", newest, re.S)
        if m:
            return {"kind": "exec", "cmd": m.group(1).strip(), "escalated": False}
        m = re.search(r"\[reply:\s*(.*?)\]", newest, re.S)
        if m:
            return {"kind": "text", "text": m.group(1).strip()}
        if self.cfg["command"]:
            return {"kind": "exec", "cmd": self.cfg["command"], "escalated": bool(self.cfg["escalated"])}
        return {"kind": "text", "text": self.cfg["reply"]}

    def from_step(self, step):
        if step.get("hang"):
            return {"kind": "hang"}
        if "exec" in step:
            return {"kind": "exec", "cmd": step["exec"], "escalated": bool(step.get("escalated"))}
        return {"kind": "text", "text": step.get("reply", self.cfg["reply"])}

    @staticmethod
    def tool_names(body):
        names = []
        for t in body.get("tools") or []:
            if isinstance(t, dict):
                names.append(t.get("name") or t.get("type"))
        return names

    def function_call(self, body, decision, n):
        names = self.tool_names(body)
        cmd = decision["cmd"]
        if "exec_command" in names or not names:
            name, args = "exec_command", {"cmd": cmd}
        elif "shell_command" in names:
            name, args = "shell_command", {"command": cmd}
        else:
            name, args = "shell", {"command": ["bash", "-lc", cmd]}
        if decision["escalated"]:
            args["sandbox_permissions"] = "require_escalated"
            args["justification"] = self.cfg["justification"]
        return {"type": "function_call", "id": "fc_%d" % n, "call_id": "call_mock_%d" % n,
                "name": name, "arguments": json.dumps(args), "status": "completed"}

    def rate_headers(self):
        h = {}
        now = int(time.time())
        for which in ("primary", "secondary"):
            used = self.cfg[which + "_used"]
            if used is None:
                continue
            h["x-codex-%s-used-percent" % which] = str(used)
            h["x-codex-%s-window-minutes" % which] = str(self.cfg[which + "_window"])
            at = self.cfg[which + "_reset_at"]
            at = int(at) if at is not None else now + int(self.cfg[which + "_reset_in"])
            h["x-codex-%s-reset-at" % which] = str(at)
        return h


def make_handler(app):
    class Handler(BaseHTTPRequestHandler):
        protocol_version = "HTTP/1.1"

        def log_message(self, *args):  # keep stderr quiet
            pass

        def read_body(self):
            n = int(self.headers.get("Content-Length") or 0)
            raw = self.rfile.read(n) if n else b""
            if self.headers.get("Content-Encoding", "").lower() == "zstd":
                return raw, "<zstd-compressed %d bytes>" % len(raw)
            try:
                return raw, json.loads(raw.decode("utf-8")) if raw else None
            except Exception:
                return raw, raw.decode("utf-8", "replace")

        def send_json(self, code, obj):
            data = json.dumps(obj).encode()
            self.send_response(code)
            self.send_header("Content-Type", "application/json")
            self.send_header("Content-Length", str(len(data)))
            self.end_headers()
            self.wfile.write(data)

        def do_GET(self):
            app.log({"method": "GET", "path": self.path, "headers": dict(self.headers)})
            if self.path.split("?")[0].rstrip("/").endswith("/models"):
                self.send_json(200, {"object": "list", "data": [], "models": []})
            else:
                self.send_json(404, {"error": {"message": "not found"}})

        def do_POST(self):
            raw, body = self.read_body()
            path = self.path.split("?")[0].rstrip("/")
            if not path.endswith("/responses") or not isinstance(body, dict):
                app.log({"method": "POST", "path": self.path, "headers": dict(self.headers), "body": body})
                self.send_json(404, {"error": {"message": "not found"}})
                return
            try:
                kind = json.loads(self.headers.get("x-codex-turn-metadata") or "{}").get("request_kind")
            except ValueError:
                kind = None
            decision = app.decide(body, kind)
            rate = app.rate_headers()
            app.log({"method": "POST", "path": self.path, "headers": dict(self.headers),
                     "body": body, "reply": decision, "sent_headers": rate})
            self.stream(body, decision, rate)

        def sse(self, obj):
            data = "event: %s\ndata: %s\n\n" % (obj["type"], json.dumps(obj))
            self.wfile.write(data.encode())
            self.wfile.flush()

        def stream(self, body, decision, rate):
            n = app.next_call_id()
            rid = "resp_mock_%d" % n
            self.send_response(200)
            self.send_header("Content-Type", "text/event-stream")
            self.send_header("Cache-Control", "no-cache")
            self.send_header("Connection", "close")
            for k, v in rate.items():
                self.send_header(k, v)
            self.end_headers()
            self.close_connection = True
            model = body.get("model") or app.cfg["model"]
            try:
                self.sse({"type": "response.created", "response": {"id": rid, "model": model}})
                if decision["kind"] == "hang":
                    deadline = time.monotonic() + float(app.cfg["hang_seconds"])
                    while time.monotonic() < deadline and not app.stopping.is_set():
                        time.sleep(0.5)
                        # an SSE comment line; fails once Codex has dropped the stream
                        self.wfile.write(b": keep-alive\n\n")
                        self.wfile.flush()
                    return
                if decision["kind"] == "exec":
                    item = app.function_call(body, decision, n)
                else:
                    item = {"type": "message", "role": "assistant", "id": "msg_%d" % n, "status": "completed",
                            "content": [{"type": "output_text", "text": decision["text"], "annotations": []}]}
                    self.sse({"type": "response.output_item.added", "output_index": 0,
                              "item": {**item, "content": [], "status": "in_progress"}})
                    self.sse({"type": "response.output_text.delta", "output_index": 0, "content_index": 0,
                              "item_id": item["id"], "delta": decision["text"]})
                self.sse({"type": "response.output_item.done", "output_index": 0, "item": item})
                self.sse({"type": "response.completed", "response": {
                    "id": rid, "model": model, "status": "completed", "output": [item],
                    "usage": {"input_tokens": 10, "input_tokens_details": {"cached_tokens": 0},
                              "output_tokens": 5, "output_tokens_details": {"reasoning_tokens": 0},
                              "total_tokens": 15}}})
            except (BrokenPipeError, ConnectionResetError):
                pass

    return Handler


def parse_args(argv):
    p = argparse.ArgumentParser(description="Responses API stand-in for Codex")
    p.add_argument("--scenario", help="JSON file with defaults (keys = long option names, underscored)")
    for key, val in DEFAULTS.items():
        flag = "--" + key.replace("_", "-")
        if isinstance(val, bool):
            p.add_argument(flag, action="store_const", const=True, default=None)
        elif isinstance(val, (int, float)) and val is not None:
            p.add_argument(flag, type=type(val), default=None)
        else:
            p.add_argument(flag, default=None)
    a = vars(p.parse_args(argv))
    cfg = dict(DEFAULTS)
    if a.get("scenario"):
        with open(a["scenario"], encoding="utf-8") as f:
            cfg.update(json.load(f))
    for key in DEFAULTS:
        if a.get(key) is not None:
            cfg[key] = a[key]
    for key in ("primary_used", "secondary_used"):
        if cfg[key] is not None:
            cfg[key] = float(cfg[key])
    return cfg


def main(argv):
    cfg = parse_args(argv)
    app = StandIn(cfg)
    server = ThreadingHTTPServer(("127.0.0.1", int(cfg["port"])), make_handler(app))
    server.daemon_threads = True

    def stop(signum, frame):
        app.stopping.set()
        threading.Thread(target=server.shutdown, daemon=True).start()

    signal.signal(signal.SIGTERM, stop)
    signal.signal(signal.SIGINT, stop)
    print(server.server_address[1], flush=True)
    try:
        server.serve_forever(poll_interval=0.2)
    finally:
        server.server_close()


if __name__ == "__main__":
    main(sys.argv[1:])
