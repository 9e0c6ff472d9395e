"""Drives headless Chromium for the tests, by its own protocol over a pipe (--remote-debugging-pipe)."""
import base64
import json
import os
import pathlib
import select
import shutil
import subprocess
import tempfile
import time

CHROMIUM = shutil.which("chromium")


class Browser:
    """One page. `events`: what the browser has told of itself, as (method, parameters)."""

    def __init__(self):
        self.profile = tempfile.mkdtemp(prefix="kelvonclip browser ")
        to_browser, self.sending = os.pipe()
        self.receiving, from_browser = os.pipe()
        # The browser reads 3 and writes 4.
        shell = f"exec 3<&{to_browser} 4>&{from_browser}; exec \"$@\""
        self.process = subprocess.Popen(
            ["sh", "-c", shell, "sh", CHROMIUM, "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
             "--disable-dev-shm-usage", "--no-first-run", "--disable-background-networking",
             f"--user-data-dir={self.profile}", "--remote-debugging-pipe", "about:blank"],
            pass_fds=(to_browser, from_browser), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL)
        os.close(to_browser)
        os.close(from_browser)
        self.buffer, self.count, self.events, self.session = b"", 0, [], None
        target = self.ask("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.ask("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network", "DOM"):
            self.ask(domain + ".enable")

    def close(self):
        try:
            self.session = None
            self.ask("Browser.close")
            self.process.wait(20)
        except Exception:
            self.process.kill()
            self.process.wait()
        os.close(self.sending)
        os.close(self.receiving)
        shutil.rmtree(self.profile, ignore_errors=True)

    def ask(self, method, **parameters):
        self.count += 1
        message = {"id": self.count, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.sending, json.dumps(message).encode() + b"\0")
        while True:
            answer = self.receive()
            if answer.get("id") == self.count:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']['message']}")
                return answer["result"]

    def receive(self, seconds=60):
        end = time.monotonic() + seconds
        while b"\0" not in self.buffer:
            ready, _, _ = select.select([self.receiving], [], [], max(0, end - time.monotonic()))
            part = os.read(self.receiving, 1 << 20) if ready else b""
            if not part:
                raise RuntimeError("the browser does not answer")
            self.buffer += part
        message, self.buffer = self.buffer.split(b"\0", 1)
        message = json.loads(message)
        if "method" in message:
            self.events.append((message["method"], message["params"]))
        return message

    def show(self, path, width, dark=False, media="screen"):
        """Loads a file; `self.events` then has what happened meanwhile."""
        self.ask("Emulation.setDeviceMetricsOverride", width=width, height=900, deviceScaleFactor=1, mobile=False)
        self.ask("Emulation.setEmulatedMedia", media=media,
                 features=[{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])
        self.events.clear()
        self.ask("Page.navigate", url=pathlib.Path(path).absolute().as_uri())
        while not any(method == "Page.loadEventFired" for method, _ in self.events):
            self.receive()

    def value(self, script):
        """What a script gives in the page; it is the test's own and not bound by the page's policy."""
        done = self.ask("Runtime.evaluate", expression=script, returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in done:
            raise RuntimeError(done["exceptionDetails"]["text"])
        return done["result"].get("value")

    def press(self, key, code=None):
        for kind in ("rawKeyDown", "keyUp"):
            self.ask("Input.dispatchKeyEvent", type=kind, key=key, code=key, windowsVirtualKeyCode=code or 0)

    def picture(self, path):
        """A PNG of the whole page."""
        size = self.ask("Page.getLayoutMetrics")["cssContentSize"]
        clip = {"x": 0, "y": 0, "width": size["width"], "height": size["height"], "scale": 1}
        data = self.ask("Page.captureScreenshot", format="png", clip=clip, captureBeyondViewport=True)["data"]
        with open(path, "wb") as file:
            file.write(base64.b64decode(data))
