"""The pages of `corvanth analyse --plot` and `corvanth evaluate --plot` in a browser, as a person uses them.

Usage: pages_test.py FOLDER_OF_EXECUTABLES FOLDER_FOR_PICTURES [TEST...]
"""

import csv
import json
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest
import wave

import devtools

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))
import demo_calls  # noqa: E402

BIN = PICTURES = None
FRAME_S = 0.016
LEFT, RIGHT = 52, 12  # pixels beside the charts' time
# An end of the page's script, markup, quotes: a name like any other.
HOSTILE = "</script><b onclick=alert(1)>'&amp;\u2028"
COLUMNS = {"Amplitude": "amplitude", "Spectral deviation": "deviation", "Weighted power": "weighted_power"}


def corvanth(*arguments):
    done = subprocess.run([BIN / "corvanth", *map(str, arguments)], capture_output=True, text=True, timeout=120)
    assert done.returncode == 0, done.stderr
    return done.stdout


def prompts(folder, least_s):
    """Paths, by name, of prompts at least that long."""
    for path in sorted(folder.glob("*.wav")):
        with wave.open(str(path)) as file:
            if file.getnframes() >= least_s * demo_calls.RATE:
                yield path


def contrast(a, b):
    """WCAG 2.1, 1.4.3."""

    def luminance(colour):
        parts = [int(colour[i : i + 2], 16) / 255 for i in (1, 3, 5)]
        linear = [p / 12.92 if p <= 0.04045 else ((p + 0.055) / 1.055) ** 2.4 for p in parts]
        return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]

    low, high = sorted((luminance(a), luminance(b)))
    return (high + 0.05) / (low + 0.05)


class PageTest(unittest.TestCase):
    READY = "document.readyState === 'complete'"

    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory(prefix="corvanth-pages-")))
        cls.rules = cls.folder / "rules.json"
        cls.page_path = cls.folder / "page.html"
        cls.browser = cls.enterClassContext(devtools.Browser())
        cls.make_page()

    @classmethod
    def make_page(cls):
        pass

    def open(self, width=1280, dark=False):
        page = devtools.Page(self.browser)
        page.show(width, 900, dark)
        page.open(self.page_path, self.READY)
        self.addCleanup(lambda: self.assertEqual(page.faults, []))
        return page

    def pictures(self, name, prepare=lambda page: None):
        """In both themes, wide and narrow; what would make a picture useless is checked."""
        PICTURES.mkdir(parents=True, exist_ok=True)
        for dark, width in ((False, 1280), (False, 400), (True, 1280), (True, 400)):
            page = self.open(width, dark)
            prepare(page)
            page.evaluate("scrollTo(0, 0)")
            page.settle()
            page.screenshot(PICTURES / f"{name}-{'dark' if dark else 'light'}-{width}.png")
            self.assertLessEqual(page.evaluate("document.documentElement.scrollWidth"), width, "wider than its window")
            colours = page.evaluate("""Object.fromEntries(["paper", "ink", "faint", "accent", "found", "score", "best", "rival",
                "limit", "wave", "active-edge", "c0", "c1", "c2", "c3", "c4", "c5", "c6", "c7"].map(name =>
                [name, getComputedStyle(document.documentElement).getPropertyValue("--" + name).trim()]))""")
            for each, colour in colours.items():
                if colour and each != "paper":
                    least = 3 if each in ("wave", "accent") else 4.5  # what is drawn, text
                    self.assertGreaterEqual(contrast(colour, colours["paper"]), least, each)

    def reached_by_tab(self, page, presses):
        reached = set()
        for _ in range(presses):
            page.press("Tab")
            reached.add(page.evaluate("""(() => { const e = document.activeElement;
                return e.id || e.getAttribute("aria-label") || e.textContent || e.value; })()"""))
        return reached


