"""A browser without a window, as the distribution has it."""

import os
import shutil
import sys
import tempfile
import unittest
from pathlib import Path

SYSTEM_PYTHON = "/usr/bin/python3"  # to which the distribution's packages belong
SKIPPED = 77

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.options import Options
    from selenium.webdriver.chrome.service import Service
except ImportError:
    if os.path.realpath(sys.executable) != os.path.realpath(SYSTEM_PYTHON):
        os.execv(SYSTEM_PYTHON, [SYSTEM_PYTHON, "-B", *sys.argv])
    print("skipped: python3-selenium is missing (scripts/bootstrap installs it)")
    sys.exit(SKIPPED)
for program in ("chromium", "chromedriver"):
    if not shutil.which(program):
        print(f"skipped: {program} is missing (scripts/bootstrap installs it)")
        sys.exit(SKIPPED)

ARGUMENTS = ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
             "--no-first-run", "--disable-background-networking", "--disable-component-update",
             "--host-resolver-rules=MAP * ~NOTFOUND", "--force-device-scale-factor=1",
             "--window-size=1280,1000")


def start(folder):
    """A browser that keeps everything below a folder. The caller ends it."""
    home = Path(folder) / "browser"
    home.mkdir()
    options = Options()
    options.binary_location = shutil.which("chromium")
    for argument in (*ARGUMENTS, f"--user-data-dir={home}/profile"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    environment = {**os.environ, "HOME": str(home), "TMPDIR": str(home), "XDG_CONFIG_HOME": str(home),
                   "XDG_CACHE_HOME": str(home)}
    return webdriver.Chrome(options=options,
                            service=Service(shutil.which("chromedriver"), env=environment))


class BrowserTest(unittest.TestCase):
    """Tests with one browser and one folder for all; no test may make the page say anything."""

    @classmethod
    def setUpClass(cls):
        cls.folder = Path(tempfile.mkdtemp(prefix="report-test-"))
        cls.addClassCleanup(shutil.rmtree, cls.folder, ignore_errors=True)
        cls.driver = start(cls.folder)
        cls.addClassCleanup(cls.driver.quit)

    def tearDown(self):
        self.assertEqual(self.driver.get_log("browser"), [])

    def run_script(self, text, *arguments):
        return self.driver.execute_script(text, *arguments)

    def command(self, name, **parameters):
        return self.driver.execute_cdp_cmd(name, parameters)
