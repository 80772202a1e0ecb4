"""A stand-in for the server's web side, for what a real server does not do on demand: to be gone
and come back, to lose live events, to have 10,000 sources or names full of markup.

It runs in threads of the test's own process; everything may be called from the test's thread.
"""

import csv
import io
import json
import queue
import re
import select
import socket
import threading
import time
from datetime import datetime, timezone
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path
from urllib.parse import parse_qs, urlsplit

ROOT = Path(__file__).resolve().parents[2]
PAGE = ROOT / "dch" / "web" / "page"
HERE = Path(__file__).resolve().parent
DYGRAPHS = Path("/usr/share/javascript/dygraphs")
CSP = ("default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self' data:; "
       "base-uri 'none'; form-action 'none'; frame-ancestors 'none'")
TYPES = {".html": "text/html", ".js": "text/javascript", ".css": "text/css"}


def now_us():
    return time.time_ns() // 1000


def iso(time_us):
    seconds, rest = divmod(time_us, 1_000_000)
    return datetime.fromtimestamp(seconds, timezone.utc).strftime("%Y-%m-%dT%H:%M:%S.") + f"{rest:06d}Z"


def time_of(text):
    match = re.fullmatch(r"-(\d+)([smhd])", text)
    if match:
        return now_us() - int(match[1]) * {"s": 1, "m": 60, "h": 3600, "d": 86400}[match[2]] * 1_000_000
    if re.fullmatch(r"\d+(\.\d+)?", text):
        return round(float(text) * 1_000_000)
    match = re.fullmatch(r"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d)(?:\.(\d{1,6}))?Z", text)
    seconds = datetime.strptime(match[1], "%Y-%m-%dT%H:%M:%S").replace(tzinfo=timezone.utc).timestamp()
    return int(seconds) * 1_000_000 + int((match[2] or "0").ljust(6, "0"))