class Watch(PageTest):
    """What these tests stand on: a page that does what it may not is noticed."""

    def test_faults_are_noticed(self):
        for script, fault in (("throw new Error('planned')", "planned"),
                              ("Promise.reject(new Error('planned'))", "planned"),
                              ("console.error('planned')", "console: ['planned']"),
                              ("fetch('http://127.0.0.1:9/planned').catch(() => 0)", "request: http://127.0.0.1:9/planned")):
            self.page_path.write_text(f"<script>{script}</script>")
            page = devtools.Page(self.browser)
            page.open(self.page_path)
            self.assertIn(fault, "\n".join(page.faults))


class CallPage(PageTest):
    READY = "document.body?.dataset.ready === 'yes'"

    @classmethod
    def make_page(cls):
        samples = cls.folder / "samples"
        samples.mkdir()
        known = list(prompts(demo_calls.ENGLISH, 3))[::20][:5]
        for path in known:
            (samples / path.name).symlink_to(path)
        cls.rules.write_text(json.dumps({"rules": [{"id": 1, "samples": ["*", {"file": known[2].name, "name": HOSTILE}]}]}))
        first, second, speech = (demo_calls.read_wav(path) for path in (known[0], known[2], next(prompts(demo_calls.FRENCH, 3))))
        cls.call = cls.folder / 'call <' / 'script><b>"' / "call.wav"
        cls.call.parent.mkdir(parents=True)
        demo_calls.write_stereo(cls.call, [demo_calls.silence(0.7) + speech,
                                           demo_calls.silence(1) + first + demo_calls.silence(0.5) + second])
        lines = corvanth("analyse", "--samples", samples, "--rules", cls.rules, "--rule", 1, "--plot", cls.page_path,
                         "--csv", cls.folder / "frames.csv", "--csv-scores", cls.folder / "scores.csv", cls.call)
        cls.lines = [json.loads(line) for line in lines.split("\n") if line]
        cls.found = [line for line in cls.lines if line["type"] == "corvanth_detection"]
        assert len(cls.found) == 2, lines
        with open(cls.folder / "frames.csv", newline="", encoding="utf-8") as file:
            cls.frames = {(row["side"], int(row["frame"])): row for row in csv.DictReader(file)}
        with open(cls.folder / "scores.csv", newline="", encoding="utf-8") as file:
            cls.scores = {(row["side"], row["sample"], int(row["frame"])): row for row in csv.DictReader(file)}

    @staticmethod
    def place(page):
        """Where the charts are on the screen: their left end, their width, the middle of the first one."""
        return page.evaluate("""(() => { const box = document.getElementById("charts").getBoundingClientRect();
            const canvas = document.querySelector("#charts canvas").getBoundingClientRect();
            return [box.left, box.width, canvas.top + canvas.height / 2]; })()""")

    @staticmethod
    def window(page):
        """The cursor's frame, if there is one, and the seconds shown."""
        text = page.evaluate("document.getElementById('shown').textContent")
        frame = re.search(r"frame (\d+)", text)
        begin, end = re.search(r"shown ([\d.]+) to ([\d.]+) s", text).groups()
        return int(frame[1]) if frame else None, float(begin), float(end)

    def check_values(self, page, frame):
        """All that the page says of a frame is what the tables say; how many values."""
        compared = 0
        values = page.evaluate("[...document.querySelectorAll('[data-value]')].map(each => [each.dataset.value, each.textContent])")
        for label, text in values:
            title, side = label.rsplit(", ", 1)
            row = self.frames.get((side, frame))
            score = self.scores.get((side, title.removeprefix("Score of "), frame))
            if title in COLUMNS and row:
                expected = float(row[COLUMNS[title]])
                self.assertAlmostEqual(float(text.split()[0]), expected, delta=6e-5 * abs(expected) + 1e-9, msg=label)
            elif title == "Waveform" and row:
                self.assertEqual(" active" in text, row["active"] == "1", (frame, text))
                self.assertEqual("in a segment" in text, row["in_segment"] == "1", (frame, text))
            elif score:
                self.assertAlmostEqual(float(re.match(r"score ([-\d.e]+)", text)[1]), float(score["score"]), delta=1e-4, msg=label)
                for kind in ("", "best_"):
                    count = score[kind + "votes"]
                    self.assertIn(f"({count} vote{'' if count == '1' else 's'}, offset {score[kind + 'offset_s']} s)", text)
            elif title.startswith("Score of "):
                self.assertRegex(text, r"^(no votes yet|at )")
            compared += bool(row if title in COLUMNS else score)
        return compared

    def test_hover_shows_what_the_tables_hold(self):
        page = self.open()
        left, width, y = self.place(page)
        _, begin, end = self.window(page)
        compared = 0
        for i in range(12):
            x = round(left + 70 + i * (width - 100) / 11)
            page.point(x, y)
            frame, _, _ = self.window(page)
            self.assertAlmostEqual(frame * FRAME_S, begin + (x - left - LEFT) / (width - LEFT - RIGHT) * (end - begin), delta=0.03)
            compared += self.check_values(page, frame)
        self.assertGreater(compared, 80)
        self.assertEqual({row["recording"] for row in self.frames.values()}, {str(self.call)})

    def test_findings_are_marked_when_they_were_reported(self):
        page = self.open()
        left, width, _ = self.place(page)
        _, begin, end = self.window(page)
        scale = (end - begin) / (width - LEFT - RIGHT)
        marks = page.evaluate("""[...document.querySelectorAll(".mark")].map(each => [each.classList.contains("is-activity"),
            each.textContent, each.getBoundingClientRect().left, each.getBoundingClientRect().width])""")
        for mark, line in zip([mark for mark in marks if not mark[0]], self.found, strict=True):
            self.assertEqual(mark[1], line["sample_name"])
            self.assertAlmostEqual(begin + (mark[2] - left - LEFT) * scale, line["offset"] + line["sample_start"], delta=0.02)
            self.assertAlmostEqual(mark[3] * scale, line["sample_duration"], delta=0.02 + 5 * scale)
        activity = [line["offset_ms"] for line in self.lines if line["type"] == "audio_activity"]
        for mark, seconds in zip([mark for mark in marks if mark[0]], activity, strict=True):
            self.assertAlmostEqual(begin + (mark[2] - left - LEFT) * scale, seconds, delta=0.02)
        rows = page.evaluate("[...document.querySelectorAll('#found tr')].slice(1).map(row => [...row.children].map(cell => cell.textContent))")
        for i, (row, line) in enumerate(zip(rows, self.found, strict=True)):
            page.evaluate(f"document.querySelectorAll('#found button')[{i}].click()")
            page.settle()
            frame, begin, end = self.window(page)
            self.assertEqual(row[0], f"{frame * FRAME_S:.3f} s")
            self.assertEqual(self.frames["terminator", frame]["detected"], line["sample_name"])
            self.assertTrue(begin <= frame * FRAME_S <= end)
            self.assertGreater(self.check_values(page, frame), 6)
            self.assertEqual(row[4], f"{line['offset']:.3f} s")
            self.assertAlmostEqual(float(row[3]), line["score"], delta=1e-4)

    def test_zoom_by_keys_mouse_and_buttons(self):
        page = self.open()
        page.evaluate("document.getElementById('charts').focus()")
        left, width, y = self.place(page)
        whole = self.window(page)[2]

        def shows(seconds):
            _, begin, end = self.window(page)
            self.assertAlmostEqual(end - begin, seconds, delta=0.03)

        for key, seconds in (("+", whole / 2), ("PageDown", whole / 2), ("-", whole)):
            page.press(key)
            shows(seconds)
        self.assertAlmostEqual(self.window(page)[2], whole, delta=0.02)
        for _ in range(20):
            page.press("+")
        shows(24 * FRAME_S)
        page.press("ArrowRight")
        frame = self.window(page)[0]
        page.press("ArrowRight")
        self.assertEqual(self.window(page)[0], frame + 1)
        self.check_values(page, frame + 1)
        page.press("0")
        page.press("End")
        shows(whole)
        self.assertEqual(self.window(page)[0], max(frame for _, frame in self.frames))
        page.press("Home")
        page.press("n")
        self.assertIn(self.found[0]["sample_name"], self.frames["terminator", self.window(page)[0]]["detected"])
        page.press("0")

        page.drag(left + 300, y, left + 500)
        shows(whole * 200 / (width - LEFT - RIGHT))
        page.wheel(left + 400, y, -200, devtools.CTRL)
        self.assertLess(self.window(page)[2] - self.window(page)[1], whole * 100 / (width - LEFT - RIGHT))
        page.double_click(left + 400, y)
        page.wheel(left + 400, y, 200)  # by itself it scrolls the page
        shows(whole)
        page.evaluate("document.querySelector('[data-do=in]').click()")
        page.settle()
        shows(whole / 2)

    def test_everything_is_reached_by_keys_and_names_are_text(self):
        page = self.open()
        reached = self.reached_by_tab(page, 24)
        self.assertTrue({"Zoom in", "Next finding", "charts"} <= reached, reached)
        self.assertTrue(any(text.startswith("Samples on this side") for text in reached), reached)
        self.assertEqual(sum(text.startswith("Show ") for text in reached), len(self.found))
        self.assertEqual(page.evaluate("""[...document.querySelectorAll("button, canvas:not([aria-hidden]), input, [tabindex]")].filter(
            each => !(each.getAttribute("aria-label") || each.textContent.trim() || each.closest("label")?.textContent.trim())).length"""), 0)
        # A sample that is not shown is shown when it is chosen.
        shown = "document.querySelectorAll('.panel:not([hidden])').length"
        before = page.evaluate(shown)
        page.evaluate("""(() => { const details = document.querySelector('details'); details.open = true;
            details.querySelector('input:not(:checked)').focus(); })()""")
        page.press(" ")
        self.assertEqual(page.evaluate(shown), before + 1)
        self.assertEqual(page.evaluate("document.querySelector('h1').textContent"), str(self.call))
        self.assertEqual(page.evaluate("document.querySelectorAll('b[onclick], h1 *, #found td b').length"), 0)

    def test_pictures(self):
        def point(page):
            page.evaluate("document.getElementById('charts').focus()")
            page.press("n")
            page.press("0")

        self.pictures("call", point)


