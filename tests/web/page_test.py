#!/usr/bin/python3
"""The manager's page in a real browser, headless Chromium, with the real programs.

    page_test.py FOLDER-OF-THE-PROGRAMS [--pictures FOLDER] [--accept] [--objects N] [TEST...]

--pictures writes a picture of each state that the tests reach. --accept writes those that the
documents show to docs/pictures. --objects is how many test_many_objects has.
"""

import argparse
import base64
import json
import os
import pathlib
import re
import signal
import sys
import time
import unittest

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/programs"))
from programs import Programs, wait_until  # noqa: E402 pylint: disable=wrong-import-position

SITE = ROOT / "examples/sites/provider_edge.txtpb"
SETTLED = {"vrf": {"sent": 2}, "vlan": {"installed": 8}, "host": {"installed": 40},
           "ecmp": {"installed": 6}, "mpls": {"installed": 20}}
# The pictures in the documents.
DOCUMENTED = {"page", "page_failed"}
# What a loaded machine may need. The measured times are printed.
PATIENCE = 60
WIDE = (1280, 760)
NARROW = (360, 740)


def measured(text):
    print(f"measured: {text}", flush=True)


class Page:
    """What a user sees and does, in words of the page."""

    def __init__(self, driver):
        self.driver = driver

    def all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def one(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def texts(self, selector):
        """The visible texts. Read in one step, since the page replaces its elements."""
        return self.run(
            "return [...document.querySelectorAll(arguments[0])].map((e) => e.innerText.trim())", selector)

    def text(self, selector):
        return " ".join(self.texts(selector))

    def await_text(self, selector, expected):
        wait_until(lambda: expected in self.text(selector),
                   f'{selector} shows "{expected}" (now: "{self.text(selector)}")', PATIENCE)

    def await_true(self, script, what):
        wait_until(lambda: self.run("return " + script), what, PATIENCE)

    def click(self, selector):
        # The page may replace an element between finding and clicking it.
        self.await_true(f"document.querySelector({json.dumps(selector)}) !== null", selector)
        self.run("document.querySelector(arguments[0]).dispatchEvent("
                 "new MouseEvent('click', {bubbles: true, cancelable: true}))", selector)

    def facts(self):
        """The facts about the HAL, by name."""
        return dict(zip(self.texts("#connection dt"), self.texts("#connection dd")))

    def counts(self):
        """The counts that are not 0, by kind and state."""
        lines = self.run("return [...document.querySelectorAll('#counts tr')].map((row) => ["
                         "row.querySelector('th').innerText,"
                         "[...row.querySelectorAll('td a')].map((link) => link.innerText)])")
        return {kind: {state: int(count.replace(",", "")) for count, state in map(str.split, states)}
                for kind, states in lines if kind != "all"}

    def rows(self):
        """The rows in view, each a list of its cells."""
        return self.run(
            "return [...document.querySelectorAll('#list .space .row')]"
            ".sort((a, b) => a.dataset.index - b.dataset.index)"
            ".map((row) => [...row.children].map((cell) => cell.textContent))")

    def keys(self):
        return [row[1] for row in self.rows()]

    def find(self, text):
        search = self.one("#filter-q")
        search.send_keys(Keys.CONTROL + "a")
        search.send_keys(Keys.BACKSPACE)
        search.send_keys(text)

    def nodes(self):
        """The objects in the drawing, with their states."""
        return dict(self.run(
            "return [...document.querySelectorAll('.drawing .node a')].map((link) => "
            "[decodeURIComponent(link.getAttribute('href').replace('#object=', '')),"
            " link.closest('.node').getAttribute('class')])"))

    def lines(self, title):
        """The lines of a section of the chosen object."""
        return self.texts(f'#detail section[aria-label="{title}"] li')


class PageTest(unittest.TestCase):
    """A browser for all tests; programs and a page for each."""

    programs_folder = None
    pictures = None
    accept = False
    objects = 100_000

    @classmethod
    def setUpClass(cls):
        options = webdriver.ChromeOptions()
        for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                         "--hide-scrollbars", "--disable-lcd-text", "--no-first-run", "--disable-background-networking"):
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        cls.driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        cls.addClassCleanup(cls.driver.quit)
        cls.driver.set_page_load_timeout(PATIENCE)
        cls.driver.set_script_timeout(PATIENCE)

    def setUp(self):
        self.programs = Programs(self.programs_folder)
        self.programs.__enter__()
        self.addCleanup(self.programs.__exit__)
        self.hal = self.programs.path("hal.sock")
        self.starts = 0
        # What the browser itself logs about answers that the test provokes.
        self.expected_messages = None
        self.page = Page(self.driver)
        self.show_as(WIDE)
        self.driver.get("about:blank")
        self.driver.get_log("browser")

    def tearDown(self):
        messages = [line["message"] for line in self.driver.get_log("browser")]
        if self.expected_messages:
            messages = [line for line in messages if not re.search(self.expected_messages, line)]
        self.assertEqual(messages, [])

    def show_as(self, size, scheme="light"):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": size[0], "height": size[1], "deviceScaleFactor": 1, "mobile": False})
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": scheme}]})

    def picture(self, name):
        if self.pictures:
            os.makedirs(self.pictures, exist_ok=True)
            self.driver.save_screenshot(os.path.join(self.pictures, name + ".png"))
        if self.accept and name in DOCUMENTED:
            # A third of the size of a PNG.
            shot = self.driver.execute_cdp_cmd("Page.captureScreenshot", {"format": "webp", "quality": 80})
            (ROOT / "docs/pictures" / (name + ".webp")).write_bytes(base64.b64decode(shot["data"]))

    def start_hal(self, *arguments):
        self.starts += 1
        hal = self.programs.start(f"hal.{self.starts}", "zuskux-hal", "--socket", self.hal, *arguments)
        hal.await_lines("listening on ", 1)
        return hal

    def start_manager(self, site=None, address="127.0.0.1:0"):
        """Returns the program and the address of its page."""
        self.starts += 1
        site = site or self.write_site(SITE.read_text(encoding="utf-8"))
        manager = self.programs.start(
            f"manager.{self.starts}", "zuskux-manager", site, "--stay", "--hal", "unix:" + self.hal,
            "--control", self.programs.path("manager.sock"), "--http", address)
        (_, line), *_ = manager.await_lines("http: listening on ", 1)
        return manager, re.match(r"http: listening on (\S+?);", line)[1]

    def open(self, url, condition="settled"):
        self.driver.get(url)
        self.page.await_text("#condition", condition)

    def make_traffic(self):
        """Half a minute of it, so that the plot in the picture shows something."""
        for pause in (3, 5, 2, 6, 1, 4, 7, 2):
            time.sleep(pause)
            self.programs.run("zuskux-manager", "resync", "--control", self.programs.path("manager.sock"))
        self.page.await_text("#condition", "settled")
        self.await_states({"installed", "sent"})

    def await_states(self, states):
        wait_until(lambda: {row[0] for row in self.page.rows()} == states, f"rows that are {states}", PATIENCE)

    def write_site(self, text):
        path = self.programs.path("site.txtpb")
        pathlib.Path(path).write_text(text, encoding="utf-8")
        return path

    def test_a_server_dies_and_comes_back(self):
        hal = self.start_hal()
        _, url = self.start_manager()
        self.open(url)
        wait_until(lambda: self.page.counts() == SETTLED, "everything is installed", PATIENCE)
        self.page.await_text("#objects-summary", "76 objects")
        first = self.page.facts()
        self.assertRegex(first["Connection"], r"^up since ")
        self.assertRegex(first["Last reinstall"], r"^76 objects in .+, at ")
        self.assertEqual(first["Restarts"], "0")
        if self.accept:
            self.make_traffic()
        self.picture("page")

        hal.end(signal.SIGKILL)
        killed = time.monotonic()
        self.page.await_text("#condition", "no connection to the HAL")
        measured(f"a killed server shows after {time.monotonic() - killed:.2f} s")
        self.assertRegex(self.page.facts()["Connection"], r"^down since ")
        self.picture("hal_down")

        self.start_hal()
        self.page.await_text("#condition", "settled")
        wait_until(lambda: self.page.facts()["Restarts"] == "1", "a restart is counted", PATIENCE)
        again = self.page.facts()
        self.assertRegex(again["Connection"], r"^up since ")
        self.assertNotEqual(again["Generation"], first["Generation"])
        self.assertRegex(again["Last reinstall"], r"^76 objects in .+, at ")
        wait_until(lambda: self.page.counts() == SETTLED, "everything is installed again", PATIENCE)
        self.await_states({"installed", "sent"})

    def test_a_refused_object_is_explained(self):
        self.start_hal("--table-size", "6")
        _, url = self.start_manager()
        self.open(url, "some objects failed")
        wait_until(lambda: self.page.rows() and self.page.rows()[0][0] == "failed",
                   "the failed ones are first", PATIENCE)
        self.page.find("mpls:230")
        wait_until(lambda: self.page.keys() == ["mpls:230"], "the search finds one", PATIENCE)
        self.page.click("#list .space .row")
        self.page.await_text("#detail-title", "mpls:230 vc-acme-voice-pe5")
        self.assertTrue(self.driver.current_url.endswith("#object=mpls:230&q=mpls:230"))
        self.assertEqual(self.page.lines("Why"), [
            'mpls:230 "vc-acme-voice-pe5" failed: a destination that it refers to does not exist in the HAL',
            'it rides on mpls:207 "lsp-pe5-a", which failed: table full'])
        nodes = self.page.nodes()
        self.assertEqual(set(nodes), {"mpls:230", "mpls:207", "host:104", "vlan:13"})
        self.assertEqual(set(nodes["mpls:230"].split()), {"node", "failed", "chosen"})
        self.assertEqual(set(nodes["mpls:207"].split()), {"node", "failed"})
        self.assertEqual(set(nodes["vlan:13"].split()), {"node", "installed"})
        self.assertIn("failed", self.page.text('#detail section[aria-label="History"]'))
        fields = self.page.text('#detail section[aria-label="Fields"]')
        for value in ("02:00:00:00:03:04", "1207", "eth3"):
            self.assertIn(value, fields)
        self.page.find("")
        wait_until(lambda: len(self.page.rows()) > 10, "the list is back", PATIENCE)
        self.picture("page_failed")

        # A node is a link; the back button returns.
        self.page.click('.drawing a[href="#object=mpls:207"]')
        self.page.await_text("#detail-title", "mpls:207 lsp-pe5-a")
        self.assertEqual([line.split(" (")[0] for line in self.page.lines("What rides on it")],
                         ["failed mpls:230 vc-acme-voice-pe5", "failed mpls:232 vc-globex-data-pe5"])
        self.assertIn("installed host:104 p4 (neighbor)", self.page.lines("Rides on"))
        self.driver.back()
        self.page.await_text("#detail-title", "mpls:230")

        # What was refused, newest first; a link to it works in a new page.
        self.open(url + "#view=changes&state=failed", "some objects failed")
        self.page.await_text("#changes-list", "mpls:230")
        self.assertEqual({row.split("\t")[1].strip() for row in self.page.texts("#changes-list tr")}, {"failed"})
        self.picture("changes")
        self.expected_messages = r"ecmp(/|%3A|:)99.* 404 "
        self.open(url + "#object=ecmp:99", "some objects failed")
        self.page.await_text("#detail", "ecmp:99")
        self.assertEqual(self.page.texts("#detail section"), [])

    def test_the_search_finds(self):
        self.start_hal()
        _, url = self.start_manager()
        self.open(url)
        wait_until(lambda: len(self.page.rows()) > 10, "the list is there", PATIENCE)
        self.driver.switch_to.active_element.send_keys("/")
        self.driver.switch_to.active_element.send_keys("eth1")
        wait_until(lambda: "vlan:11" in self.page.keys() and "vlan:10" not in self.page.keys(),
                   "objects on eth1", PATIENCE)
        found = self.page.keys()
        self.assertTrue(self.driver.current_url.endswith("#q=eth1"))
        self.page.await_text("#objects-summary", f"{len(found)} objects")
        self.picture("search")

        # With the keyboard alone: into the list, to the second row, open, close.
        self.driver.switch_to.active_element.send_keys(Keys.ARROW_DOWN)
        self.driver.switch_to.active_element.send_keys(Keys.ARROW_DOWN)
        self.driver.switch_to.active_element.send_keys(Keys.ENTER)
        self.page.await_text("#detail-title", found[1])
        self.assertIn(f"object={found[1]}", self.driver.current_url)
        self.driver.switch_to.active_element.send_keys(Keys.ESCAPE)
        wait_until(lambda: self.page.text("#detail-title") == "", "the object is closed", PATIENCE)
        self.assertTrue(self.driver.current_url.endswith("#q=eth1"))

        self.page.find("nothing has this name")
        self.page.await_text("#objects-summary", "0 objects")
        self.assertEqual(self.page.rows(), [])

        # The counts are links to what they count.
        self.page.click('#counts a[href*="kind=ecmp&state=installed"]')
        wait_until(lambda: self.page.keys() == [f"ecmp:{id}" for id in range(301, 307)], "the groups", PATIENCE)
        self.assertTrue(self.driver.current_url.endswith("#kind=ecmp&state=installed"))

    def test_the_list_and_the_object_follow_the_site(self):
        site = SITE.read_text(encoding="utf-8")
        self.start_hal()
        _, url = self.start_manager()

        def reload(text):
            self.write_site(text)
            self.programs.run("zuskux-manager", "reload", "--control", self.programs.path("manager.sock"))

        self.open(url + "#kind=vlan&object=vlan:13")
        wait_until(lambda: len(self.page.rows()) == 8, "the VLANs", PATIENCE)
        self.page.await_text("#detail-title", "vlan:13 core-4")
        for name in ("new", "newer", "newest"):
            reload(site + f'vlan {{ id: 999 name: "{name}" interface: "eth3" source_mac: "02:00:00:00:01:99" }}\n')
            wait_until(lambda: self.page.rows()[-1][:3] == ["installed", "vlan:999", name],
                       f"the {name} VLAN", PATIENCE)
        reload(site.replace("02:00:00:00:01:04", "02:00:00:00:01:fe"))
        wait_until(lambda: len(self.page.rows()) == 8, "it is removed", PATIENCE)
        self.page.await_text("#detail", "02:00:00:00:01:fe")
        wait_until(lambda: len(self.page.texts('#detail section[aria-label="History"] tr')) > 1,
                   "its history goes on", PATIENCE)

    def test_an_operators_questions(self):
        """The questions in docs/operating.md, each answered within three clicks."""
        self.start_hal("--table-size", "6")
        _, url = self.start_manager()
        clicks = 0

        def click(selector):
            nonlocal clicks
            clicks += 1
            self.page.one(selector).click()

        def ask(*clicked):
            nonlocal clicks
            clicks = 0
            self.open(url, "some objects failed")
            wait_until(lambda: self.page.counts().get("mpls") == {"failed": 14, "installed": 6}, "counts", PATIENCE)
            for selector in clicked:
                click(selector)

        def search(text):
            click("#filter-q")
            self.driver.switch_to.active_element.send_keys(text)

        # What is down?
        ask("#counts tr:last-child .state-failed")
        self.page.await_text("#objects-summary", "50 objects")
        wait_until(lambda: {row[0] for row in self.page.rows()} == {"failed"}, "what is down", PATIENCE)
        self.assertLessEqual(clicks, 3)

        # Why is mpls:232 not installed?
        ask()
        search("mpls:232")
        wait_until(lambda: self.page.keys() == ["mpls:232"], "the object", PATIENCE)
        click("#list .space .row")
        self.page.await_text("#detail", 'it rides on mpls:207 "lsp-pe5-a", which failed: table full')
        self.assertLessEqual(clicks, 3)

        # What rides on eth1?
        ask()
        search("eth1")
        wait_until(lambda: "vlan:11" in self.page.keys() and "vlan:10" not in self.page.keys(), "eth1", PATIENCE)
        click(f"#list .space .row:nth-child({self.page.keys().index('vlan:11') + 1})")
        self.page.await_text("#detail-title", "vlan:11")
        self.page.await_true("document.querySelector('.drawing a') !== null", "the drawing")
        self.assertEqual([line.split()[1] for line in self.page.lines("What rides on it")],
                         ["host:102", "mpls:202", "mpls:203"])
        self.assertLessEqual(clicks, 3)

        # How long did the last reinstall take?
        ask()
        self.assertRegex(self.page.facts()["Last reinstall"], r"^76 objects in [\d.]+ m?s, at ")

        # Which objects were refused today?
        ask("#counts tr:last-child .state-failed", "#view-changes")
        self.page.await_text("#changes-summary", "All changes to failed since ")
        self.page.await_text("#changes-list", "mpls:232")
        self.assertLessEqual(clicks, 3)

        # Is the HAL the one I think?
        ask()
        tables = json.loads(self.programs.run("zuskux-hal", "tables", "--json", "--socket", self.hal))
        facts = self.page.facts()
        self.assertEqual(facts["HAL"], "unix:" + self.hal)
        self.assertEqual(facts["Generation"], tables["generation"])
        self.assertRegex(facts["Server"], "^zuskux-hal ")

    def test_names_are_text(self):
        # The site's reader refuses control characters in names.
        shown = '<img src=/x onerror="document.title=1"><b>&amp;</b> \u05e9\u05dc\u05d5\u05dd'
        name = shown.replace('"', r'\"')
        site = self.write_site(
            'interface { name: "<i>eth0" lim_id: 1 type: 1 ifindex: 1 }\n'
            f'vlan {{ id: 10 name: "{name}" interface: "<i>eth0" source_mac: "02:00:00:00:01:01" }}\n')
        self.start_hal()
        _, url = self.start_manager(site)
        self.open(url + "#object=vlan:10")
        wait_until(lambda: [row[2] for row in self.page.rows()] == [shown], "the name in the list", PATIENCE)
        self.page.await_text("#detail-title", shown)
        self.page.await_true("document.querySelector('.drawing a') !== null", "the drawing")
        self.assertIn(shown, self.page.text(".drawing"))
        self.assertIn("<i>eth0", self.page.text('#detail section[aria-label="Fields"]'))
        self.picture("hostile_name")
        self.page.click("#view-changes")
        self.page.await_text("#changes-list", shown)
        self.assertEqual(self.page.all("img, b, i"), [])
        self.assertEqual(self.driver.title, "settled · zuskux-manager")

    def test_the_manager_goes_and_comes_back(self):
        self.expected_messages = r" - Failed to load resource: net::ERR_"
        self.start_hal()
        manager, url = self.start_manager()
        self.open(url + "#object=vlan:11")
        self.page.await_text("#detail-title", "vlan:11")
        manager.end(signal.SIGKILL)
        killed = time.monotonic()
        self.page.await_text("#news", "No news from the manager since")
        measured(f"a killed manager shows after {time.monotonic() - killed:.2f} s")
        self.assertEqual(self.driver.title, "no news · zuskux-manager")
        self.picture("manager_gone")

        manager, _ = self.start_manager(address=url[len("http://"):-1])
        wait_until(lambda: self.page.text("#news") == "", "the page has the new manager", PATIENCE)
        self.page.await_text("#condition", "settled")
        self.page.await_text("#detail-title", "vlan:11")

        manager.process.send_signal(signal.SIGSTOP)
        stopped = time.monotonic()
        self.page.await_text("#news", "No news from the manager since")
        measured(f"a stopped manager shows after {time.monotonic() - stopped:.2f} s")
        manager.process.send_signal(signal.SIGCONT)
        wait_until(lambda: self.page.text("#news") == "", "the manager is back", PATIENCE)

    def test_many_objects(self):
        site = self.programs.site(self.objects)
        hal = self.start_hal()
        manager, url = self.start_manager(site)
        manager.await_lines("in sync after ", 1, PATIENCE * 10)
        began = time.monotonic()
        self.driver.get(url)
        self.page.await_text("#objects-summary", f"{self.objects:,} objects")
        wait_until(lambda: len(self.page.rows()) > 10 and "…" not in self.page.keys(), "rows", PATIENCE)
        measured(f"{self.objects:,} objects load in {time.monotonic() - began:.2f} s")

        # Scrolling: to the end and to the middle, by the scroll bar and by the keyboard.
        def scroll(part):
            self.page.run("const list = document.getElementById('list');"
                          "list.scrollTop = arguments[0] * (list.scrollHeight - list.clientHeight)", part)

        def complete():
            keys = self.page.keys()
            return len(keys) > 10 and "…" not in keys and keys

        last = self.last_key()
        began = time.monotonic()
        scroll(1)
        wait_until(lambda: complete() and self.page.keys()[-1] == last, "the last rows", PATIENCE)
        measured(f"the last of {self.objects:,} objects shows after {time.monotonic() - began:.2f} s")
        scroll(0.5)
        wait_until(lambda: complete() and last not in self.page.keys(), "rows in the middle", PATIENCE)
        middle = int(self.page.run("return document.querySelector('#list .space .row').getAttribute('aria-rowindex')"))
        self.assertAlmostEqual(middle / self.objects, 0.5, delta=0.01)
        self.page.one("#list").send_keys(Keys.HOME)
        first = self.page.keys
        wait_until(lambda: complete() and first()[0].startswith("vrf:"), "the first rows", PATIENCE)
        asked = self.page.run("return performance.getEntriesByType('resource')"
                              ".filter(({name}) => name.includes('/api/objects')).length")
        # All of them would be a thousand requests.
        self.assertLess(asked, 100)
        self.assertLess(len(self.page.rows()), 100)

        for size in (WIDE, NARROW):
            self.show_as(size)
            self.assertFalse(self.page.run("const all = document.getElementById('overview');"
                                           "return all.scrollWidth > all.clientWidth"), size)
        self.show_as(WIDE)

        # The search counts what it finds.
        began = time.monotonic()
        self.page.find(last)
        wait_until(lambda: last in self.page.keys(), "the last one, found", PATIENCE)
        measured(f"the last of {self.objects:,} objects is found after {time.monotonic() - began:.2f} s")
        self.page.await_text("#objects-summary", "1 object")
        measured(f"the search has counted all after {time.monotonic() - began:.2f} s")

        # A reinstall of so many takes a while; the page shows its progress.
        self.page.run(
            "window.progress = []; const reinstall = document.getElementById('reinstall');"
            "new MutationObserver(() => reinstall.hidden || window.progress.push(reinstall.innerText.trim()))"
            ".observe(reinstall, {childList: true, subtree: true, attributes: true})")
        hal.end(signal.SIGKILL)
        self.page.await_text("#condition", "no connection to the HAL")
        self.start_hal()
        self.page.await_true("window.progress.length > 0", "the reinstall's progress")
        self.picture("reinstall")
        wait_until(lambda: self.page.text("#condition") == "settled", "it is settled", PATIENCE * 10)
        wait_until(lambda: f"{self.objects:,} objects in " in self.page.facts()["Last reinstall"], "its end", PATIENCE)
        self.page.await_true("document.getElementById('reinstall').hidden", "no more progress")
        for text in self.page.run("return window.progress"):
            # Before the first object is due, there are 0 of 0.
            self.assertRegex(text, r"^Reinstall: [\d,]+ of [\d,]+ objects? in ")

    def run_module(self, script):
        """Runs a script that awaits the page's modules, and returns its result."""
        result = self.driver.execute_async_script(
            "const done = arguments[0];"
            f"(async () => {{ {script} }})().then(done, (error) => done(`${{error}} ${{error.stack}}`));")
        return result

    def test_the_plot_draws_the_rates(self):
        self.start_hal()
        manager, url = self.start_manager()
        self.open(url)
        # 1000 ms with 100 requests, then 2000 ms with 400: 100/s and 200/s, over 300 s in 600 units.
        drawn = self.run_module("""
            const { RatePlot } = await import('/plot.js');
            const place = document.createElement('div');
            const plot = new RatePlot(place);
            const drawn = () => [
              ...[...place.querySelectorAll('.line')].map((line) => line.getAttribute('d')),
              place.querySelector('.plot-legend').textContent,
              place.querySelector('.plot-scale').lastChild.textContent,
              place.querySelector('svg').getAttribute('aria-label')];
            const results = [];
            plot.reset([{ time_ms: 0, requests: 7, results: 5 }]);
            results.push(drawn());
            plot.reset([{ time_ms: 0, requests: 7, results: 5 }, { time_ms: 1000, requests: 107, results: 105 },
              { time_ms: 3000, requests: 507, results: 305 }]);
            results.push(drawn());
            plot.add(3800, { requests: 10007, results: 10005 });
            results.push(drawn());
            plot.add(302000, { requests: 299507, results: 305 });
            results.push(drawn());
            return results;""")
        self.assertEqual(drawn[0], [
            "", "", "requests 0/sresults 0/s", "1/s",
            "The last 5 minutes; peak 0 per second. Now: 0 requests per second, 0 results per second"])
        rates = [
            "M596.0 60.5L600.0 1.0", "M596.0 60.5L600.0 60.5", "requests 200/sresults 100/s", "200/s",
            "The last 5 minutes; peak 200 per second. Now: 200 requests per second, 100 results per second"]
        self.assertEqual(drawn[1], rates)
        # Too soon after the last sample to be another one.
        self.assertEqual(drawn[2], rates)
        # What is older than five minutes has left.
        self.assertEqual(drawn[3], [
            "M600.0 1.0", "M600.0 120.0", "requests 1,000/sresults 0/s", "1,000/s",
            "The last 5 minutes; peak 1,000 per second. Now: 1,000 requests per second, 0 results per second"])

        # The page's own plot shows what the manager does: 76 requests within a second or two.
        self.programs.run("zuskux-manager", "resync", "--control", self.programs.path("manager.sock"))
        manager.await_lines("reinstall finished: ", 1)

        def peak():
            found = re.search(r"peak ([\d,]+) per second",
                              self.page.run("return document.querySelector('#rates svg').ariaLabel"))
            return found and int(found[1].replace(",", ""))
        wait_until(lambda: (peak() or 0) > 0, "the reinstall in the plot", PATIENCE)

    def test_skipped_rows_are_counted(self):
        """The list's pages, on a list of 1,234 rows whose server examines 300 of them for an answer."""
        self.start_hal()
        _, url = self.start_manager()
        self.open(url)
        seen = self.run_module("""
            const { Pages } = await import('/pages.js');
            const shown = fetch;
            let length = 1234;
            let asked = 0;
            window.fetch = async (path, options) => {
              const given = new URLSearchParams(path.split('?')[1]);
              if (given.get('q') !== 'invented') return shown(path, options);
              ++asked;
              let place = Number(given.get('after') ?? 0);
              const end = Math.min(length, place + 300);
              const skipped = Math.min(end - place, Number(given.get('skip') ?? 0));
              place += skipped;
              const objects = [];
              while (place < end && objects.length < Number(given.get('limit'))) objects.push(place++);
              const next = place < length ? String(place) : null;
              return new Response(JSON.stringify({ objects, skipped, next }));
            };
            const results = {};
            try {
              const pages = new Pages({ q: 'invented' });
              await pages.read(7);
              results.middle = [pages.rowAt(699) ?? null, pages.rowAt(700), pages.rowAt(799),
                pages.rowAt(800) ?? null, pages.total, pages.atEnd, asked];
              asked = 0;
              await pages.read(8);
              results.next = [pages.rowAt(800), pages.rowAt(899), pages.total, asked];
              await pages.read(12);
              results.last = [pages.rowAt(1200), pages.rowAt(1233), pages.rowAt(1234) ?? null, pages.total, pages.atEnd];
              await pages.read(13);
              results.beyond = [pages.rowAt(1300) ?? null, pages.total];

              const counted = new Pages({ q: 'invented' });
              asked = 0;
              await counted.count();
              results.count = [counted.total, counted.rows().length, asked];
              await counted.read(20);
              results.farBeyond = [counted.rowAt(2000) ?? null, counted.total];

              results.missing = [pages.firstMissing(7, 8) ?? null, pages.firstMissing(7, 9)];
              length = 850;
              pages.expire();
              results.expired = [pages.firstMissing(7, 8), pages.rowAt(700)];
              await pages.read(8);
              results.shorter = [pages.rowAt(849), pages.rowAt(850) ?? null, pages.total];

              length = 1e6;
              const long = new Pages({ q: 'invented' });
              for (let page = 0; page < 30; ++page) await long.read(page);
              results.kept = [long.rows().length, long.rowAt(999) ?? null, long.rowAt(1000), long.total];
            } finally {
              window.fetch = shown;
            }
            return results;""")
        self.assertEqual(seen, {
            # Three requests skip 700 rows, one reads 100.
            "middle": [None, 700, 799, None, 800, False, 4],
            "next": [800, 899, 900, 1],
            "last": [1200, 1233, None, 1234, True],
            "beyond": [None, 1234],
            "count": [1234, 0, 5],
            "farBeyond": [None, 1234],
            "missing": [None, 9],
            "expired": [7, 700],
            "shorter": [849, None, 850],
            "kept": [2000, None, 1000, 3000],
        })

    def last_key(self):
        """The object that the manager lists last."""
        listed = json.loads(self.programs.run(
            "zuskux-manager", "objects", "--json", "--control", self.programs.path("manager.sock")))["objects"]
        return f"{listed[-1]['kind']}:{listed[-1]['id']}"

    def test_small_screens_and_colours(self):
        self.start_hal("--table-size", "30")
        _, url = self.start_manager()
        for scheme in ("light", "dark"):
            for size in (NARROW, (800, 600), WIDE):
                self.show_as(size, scheme)
                for place in ("", "#object=mpls:230", "#view=changes"):
                    with self.subTest(scheme=scheme, size=size, place=place):
                        self.driver.get("about:blank")
                        self.open(url + place, "some objects failed")
                        self.page.await_true(
                            {"": "document.querySelectorAll('#list .space .state').length > 5",
                             "#object=mpls:230": "document.querySelector('.drawing a') !== null",
                             "#view=changes": "document.querySelector('#changes-list td') !== null"}[place], "it shows")
                        self.picture(f"{scheme}_{size[0]}{place.replace('#', '_').replace(':', '_')}")
                        self.assertEqual(self.page.run("return document.documentElement.scrollWidth"), size[0])
                        self.assertEqual(self.page.run(CONTRAST), [])
                        self.check_names()

    def check_names(self):
        """Whatever takes part in the page's use has a name for screen readers."""
        nodes = self.driver.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]
        used = {"link", "button", "textbox", "searchbox", "combobox", "grid", "region", "progressbar", "image"}
        nameless = [node["role"]["value"] for node in nodes
                    if not node["ignored"] and node["role"]["value"] in used
                    and not node.get("name", {}).get("value")]
        self.assertEqual(nameless, [])


