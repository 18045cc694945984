"""A headless Chromium, driven over its own DevTools protocol (https://chromedevtools.github.io/devtools-protocol/).

Through a pair of pipes, a JSON message and a zero byte each: no port, no driver program, the standard library alone.
"""

import base64
import json
import os
import pathlib
import select
import shutil
import signal
import subprocess
import tempfile
import time

LATEST_S = 60
# What is a character by itself needs no number.
KEYS = {"Tab": 9, "PageDown": 34, "End": 35, "Home": 36, "ArrowRight": 39, "ArrowDown": 40}
CTRL = 2


class Browser:
    """Used in a with statement, behind which it has ended and left nothing."""

    def __enter__(self):
        executable = shutil.which("chromium") or shutil.which("chromium-browser")
        if executable is None:
            raise RuntimeError("there is no chromium: scripts/setup installs it")
        self.folder = tempfile.TemporaryDirectory(prefix="corvanth-browser-", ignore_cleanup_errors=True)
        theirs_in, self.out = os.pipe()
        self.source, theirs_out = os.pipe()
        # A shell puts the pipes where the browser looks for them; the tests may run as root and without /dev/shm.
        self.process = subprocess.Popen(
            ["sh", "-c", f'exec "$@" 3<&{theirs_in} 4>&{theirs_out}', "sh", executable, "--headless=new",
             "--remote-debugging-pipe", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu",
             "--no-first-run", "--disable-background-networking", "--disable-component-update",
             "--hide-scrollbars", "--force-device-scale-factor=1", f"--user-data-dir={self.folder.name}"],
            pass_fds=(theirs_in, theirs_out), start_new_session=True,
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            env={**os.environ, "HOME": self.folder.name})
        os.close(theirs_in)
        os.close(theirs_out)
        self.unread = b""
        self.number = 0
        self.on_event = lambda session, method, parameters: None
        return self

    def __exit__(self, *_):
        os.killpg(self.process.pid, signal.SIGKILL)  # its own group: what it started, too
        self.process.wait()
        os.close(self.out)
        os.close(self.source)
        self.folder.cleanup()

    def _receive(self, until):
        while b"\0" not in self.unread:
            if not select.select([self.source], [], [], max(0, until - time.monotonic()))[0]:
                raise RuntimeError("the browser does not answer")
            part = os.read(self.source, 1 << 20)
            if not part:
                raise RuntimeError("the browser has ended")
            self.unread += part
        message, self.unread = self.unread.split(b"\0", 1)
        return json.loads(message)

    def call(self, method, session=None, **parameters):
        """The answer to one request; events that come before it are handed on."""
        self.number += 1
        request = {"id": self.number, "method": method, "params": parameters}
        if session:
            request["sessionId"] = session
        os.write(self.out, json.dumps(request).encode() + b"\0")
        until = time.monotonic() + LATEST_S
        while True:
            message = self._receive(until)
            if message.get("id") == self.number:
                if "error" in message:
                    raise RuntimeError(f"{method}: {message['error']['message']}")
                return message["result"]
            if "method" in message:
                self.on_event(message.get("sessionId"), message["method"], message["params"])


class Page:
    """One tab. `faults` gathers what no page may do: errors, warnings, exceptions, requests."""

    def __init__(self, browser):
        self.browser = browser
        self.faults = []
        target = browser.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = browser.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        browser.on_event = self._on_event
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.call(domain + ".enable")

    def call(self, method, **parameters):
        return self.browser.call(method, self.session, **parameters)

    def _on_event(self, session, method, parameters):
        if session != self.session:
            return
        if method == "Runtime.exceptionThrown":
            details = parameters["exceptionDetails"]
            self.faults.append(details.get("exception", {}).get("description", details["text"]))
        elif method == "Runtime.consoleAPICalled" and parameters["type"] in ("error", "warning", "assert"):
            self.faults.append("console: " + str([each.get("value") for each in parameters["args"]]))
        elif method == "Log.entryAdded" and parameters["entry"]["level"] in ("error", "warning"):
            self.faults.append("log: " + parameters["entry"]["text"])
        elif method == "Network.requestWillBeSent":
            url = parameters["request"]["url"]
            if not url.startswith(("file:", "data:")) or parameters.get("type") not in ("Document", "Other"):
                self.faults.append("request: " + url)

    def show(self, width, height, dark=False):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)
        self.call("Emulation.setEmulatedMedia",
                  features=[{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])
        self.settle()

    def open(self, path, ready="document.readyState === 'complete'"):
        self.call("Page.navigate", url=pathlib.Path(path).resolve().as_uri())
        until = time.monotonic() + LATEST_S
        while not self.evaluate(ready):
            if time.monotonic() > until:
                raise RuntimeError(f"{path} is not ready: {self.faults}")
            time.sleep(0.02)
        self.settle()

    def evaluate(self, expression):
        """Its value; what is promised is waited for."""
        result = self.call("Runtime.evaluate", expression=expression, returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in result:
            raise RuntimeError(f"{expression}: {result['exceptionDetails']['exception']['description']}")
        return result["result"].get("value")

    def settle(self):
        """What was asked to be drawn is drawn."""
        self.evaluate("new Promise(done => requestAnimationFrame(() => requestAnimationFrame(() => done(1))))")

    def press(self, key, modifiers=0):
        event = {"key": key, "code": key, "modifiers": modifiers}
        if key in KEYS:
            event["windowsVirtualKeyCode"] = KEYS[key]
        else:
            event["text"] = key
        self.call("Input.dispatchKeyEvent", type="keyDown" if "text" in event else "rawKeyDown", **event)
        self.call("Input.dispatchKeyEvent", type="keyUp", **{k: v for k, v in event.items() if k != "text"})
        self.settle()

    def mouse(self, kind, x, y, **more):
        self.call("Input.dispatchMouseEvent", type="mouse" + kind, x=x, y=y, **more)

    def point(self, x, y):
        self.mouse("Moved", x, y)
        self.settle()

    def double_click(self, x, y):
        for kind in ("Pressed", "Released"):
            self.mouse(kind, x, y, button="left", clickCount=2)
        self.settle()

    def drag(self, x, y, to_x):
        self.mouse("Moved", x, y)
        for kind, at in (("Pressed", x), ("Moved", (x + to_x) / 2), ("Moved", to_x), ("Released", to_x)):
            self.mouse(kind, at, y, button="left", buttons=1, clickCount=1)
        self.settle()

    def wheel(self, x, y, turned, modifiers=0):
        self.mouse("Wheel", x, y, deltaX=0, deltaY=turned, modifiers=modifiers)
        self.settle()

    def screenshot(self, path):
        """All of the page, not only what fits."""
        size = self.call("Page.getLayoutMetrics")["cssContentSize"]
        shot = self.call("Page.captureScreenshot", captureBeyondViewport=True,
                         clip={"x": 0, "y": 0, "width": size["width"], "height": size["height"], "scale": 1})
        pathlib.Path(path).write_bytes(base64.b64decode(shot["data"]))
