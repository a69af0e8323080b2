"""A real browser without a window, and the lab's page in it."""

import base64
import contextlib
import importlib.util
import io
import os
import shutil
import signal
import tempfile

from .processes import command_line, descendants
from .waiting import eventually


def what_is_missing():
    """The Debian packages that these need and this machine hasn't."""
    there = {
        "chromium": shutil.which("chromium"),
        "chromium-driver": shutil.which("chromedriver"),
        "python3-selenium": importlib.util.find_spec("selenium"),
    }
    return [package for package, found in there.items() if not found]


OPTIONS = ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
           "--disable-component-update", "--disable-sync", "--disable-dev-shm-usage", "--disable-extensions",
           "--disable-default-apps", "--no-proxy-server", "--mute-audio", "--hide-scrollbars", "--force-device-scale-factor=1")


class Browser:
    """Chromium, driven by selenium. Its profile is new, and is removed with it."""

    def __init__(self, width=1400, height=900):
        from selenium import webdriver
        from selenium.webdriver.chrome.service import Service
        self._profile = tempfile.mkdtemp(prefix="zel-browser-")
        options = webdriver.ChromeOptions()
        for option in (*OPTIONS, f"--window-size={width},{height}", f"--user-data-dir={self._profile}"):
            options.add_argument(option)
        options.binary_location = shutil.which("chromium")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.driver = webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)
        self.driver.set_script_timeout(30)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        with contextlib.suppress(Exception):  # it may have ended, and its profile has to go in any case
            self.driver.quit()
        shutil.rmtree(self._profile, ignore_errors=True)

    @contextlib.contextmanager
    def stopped(self):
        """The processes of the pages stand still, as on a machine that is busy or asleep."""
        pids = [pid for pid in descendants(self.driver.service.process.pid) if "--type=renderer" in " ".join(command_line(pid))]
        assert pids
        for pid in pids:
            os.kill(pid, signal.SIGSTOP)
        try:
            yield
        finally:
            for pid in pids:
                os.kill(pid, signal.SIGCONT)

    def devtools(self, command, **parameters):
        return self.driver.execute_cdp_cmd(command, parameters)

    def complaints(self):
        """What the pages have written to the browser's console since the last call: errors, refused resources."""
        return [entry["message"] for entry in self.driver.get_log("browser") if entry["level"] == "SEVERE"]

    def new_page(self, url):
        """Opens the lab in a tab of its own."""
        self.driver.switch_to.new_window("tab")
        self.driver.get(url)
        return Page(self, self.driver.current_window_handle)


class Page:
    """The lab's page in one tab of a Browser."""

    def __init__(self, browser, window):
        self.browser = browser
        self._window = window

    @property
    def driver(self):
        if self.browser.driver.current_window_handle != self._window:
            self.browser.driver.switch_to.window(self._window)
        return self.browser.driver

    def close(self):
        self.driver.close()
        self.browser.driver.switch_to.window(self.browser.driver.window_handles[0])

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def find(self, selector):
        return self.driver.find_element("css selector", selector)

    def all(self, selector):
        return self.driver.find_elements("css selector", selector)

    def text(self, selector):
        """The text of the first element, empty without one."""
        return self.run("return document.querySelector(arguments[0])?.textContent ?? ''", selector)

    def texts(self, selector):
        return self.run("return [...document.querySelectorAll(arguments[0])].map((each) => each.textContent)", selector)

    def picture(self, canvas):
        """What a canvas shows, as a PIL image."""
        from PIL import Image
        address = self.run("return document.querySelector(arguments[0]).toDataURL('image/png')", canvas)
        return Image.open(io.BytesIO(base64.b64decode(address.partition(",")[2]))).convert("RGB")

    def await_text(self, selector, text):
        """Waits until one of the elements contains the text."""
        return eventually(lambda: next((each for each in self.texts(selector) if text in each), None), f'"{text}" in {selector}')

    def show(self, panel):
        self.find(f"#tab-{panel}").click()

    def press(self, panel, text):
        """Clicks on the button of a panel by its text."""
        for button in self.all(f"#{panel} button"):
            if button.text == text and button.is_displayed():
                return button.click()
        raise AssertionError(f'no button "{text}" in the panel {panel}')

    def fill(self, selector, text):
        control = self.find(selector)
        control.clear()
        control.send_keys(text)

    def choose(self, selector, text):
        """Chooses the first option of a list that contains the text."""
        for option in self.all(f"{selector} option"):
            if text in option.text:
                return option.click()
        raise AssertionError(f"no choice {text} in {selector}")

    def await_connected(self):
        eventually(lambda: "connected" in self.texts("#pills .pill"), "the page to be connected")
        return self
