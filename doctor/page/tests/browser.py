"""A page in headless Chromium, as a reader meets it."""

import base64
import json
import pathlib
import tempfile

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By

ARGUMENTS = ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
             "--disable-component-update", "--disable-sync")


class Browser:
    """One Chromium with a profile of its own. Close it."""

    def __init__(self):
        self.profile = tempfile.TemporaryDirectory()
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for argument in (*ARGUMENTS, f"--user-data-dir={self.profile.name}"):
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        self.driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        self.driver.set_script_timeout(60)

    def close(self):
        self.driver.quit()
        self.profile.cleanup()

    def command(self, name, **arguments):
        return self.driver.execute_cdp_cmd(name, arguments)

    def open(self, page, width=1400, height=1000, scheme="light"):
        self.command("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)
        self.prefer(scheme)
        self.driver.get_log("browser")
        self.driver.get_log("performance")
        self.driver.get(pathlib.Path(page).resolve().as_uri())

    def prefer(self, scheme):
        self.command("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])

    def console(self):
        return [entry["message"] for entry in self.driver.get_log("browser")]

    def requests(self):
        """The addresses that were asked for since the page was opened."""
        events = (json.loads(entry["message"])["message"] for entry in self.driver.get_log("performance"))
        return [event["params"]["request"]["url"] for event in events if event["method"] == "Network.requestWillBeSent"]

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def one(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def texts(self, selector):
        """What stands in all of them at one moment: the page may write them anew at any time."""
        return [" ".join(text.split()) for text in self.run(
            "return [...document.querySelectorAll(arguments[0])].map(found => found.innerText)", selector)]

    def text(self, selector):
        return self.one(selector).text

    def actions(self):
        return ActionChains(self.driver, duration=0)

    def press(self, *keys):
        self.actions().send_keys(*keys).perform()
        self.frame()

    def frame(self):
        """Waits until what was asked for is drawn."""
        self.driver.execute_async_script("const done = arguments[0]; requestAnimationFrame(() => requestAnimationFrame(() => done()));")

    def picture(self, path):
        """The whole page, not only what is in the window."""
        width, height = self.run("return [document.documentElement.clientWidth, document.documentElement.scrollHeight]")
        self.frame()
        clip = {"x": 0, "y": 0, "width": width, "height": height, "scale": 1}
        shot = self.command("Page.captureScreenshot", captureBeyondViewport=True, clip=clip)
        pathlib.Path(path).write_bytes(base64.b64decode(shot["data"]))

    def processor_time(self):
        """Seconds of the page's own thread since it was opened; call once before opening."""
        self.command("Performance.enable", timeDomain="threadTicks")
        metrics = {metric["name"]: metric["value"] for metric in self.command("Performance.getMetrics")["metrics"]}
        return metrics["TaskDuration"]
