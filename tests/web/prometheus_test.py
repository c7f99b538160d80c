#!/usr/bin/env python3
"""A real Prometheus scrapes both programs: its API returns their series, and the alert rules of
docs/prometheus/ fire.

    prometheus_test.py FOLDER-OF-THE-PROGRAMS
"""

import http.client
import json
import pathlib
import re
import signal
import subprocess
import sys
import urllib.parse

from web_programs import Api, Failure, Program, Programs, address_of, check, wait_until

OBJECTS = 200
DOCS = pathlib.Path(__file__).parents[2] / "docs" / "prometheus"
TESTS = pathlib.Path(__file__).parent


def promtool(*words, **options):
    ended = subprocess.run(["promtool", *words], capture_output=True, text=True, timeout=60,
                           **options)
    check(ended.returncode == 0, f"promtool {words}: {ended.stdout}{ended.stderr}")
    return ended.stdout + ended.stderr


def rules_are_right():
    promtool("check", "rules", str(DOCS / "zuskux_alerts.yml"))
    promtool("check", "config", str(DOCS / "prometheus.yml"))
    promtool("test", "rules", str(TESTS / "alert_rules_test.yml"))


def metrics_are_right(api):
    """Not a word about names, units, types or help texts."""
    text = api.response("/metrics")[2]
    said = promtool("check", "metrics", input=text)
    check(said == "", said)


class Prometheus:
    """One with the shipped rules, except that alerts fire at once and nothing waits for 15 s."""

    def __init__(self, programs, managers, hal):
        rules = (DOCS / "zuskux_alerts.yml").read_text()
        for name, text in (("rules.yml", re.sub(r"for: \d+m", "for: 0s", rules)),
                           ("prometheus.yml", json.dumps({
                               "global": {"scrape_interval": "1s", "evaluation_interval": "1s"},
                               "rule_files": ["rules.yml"],
                               "scrape_configs": [
                                   {"job_name": "zuskux-manager",
                                    "static_configs": [{"targets": managers}]},
                                   {"job_name": "zuskux-hal",
                                    "static_configs": [{"targets": [hal]}]}]}))):
            with open(programs.path(name), "w", encoding="utf-8") as file:
                file.write(text)
        self.program = Program(
            ["prometheus", "--web.listen-address=127.0.0.1:0",
             f"--config.file={programs.path('prometheus.yml')}",
             f"--storage.tsdb.path={programs.path('data')}"], programs.path("prometheus"))
        programs.started.append(self.program)
        wait_until(self.port, "the port of Prometheus")
        wait_until(lambda: self.answer("/-/ready", plain=True), "Prometheus is ready")

    def port(self):
        found = re.search(r'Listening on" address=127\.0\.0\.1:(\d+)', self.program.error())
        return found and int(found[1])

    def answer(self, path, plain=False):
        connection = http.client.HTTPConnection("127.0.0.1", self.port(), timeout=60)
        try:
            connection.request("GET", path)
            answer = connection.getresponse()
            body = answer.read()
            return answer.status == 200 if plain else json.loads(body)["data"]
        finally:
            connection.close()

    def value(self, query):
        """The only value; nothing if there are no series or several."""
        result = self.answer("/api/v1/query?" + urllib.parse.urlencode({"query": query}))["result"]
        return float(result[0]["value"][1]) if len(result) == 1 else None

    def fires(self, alert):
        return any(each["labels"]["alertname"] == alert and each["state"] == "firing"
                   for each in self.answer("/api/v1/alerts")["alerts"])

    def await_value(self, query, expected):
        try:
            wait_until(lambda: self.value(query) == expected, "", 60)
        except Failure:
            raise Failure(f"{query} is {self.value(query)}, not {expected}") from None

    def await_alert(self, alert):
        wait_until(lambda: self.fires(alert), f"{alert} fires", 60)


def target_of(program):
    return "{}:{}".format(*address_of(program))


def main():
    rules_are_right()
    with Programs(sys.argv[1]) as programs:
        site = programs.site(OBJECTS)
        hal_path = programs.path("hal.sock")
        # The results of the first reinstall are late, so that it takes long.
        with open(programs.path("faults"), "w", encoding="utf-8") as file:
            file.write('fault { what: "delay" in_reinstall: true nth: 1 times: 1000 ms: 20000 }\n')
        hal = programs.start("hal", "zuskux-hal", "--socket", hal_path, "--http", "127.0.0.1:0",
                             "--fault", programs.path("faults"))
        manager = programs.start(
            "manager", "zuskux-manager", site, "--stay", "--hal", f"unix:{hal_path}",
            "--control", programs.path("control"), "--http", "127.0.0.1:0")
        small = programs.start(
            "small", "zuskux-manager", site, "--stay", "--table-size", "10",
            "--control", programs.path("small-control"), "--http", "127.0.0.1:0")
        prometheus = Prometheus(programs, [target_of(manager), target_of(small)], target_of(hal))
        prometheus.await_alert("ZuskuxReinstallTooLong")
        prometheus.await_alert("ZuskuxObjectsFailed")
        check(not prometheus.fires("ZuskuxHalDown"), "ZuskuxHalDown fires without a reason")

        of_manager = f'instance="{target_of(manager)}"'
        prometheus.await_value(f"zuskux_manager_settled{{{of_manager}}}", 1)
        prometheus.await_value(f"sum(zuskux_manager_objects{{{of_manager}}})", OBJECTS)
        prometheus.await_value("sum(zuskux_hal_entries)", OBJECTS)
        prometheus.await_value('zuskux_hal_results_total{code="0"}', OBJECTS)
        prometheus.await_value(
            f'zuskux_manager_stage_duration_seconds_count{{{of_manager},stage="hal"}}', OBJECTS)
        quantile = prometheus.value(
            "histogram_quantile(0.99, sum by (le) (zuskux_manager_stage_duration_seconds_bucket"
            f'{{{of_manager},stage="queue"}}))')
        check(quantile is not None and 0 < quantile <= 10, f"the 99th percentile is {quantile}")
        for program in (manager, hal):
            metrics_are_right(Api.of(program))

        hal.end(signal.SIGKILL)
        prometheus.await_alert("ZuskuxHalDown")
        small.end(signal.SIGTERM)
        prometheus.await_alert("ZuskuxManagerDown")
        prometheus.program.end(signal.SIGTERM)
    print("passed")


try:
    main()
except Failure as failure:
    sys.exit(str(failure))