class EvaluationPage(PageTest):
    @classmethod
    def make_page(cls):
        for name, folder in (("samples", demo_calls.ENGLISH), ("speech", demo_calls.FRENCH)):
            (cls.folder / name).mkdir()
            for path in list(prompts(folder, 3))[:12]:
                (cls.folder / name / path.name).symlink_to(path)
        cls.rules.write_text('{"rules": [{"id": 1, "samples": ["*"]}]}')
        corvanth("evaluate", "--samples", cls.folder / "samples", "--rules", cls.rules, "--background", cls.folder / "speech",
                 "--plant", 12, "--conditions", "clean,noise:0", "--phases", "1,4", "--plot", cls.page_path)

    def test_is_read_by_mouse_and_keys(self):
        page = self.open()
        note = lambda: page.evaluate("document.getElementById('note').textContent")  # noqa: E731
        self.assertIn("chart", self.reached_by_tab(page, 3))
        page.evaluate("document.getElementById('chart').focus()")
        page.press("ArrowRight")
        first = note()
        self.assertRegex(first, r"threshold [\d.]+, .*: [\d.]+ % found")
        page.press("ArrowDown")
        self.assertNotEqual(note(), first)
        x, y = page.evaluate("(b => [b.left + b.width / 2, b.top + b.height / 2])(document.getElementById('chart').getBoundingClientRect())")
        page.point(x, y)
        self.assertIn("found", note())
        self.assertEqual(page.evaluate("document.querySelectorAll('polyline').length"),
                         page.evaluate("document.querySelectorAll('#table tr').length - 1"))
        drawn = page.evaluate("document.getElementById('chart').innerHTML")
        page.evaluate("document.querySelector('input:not(:checked)').click()")
        self.assertNotEqual(page.evaluate("document.getElementById('chart').innerHTML"), drawn)
        self.pictures("evaluate")


if __name__ == "__main__":
    BIN, PICTURES = (pathlib.Path(path).resolve() for path in sys.argv[1:3])
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
