#!/usr/bin/env python3
"""A real Prometheus scrapes both programs: its API returns their series, and the alert rules of
docs/prometheus/ fire.

    prometheus_test.py FOLDER-OF-THE-PROGRAMS

Works in a network namespace of its own, where a zuskux-hal programs the kernel. Without root, it
leaves that part out.
"""

import http.client
import json
import os
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
# In the environment of the run inside the namespace.
INSIDE = "ZUSKUX_IN_NAMESPACE"
VLAN_MACS = ("02:00:00:00:01:01", "02:00:00:00:01:02")


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

    def __init__(self, programs, managers, hals):
        rules = (DOCS / "zuskux_alerts.yml").read_text()
        for name, text in (("rules.yml", re.sub(r"for: \d+m", "for: 0s", rules)),
                           ("prometheus.yml", json.dumps({
                               "global": {"scrape_interval": "1s", "evaluation_interval": "1s"},
                               "rule_files": ["rules.yml"],
                               "scrape_configs": [
                                   {"job_name": "zuskux-manager",
                                    "static_configs": [{"targets": list(map(target_of, managers))}]},
                                   {"job_name": "zuskux-hal",
                                    "static_configs": [{"targets": list(map(target_of, hals))}]}]}))):
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

    def fires(self, alert, program):
        labels = {"alertname": alert, "instance": target_of(program)}
        return any(labels.items() <= each["labels"].items() and each["state"] == "firing"
                   for each in self.answer("/api/v1/alerts")["alerts"])

    def await_value(self, query, expected):
        try:
            wait_until(lambda: self.value(query) == expected, "", 60)
        except Failure:
            raise Failure(f"{query} is {self.value(query)}, not {expected}") from None

    def await_alert(self, alert, program):
        wait_until(lambda: self.fires(alert, program),
                   f"{alert} fires for {program.error_path}", 60)

    def await_silence(self, alert, program):
        """At its start, a program may have had a reason."""
        wait_until(lambda: not self.fires(alert, program),
                   f"{alert} does not fire for {program.error_path}", 60)


def target_of(program):
    return "{}:{}".format(*address_of(program))


class Pair:
    """A zuskux-hal and a manager on it."""

    def __init__(self, programs, name, site, fault="", hal_options=(), manager_options=()):
        self.programs, self.control = programs, programs.path(f"{name}-control")
        self.site = programs.path(f"{name}-site") if site else programs.site(OBJECTS)
        if site:
            self.write_site(site)
        socket = programs.path(f"{name}-hal.sock")
        if fault:
            faults = programs.path(f"{name}-faults")
            pathlib.Path(faults).write_text(fault, encoding="utf-8")
            hal_options = (*hal_options, "--fault", faults)
        self.hal = programs.start(
            f"{name}-hal", "zuskux-hal", "--socket", socket, "--http", "127.0.0.1:0", *hal_options)
        self.manager = programs.start(
            f"{name}-manager", "zuskux-manager", self.site, "--stay", "--hal", f"unix:{socket}",
            "--control", self.control, "--http", "127.0.0.1:0", *manager_options)

    def write_site(self, text):
        pathlib.Path(self.site).write_text(text, encoding="utf-8")

    def reload(self, text):
        self.write_site(text)
        self.programs.run("zuskux-manager", "reload", "--control", self.control)


def site_with(mac):
    return f"""
interface {{ name: "eth1" lim_id: 1 type: 1 ifindex: 1 }}
vlan {{ id: 10 name: "port" interface: "eth1" source_mac: "{mac}" }}
"""


def start_kernel_pair(programs):
    """A HAL that programs the kernel."""
    for command in ("link add eth1 type veth peer name far1", "link set eth1 up",
                    "link set far1 up"):
        subprocess.run(["ip", *command.split()], check=True, timeout=60)
    site = site_with(VLAN_MACS[0])
    interfaces = programs.path("interfaces")
    pathlib.Path(interfaces).write_text(site, encoding="utf-8")
    return Pair(programs, "kernel", site,
                hal_options=("--data-plane", "linux", "--interfaces", interfaces))


