#!/usr/bin/env python3
"""The page of a recorded boot, used as people use it.

page_test.py PROGRAM BUILD [TEST...]. Exit status 77, with the reason, where there is no browser.
"""

import base64
import hashlib
import json
import os
import shutil
import subprocess
import sys
import unittest
from pathlib import Path

import boots
import browser
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select, WebDriverWait

PROGRAM = ""
TOOLS = Path()
PATIENCE = 60


class Page(browser.BrowserTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.root = cls.folder / "root"
        cls.messages = boots.small(cls.root)
        cls.page = cls.make("report.html", "--root", cls.root, "--messages", cls.messages)

    @classmethod
    def make(cls, name, *words):
        path = cls.folder / name
        subprocess.run([PROGRAM, "report", *map(str, words), "--output", str(path)], check=True,
                       stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=120)
        return path

    def setUp(self):
        self.open()

    def tearDown(self):
        self.command("Emulation.setEmulatedMedia", media="", features=[])
        self.command("Emulation.clearDeviceMetricsOverride")
        super().tearDown()

    def open(self, page=None, address=""):
        self.driver.get("about:blank")
        self.driver.get(f"file://{page or self.page}{address}")
        self.wait(lambda: self.run_script("return performance.getEntriesByName('usable').length"))

    def wait(self, condition):
        return WebDriverWait(self.driver, PATIENCE).until(lambda _: condition())

    def find(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def texts(self, selector):
        return self.run_script(
            "return [...document.querySelectorAll(arguments[0])].map((each) => each.textContent)",
            selector)

    def text(self, selector):
        return self.texts(selector)[0]

    def press(self, *keys):
        ActionChains(self.driver).send_keys(*keys).perform()

    def button(self, part, label):
        return self.driver.find_element(
            By.XPATH, f"//section[@id='{part}']//*[self::button or self::a][text()='{label}']")

    def click(self, part, label):
        button = self.button(part, label)
        self.run_script("arguments[0].scrollIntoView({block: 'center'})", button)
        button.click()

    def chosen(self):
        return self.text("#plugin-title .name")

    def is_chosen(self, name):
        """Links are followed a moment after they are clicked."""
        WebDriverWait(self.driver, PATIENCE).until(lambda _: self.chosen() == name,
                                                   f"{name} is not chosen")

    def has_focus(self, identity):
        self.wait(lambda: self.run_script("return document.activeElement.id") == identity)

    def picture(self):
        """The time line as it is drawn, once it is."""
        self.driver.execute_async_script(
            "const done = arguments[0];"
            "requestAnimationFrame(() => requestAnimationFrame(() => done()))")
        drawn = self.run_script("return document.querySelector('canvas').toDataURL()")
        return hashlib.sha256(drawn.encode()).hexdigest()

    def graph(self):
        """The names of the nodes once the graph is drawn."""
        self.run_script("document.querySelector('#graph').scrollIntoView()")
        self.wait(lambda: "node" in self.text("#graph [role=status]"))
        return self.texts("#graph svg title")

    # ---- what is told

    def test_it_loads_nothing(self):
        self.driver.get_log("performance")
        self.open()
        self.graph()  # laid out beside the page
        addresses = set()
        for entry in self.driver.get_log("performance"):
            message = json.loads(entry["message"])["message"]
            if message["method"] == "Network.requestWillBeSent":
                addresses.add(message["params"]["request"]["url"])
        others = {each for each in addresses
                  if not each.startswith(("blob:", "data:", "about:", f"file://{self.page}"))}
        self.assertIn(f"file://{self.page}", addresses)
        self.assertEqual(others, set())

    def test_failures_come_first(self):
        self.assertEqual(self.texts("main > section > h2")[1], "Failures")
        self.assertEqual(self.texts("#problems .bad li"),
                         ["web: no <b>socket</b> & no \"port\""])
        self.assertEqual(self.texts("#problems summary"),
                         ["1 plugin skipped by the operator", "1 plugin never ran",
                          "1 plugin had no part in it"])
        self.assertIn("unused: the log does not name it", self.texts("#problems details li"))
        self.is_chosen("web")
        self.assertEqual(self.text("#plugin .badge"), "failed")

    def test_headings_tell_the_boot(self):
        title = "Boot of 2026-03-05 07:04:00 UTC: 2.90 s on 3 workers, after 7.00 s of kernel"
        self.assertEqual(self.driver.title, title)
        self.assertEqual(self.text("h1"), title)

    def test_hostile_names_are_text(self):
        names = [text for text in self.texts("#all tbody th")]
        for name in boots.HOSTILE:
            shown = name.replace("\x1b", "\\x1b").replace("\x07", "\\x07").replace("\udce9", "\ufffd")
            shown = shown.replace("\u202e", "\\u202e")
            self.assertIn(shown, names)
        self.assertIsNone(self.run_script("return window.broken ?? null"))
        self.assertEqual(len(self.all("script")), 2)
        self.assertEqual(len(self.all("b")), 0)

    # ---- one plugin

    def test_plugins_page_tells_all_about_it(self):
        self.open(address="#plugin-0")
        facts = dict(zip(self.texts("#plugin dt"), self.texts("#plugin dd")))
        self.assertEqual(facts["Kind"], "JSON description, with commands")
        self.assertEqual(facts["Ran"], "1.20 s")
        self.assertEqual(facts["Queue for the CLI executor"], "600 ms")
        self.assertEqual(facts["Work of its own"], "600 ms")
        self.assertEqual(len(self.texts("#plugin .savings li")), 3)
        tables = self.texts("#plugin caption")
        self.assertEqual(tables[-1], "What waited for it: 7 rows")
        self.assertEqual(self.texts("#plugin .messages li"),
                         ["7.000000 Activating Bootforge plugin network.",
                          "8.200000 Bootforge plugin network activated."])

    def test_links_lead_on_and_back(self):
        self.find("#plugin tbody a").click()
        self.is_chosen("log")
        self.has_focus("plugin-title")
        self.driver.back()
        self.driver.forward()
        self.wait(lambda: self.chosen() == "log")
        self.click("plugin", "Previous by start")
        self.is_chosen("clock")
        self.click("plugin", "Next by start")
        self.is_chosen("log")
        failed = self.find("#problems .bad a")
        self.run_script("arguments[0].scrollIntoView({block: 'center'})", failed)
        failed.click()
        self.is_chosen("web")

    def test_unknown_address_is_no_plugin(self):
        self.open(address="#plugin-999")
        self.is_chosen("web")

    # ---- search

    def test_search_goes_by_keyboard(self):
        self.press("/")
        self.has_focus("wanted")
        self.press("L")
        self.assertEqual(self.texts("#found li")[:2], ["log", "left"])
        self.press(Keys.ARROW_DOWN)
        self.assertEqual(self.text("#found [aria-selected=true]"), "left")
        self.press(Keys.ARROW_UP, Keys.ARROW_UP, Keys.ARROW_DOWN, Keys.ENTER)
        self.is_chosen("log")
        self.assertFalse(self.find("#found").is_displayed())
        self.press("/", "zzz")
        self.assertEqual(self.texts("#found li"), [])
        self.press(Keys.ENTER, Keys.ESCAPE)
        self.assertEqual(self.find("#wanted").get_property("value"), "")

    def test_search_finds_providers_and_takes_clicks(self):
        self.find("#wanted").send_keys("time")
        self.assertEqual(self.texts("#found li"), ["clock provides time"])
        self.find("#found li").click()
        self.is_chosen("clock")

    # ---- time line

    def test_time_line_goes_by_keyboard(self):
        box = self.find(".timeline")
        box.send_keys(Keys.HOME)
        self.is_chosen("network")
        told = self.text(".readout")
        self.assertEqual(told, "network: worker 0, 0 to 1.20 s, ran 1.20 s")
        self.assertEqual(self.text("#announcement"), told)
        box.send_keys(Keys.ARROW_DOWN)
        self.is_chosen("disk")
        box.send_keys(Keys.ARROW_RIGHT)
        self.is_chosen("log")
        box.send_keys(Keys.ARROW_LEFT, Keys.ARROW_UP)
        self.is_chosen("network")
        box.send_keys(Keys.ARROW_UP, Keys.ARROW_LEFT)  # there is nothing
        self.is_chosen("network")
        box.send_keys(Keys.END, Keys.ENTER)
        self.has_focus("plugin-title")
        self.assertIn("line", self.chosen())

    def test_time_line_zooms_by_keyboard_and_buttons(self):
        box = self.find(".timeline")
        box.send_keys(Keys.HOME)
        whole = self.picture()
        for key, button in (("+", "Zoom in"), (Keys.PAGE_DOWN, "Later"), (Keys.PAGE_UP, "Earlier"),
                            ("-", "Zoom out")):
            before = self.picture()
            box.send_keys(key)
            by_key = self.picture()
            self.assertNotEqual(by_key, before, key)
            box.send_keys("0")
            self.assertEqual(self.picture(), whole)
            for step in ["Zoom in", "Later"][:["+", Keys.PAGE_DOWN].index(key)
                                             if key in ("+", Keys.PAGE_DOWN) else 2]:
                self.click("timeline", step)
            before = self.picture()
            self.click("timeline", button)
            self.assertNotEqual(self.picture(), before, button)
            self.click("timeline", "Whole boot")
            self.assertEqual(self.picture(), whole)
            for step in ("+", Keys.PAGE_DOWN):
                box.send_keys(step)
        box.send_keys("0")
        self.assertEqual(self.picture(), whole)

    def test_time_line_takes_the_mouse(self):
        box = self.find(".timeline")
        self.run_script("arguments[0].scrollIntoView({block: 'center'})", box)
        width, height = box.size["width"], box.size["height"]
        lane = -height // 2 + 24 + 13  # the first worker's, from the middle
        ActionChains(self.driver).move_to_element_with_offset(box, -width // 4, lane).perform()
        self.wait(lambda: self.text(".readout").startswith("network"))
        ActionChains(self.driver).click().perform()
        self.is_chosen("network")
        whole = self.picture()
        middle = {"x": box.rect["x"] + width / 2 - self.run_script("return scrollX"),
                  "y": box.rect["y"] + 40 - self.run_script("return scrollY")}
        wheel = {"type": "mouseWheel", "deltaX": 0, "deltaY": -400, **middle}
        self.command("Input.dispatchMouseEvent", modifiers=2, **wheel)  # with Ctrl
        self.wait(lambda: self.picture() != whole)
        zoomed = self.picture()
        ActionChains(self.driver).drag_and_drop_by_offset(box, -200, 0).perform()
        self.assertNotEqual(self.picture(), zoomed)
        self.assertEqual(self.chosen(), "network", "a drag picks nothing")
        self.click("timeline", "Whole boot")
        self.assertEqual(self.picture(), whole)
        before = self.run_script("return scrollY")
        self.command("Input.dispatchMouseEvent", **wheel)
        self.wait(lambda: self.run_script("return scrollY") != before)
        self.assertEqual(self.picture(), whole, "the wheel alone moves the page")

    def test_plugin_is_shown_on_the_time_line(self):
        whole = self.picture()
        self.click("plugin", "Show on the time line")
        self.assertNotEqual(self.picture(), whole)
        self.assertEqual(self.run_script("return document.activeElement.className"), "timeline")

    # ---- tables

    def test_every_heading_of_every_table_sorts(self):
        for part in ("plugin", "chain", "savings", "executor", "all"):
            for table in range(len(self.all(f"#{part} table"))):
                self.sorts(part, table)

    def sorts(self, part, table):
        place = (f"document.querySelectorAll('#{part} table')[{table}]"
                 ".querySelectorAll('thead th')[arguments[0]]")
        columns = self.run_script(
            f"return document.querySelectorAll('#{part} table')[{table}].querySelectorAll('thead th').length")
        for column in range(columns):
            first = self.run_script(f"{place}.querySelector('button').click();"
                                    f"return {place}.ariaSort", column)
            second = self.run_script(f"{place}.querySelector('button').click();"
                                     f"return {place}.ariaSort", column)
            self.assertEqual({first, second}, {"ascending", "descending"})

    def column(self, part, number):
        return self.texts(f"#{part} tbody tr > :nth-child({number})")

    def test_table_of_all_is_sorted_by_what_is_clicked(self):
        self.assertEqual(self.column("all", 1)[:4], ["network", "disk", "clock", "choice"])
        self.click("all", "Run")
        self.assertEqual(self.column("all", 1)[:4], ["web", "network", "disk", "log"])
        self.assertEqual(self.column("all", 7)[-2:], ["", ""])
        self.click("all", "Run")
        self.assertEqual(self.column("all", 1)[0], "clock")
        self.assertEqual(self.column("all", 7)[-2:], ["", ""], "what did not run stays last")

    def test_table_of_all_is_filtered(self):
        self.find("#filter-name").send_keys("O")
        self.assertEqual(self.text("#all [role=status]"),
                         f"{len(self.column('all', 1))} of 15 plugins")
        Select(self.find("#filter-result")).select_by_value("failed")
        self.assertEqual(self.column("all", 1), [])
        self.find("#filter-name").clear()
        self.find("#filter-name").send_keys("w")
        self.assertEqual(self.column("all", 1), ["web"])
        Select(self.find("#filter-result")).select_by_value("")
        Select(self.find("#filter-kind")).select_by_value("json")
        self.assertEqual(self.column("all", 1), ["network", "web"])

    def test_chain_says_why(self):
        self.assertEqual(self.column("chain", 2), ["disk", "log", "web"])
        self.assertEqual(self.column("chain", 6)[1:], ["worker 1, held by disk", "log, from log"])

    # ---- graph

    def test_graph_shows_what_is_asked_for(self):
        self.assertEqual(set(self.graph()) & {"web", "net", "log", "network"},
                         {"web", "net", "log", "network"})
        self.assertNotIn("disk", self.graph())
        Select(self.find("#graph-distance")).select_by_value("4")
        self.wait(lambda: "disk" in self.graph())
        Select(self.find("#graph-part")).select_by_value("chain")
        self.wait(lambda: "network" not in self.graph())
        self.assertEqual(set(self.graph()), {"disk", "worker 1", "log", "web"})
        self.assertFalse(self.find("#graph-distance").is_enabled())
        Select(self.find("#graph-part")).select_by_value("whole")
        self.wait(lambda: "clock" in self.graph())
        self.click("plugin", "Show in the graph")
        self.wait(lambda: "clock" not in self.graph())

    def test_graph_is_scaled_and_walked(self):
        self.graph()
        scale = lambda: self.run_script(
            "return document.querySelector('#graph svg').__zoom.k")
        fitting = scale()
        self.click("graph", "Larger")
        self.assertGreater(scale(), fitting)
        self.click("graph", "Smaller")
        self.click("graph", "Smaller")
        self.assertLess(scale(), fitting)
        self.click("graph", "Fit")
        self.assertAlmostEqual(scale(), fitting)
        link = self.find("#graph svg a[aria-label=log]")
        self.run_script("arguments[0].focus()", link)
        self.press(Keys.ENTER)
        self.is_chosen("log")

    # ---- everybody can use it

    def colour(self, selector, name):
        return self.run_script("return getComputedStyle(document.querySelector(arguments[0]))"
                               "[arguments[1]]", selector, name)

    def test_dark_is_dark(self):
        light = self.picture()
        self.assertEqual(self.colour("body", "backgroundColor"), "rgb(255, 255, 255)")
        self.command("Emulation.setEmulatedMedia",
                     features=[{"name": "prefers-color-scheme", "value": "dark"}])
        self.assertEqual(self.colour("body", "backgroundColor"), "rgb(22, 24, 28)")
        self.wait(lambda: self.picture() != light)

    def test_it_fits_a_telephone(self):
        for width in (360, 320):
            self.command("Emulation.setDeviceMetricsOverride", width=width, height=740,
                         deviceScaleFactor=2, mobile=True)
            self.open(address="#plugin-0")
            self.graph()
            self.assertLessEqual(self.run_script("return document.documentElement.scrollWidth"),
                                 width)
            self.assertLessEqual(self.run_script("return innerWidth"), width)

    def test_it_prints_light_and_whole(self):
        self.command("Emulation.setEmulatedMedia",
                     features=[{"name": "prefers-color-scheme", "value": "dark"}])
        paper = base64.b64decode(self.driver.print_page())
        self.assertTrue(paper.startswith(b"%PDF"))
        self.assertFalse(self.run_script(
            "return document.documentElement.classList.contains('printing')"))
        self.command("Emulation.setEmulatedMedia", media="print",
                     features=[{"name": "prefers-color-scheme", "value": "dark"}])
        self.assertEqual(self.colour("body", "backgroundColor"), "rgb(255, 255, 255)")
        self.assertFalse(self.find("header").is_displayed())
        self.assertTrue(self.find(".legend").is_displayed())
        self.command("Emulation.setDeviceMetricsOverride", width=718, height=1047,  # A4 and margins
                     deviceScaleFactor=1, mobile=True)
        self.assertLessEqual(self.run_script("return document.documentElement.scrollWidth"), 718)

    def test_it_says_when_there_is_no_javascript(self):
        self.command("Emulation.setScriptExecutionDisabled", value=True)
        self.driver.get("about:blank")
        self.driver.get(f"file://{self.page}")
        self.command("Emulation.setScriptExecutionDisabled", value=False)
        self.assertIn("needs JavaScript", self.find("noscript").text)

    def faults(self):
        """What axe finds, in short."""
        self.run_script((TOOLS / "node_modules/axe-core/axe.min.js").read_text())
        found = self.driver.execute_async_script(
            "const done = arguments[0]; axe.run(document, {resultTypes: ['violations']})"
            ".then((told) => done(told.violations.map((each) =>"
            " each.id + ': ' + each.nodes.map((node) => node.html).join('; '))))")
        return found

    def test_everybody_can_read_it(self):
        if not (TOOLS / "complete").exists():
            self.skipTest("axe-core is not there (npm)")
        self.driver.set_script_timeout(PATIENCE)
        self.graph()
        self.assertEqual(self.faults(), [])
        for details in self.all("details"):
            self.run_script("arguments[0].open = true", details)
        self.find("#wanted").send_keys("l")
        self.assertEqual(self.faults(), [])
        self.command("Emulation.setEmulatedMedia",
                     features=[{"name": "prefers-color-scheme", "value": "dark"}])
        self.assertEqual(self.faults(), [])
        self.command("Emulation.setDeviceMetricsOverride", width=360, height=740,
                     deviceScaleFactor=1, mobile=True)
        self.assertEqual(self.faults(), [])

    def test_what_the_page_becomes_is_valid(self):
        self.graph()
        self.find("#wanted").send_keys("l")
        path = self.folder / "rendered.html"
        path.write_text("<!DOCTYPE html>\n" + self.run_script(
            "document.querySelectorAll('script, style').forEach((each) => each.remove());"
            "return document.documentElement.outerHTML"))
        if shutil.which("tidy"):
            told = subprocess.run(["tidy", "-errors", "-quiet", "--custom-tags", "no", str(path)],
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
            self.assertNotIn("Error:", told.stdout.decode())
        if (TOOLS / "complete").exists():
            told = subprocess.run([str(TOOLS / "node_modules/.bin/html-validate"), "--config",
                                   f"{os.path.dirname(os.path.realpath(__file__))}/htmlvalidate.json",
                                   str(path)], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                  check=False)
            self.assertEqual(told.returncode, 0, told.stdout.decode())

    # ---- other boots

    def test_boot_in_which_nothing_ran_has_a_page(self):
        root = self.folder / "idle"
        boots.write_boot(root, {"left": ([], [], [])}, [("left", None, None)])
        self.open(self.make("idle.html", "--root", root))
        self.assertIn("nothing ran", self.text("h1"))
        self.is_chosen("left")
        self.assertIn("no messages were given", self.text("#problems"))

    def test_many_workers_and_failures_stay_in_bounds(self):
        root = self.folder / "wide"
        names = [f"plugin-{number}" for number in range(1200)]
        messages = boots.write_boot(root, {}, [(name, number, 5000) for number, name in enumerate(names)],
                                    "".join(f"bootforge: Bootforge plugin {name} activation failed: x\n"
                                            for name in names[:50]))
        self.open(self.make("wide.html", "--root", root, "--messages", messages))
        self.assertLess(self.find("canvas").size["height"], 5000)
        self.assertEqual(len(self.texts("#problems .bad > ul > li")), 20)
        self.assertEqual(self.text("#problems summary"), "30 more")
        self.assertIsNone(self.find("#problems details").get_attribute("open"))
        before = self.picture()
        self.find(".timeline").send_keys(Keys.END, Keys.ARROW_UP, "+")
        self.is_chosen("plugin-1198")
        self.assertNotEqual(self.picture(), before)

    def test_daemon_run_speaks_of_scripts(self):
        root = self.folder / "daemons"
        boots.write_boot(root, {}, [])
        log = root / "var/log/sysboot.log"
        log.write_text("".join(f"[{boots.stamp(start)} - {boots.stamp(end)}] daemon: {name}\n"
                               for name, start, end in (("sshd", 0, 500), ("cron", 600, 900),
                                                        ("late", 1000, 1200)))
                       + "=== Daemon configuration info ===\n"
                       f" Start Daemon: {boots.stamp(0)}\n End Daemon: {boots.stamp(900)}\n"
                       " Verbose: 0\n Parallel: 1\n Randomize: 0\n Interactive Mode: 0\n Random Seed: 5\n")
        levels = self.folder / "levels"
        levels.write_text("/etc/init.d/sshd 10\n/etc/init.d/cron 20\n/etc/init.d/late 30\n")
        self.open(self.make("daemons.html", "--root", root, "--daemons", "--init-list", levels))
        self.assertIn("Daemon run of", self.text("h1"))
        self.assertIn("All scripts", self.texts("h2"))
        self.assertEqual(self.column("plugin", 1), ["cron", "late"], "all higher levels wait for it")
        self.graph()
        Select(self.find("#graph-part")).select_by_value("whole")
        self.wait(lambda: self.text("#graph [role=status]") == "5 nodes, 4 edges.")


if __name__ == "__main__":
    PROGRAM = os.path.abspath(sys.argv.pop(1))
    TOOLS = Path(sys.argv.pop(1)) / "report-tools"
    unittest.main()
