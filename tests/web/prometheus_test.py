"""The examples on the page's data, with a real server and a real Prometheus. Takes the folder of the
programs from ZORD410_PROGRAMS."""

import json
import os
import re
import socket
import subprocess
import sys
import tempfile
import unittest
import urllib.error
import urllib.parse
import urllib.request
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "tests" / "support"))
sys.dont_write_bytecode = True

# pylint: disable=wrong-import-position
from patience import PATIENCE, wait_for  # noqa: E402
from running_program import RunningProgram, RunningServer  # noqa: E402

PROGRAMS = Path(os.environ["ZORD410_PROGRAMS"])
EXAMPLES = SOURCE / "examples" / "web"
NATS_SERVER = os.environ.get("ZORD410_NATS_SERVER")


def promtool(*arguments, text=None):
    return subprocess.run(["promtool", *arguments], input=text, capture_output=True, text=True, check=False)


def get(address, accept=None):
    request = urllib.request.Request(address, headers={"Accept": accept} if accept else {})
    with urllib.request.urlopen(request, timeout=PATIENCE) as answer:
        return answer.read().decode()


class RulesAndConfiguration(unittest.TestCase):
    def check(self, *arguments):
        result = promtool(*arguments)
        self.assertEqual(0, result.returncode, result.stdout + result.stderr)

    def test_they_are_in_order(self):
        self.check("check", "config", EXAMPLES / "prometheus.yml")
        self.check("check", "rules", EXAMPLES / "alerts.yml")

    def test_each_alert_comes_when_it_should(self):
        self.check("test", "rules", EXAMPLES / "alerts_test.yml")