def main():
    rules_are_right()
    with Programs(sys.argv[1]) as programs:
        good = Pair(programs, "good", None)
        # Its results are so late that the reinstall lasts as long as this test.
        slow = Pair(programs, "slow", site_with(VLAN_MACS[0]),
                    'fault { what: "delay" times: 1000000 ms: 600000 }')
        # These say that they have done what they have not: always, and once after the reinstall.
        lying = Pair(programs, "lying", site_with(VLAN_MACS[0]),
                     'fault { what: "answer" of: "vlan" times: 1000000 code: 0 }')
        forgetful = Pair(programs, "forgetful", site_with(VLAN_MACS[0]),
                         'fault { what: "answer" of: "vlan" nth: 2 code: 0 }',
                         manager_options=("--audit", "1"))
        small = programs.start(
            "small", "zuskux-manager", good.site, "--stay", "--table-size", "10",
            "--control", programs.path("small-control"), "--http", "127.0.0.1:0")
        pairs = [good, slow, lying, forgetful]
        kernel = start_kernel_pair(programs) if INSIDE in os.environ else None
        if kernel:
            pairs.append(kernel)
        prometheus = Prometheus(programs, [*(pair.manager for pair in pairs), small],
                                [pair.hal for pair in pairs])
        prometheus.await_alert("ZuskuxReinstallTooLong", slow.manager)
        prometheus.await_alert("ZuskuxObjectsFailed", small)
        prometheus.await_alert("ZuskuxNotInSync", lying.manager)
        forgetful.manager.await_lines("settled: ", 1)
        # Prometheus counts increases from the first value that it has seen.
        prometheus.await_value("zuskux_manager_audits_with_differences_total"
                               f'{{instance="{target_of(forgetful.manager)}"}}', 0)
        forgetful.reload(site_with(VLAN_MACS[1]))
        prometheus.await_alert("ZuskuxAuditDifferences", forgetful.manager)
        if kernel:
            kernel.manager.await_lines("settled: ", 1)
            prometheus.await_value(
                f'zuskux_hal_audit_differences_total{{instance="{target_of(kernel.hal)}"}}', 0)
            subprocess.run(["ip", "nexthop", "del", "id", "10"], check=True, timeout=60)
            prometheus.await_alert("ZuskuxKernelDifferences", kernel.hal)
        else:
            print("measured: a kernel that differs: left out, needs root")

        of_manager = f'instance="{target_of(good.manager)}"'
        of_hal = f'instance="{target_of(good.hal)}"'
        prometheus.await_value(f"zuskux_manager_settled{{{of_manager}}}", 1)
        for alert in ("ZuskuxHalDown", "ZuskuxObjectsFailed", "ZuskuxNotInSync",
                      "ZuskuxAuditDifferences", "ZuskuxReinstallTooLong"):
            prometheus.await_silence(alert, good.manager)
        prometheus.await_value(f"sum(zuskux_manager_objects{{{of_manager}}})", OBJECTS)
        prometheus.await_value(f"sum(zuskux_hal_entries{{{of_hal}}})", OBJECTS)
        prometheus.await_value(f'zuskux_hal_results_total{{{of_hal},code="0"}}', OBJECTS)
        prometheus.await_value(
            f'zuskux_manager_stage_duration_seconds_count{{{of_manager},stage="hal"}}', OBJECTS)
        quantile = prometheus.value(
            "histogram_quantile(0.99, sum by (le) (zuskux_manager_stage_duration_seconds_bucket"
            f'{{{of_manager},stage="queue"}}))')
        check(quantile is not None and 0 < quantile <= 10, f"the 99th percentile is {quantile}")
        for program in (good.manager, good.hal):
            metrics_are_right(Api.of(program))

        good.hal.end(signal.SIGKILL)
        prometheus.await_alert("ZuskuxHalDown", good.manager)
        small.end(signal.SIGTERM)
        prometheus.await_alert("ZuskuxManagerDown", small)
        prometheus.program.end(signal.SIGTERM)
    print("passed")


def enter_namespace():
    """Runs this test once more, in a network namespace of its own, if that is allowed."""
    if INSIDE in os.environ:
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True, timeout=60)
    elif subprocess.run(["unshare", "--net", "true"], stderr=subprocess.DEVNULL,
                        check=False).returncode == 0:
        os.execvpe("unshare", ["unshare", "--net", sys.executable, "-B", *sys.argv],
                   {**os.environ, INSIDE: "1"})


try:
    enter_namespace()
    main()
except Failure as failure:
    sys.exit(str(failure))