class StandIn:
    def __init__(self, state="/var/lib/zord410/zordchd.db"):
        self.lock = threading.RLock()
        self.groups = {}  # (application, group) -> rows: (time, handle, source, values)
        self.applications = {}
        self.views = {}  # (application, group) -> attributes, of unregistered ones, too
        self.state = {"version": "4.1.0", "started": iso(now_us() - 273_000_000_000), "state": state,
                      "counters": {"rows_received": 0, "rows_kept": 0, "pushes_lost": 0, "changes_not_kept": 0,
                                   "datagrams_thrown_away": 0, "write_failures": 0, "rows_removed": 12, "write_microseconds": 460_221},
                      "gauges": {"applications": 0, "sources": 0, "sources_online": 0, "subscriptions": 2,
                                 "connections": 4, "changes_waiting": 0},
                      "help": {"rows_received": "messages with the code of a row, good and bad ones",
                               "rows_kept": "rows that were kept and acknowledged",
                               "rows_removed": "old rows that were removed from the state file",
                               "write_microseconds": "time spent in writing the state file"},
                      "requests": [{"request": "data", "code": 4128, "status": 0, "text": "done", "count": 5}],
                      "sites": [], "sites_left_out": 0}
        self.health = ""
        self.failure = ""  # why no kept row can be read
        self.token = None
        self.clients = []
        self.losing = False  # live rows are left out, and counted
        self.unsent = {}
        self.asked = []  # paths
        self.policy_reports = []
        self.server = None
        # Bound all the time, so that nobody else takes the port while the server is gone.
        self.place = socket.socket()
        self.place.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEPORT, 1)
        self.place.bind(("127.0.0.1", 0))
        self.port = self.place.getsockname()[1]
        self.address = f"http://127.0.0.1:{self.port}/"
        self.start()

    # Being there.

    def start(self):
        stand_in = self

        class Handler(Answers):
            owner = stand_in

        self.server = Server(("127.0.0.1", self.port), Handler)
        threading.Thread(target=self.server.serve_forever, kwargs={"poll_interval": 0.02}, daemon=True).start()

    def stop(self):
        """Gone: the port is closed, and so is every connection."""
        self.server.shutdown()
        self.server.server_close()
        with self.lock:
            for client in self.clients:
                client.put(None)
            self.clients.clear()
            for connection in list(self.server.connections):
                try:
                    connection.shutdown(socket.SHUT_RDWR)
                except OSError:
                    pass  # It went by itself.

    # What it has.

    def register(self, name, groups, key="TST", type="FILE", help=""):
        """groups: name -> list of (attribute, letter, size, help)"""
        with self.lock:
            self.applications[name] = {"name": name, "key": key, "type": type, "help": help, "groups": {
                group: {"attributes": [dict(zip(("name", "letter", "size", "help"), each)) for each in attributes], "sources": {}}
                for group, attributes in groups.items()}}
            for group in groups:
                self.groups.setdefault((name, group), [])
                self.views[name, group] = self.applications[name]["groups"][group]["attributes"]

    def unregister(self, name):
        """Its rows stay."""
        with self.lock:
            del self.applications[name]
            self.send("status", {"time": iso(now_us()), "change": "unregistered", "application": name, "group": "", "source": ""})

    def online(self, application, group, source, online=True, tell=True):
        with self.lock:
            sources = self.applications[application]["groups"][group]["sources"]
            known = sources.setdefault(source, {"name": source, "handle": len(sources) + 1, "online": True, "last_row": None, "values": {}})
            known["online"] = online
            if tell:
                self.tell_status("online" if online else "offline", application, group, source)
            return known

    def tell_status(self, change, application, group, source):
        self.send("status", {"time": iso(now_us()), "change": change, "application": application, "group": group, "source": source})

    def row(self, application, group, source, values, at=None, live=True):
        """A row that is kept and, when asked for, told to those who look on."""
        with self.lock:
            known = self.applications[application]["groups"][group]["sources"][source]
            at = now_us() if at is None else at
            self.groups[application, group].append((at, known["handle"], source, values))
            known["last_row"], known["values"] = iso(at), values
            self.state["counters"]["rows_received"] += 1
            self.state["counters"]["rows_kept"] += 1
            if live:
                self.send("row", {"time": iso(at), "handle": known["handle"], "source": source, "values": values}, (application, group))
            return at

    def send(self, event, data, topic=None):
        text = f"event: {event}\ndata: {json.dumps(data)}\n\n"
        with self.lock:
            for client in self.clients:
                if topic is None and not client.status or topic is not None and client.topic != topic:
                    continue
                if self.losing and event == "row":
                    client.unsent += 1
                else:
                    client.put(text)

    def tell_lost(self):
        with self.lock:
            self.losing = False
            for client in self.clients:
                if client.unsent:
                    client.put(f"event: lost\ndata: {json.dumps({'rows': client.unsent})}\n\n")
                client.unsent = 0

    # What it answers.

    def applications_json(self):
        with self.lock:
            return {"applications": [{**each, "groups": [
                {"name": name, "attributes": group["attributes"], "sources": [dict(source) for source in group["sources"].values()]}
                for name, group in each["groups"].items()]} for each in self.applications.values()]}

    def state_json(self):
        with self.lock:
            sources = [source for each in self.applications.values() for group in each["groups"].values() for source in group["sources"].values()]
            self.state["gauges"].update(applications=len(self.applications), sources=len(sources),
                                        sources_online=sum(source["online"] for source in sources))
            return self.state

    def rows_answer(self, asked):
        if self.state["state"] == "memory":
            return 409, {"error": "The server keeps no rows."}
        with self.lock:
            group = asked["application"], asked["group"]
            if group not in self.views:
                return 404, {"error": "There is no such group."}
            rows = list(self.groups[group])
            attributes = self.views[group]
        if self.failure:
            return 503, {"error": self.failure}
        since = time_of(asked["since"]) if "since" in asked else None
        until = time_of(asked["until"]) if "until" in asked else None
        rows = [row for row in rows if ("source" not in asked or row[2] == asked["source"])
                and (since is None or row[0] >= since) and (until is None or row[0] <= until)]
        if "points" in asked:
            return 200, thinned(rows, attributes, since, until, int(asked["points"]))
        if "limit" in asked:
            rows = rows[-int(asked["limit"]):]
        columns = ["time", "time_us", "source", "handle", "code"] + [each["name"] for each in attributes]
        return 200, {"columns": columns, "rows": [
            [iso(at), at, source, handle, 4128] + [values.get(each["name"]) for each in attributes] for at, handle, source, values in rows]}


def thinned(rows, attributes, since, until, points):
    names = [each["name"] for each in attributes if each["letter"] not in "DRT"]
    columns = ["time", "time_us"] + [f"{name}_{kind}" for name in names for kind in ("min", "max", "mean")]
    if not rows:
        return {"columns": columns, "rows": []}
    first = rows[0][0] if since is None else since
    width = max(1, ((rows[-1][0] if until is None else until) - first + 1) / points)
    buckets = {}
    for row in rows:
        buckets.setdefault(min(points - 1, int((row[0] - first) / width)), []).append(row)
    made = []
    for _, bucket in sorted(buckets.items()):
        line = [iso(bucket[0][0]), bucket[0][0]]
        for name in names:
            numbers = [row[3][name] for row in bucket if row[3].get(name) is not None]
            line += [min(numbers), max(numbers), sum(numbers) / len(numbers)] if numbers else [None] * 3
        made.append(line)
    return {"columns": columns, "rows": made}


