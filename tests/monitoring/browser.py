"""A browser without a window, driven by chromedriver."""

import base64
import json
import os
import shutil
import urllib.request

from monitor import Process, waitFor


class Browser:
    def __init__(self, directory, port):
        self.url = f"http://127.0.0.1:{port}"
        self.driver = Process(directory, "chromedriver", f"--port={port}")
        self.session = None
        waitFor(lambda: self.driver.hasEnded() or self.isReady(), "chromedriver is ready")
        # Root, as in a clean root, has no sandbox; and a small /dev/shm is no place for pages.
        arguments = ["--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu",
                     "--hide-scrollbars", f"--user-data-dir={os.path.join(directory, 'chromium')}"]
        answer = self.ask("", {"capabilities": {"alwaysMatch": {"goog:chromeOptions": {
            "binary": shutil.which("chromium"), "args": arguments}}}})
        self.session = answer["sessionId"]

    def isReady(self):
        try:
            return json.load(urllib.request.urlopen(self.url + "/status"))["value"]["ready"]
        except OSError:
            return False

    def ask(self, what, parameters):
        path = f"/session/{self.session}/{what}" if self.session else "/session"
        request = urllib.request.Request(self.url + path, json.dumps(parameters).encode(),
                                         {"Content-Type": "application/json"})
        with urllib.request.urlopen(request, timeout=60) as answer:
            return json.load(answer)["value"]

    def devtools(self, command, **parameters):
        return self.ask("goog/cdp/execute", {"cmd": command, "params": parameters})

    def looks(self, width, scheme="light"):
        """The width of the window in pixels, and the colours that the user prefers."""
        self.devtools("Emulation.setDeviceMetricsOverride", width=width, height=900,
                      deviceScaleFactor=1, mobile=False)
        self.devtools("Emulation.setEmulatedMedia", media="screen",
                      features=[{"name": "prefers-color-scheme", "value": scheme}])

    def open(self, url):
        self.ask("url", {"url": url})

    def script(self, text):
        return self.ask("execute/sync", {"script": text, "args": []})

    def texts(self, selector):
        """What is to be read in each element, spaces and lines as one space."""
        return self.script("return Array.from(document.querySelectorAll(%s), element => "
                           "element.innerText.replace(/\\s+/g, ' ').trim())" % json.dumps(selector))

    def picture(self, file):
        """The page as PNG, less what is below 1800 pixels."""
        height = min(self.script("return document.documentElement.scrollHeight"), 1800)
        width = self.script("return window.innerWidth")
        shot = self.devtools("Page.captureScreenshot", format="png", captureBeyondViewport=True,
                             clip={"x": 0, "y": 0, "width": width, "height": height, "scale": 1})
        with open(file, "wb") as output:
            output.write(base64.b64decode(shot["data"]))

    def close(self):
        """Ends the browser with its driver."""
        if self.session:
            request = urllib.request.Request(f"{self.url}/session/{self.session}", method="DELETE")
            urllib.request.urlopen(request, timeout=60).close()
        self.driver.stopped()
        self.driver.close()
