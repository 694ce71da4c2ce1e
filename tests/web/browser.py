"""A Chromium that is driven over a pipe by its own protocol: no driver, no port."""
import base64
import json
import os
import shutil
import subprocess
import tempfile
import threading
import time

PATIENCE = 60


class Browser:
    """One thread uses it; what the browser says by itself is collected by another."""

    def __init__(self, folder, width=412, height=915):
        self.profile = tempfile.mkdtemp(prefix="profile-", dir=folder)
        to_browser, self.write_end = os.pipe()
        self.read_end, from_browser = os.pipe()

        def wire():  # the protocol's descriptors are 3 and 4
            os.dup2(to_browser, 20)
            os.dup2(from_browser, 21)
            os.dup2(20, 3)
            os.dup2(21, 4)

        flags = ["--headless=new", "--no-sandbox", "--disable-gpu", "--no-first-run",
                 "--disable-background-networking", "--disable-component-update", "--disable-sync",
                 "--disable-extensions", "--remote-debugging-pipe",
                 f"--window-size={width},{height}", "--user-data-dir=" + self.profile]
        with open(os.path.join(folder, "chromium.log"), "ab") as log:
            self.process = subprocess.Popen(["chromium", *flags, "about:blank"], preexec_fn=wire,
                                            close_fds=False, stdin=subprocess.DEVNULL, stdout=log,
                                            stderr=log)
        os.close(to_browser)
        os.close(from_browser)
        self.number = 0
        self.answers = {}
        self.complaints = []  # of the page: exceptions, refused resources
        self.ended = False
        self.changed = threading.Condition()
        threading.Thread(target=self._read, daemon=True).start()
        self.call("Browser.getVersion")
        target = next(one for one in self.call("Target.getTargets")["targetInfos"]
                      if one["type"] == "page")
        self.page = self._attach(target["targetId"])

    def _attach(self, target):
        return Page(self, target, self.call("Target.attachToTarget", targetId=target,
                                            flatten=True)["sessionId"])

    def another_page(self):
        """In a window of its own, so that it hides no other."""
        return self._attach(self.call("Target.createTarget", url="about:blank",
                                      newWindow=True)["targetId"])

    def renderers(self):
        """The process ids of those that draw pages."""
        infos = self.call("SystemInfo.getProcessInfo")["processInfo"]
        return [one["id"] for one in infos if one["type"] == "renderer"]

    def _read(self):
        rest = b""
        while True:
            data = os.read(self.read_end, 1 << 20)
            if not data:
                with self.changed:
                    self.ended = True
                    self.changed.notify_all()
                return
            *messages, rest = (rest + data).split(b"\0")
            for message in messages:
                self._take(json.loads(message))

    def _take(self, message):
        method, params = message.get("method"), message.get("params", {})
        with self.changed:
            if "id" in message:
                self.answers[message["id"]] = message
                self.changed.notify_all()
            elif method == "Runtime.exceptionThrown":
                self.complaints.append(json.dumps(params["exceptionDetails"])[:400])
            elif method == "Log.entryAdded" and params["entry"]["level"] == "error":
                entry = params["entry"]
                self.complaints.append(entry["text"] + " " + entry.get("url", ""))

    def call(self, method, session=None, **params):
        self.number += 1
        number = self.number
        message = {"id": number, "method": method, "params": params}
        if session:
            message["sessionId"] = session
        os.write(self.write_end, json.dumps(message).encode() + b"\0")
        with self.changed:
            if not self.changed.wait_for(lambda: number in self.answers or self.ended, PATIENCE):
                raise TimeoutError(method)
            answer = self.answers.pop(number, {"error": "the browser has ended"})
        if "error" in answer:
            raise RuntimeError(f"{method}: {answer['error']}")
        return answer["result"]

    def close(self):
        try:
            self.call("Browser.close")
            self.process.wait(10)
        except (RuntimeError, TimeoutError, OSError, subprocess.TimeoutExpired):
            self.process.kill()
            self.process.wait()
        shutil.rmtree(self.profile, ignore_errors=True)


class Page:
    def __init__(self, browser, target, session):
        self.browser = browser
        self.target = target
        self.session = session
        for domain in ("Page", "Runtime", "Log"):
            self.call(domain + ".enable")

    def call(self, method, **params):
        return self.browser.call(method, session=self.session, **params)

    def close(self):
        self.browser.call("Target.closeTarget", targetId=self.target)

    def go(self, address):
        self.call("Page.navigate", url=address)

    def run(self, script):
        """The value of an expression; a promise's result."""
        done = self.call("Runtime.evaluate", expression=script, awaitPromise=True,
                         returnByValue=True, userGesture=True)
        if "exceptionDetails" in done:
            raise RuntimeError(json.dumps(done["exceptionDetails"])[:600])
        return done["result"].get("value")

    def click(self, element):
        """As a finger would: where the element is, if nothing covers it."""
        place = self.run(f"""(() => {{
            const r = document.getElementById('{element}').getBoundingClientRect();
            return [r.x + r.width / 2, r.y + r.height / 2]; }})()""")
        for kind in ("mousePressed", "mouseReleased"):
            self.call("Input.dispatchMouseEvent", type=kind, x=place[0], y=place[1], button="left",
                      clickCount=1)

    def choose(self, element, value):
        self.run(f"""(() => {{ const e = document.getElementById('{element}'); e.value = '{value}';
            e.dispatchEvent(new Event('change')); }})()""")

    def wait(self, condition, seconds=20):
        """The seconds until the expression was true; nothing if it wasn't."""
        began = time.monotonic()
        while time.monotonic() - began < seconds:
            try:
                if self.run(condition):
                    return time.monotonic() - began
            except RuntimeError as error:
                if "veldrift" not in str(error):  # the page isn't there yet
                    raise
            time.sleep(0.02)
        return None

    def size(self, width, height, mobile=True):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height,
                  deviceScaleFactor=2, mobile=mobile)

    def shot(self, path):
        with open(path, "wb") as file:
            file.write(base64.b64decode(self.call("Page.captureScreenshot", format="png")["data"]))
