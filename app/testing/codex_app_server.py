#!/usr/bin/env python3
"""Drives `codex app-server` (JSON-RPC over standard input and output) for the
end-to-end tests: approving hooks as Codex's /hooks screen does, and playing one
turn as an editor would. Standard library only.

    codex_app_server.py --codex PATH --cwd DIR [--transcript FILE] hooks [--approve]
    codex_app_server.py --codex PATH --cwd DIR [--transcript FILE] turn --prompt TEXT
                        [--approval-policy on-request] [--sandbox workspace-write]
                        [--timeout SECONDS]

Codex runs with this program's environment: set HOME and CODEX_HOME to a
temporary folder (Codex writes there even to answer --version), and the key
variable of the stand-in's provider.

hooks   prints {"approved": [keys], "hooks": [...]} where each hook is what
        `hooks/list` says of it (key, eventName, command, trustStatus,
        currentHash, ...). With --approve, every hook that is not trusted (and
        not managed) is approved first: `config/batchWrite` sets
        hooks.state."<key>".trusted_hash to its currentHash; the list is then
        read again.
turn    starts a thread (thread/start with the approval policy and sandbox),
        starts one turn with TEXT and waits until it completes. If Codex asks
        this client to approve anything (which happens only when no hook
        decided), the request is declined and reported. Prints {"threadId",
        "status", "serverRequests": [methods], "hookRuns": [{"eventName",
        "status"}]}.

Every wait is bounded: 60 s for an answer, --timeout (default 300 s) for the
turn. Exit 1 with the reason on stderr when Codex fails or a wait runs out.
--transcript appends every message, both ways, as JSON lines.
"""
import argparse
import json
import queue
import subprocess
import sys
import threading
import time


class AppServer:
    """One `codex app-server` child and the messages it sends."""

    def __init__(self, codex, cwd, transcript=None):
        self.transcript = transcript
        self.proc = subprocess.Popen([codex, "app-server"], stdin=subprocess.PIPE,
                                     stdout=subprocess.PIPE, cwd=cwd)
        self.inbox = queue.Queue()
        self.next_id = 1
        self.server_requests = []
        self.hook_runs = []
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        for line in self.proc.stdout:
            try:
                message = json.loads(line)
            except ValueError:
                continue
            self._log("received", message)
            self.inbox.put(message)
        self.inbox.put(None)

    def _log(self, direction, message):
        if self.transcript:
            with open(self.transcript, "a", encoding="utf-8") as out:
                out.write(json.dumps({"direction": direction, "message": message}) + "\n")

    def send(self, message):
        self._log("sent", message)
        self.proc.stdin.write((json.dumps(message) + "\n").encode())
        self.proc.stdin.flush()

    def wait_for(self, wanted, timeout):
        """Handles incoming messages until wanted(message); returns that message."""
        deadline = time.monotonic() + timeout
        while True:
            left = deadline - time.monotonic()
            if left <= 0:
                raise TimeoutError("Codex sent nothing expected within %.0f s" % timeout)
            try:
                message = self.inbox.get(timeout=left)
            except queue.Empty:
                continue
            if message is None:
                raise EOFError("codex app-server ended (exit %s)" % self.proc.poll())
            self._note(message)
            if wanted(message):
                return message

    def _note(self, message):
        method = message.get("method")
        if method and "id" in message:
            # Only asked when no hook decided: decline, and tell the test it happened.
            self.server_requests.append(method)
            self.send({"id": message["id"], "result": {"decision": "decline"}})
        elif method == "hook/completed":
            run = (message.get("params") or {}).get("run") or {}
            self.hook_runs.append({"eventName": run.get("eventName"), "status": run.get("status")})

    def request(self, method, params, timeout=60):
        request_id = self.next_id
        self.next_id += 1
        self.send({"id": request_id, "method": method, "params": params})
        reply = self.wait_for(lambda m: m.get("id") == request_id and "method" not in m, timeout)
        if "error" in reply:
            raise RuntimeError("%s failed: %s" % (method, json.dumps(reply["error"])))
        return reply.get("result") or {}

    def initialize(self):
        self.request("initialize", {"clientInfo": {"name": "tidewick-test", "version": "1"}})
        self.send({"method": "initialized"})

    def close(self):
        # Closing standard input ends the server (it fires SessionEnd first).
        try:
            self.proc.stdin.close()
            self.proc.wait(timeout=20)
        except (OSError, subprocess.TimeoutExpired):
            self.proc.kill()
            self.proc.wait()


def list_hooks(server, cwd):
    hooks = []
    for entry in server.request("hooks/list", {"cwds": [cwd]}).get("data", []):
        hooks.extend(entry.get("hooks", []))
    return hooks


def approve(server, cwd):
    """Approves every hook not yet trusted, as /hooks does; the keys approved."""
    edits = [{"keyPath": 'hooks.state."%s".trusted_hash' % hook["key"],
              "value": hook["currentHash"], "mergeStrategy": "upsert"}
             for hook in list_hooks(server, cwd)
             if not hook.get("isManaged") and hook.get("trustStatus") != "trusted"]
    if edits:
        server.request("config/batchWrite", {"edits": edits, "reloadUserConfig": True})
    return [edit["keyPath"] for edit in edits]


def hooks(server, options):
    approved = approve(server, options.cwd) if options.approve else []
    return {"approved": approved, "hooks": list_hooks(server, options.cwd)}


def turn(server, options):
    thread = server.request("thread/start", {"cwd": options.cwd,
                                             "approvalPolicy": options.approval_policy,
                                             "sandbox": options.sandbox})["thread"]["id"]
    started = server.request("turn/start", {"threadId": thread,
                                            "input": [{"type": "text", "text": options.prompt}]})
    turn_id = started["turn"]["id"]
    done = server.wait_for(lambda m: m.get("method") == "turn/completed" and
                           (m.get("params") or {}).get("turn", {}).get("id") == turn_id,
                           options.timeout)
    return {"threadId": thread, "status": done["params"]["turn"].get("status"),
            "serverRequests": server.server_requests, "hookRuns": server.hook_runs}


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--codex", required=True)
    parser.add_argument("--cwd", required=True)
    parser.add_argument("--transcript")
    commands = parser.add_subparsers(dest="command", required=True)
    hooks_command = commands.add_parser("hooks")
    hooks_command.add_argument("--approve", action="store_true")
    turn_command = commands.add_parser("turn")
    turn_command.add_argument("--prompt", required=True)
    turn_command.add_argument("--approval-policy", default="on-request")
    turn_command.add_argument("--sandbox", default="workspace-write")
    turn_command.add_argument("--timeout", type=float, default=300)
    options = parser.parse_args(argv)

    server = AppServer(options.codex, options.cwd, options.transcript)
    try:
        server.initialize()
        result = (hooks if options.command == "hooks" else turn)(server, options)
    except (RuntimeError, TimeoutError, EOFError, OSError) as error:
        print("codex_app_server: %s" % error, file=sys.stderr)
        return 1
    finally:
        server.close()
    print(json.dumps(result))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
