"""A browser without a window, through its driver, for tests of pages."""
import json
import os
import pathlib
import shutil
import subprocess
import sys

PROGRAMS = ("chromium", "chromedriver")
TASK, FRAME = "ThreadControllerImpl::RunTask", "ScheduledActionSendBeginMainFrame"  # as the browser's traces call them


def missing():
    """What the tests of pages need and this machine lacks; "" where all is there."""
    lacks = [program for program in PROGRAMS if not shutil.which(program)]
    try:
        import selenium  # noqa: F401
    except ImportError:
        lacks.append("selenium")
    return ", ".join(lacks)


def run(*command, allowed=(0,)):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True)
    assert done.returncode in allowed, f"{command}: {done.stdout}{done.stderr}"
    return done.stdout


class Browser:
    """One window. `downloads` is where files are saved."""

    def __init__(self, downloads, traced=False):
        from selenium import webdriver
        from selenium.webdriver.chrome.service import Service

        options = webdriver.ChromeOptions()
        options.binary_location = shutil.which("chromium")
        for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu"):
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"} | ({"performance": "ALL"} if traced else {}))
        if traced:
            options.add_experimental_option(
                "perfLoggingPrefs", {"enableNetwork": False, "enablePage": False, "traceCategories": "toplevel"})
        self.driver = webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)
        self.downloads = pathlib.Path(downloads)
        self.command("Browser.setDownloadBehavior", behavior="allow", downloadPath=str(downloads))
        self.command("Performance.enable", timeDomain="threadTicks")
        self.shape(1280, 900)

    def command(self, name, **arguments):
        return self.driver.execute_cdp_cmd(name, arguments)

    def shape(self, width, height, scheme="light"):
        self.command("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)
        self.command("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])

    def open(self, path, fragment=""):
        self.driver.get("about:blank")  # else a new fragment alone would not load the page again
        self.driver.get(pathlib.Path(path).resolve().as_uri() + fragment)
        self.settle()

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def settle(self):
        """Until two frames are drawn."""
        self.driver.execute_async_script("requestAnimationFrame(() => requestAnimationFrame(arguments[0]))")

    def find(self, selector):
        return self.driver.find_elements("css selector", selector)

    def texts(self, selector):
        return self.run("return [...document.querySelectorAll(arguments[0])].map((e) => e.textContent)", selector)

    def click(self, element):
        self.run("arguments[0].click()", element if not isinstance(element, str) else self.find(element)[0])
        self.settle()

    def keys(self, selector, *keys):
        """Typed while the element has the focus."""
        from selenium.webdriver.common.keys import Keys

        self.run("document.querySelector(arguments[0]).focus()", selector)
        for key in keys:
            self.driver.switch_to.active_element.send_keys(getattr(Keys, key, key))
            self.settle()

    def mouse(self, kind, x, y, **more):
        self.command("Input.dispatchMouseEvent", type=kind, x=x, y=y, **more)
        self.settle()

    def drag(self, start, end):
        self.mouse("mousePressed", *start, button="left", clickCount=1)
        self.mouse("mouseMoved", (start[0] + end[0]) / 2, (start[1] + end[1]) / 2, button="left", buttons=1)
        self.mouse("mouseMoved", *end, button="left", buttons=1)
        self.mouse("mouseReleased", *end, button="left", clickCount=1)

    def saved(self, selector):
        """The text of the file that a click saves."""
        from selenium.webdriver.support.ui import WebDriverWait

        for old in self.downloads.iterdir():
            old.unlink()
        self.click(selector)
        done = lambda _: [p for p in self.downloads.iterdir() if p.suffix == ".csv"]  # noqa: E731
        return WebDriverWait(self.driver, 10).until(done)[0].read_text(encoding="utf-8")

    def problems(self):
        """What the page complained of, and what it asked for besides files of its own."""
        asked = self.run("return performance.getEntriesByType('resource').map((entry) => entry.name)")
        said = [entry["message"] for entry in self.driver.get_log("browser")]
        return [message for message in said if "willReadFrequently" not in message] + [  # a hint to the tests
            name for name in asked if not name.startswith(("file:", "data:"))]

    def work(self, kind):
        """Milliseconds of the processor that this window's page has worked: other programs do not count."""
        metrics = self.command("Performance.getMetrics")["metrics"]
        return next(1000 * metric["value"] for metric in metrics if metric["name"] == kind)

    def work_for(self, act):
        before = self.work("TaskDuration")
        act()
        self.settle()
        return self.work("TaskDuration") - before

    def longest_task(self):
        """Milliseconds of the processor that the longest task of a page has worked since this was asked last. For a
        browser that is traced."""
        messages = [json.loads(entry["message"])["message"] for entry in self.driver.get_log("performance")]
        tasks = [message["params"] for message in messages if message["params"].get("name") == TASK]
        pages = {task["tid"] for task in tasks if task["args"].get("src_func") == FRAME}
        return max(task.get("tdur", 0) / 1000 for task in tasks if task["tid"] in pages)

    def close(self):
        self.driver.quit()


def skip_if_missing():
    """Ends the program with 0 where the browser is missing and that is allowed, noted in $QUILLON_SKIPPED."""
    lacks = missing()
    noted = os.environ.get("QUILLON_SKIPPED")
    if lacks and noted:
        with open(noted, "a", encoding="utf-8") as file:
            file.write(f"tests in a browser: {lacks} missing\n")
        print(f"left out: {lacks} missing")
        sys.exit(0)