class WithServer(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="zord410-examples-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.environment = {name: value for name, value in os.environ.items() if not name.startswith(("ZORA_", "ZOR0_")) and not name.lower().endswith("_proxy")}
        self.environment["ZOR0_PRODUCT_SPEC"] = str(self.folder / "settings")

    def start_server(self, *options):
        server = RunningServer("--store", "zordchd.db", *options, env=self.environment, cwd=self.folder)
        self.addCleanup(server.end)
        self.environment["ZORA_DCH_PORT"] = str(server.port)
        self.page = server.page.removesuffix("/")

    def start(self, *arguments, **options):
        program = RunningProgram(*arguments, env=self.environment, **{"cwd": self.folder, **options})
        self.addCleanup(program.end)
        return program

    def start_prometheus(self):
        configuration = (EXAMPLES / "prometheus.yml").read_text()
        for shown, tried in (("127.0.0.1:1980", self.page.removeprefix("http://")), ("15s", "1s"), ("- alerts.yml", f"- {EXAMPLES / 'alerts.yml'}")):
            self.assertIn(shown, configuration)
            configuration = configuration.replace(shown, tried)
        (self.folder / "prometheus.yml").write_text(configuration)
        prometheus = self.start("prometheus", "--config.file=prometheus.yml", "--storage.tsdb.path=data", "--web.listen-address=127.0.0.1:0")
        self.prometheus = "http://" + prometheus.wait_for_output(r"Listening on.* address=(127\.0\.0\.1:[1-9]\d*)")
        prometheus.wait_for_output(r"(Server is ready to receive web requests)")

    def ask(self, path, **parameters):
        try:
            return json.loads(get(f"{self.prometheus}/api/v1/{path}?{urllib.parse.urlencode(parameters)}"))["data"]
        except urllib.error.HTTPError as error:
            raise AssertionError(f"{parameters}: {error.read().decode()}") from error

    def query(self, expression):
        return self.ask("query", query=expression)["result"]

    def check_metrics(self):
        """Both forms."""
        text = promtool("check", "metrics", text=get(self.page + "/metrics", "text/plain"))
        self.assertEqual((0, ""), (text.returncode, text.stdout + text.stderr))
        # It knows the other form as far as both are the same: it misses the names that help texts have there.
        other = promtool("check", "metrics", text=get(self.page + "/metrics"))
        self.assertNotIn("error", other.stderr)
        self.assertEqual([], [line for line in (other.stdout + other.stderr).splitlines() if not line.endswith("_total no help text")])


class Examples(WithServer):
    def setUp(self):
        super().setUp()
        self.start_server()
        self.environment["PATH"] = f"{PROGRAMS}:{self.environment['PATH']}"
        self.provider = self.start("bash", "-c", self.block("commands", "source", "sh"), cwd=SOURCE)
        wait_for("the rows", lambda: "zordchd_rows_kept_total 2\n" in get(self.page + "/metrics"))

    def test_prometheus_sees_the_value_and_its_end(self):
        self.start_prometheus()
        value = wait_for("a value", lambda: self.query("zord_value"))
        self.assertEqual("25", value[0]["value"][1])
        labels = {name: value[0]["metric"][name] for name in ("application", "group", "source", "attribute", "job")}
        self.assertEqual({"application": "DEMO", "group": "load", "source": "web1", "attribute": "load1", "job": "zordchd"}, labels)
        self.assertEqual("2", self.query("zordchd_rows_kept_total")[0]["value"][1])
        self.try_dashboard()
        self.provider.end()
        wait_for("the end of the series", lambda: not self.query("zord_value") and not self.query("zord_row_time_seconds"))
        self.assertEqual("1", self.query('up{job="zordchd"}')[0]["value"][1])
        wait_for("the alert", lambda: self.query('ALERTS{alertname="ZordSourceOffline",source="web1"}'))

    def try_dashboard(self):
        # What is no message counts in a table that was there, and begins the series of a refusal.
        with socket.create_connection(("127.0.0.1", int(self.environment["ZORA_DCH_PORT"])), PATIENCE) as connection:
            connection.sendall(bytes(4))
            connection.recv(1024)
        # Queries of an increase compare values from the second one on, and answer nothing before.
        wait_for("values to compare", lambda: self.query('count_over_time(zordchd_requests_total{status="100"}[1m]) > 2'))
        answers = self.answers_to_dashboard()
        self.assertEqual([], [title for title, each in answers.items() if not all(each)])
        lost, refused = answers["Lost or refused"]
        self.assertEqual(["zordchd_broken_messages_total"], [each["metric"]["counter"] for each in lost])
        self.assertEqual(["100"], [each["metric"]["status"] for each in refused])

    def answers_to_dashboard(self):
        """What Prometheus answers to all queries, by the title of the panel or the name of the choice."""
        dashboard = json.loads((EXAMPLES / "dashboard.json").read_text())
        answers = {}
        for panel in dashboard["panels"]:
            answers[panel["title"]] = [self.query(self.as_grafana_asks(target["expr"])) for target in panel["targets"]]
        choices = [each for each in dashboard["templating"]["list"] if each["type"] == "query"]
        for choice in choices:
            series, label = re.fullmatch(r"label_values\((.*), (\w+)\)", choice["query"]["query"]).groups()
            answers[choice["name"]] = [self.ask(f"label/{label}/values", **{"match[]": self.as_grafana_asks(series)})]
        self.assertEqual(len(answers), len(dashboard["panels"]) + len(choices))
        return answers

    def as_grafana_asks(self, expression):
        for shown, tried in (("$application", "DEMO"), ("$group", "load"), ("$source", ".*"), ("$__rate_interval", "1m"), (":15s]", ":1s]")):
            expression = expression.replace(shown, tried)
        self.assertNotIn("$", expression)
        return expression

    def test_both_forms_of_the_metrics_are_in_order(self):
        self.check_metrics()

    def block(self, kind, name, language=""):
        page = (EXAMPLES / "README.md").read_text()
        return re.search(rf"<!-- {kind}: {name} -->\n```{language}\n(.*?)```", page, re.DOTALL)[1]

    def try_commands(self, name):
        commands = self.block("commands", name, "sh").replace("http://127.0.0.1:1980", self.page)
        result = subprocess.run(["bash", "-e", "-c", commands], cwd=self.folder, env=self.environment, capture_output=True, text=True, timeout=PATIENCE, check=False)
        self.assertEqual((0, ""), (result.returncode, result.stderr))
        output = re.sub(r"\d{4}-\d\d-\d\dT[\d:.]+Z", "TIME", result.stdout.replace("\r\n", "\n"))
        output = re.sub(r"\b\d{16}\b", "MICROSECONDS", output)
        self.assertEqual(self.block("output", name), output)

    def test_commands_with_curl_print_what_the_page_shows(self):
        self.try_commands("curl")

    def test_commands_with_sql_print_what_the_page_shows(self):
        self.try_commands("sql")


@unittest.skipUnless(NATS_SERVER, "for a build with a link, and nats-server")
class OtherSites(WithServer):
    """Names that no server would have, but that who may send under any name can make up."""

    TEXTS = ("west", 'a"} 1\n', "back\\", "\\", "\r\0\x01", "Z\u00fcrich \u2028", "# EOF", "0xfffe")
    NAMES = (*(text.encode() for text in TEXTS), b"\xff\xfe")  # the last two read alike

    def setUp(self):
        super().setUp()
        nats = self.start(NATS_SERVER, "--addr", "127.0.0.1", "--port", "-1", "--jetstream", "--store_dir", self.folder / "nats")
        self.nats = int(nats.wait_for_output(r"Listening for client connections on 127\.0\.0\.1:(\d+)"))
        nats.wait_for_output(r"(Server is ready)")
        configuration = self.folder / "zordchd.toml"
        configuration.write_text(f"[link]\nservers = ['nats://127.0.0.1:{self.nats}']\nsite = 'hub'\n")
        self.start_server("--config", str(configuration))

    def say_that_sites_are_there(self, count):
        alive = f"1 {'a' * 32} {count} 1000 here - 30 20 0 0 4.1.0".encode()
        said = b"CONNECT {}\r\n"
        for name in self.NAMES:
            token = b"".join(bytes([byte]) if bytes([byte]).isalnum() else b"%%%02X" % byte for byte in name)
            said += b"PUB zord.alive.%b %d\r\n%b\r\n" % (token, len(alive), alive)
        with socket.create_connection(("127.0.0.1", self.nats), PATIENCE) as connection:
            connection.sendall(said + b"PING\r\n")
            answer = b""
            while b"PONG\r\n" not in answer:
                answer += connection.recv(4096)

    def sites(self):
        return re.findall(r'^zordchd_site_reachable\{site="(.*)"\} 1$', get(self.page + "/metrics"), re.MULTILINE)

    def test_prometheus_takes_them_all(self):
        counts = iter(range(1, 1_000_000))

        def are_known():
            self.say_that_sites_are_there(next(counts))
            return len(self.sites()) == len(self.TEXTS)

        wait_for(lambda: f"all sites: {self.sites()}", are_known)
        self.check_metrics()
        self.start_prometheus()
        taken = wait_for("the sites", lambda: self.query("zordchd_site_changes_behind"))
        self.assertEqual(set(self.TEXTS), {each["metric"]["site"] for each in taken})
        self.assertEqual({"10"}, {each["value"][1] for each in taken})
        self.assertEqual("1", self.query('up{job="zordchd"}')[0]["value"][1])


unittest.main()
