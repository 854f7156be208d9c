#!/usr/bin/env python3
"""Opens a page of `tev-host plot` in a browser: page_test.py TEV_HOST MAKE_RECORDING CHROMIUM"""
import os
import socket
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.dirname(__file__))
from browser import Browser  # noqa: E402  (beside this file)

TEV_HOST, MAKE_RECORDING, CHROMIUM = sys.argv[1:4]
SAMPLES = 300_000
SPIKE_MS = 1_700_000_000_000 + SAMPLES // 3
GAP_MS = 1_700_000_000_000 + SAMPLES // 3 * 2
HOSTILE = '</script><script>document.title="x"</script><!--'

# The opaque pixels of a plot's canvas in a line's colour, from the top down to a value at a time.
PIXELS = """((card, ms, value) => {
  const plot = card.plots[0];
  const x = Math.round(plot.valToPos(ms, "x", true));
  const y = Math.round(plot.valToPos(value, "y", true));
  const image = plot.ctx.getImageData(x - 3, y - 2, 7, 12).data;
  let found = 0;
  for (let i = 0; i < image.length; i += 4) {
    const [r, g, b] = image.slice(i, i + 3);
    if (image[i + 3] > 100 && Math.max(r, g, b) - Math.min(r, g, b) > 60) ++found;
  }
  return found;
})"""
CARD = "tevPage.page.cards.find(card => card.field.name === '%s')"


class PageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = cls.enterClassContext(tempfile.TemporaryDirectory(prefix="tev-test-"))
        recording = os.path.join(cls.folder, "recording.tevcap")
        cls.path = os.path.join(cls.folder, "page.html")
        subprocess.run([MAKE_RECORDING, recording, str(SAMPLES)], check=True, timeout=120)
        subprocess.run([TEV_HOST, "plot", recording, "-o", cls.path, "--title", HOSTILE, "--page-size", "12M"],
                       check=True, timeout=120)
        cls.listener = socket.create_server(("127.0.0.1", 0))
        cls.listener.settimeout(0.5)
        cls.browser = cls.enterClassContext(Browser(CHROMIUM))

    def setUp(self):
        self.browser.events.clear()
        self.browser.call("Page.navigate", url="about:blank")
        self.browser.open(self.path)

    def card(self, name, rest):
        return self.browser.run(f"{CARD % name}{rest}")

    def test_texts_are_data(self):
        run = self.browser.run
        self.assertEqual(run("document.title"), HOSTILE)
        self.assertIn(HOSTILE, run("document.querySelector('h1').textContent"))
        self.assertEqual(run("document.querySelectorAll('.adapter')[1].querySelector('b').textContent"), HOSTILE)
        run("tevPage.page.select(1)")
        self.browser.idle()
        self.assertEqual(run("document.querySelector('.detailhead h2').textContent"), HOSTILE)
        self.assertEqual(run("document.querySelectorAll('img').length"), 0)
        self.assertIn("<img src=x", run("document.querySelector('.detail').textContent"))
        self.assertEqual(run("document.title"), HOSTILE)

    def test_no_request_leaves_the_page(self):
        address = "http://127.0.0.1:%d/" % self.listener.getsockname()[1]
        refused = self.browser.run(f"""(async () => {{
          const image = new Image();
          image.src = "{address}";
          document.body.append(image);
          return await fetch("{address}").then(() => "answered", () => "refused");
        }})()""")
        self.assertEqual(refused, "refused")
        with self.assertRaises(TimeoutError):
            self.listener.accept()
        sent = {one["params"]["requestId"]: one["params"]["request"]["url"] for one in self.browser.events
                if one["method"] == "Network.requestWillBeSent"}
        finished = [sent.get(one["params"]["requestId"], "unknown") for one in self.browser.events
                    if one["method"] == "Network.loadingFinished"]
        self.assertEqual([url for url in finished if url not in ("file://" + self.path, "about:blank")], [])
        errors = [one for one in self.browser.events if one["method"] == "Runtime.exceptionThrown"]
        self.assertEqual(errors, [])

    def test_one_sample_is_visible_at_every_level(self):
        levels = set()
        for span in (SAMPLES, SAMPLES / 4, SAMPLES / 20, SAMPLES / 100, 200):
            self.browser.run(f"tevPage.view.set({SPIKE_MS} - {span / 2}, {SPIKE_MS} + {span / 2})")
            self.browser.idle()
            levels.add(self.card("tx_bytes", ".samples.level"))
            for field, value in (("tx_bytes", 1e9), ("load", 90000)):
                card = CARD % field
                with self.subTest(span=span, field=field):
                    most = self.browser.run(f"Math.max(...{card}.samples.rows[2].first.filter(v => v > 0),"
                                            f"...{card}.samples.rows[2].second.filter(v => v > 0))")
                    self.assertAlmostEqual(most / value, 1, places=3)
                    self.assertGreater(self.browser.run(f"{PIXELS}({card}, {SPIKE_MS}, {value})"), 2)
                    beside = f"{SPIKE_MS} + {span / 10}"
                    self.assertEqual(self.browser.run(f"{PIXELS}({card}, {beside}, {value})"), 0)
        self.assertGreater(len(levels), 2)

    def test_zoom_and_pan(self):
        span = "tevPage.view.to - tevPage.view.from"
        whole = self.browser.run(span)
        coarse = self.card("tx_bytes", ".samples.level")
        box = self.browser.run("""(() => { const over = document.querySelector(".plot.main .u-over");
          over.scrollIntoView({ block: "center" });
          const box = over.getBoundingClientRect(); return [box.left, box.top, box.width, box.height]; })()""")
        middle = box[1] + box[3] / 2
        self.browser.drag((box[0] + box[2] * 0.4, middle), (box[0] + box[2] * 0.42, middle))
        self.assertAlmostEqual(self.browser.run(span) / whole, 0.02, delta=0.002)
        self.assertGreater(self.card("tx_bytes", ".samples.level"), coarse)
        self.assertEqual(len(set(self.browser.run(
            "tevPage.page.cards.filter(card => card.isVisible).flatMap(card => card.plots.map(plot => plot.scales.x.min))"))), 1)
        before = self.browser.run("tevPage.view.from")
        self.browser.key("ArrowRight")
        self.assertGreater(self.browser.run("tevPage.view.from"), before)
        self.browser.key("+")
        self.assertAlmostEqual(self.browser.run(span) / whole, 0.01, delta=0.002)
        self.browser.key("0")
        self.assertEqual(self.browser.run(span), whole)

    def test_gap_and_unknown_step_are_shaded(self):
        self.browser.run(f"tevPage.view.set({GAP_MS} - 100, {GAP_MS} + 200)")
        self.browser.idle()
        marks = self.browser.run(f"""(samples => Array.from(samples.marks, (marks, i) =>
          [Math.round(samples.time + (i + 0.5) * samples.width), marks]).filter(([, marks]) => marks & 17))
          ({CARD % "tx_bytes"}.samples)""")
        gap = [ms for ms, mark in marks if mark & 1]
        self.assertAlmostEqual(gap[0], GAP_MS + 1, delta=1)
        self.assertAlmostEqual(gap[-1], GAP_MS + 50, delta=1)
        self.assertEqual(len([ms for ms, mark in marks if mark & 16 and abs(ms - GAP_MS - 60) <= 1]), 1)
        self.assertTrue(self.card("tx_bytes", ".plots[0].data[1].includes(null)"))
        self.assertIn("50 missed, because a pass took too long",
                      self.browser.run("document.querySelector('.missing').textContent"))

    def test_theme_and_time(self):
        background = "getComputedStyle(document.body).backgroundColor"
        light = self.browser.run(background)
        self.browser.open(self.path, [("prefers-color-scheme", "dark")])
        self.assertNotEqual(self.browser.run(background), light)
        self.browser.key("t")
        self.assertEqual(self.browser.run(background), light)
        self.browser.call("Emulation.setTimezoneOverride", timezoneId="Asia/Kolkata")
        self.assertIn("22:13:19", self.browser.run("document.querySelector('.range').textContent"))
        self.browser.key("u")
        self.assertIn("2023-11-15 03:43:", self.browser.run("document.querySelector('.range').textContent"))
        self.assertIn("UTC+05:30", self.browser.run("document.querySelector('.range').textContent"))


unittest.main(argv=sys.argv[:1], verbosity=2)