class Client(queue.SimpleQueue):
    def __init__(self, topic, status):
        super().__init__()
        self.topic, self.status, self.unsent = topic, status, 0


class Server(ThreadingHTTPServer):
    daemon_threads = True
    allow_reuse_port = True
    request_queue_size = 64

    def __init__(self, *rest):
        self.connections = set()
        super().__init__(*rest)

    def process_request(self, request, client_address):
        self.connections.add(request)
        super().process_request(request, client_address)

    def shutdown_request(self, request):
        self.connections.discard(request)
        super().shutdown_request(request)

    def handle_error(self, request, client_address):
        pass  # A browser that goes away is nothing to tell.


class Answers(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    owner = None

    def log_message(self, *rest):
        pass

    def answer(self, status, body, kind):
        body = body.encode() if isinstance(body, str) else body
        self.send_response(status)
        self.send_header("Content-Type", kind + "; charset=utf-8")
        self.send_header("Content-Length", str(len(body)))
        self.send_header("Content-Security-Policy", CSP)
        self.send_header("X-Content-Type-Options", "nosniff")
        self.end_headers()
        self.wfile.write(body)

    def json(self, status, value):
        self.answer(status, json.dumps(value, ensure_ascii=False), "application/json")

    def do_GET(self):
        owner = self.owner
        parts = urlsplit(self.path)
        asked = {name: values[0] for name, values in parse_qs(parts.query, keep_blank_values=True).items()}
        owner.asked.append(self.path)
        if owner.token is not None and parts.path != "/healthz" and f"zord410_token={owner.token}" not in (self.headers["Cookie"] or ""):
            if parts.path == "/":
                return self.file(PAGE / "login.html", 401)
            if parts.path in ("/login.js", "/login.css"):
                return self.file(PAGE / parts.path[1:])
            return self.json(401, {"error": "The token is missing or wrong."})
        if parts.path == "/api/applications":
            return self.json(200, owner.applications_json())
        if parts.path == "/api/state":
            return self.json(200, owner.state_json())
        if parts.path == "/api/rows":
            status, value = owner.rows_answer(asked)
            return self.csv(value) if status == 200 and asked.get("format") == "csv" else self.json(status, value)
        if parts.path == "/api/live":
            return self.live(asked)
        if parts.path == "/healthz":
            return self.answer(503 if owner.health else 200, owner.health or "ok\n", "text/plain")
        return self.static(parts.path)

    def static(self, path):
        name = path.lstrip("/") or "index.html"
        if name == "dygraph.min.js":
            return self.file(DYGRAPHS / name)
        if name == "dygraph.css":
            return self.file(DYGRAPHS / "dygraph.min.css")
        for folder in (PAGE, HERE):
            if re.fullmatch(r"[a-z_]+\.(html|js|css)", name) and (folder / name).is_file():
                return self.file(folder / name)
        return self.json(404, {"error": "There is no such page."})

    def file(self, path, status=200):
        self.answer(status, path.read_bytes(), TYPES[path.suffix])

    def csv(self, value):
        text = io.StringIO()
        writer = csv.writer(text, lineterminator="\n")
        writer.writerow(value["columns"])
        writer.writerows(value["rows"])
        self.answer(200, text.getvalue(), "text/csv")

    def live(self, asked):
        topic = (asked["application"], asked["group"]) if "application" in asked else None
        if topic and topic[1] not in self.owner.applications.get(topic[0], {"groups": {}})["groups"]:
            return self.json(404, {"error": "There is no such group."})
        client = Client(topic, "status" in asked)
        with self.owner.lock:
            self.owner.clients.append(client)
        self.send_response(200)
        self.send_header("Content-Type", "text/event-stream")
        self.send_header("Cache-Control", "no-store")
        self.send_header("Content-Security-Policy", CSP)
        self.end_headers()
        self.close_connection = True
        try:
            self.wfile.write(b": here\n\n")
            while True:
                try:
                    text = client.get(timeout=0.1)
                except queue.Empty:
                    if select.select([self.connection], [], [], 0)[0] and not self.connection.recv(1, socket.MSG_PEEK):
                        return  # The browser hung up.
                    continue
                if text is None:
                    return
                while not client.empty():
                    more = client.get()
                    if more is None:
                        return
                    text += more
                self.wfile.write(text.encode())
        finally:
            with self.owner.lock:
                if client in self.owner.clients:
                    self.owner.clients.remove(client)
