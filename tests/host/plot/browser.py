"""A headless Chromium, driven over the DevTools protocol through a pair of pipes."""
import base64
import json
import os
import shutil
import signal
import subprocess
import tempfile
import time

OPTIONS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
           "--disable-background-networking", "--disable-component-update", "--disable-sync",
           "--disable-dev-shm-usage", "--remote-debugging-pipe"]


class Browser:
    def __init__(self, program, width=1400, height=1000):
        self.profile = tempfile.mkdtemp(prefix="tev-test-")
        commands, self.out = os.pipe()
        self.answers, answers = os.pipe()

        def takes_3_and_4():  # the browser reads commands at 3 and answers at 4
            high = [os.dup2(commands, 103), os.dup2(answers, 104)]
            for number, one in zip((3, 4), high):
                os.dup2(one, number)
            os.closerange(5, 200)

        self.process = subprocess.Popen(
            [program, *OPTIONS, "--user-data-dir=" + self.profile, f"--window-size={width},{height}"],
            close_fds=False, preexec_fn=takes_3_and_4, stderr=subprocess.DEVNULL, start_new_session=True)
        os.close(commands)
        os.close(answers)
        self.number = 0
        self.pending = b""
        self.session = None
        self.events = []
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Network"):
            self.call(domain + ".enable")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait()
        shutil.rmtree(self.profile, ignore_errors=True)

    def call(self, method, **parameters):
        self.number += 1
        message = {"id": self.number, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.out, json.dumps(message).encode() + b"\0")
        while True:
            while b"\0" not in self.pending:
                part = os.read(self.answers, 1 << 20)
                assert part, "the browser has ended"
                self.pending += part
            line, self.pending = self.pending.split(b"\0", 1)
            answer = json.loads(line)
            if answer.get("id") == self.number:
                assert "error" not in answer, answer
                return answer["result"]
            self.events.append(answer)

    def run(self, script):
        """The value of an expression in the page; a promise is awaited."""
        result = self.call("Runtime.evaluate", expression=script, awaitPromise=True, returnByValue=True)
        assert "exceptionDetails" not in result, result
        return result["result"].get("value")

    def wait(self, condition, seconds=60):
        end = time.monotonic() + seconds
        while not self.run(condition):
            assert time.monotonic() < end, "waited in vain: " + condition
            time.sleep(0.05)

    def open(self, path, media=()):
        self.call("Emulation.setEmulatedMedia",
                  features=[{"name": name, "value": value} for name, value in media])
        self.call("Page.navigate", url="file://" + os.path.abspath(path))
        self.idle()

    def idle(self):
        """Waits until the page has drawn everything."""
        self.wait("!!window.tevPage && tevPage.isIdle() && tevPage.page.cards.some(card => card.samples)")
        self.run("new Promise(done => requestAnimationFrame(() => requestAnimationFrame(done)))")

    def key(self, key):
        self.call("Input.dispatchKeyEvent", type="keyDown", key=key, text=key if len(key) == 1 else "")
        self.call("Input.dispatchKeyEvent", type="keyUp", key=key)
        self.idle()

    def drag(self, start, end):
        for kind, (x, y) in (("mouseMoved", start), ("mousePressed", start), ("mouseMoved", end),
                             ("mouseReleased", end)):
            self.call("Input.dispatchMouseEvent", type=kind, x=x, y=y, button="left", clickCount=1,
                      buttons=0 if kind == "mouseReleased" else 1)
        self.idle()

    def screenshot(self, path):
        with open(path, "wb") as file:
            file.write(base64.b64decode(self.call("Page.captureScreenshot", format="png")["data"]))
