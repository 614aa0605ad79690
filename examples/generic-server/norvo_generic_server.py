#!/usr/bin/env python3
"""A small server of Norvo's Generic protocol.

It answers the three calls of a Generic account:

    GET  /?action=list_projects                     {"projects": [{"id", "name"}]}
    GET  /?action=list_tasks_for_project&id=<id>    {"tasks": [{"id", "name"}]}
    POST /?action=post_time   body {"project_id", "task_id", "description", "hours"}

The action may also come as "command=" (the account's alternate field name).
Any path in front of "/?" is accepted, so the account's address may hold one.
Every request must carry HTTP basic authorization with the configured user
name and password. Posted times are kept in memory, printed, and appended as
one JSON object per line to the file given with --record.

Python 3 standard library only. Run `norvo_generic_server.py --help`.
"""

import argparse
import base64
import json
import os
import sys
import threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from urllib.parse import parse_qs, urlsplit

SAMPLE_PROJECTS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "sample-projects.json")


class GenericServer(ThreadingHTTPServer):
    daemon_threads = True

    def __init__(self, address, data, username, password, record_path, quiet):
        super().__init__(address, GenericRequestHandler)
        self.data = data
        self.username = username
        self.password = password
        self.record_path = record_path
        self.quiet = quiet
        self.posted_times = []
        self.lock = threading.Lock()

    def project(self, project_id):
        for project in self.data.get("projects", []):
            if str(project.get("id")) == project_id:
                return project
        return None

    def record(self, entry):
        with self.lock:
            self.posted_times.append(entry)
            if self.record_path:
                with open(self.record_path, "a", encoding="utf-8") as record:
                    record.write(json.dumps(entry) + "\n")
                    record.flush()
        print("posted time: " + json.dumps(entry), flush=True)


class GenericRequestHandler(BaseHTTPRequestHandler):
    server_version = "NorvoGenericServer/1.0"

    def log_message(self, format, *args):  # noqa: A002 - name fixed by the base class
        if not self.server.quiet:
            super().log_message(format, *args)

    def do_GET(self):
        self.handle_call("GET")

    def do_POST(self):
        self.handle_call("POST")

    def handle_call(self, method):
        if not self.is_authorized():
            self.send_response(401)
            self.send_header("WWW-Authenticate", 'Basic realm="Norvo Generic"')
            self.send_header("Content-Length", "0")
            self.end_headers()
            return

        query = parse_qs(urlsplit(self.path).query)
        action = (query.get("action") or query.get("command") or [""])[0]

        if method == "GET" and action == "list_projects":
            projects = [{"id": p["id"], "name": p["name"]} for p in self.server.data.get("projects", [])]
            self.reply(200, {"projects": projects})
        elif method == "GET" and action == "list_tasks_for_project":
            project_id = (query.get("id") or [""])[0]
            project = self.server.project(project_id)
            if project is None:
                self.reply(404, {"error": "no project with id " + project_id})
            else:
                self.reply(200, {"tasks": project.get("tasks", [])})
        elif method == "POST" and action == "post_time":
            self.post_time()
        else:
            self.reply(400, {"error": "unknown action " + repr(action)})

    def post_time(self):
        length = int(self.headers.get("Content-Length") or 0)
        try:
            body = json.loads(self.rfile.read(length) or b"null")
        except ValueError:
            self.reply(400, {"error": "the body is no JSON"})
            return
        if not isinstance(body, dict) or "project_id" not in body or "hours" not in body:
            self.reply(400, {"error": "project_id and hours are required"})
            return
        try:
            hours = float(body["hours"])
        except (TypeError, ValueError):
            self.reply(400, {"error": "hours must be a decimal number"})
            return
        entry = {
            "project_id": str(body["project_id"]),
            "task_id": None if body.get("task_id") is None else str(body["task_id"]),
            "description": body.get("description", ""),
            "hours": hours,
        }
        self.server.record(entry)
        self.reply(200, {"status": "ok", "entry": len(self.server.posted_times)})

    def is_authorized(self):
        if self.server.username is None:
            return True
        header = self.headers.get("Authorization", "")
        if not header.startswith("Basic "):
            return False
        try:
            decoded = base64.b64decode(header[len("Basic "):]).decode("utf-8")
        except ValueError:
            return False
        return decoded == self.server.username + ":" + self.server.password

    def reply(self, status, value):
        body = json.dumps(value).encode("utf-8")
        self.send_response(status)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)


def main(argv=None):
    parser = argparse.ArgumentParser(description="A reference server of Norvo's Generic protocol.")
    parser.add_argument("--host", default="127.0.0.1", help="address to listen on (default 127.0.0.1)")
    parser.add_argument("--port", type=int, default=8080, help="port; 0 picks a free one (default 8080)")
    parser.add_argument("--username", default="norvo", help="user name of basic authorization")
    parser.add_argument("--password", default="norvo", help="password of basic authorization")
    parser.add_argument("--no-auth", action="store_true", help="accept requests without authorization")
    parser.add_argument("--projects", default=SAMPLE_PROJECTS,
                        help="JSON file of projects with their tasks (default: sample-projects.json beside this script)")
    parser.add_argument("--record", help="append every posted time to this file, one JSON object a line")
    parser.add_argument("--quiet", action="store_true", help="don't log each request")
    args = parser.parse_args(argv)

    with open(args.projects, encoding="utf-8") as projects:
        data = json.load(projects)

    username = None if args.no_auth else args.username
    server = GenericServer((args.host, args.port), data, username, args.password, args.record, args.quiet)
    host, port = server.server_address[:2]
    # The first line names the port, so that a script that passed --port 0 can find it.
    print("Listening on http://%s:%d" % (host, port), flush=True)
    try:
        server.serve_forever()
    except KeyboardInterrupt:
        pass
    finally:
        server.server_close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