# The texts whose contrast to what is behind them is below 4.5, the limit of WCAG AA.
CONTRAST = r"""
const numbers = (colour) => colour.match(/[\d.]+/g).map(Number);
const luminance = (colour) => numbers(colour).slice(0, 3).map((c) => c / 255)
  .map((c) => (c <= 0.03928 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4))
  .reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0);
const isClear = (colour) => numbers(colour)[3] === 0;
const behind = (element) => {
  for (let each = element; each; each = each.parentElement) {
    const { backgroundColor } = getComputedStyle(each);
    if (!isClear(backgroundColor)) return backgroundColor;
  }
  return 'rgb(255, 255, 255)';
};
const drawn = (text) => getComputedStyle(text.parentElement.querySelector('polygon, ellipse, path')).fill;
const weak = [];
for (const element of document.querySelectorAll('body *')) {
  const own = [...element.childNodes].some((node) => node.nodeType === Node.TEXT_NODE && node.data.trim());
  if (!own || !element.checkVisibility() || element.matches('option, title, noscript')) continue;
  const isDrawn = element.localName === 'text';
  const front = getComputedStyle(element)[isDrawn ? 'fill' : 'color'];
  const [light, dark] = [luminance(front), luminance(isDrawn ? drawn(element) : behind(element))].sort((a, b) => b - a);
  if ((light + 0.05) / (dark + 0.05) < 4.5) weak.push(`${element.localName}: ${element.textContent.slice(0, 30)}`);
}
return weak;
"""


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("programs")
    parser.add_argument("--pictures")
    parser.add_argument("--accept", action="store_true")
    parser.add_argument("--objects", type=int, default=PageTest.objects)
    parser.add_argument("tests", nargs="*")
    given = parser.parse_intermixed_args()
    PageTest.programs_folder = os.path.abspath(given.programs)
    PageTest.pictures = given.pictures
    PageTest.accept = given.accept
    PageTest.objects = given.objects
    names = [name if "." in name else f"PageTest.{name}" for name in given.tests]
    unittest.main(argv=[sys.argv[0], "-v", *names])


if __name__ == "__main__":
    main()
