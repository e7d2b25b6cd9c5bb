"""Chromium without a window, spoken to by its debugging protocol."""

import base64
import json
import os
import shutil
import subprocess
import tempfile
import time

import websocket

DEADLINE = 60  # seconds; far more than anything here takes
KEYS = {"ArrowRight": 39, "ArrowLeft": 37, "ArrowUp": 38, "ArrowDown": 40, " ": 32, "Escape": 27, "Enter": 13, "Tab": 9}


class Page:
    """One tab. Whatever fails in its scripts is collected in `faults`."""

    def __init__(self, browser, session, target):
        self.browser, self.session, self.target = browser, session, target
        self.faults = []
        for domain in ("Page", "Runtime", "Log"):
            self.send(domain + ".enable")
        self.send("Emulation.setFocusEmulationEnabled", enabled=True)  # each has a screen of its own

    def send(self, method, **parameters):
        return self.browser.send(method, parameters, self.session)

    def open(self, url):
        self.send("Page.navigate", url=url)
        self.wait("document.readyState === 'complete' && location.href !== 'about:blank'")

    def run(self, script):
        """What an expression is worth; a promise is waited for."""
        answer = self.send("Runtime.evaluate", expression=script, returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in answer:
            raise AssertionError(f"{script}: {answer['exceptionDetails']}")
        return answer["result"].get("value")

    def wait(self, script):
        deadline = time.monotonic() + DEADLINE
        while not self.run(script):
            if time.monotonic() > deadline:
                raise AssertionError(f"{script} in vain; the page says: {self.run('document.body.innerText')}")
            time.sleep(0.02)

    def text(self, selector):
        return self.run(f"document.querySelector({json.dumps(selector)}).textContent")

    def wait_text(self, selector, text):
        self.wait(f"document.querySelector({json.dumps(selector)})?.textContent.includes({json.dumps(text)})")

    def place(self, selector, x=0.5, y=0.5):
        """A place within an element, in parts of it from its upper left corner."""
        self.wait(f"document.querySelector({json.dumps(selector)})?.checkVisibility()")
        box = self.run(f"(() => {{ const at = document.querySelector({json.dumps(selector)});"
                       "at.scrollIntoView({block: 'center'}); const b = at.getBoundingClientRect();"
                       "return [b.left, b.top, b.width, b.height]; })()")
        return box[0] + x * box[2], box[1] + y * box[3]

    def mouse(self, kind, place):
        self.send("Input.dispatchMouseEvent", type="mouse" + kind, x=place[0], y=place[1], button="left", buttons=1,
                  clickCount=1)

    def click(self, selector):
        place = self.place(selector)
        for kind in ("Moved", "Pressed", "Released"):
            self.mouse(kind, place)

    def touch(self, kind, *places):
        self.send("Input.dispatchTouchEvent", type="touch" + kind, touchPoints=[{"x": x, "y": y} for x, y in places])

    def key(self, kind, key):
        self.send("Input.dispatchKeyEvent", type="key" + kind, key=key, code="Space" if key == " " else key,
                  windowsVirtualKeyCode=KEYS[key], **({"text": "\r"} if key == "Enter" and kind == "Down" else {}))

    def write(self, selector, text):
        self.click(selector)
        self.run(f"document.querySelector({json.dumps(selector)}).select()")
        self.send("Input.insertText", text=text)

    def size(self, width, height, isTouch=False):
        self.send("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=isTouch)
        self.send("Emulation.setTouchEmulationEnabled", enabled=isTouch)

    def colours(self, scheme):
        self.send("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])

    def photograph(self, file):
        with open(file, "wb") as picture:
            picture.write(base64.b64decode(self.send("Page.captureScreenshot")["data"]))

    def close(self):
        self.browser.send("Target.closeTarget", {"targetId": self.target})


class Browser:
    def __init__(self, program=None):
        self.folder = tempfile.mkdtemp()
        program = program or next(filter(None, map(shutil.which, ("chromium", "chromium-browser", "google-chrome"))))
        self.process = subprocess.Popen(
            [program, "--headless=new", "--no-sandbox", "--disable-gpu", "--no-first-run", "--remote-debugging-port=0",
             "--remote-allow-origins=*", "--disable-background-networking", "--hide-scrollbars",
             "--user-data-dir=" + self.folder], stderr=subprocess.PIPE, text=True)
        address = next(line.split()[-1] for line in self.process.stderr if "DevTools listening" in line)
        self.socket = websocket.create_connection(address, timeout=DEADLINE)
        self.number, self.pages = 0, {}

    def send(self, method, parameters=None, session=None):
        self.number += 1
        message = {"id": self.number, "method": method, "params": parameters or {}}
        if session:
            message["sessionId"] = session
        self.socket.send(json.dumps(message))
        while True:
            answer = json.loads(self.socket.recv())
            if answer.get("id") == self.number:
                if "error" in answer:
                    raise AssertionError(f"{method}: {answer['error']}")
                return answer["result"]
            self.hear(answer)

    def hear(self, event):
        page = self.pages.get(event.get("sessionId"))
        if page and event["method"] == "Runtime.exceptionThrown":
            page.faults.append(event["params"]["exceptionDetails"])
        elif page and event["method"] == "Log.entryAdded" and event["params"]["entry"]["source"] == "security":
            page.faults.append(event["params"]["entry"])
        elif page and event["method"] == "Page.javascriptDialogOpening":
            self.number += 1
            self.socket.send(json.dumps({"id": self.number, "method": "Page.handleJavaScriptDialog",
                                         "params": {"accept": True}, "sessionId": event["sessionId"]}))

    def page(self, url):
        """With cookies of its own, as on another machine."""
        context = self.send("Target.createBrowserContext")["browserContextId"]
        target = self.send("Target.createTarget", {"url": "about:blank", "browserContextId": context})["targetId"]
        session = self.send("Target.attachToTarget", {"targetId": target, "flatten": True})["sessionId"]
        page = self.pages[session] = Page(self, session, target)
        page.open(url)
        return page

    def end(self):
        self.socket.close()
        self.process.terminate()
        self.process.wait(DEADLINE)
        self.process.stderr.close()
        shutil.rmtree(self.folder, ignore_errors=True)
