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
# An end of the page's script, markup, quotes: a name like any other.
HOSTILE = '</script><b onclick=alert(1)>"\'&amp;\u2028'


def corvanth(*arguments):
    done = subprocess.run([BIN / "corvanth", *map(str, arguments)], capture_output=True, text=True, timeout=120)
    assert done.returncode == 0, done.stderr
    return done.stdout


def votes(count):
    return f"{count} vote" + ("" if count == "1" else "s")


def prompts(folder, least_s):
    """Paths, by name, of prompts at least that long."""
    for path in sorted(folder.glob("*.wav")):
        with wave.open(str(path)) as file:
            if file.getnframes() >= least_s * demo_calls.RATE:
                yield path


class PageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.temporary = tempfile.TemporaryDirectory(prefix="corvanth-pages-")
        cls.addClassCleanup(cls.temporary.cleanup)
        cls.folder = pathlib.Path(cls.temporary.name)
        cls.browser = cls.enterClassContext(devtools.Browser())
        cls.make_pages()

    @classmethod
    def make_pages(cls):
        pass

    def open(self, path, width=1280, dark=False, ready="document.readyState === 'complete'"):
        page = self.browser.page()
        page.show(width, 900, dark)
        page.open(path, ready)
        self.addCleanup(lambda: self.assertEqual(page.faults, []))
        return page

    def pictures(self, path, name, ready, prepare=lambda page: None):
        """In both themes, wide and narrow; what would make a picture useless is checked."""
        PICTURES.mkdir(parents=True, exist_ok=True)
        for dark in (False, True):
            for width in (1280, 400):
                page = self.open(path, width, dark, ready)
                prepare(page)
                page.evaluate("scrollTo(0, 0)")
                page.settle()
                page.screenshot(PICTURES / f"{name}-{'dark' if dark else 'light'}-{width}.png")
                self.assertLessEqual(page.evaluate("document.documentElement.scrollWidth"), width, "wider than its window")
                self.check_contrast(page)

    def check_contrast(self, page):
        """WCAG 2.1: 4.5 for text, 3 for what is drawn, against the paper."""
        colours = page.evaluate("""Object.fromEntries(["paper", "ink", "faint", "accent", "found", "score", "best", "rival",
            "limit", "wave", "active-edge", "c0", "c1", "c2", "c3", "c4", "c5", "c6", "c7"].map(name =>
            [name, getComputedStyle(document.documentElement).getPropertyValue("--" + name).trim()]))""")
        for name, colour in colours.items():
            if colour and name != "paper":
                least = 3 if name in ("wave", "accent") else 4.5
                self.assertGreaterEqual(contrast(colour, colours["paper"]), least, name)

    def reached_by_tab(self, page, presses):
        reached = set()
        for _ in range(presses):
            page.press("Tab")
            reached.add(page.evaluate("""(() => { const e = document.activeElement;
                return e.id || e.getAttribute("aria-label") || e.textContent || e.value; })()"""))
        return reached


def contrast(a, b):
    def luminance(colour):
        parts = [int(colour[i : i + 2], 16) / 255 for i in (1, 3, 5)]
        linear = [p / 12.92 if p <= 0.04045 else ((p + 0.055) / 1.055) ** 2.4 for p in parts]
        return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]

    low, high = sorted((luminance(a), luminance(b)))
    return (high + 0.05) / (low + 0.05)


class Watch(PageTest):
    """What these tests stand on: a page that does what it may not is noticed."""

    def test_faults_are_noticed(self):
        table = {
            "exception": ("throw new Error('planned')", "planned"),
            "later": ("Promise.reject(new Error('planned'))", "planned"),
            "console": ("console.error('planned')", "console: ['planned']"),
            "request": ("fetch('http://127.0.0.1:9/planned').catch(() => 0)", "request: http://127.0.0.1:9/planned"),
            "image": ("new Image().src = 'nowhere.png'", "nowhere.png"),
        }
        for name, (script, fault) in table.items():
            path = self.folder / (name + ".html")
            path.write_text(f"<script>{script}</script>")
            page = self.browser.page()
            page.open(path)
            self.assertIn(fault, "\n".join(page.faults), name)


class CallPage(PageTest):
    READY = "document.body?.dataset.ready === 'yes'"

    @classmethod
    def make_pages(cls):
        samples = cls.folder / "samples"
        samples.mkdir()
        known = list(prompts(demo_calls.ENGLISH, 3))[::20][:5]
        for path in known:
            (samples / path.name).symlink_to(path)
        rules = {"rules": [{"id": 1, "samples": ["*", {"file": known[2].name, "name": HOSTILE.replace('"', "")}]}]}
        (cls.folder / "rules.json").write_text(json.dumps(rules))
        audio = [demo_calls.read_wav(path) for path in (known[0], known[2], next(prompts(demo_calls.FRENCH, 3)))]
        sides = [demo_calls.silence(0.7) + audio[2], demo_calls.silence(1) + audio[0] + demo_calls.silence(0.5) + audio[1]]
        folder = cls.folder / 'call <' / 'script><b>"'
        folder.mkdir(parents=True)
        call = folder / "call.wav"
        demo_calls.write_stereo(call, sides)
        cls.page_path = cls.folder / "call.html"
        cls.call_name = str(call)
        lines = corvanth("analyse", "--samples", samples, "--rules", cls.folder / "rules.json", "--rule", 1, "--plot", cls.page_path,
                         "--csv", cls.folder / "frames.csv", "--csv-scores", cls.folder / "scores.csv", call)
        cls.lines = [json.loads(re.sub(r'[\x00-\x1f]', "", line)) for line in lines.split("\n") if line]
        cls.found = [line for line in cls.lines if line["type"] == "corvanth_detection"]
        assert len(cls.found) == 2, lines
        cls.frames = {}
        with open(cls.folder / "frames.csv", newline="", encoding="utf-8") as file:
            for row in csv.DictReader(file):
                cls.frames[row["side"], int(row["frame"])] = row
        cls.scores = {}
        with open(cls.folder / "scores.csv", newline="", encoding="utf-8") as file:
            for row in csv.DictReader(file):
                cls.scores[row["side"], row["sample"], int(row["frame"])] = row

    def open_call(self):
        page = self.open(self.page_path, ready=self.READY)
        return page, self.place(page)

    @staticmethod
    def place(page):
        """Where the charts are on the screen."""
        return page.evaluate("""(() => { const box = document.getElementById("charts").getBoundingClientRect();
            const canvas = document.querySelector("#charts canvas").getBoundingClientRect();
            return {left: box.left, width: box.width, y: canvas.top + canvas.height / 2}; })()""")

    @staticmethod
    def window(page):
        """The cursor's frame, if there is one, and the seconds shown."""
        text = page.evaluate("document.getElementById('shown').textContent")
        frame = re.search(r"frame (\d+)", text)
        begin, end = re.search(r"shown ([\d.]+) to ([\d.]+) s", text).groups()
        return int(frame[1]) if frame else None, float(begin), float(end)

    @staticmethod
    def values(page):
        return page.evaluate("""Object.fromEntries([...document.querySelectorAll("[data-value]")].map(
            each => [each.dataset.value, each.textContent]))""")

    def check_values(self, page, frame):
        """All that the page says of a frame is what the tables say."""
        compared = 0
        for label, text in self.values(page).items():
            title, side = label.rsplit(", ", 1)
            column = {"Amplitude": "amplitude", "Spectral deviation": "deviation", "Weighted power": "weighted_power"}.get(title)
            row = self.frames.get((side, frame))
            if column and row:
                self.assertAlmostEqual(float(text.split()[0]), float(row[column]), delta=6e-5 * abs(float(row[column])) + 1e-9, msg=label)
                compared += 1
            elif title == "Waveform" and row:
                self.assertEqual(" active" in text, row["active"] == "1", (frame, text))
                self.assertEqual("in a segment" in text, row["in_segment"] == "1", (frame, text))
            elif title.startswith("Score of "):
                score = self.scores.get((side, title[len("Score of ") :], frame))
                if not score:
                    self.assertRegex(text, r"^(no votes yet|at )")
                    continue
                self.assertAlmostEqual(float(re.match(r"score ([-\d.e]+)", text)[1]), float(score["score"]), delta=1e-4, msg=label)
                self.assertIn(f"({votes(score['votes'])}, offset {score['offset_s']} s)", text)
                self.assertIn(f"({votes(score['best_votes'])}, offset {score['best_offset_s']} s)", text)
                compared += 1
        return compared

    def test_hover_shows_what_the_tables_hold(self):
        page, box = self.open_call()
        _, begin, end = self.window(page)
        compared = 0
        for i in range(12):
            x = round(box["left"] + 70 + i * (box["width"] - 100) / 11)
            page.point(x, box["y"])
            frame, _, _ = self.window(page)
            pixels = box["width"] - 52 - 12
            self.assertAlmostEqual(frame * FRAME_S, begin + (x - box["left"] - 52) / pixels * (end - begin), delta=0.03)
            compared += self.check_values(page, frame)
        self.assertGreater(compared, 80)
        page.evaluate("document.getElementById('charts').focus()")
        page.press("Home")
        for _ in self.found:
            page.press("n")
            frame, _, _ = self.window(page)
            row = self.frames["terminator", frame]
            self.assertNotEqual(row["detected"], "")
            self.assertGreater(self.check_values(page, frame), 6)

    def test_findings_are_marked_when_they_were_reported(self):
        page, box = self.open_call()
        _, begin, end = self.window(page)
        marks = page.evaluate("""[...document.querySelectorAll(".mark:not(.is-activity)")].map(
            each => ({name: each.textContent, left: each.getBoundingClientRect().left, width: each.getBoundingClientRect().width}))""")
        scale = (end - begin) / (box["width"] - 52 - 12)
        self.assertEqual(len(marks), len(self.found))
        for mark, found in zip(marks, self.found):
            self.assertEqual(mark["name"].replace("\u2028", ""), found["sample_name"].replace("\u2028", ""))
            self.assertAlmostEqual(begin + (mark["left"] - box["left"] - 52) * scale, found["offset"] + found["sample_start"], delta=0.02)
            self.assertAlmostEqual(mark["width"] * scale, found["sample_duration"], delta=0.02 + 5 * scale)
        activity = page.evaluate("""[...document.querySelectorAll(".mark.is-activity")].map(each => each.getBoundingClientRect().left)""")
        expected = [line["offset_ms"] for line in self.lines if line["type"] == "audio_activity"]
        for left, seconds in zip(activity, expected, strict=True):
            self.assertAlmostEqual(begin + (left - box["left"] - 52) * scale, seconds, delta=0.02)
        cells = page.evaluate("[...document.querySelectorAll('#found tr')].slice(1).map(row => [...row.children].map(cell => cell.textContent))")
        for i, (row, found) in enumerate(zip(cells, self.found, strict=True)):
            page.evaluate(f"document.querySelectorAll('#found button')[{i}].click()")
            page.settle()
            frame, begin, end = self.window(page)
            self.assertEqual(row[0], f"{frame * FRAME_S:.3f} s")
            self.assertIn(found["sample_name"][:20], self.frames["terminator", frame]["detected"])
            self.assertTrue(begin <= frame * FRAME_S <= end)
            self.assertEqual(page.evaluate("document.activeElement.id"), "charts")
            self.assertEqual(row[4], f"{found['offset']:.3f} s")
            self.assertAlmostEqual(float(row[3]), found["score"], delta=1e-4)

    def test_zoom_by_keys_mouse_and_buttons(self):
        page, box = self.open_call()
        page.evaluate("document.getElementById('charts').focus()")
        _, _, whole = self.window(page)
        shown = lambda: self.window(page)[2] - self.window(page)[1]  # noqa: E731
        page.press("+")
        self.assertAlmostEqual(shown(), whole / 2, delta=0.02)
        page.press("PageDown")
        self.assertAlmostEqual(self.window(page)[2], whole, delta=0.02)
        page.press("-")
        self.assertAlmostEqual(shown(), whole, delta=0.02)
        for _ in range(20):
            page.press("+")
        self.assertAlmostEqual(shown(), 24 * FRAME_S, delta=0.02)
        frame = self.window(page)[0]
        page.press("ArrowRight")
        moved = self.window(page)[0]
        page.press("ArrowRight")
        self.assertEqual(self.window(page)[0], moved + 1, f"frame by frame, from {frame}")
        self.check_values(page, moved + 1)
        page.press("0")
        self.assertAlmostEqual(shown(), whole, delta=0.02)
        page.press("End")
        self.assertEqual(self.window(page)[0], max(frame for _, frame in self.frames))

        box = self.place(page)  # the focus has moved it
        page.drag(box["left"] + 300, box["y"], box["left"] + 500)
        self.assertAlmostEqual(shown(), whole * 200 / (box["width"] - 64), delta=0.03)
        page.wheel(box["left"] + 400, box["y"], -200, devtools.CTRL)
        self.assertLess(shown(), whole * 100 / (box["width"] - 64))
        page.click(box["left"] + 400, box["y"], times=2)
        self.assertAlmostEqual(shown(), whole, delta=0.02)
        # A wheel by itself scrolls the page and leaves the call alone.
        page.wheel(box["left"] + 400, box["y"], 200)
        self.assertAlmostEqual(shown(), whole, delta=0.02)
        page.evaluate("document.querySelector('[data-do=in]').click()")
        page.settle()
        self.assertAlmostEqual(shown(), whole / 2, delta=0.02)

    def test_everything_is_reached_by_keys_and_has_a_name(self):
        page, _ = self.open_call()
        page.press("+")  # not in the charts: nothing
        reached = self.reached_by_tab(page, 24)
        self.assertTrue({"Zoom in", "Next finding", "charts"} <= reached, reached)
        self.assertTrue(any(text.startswith("Samples on this side") for text in reached), reached)
        self.assertEqual(sum(text.startswith("Show ") for text in reached), len(self.found))
        self.assertEqual(page.evaluate("""[...document.querySelectorAll("button, canvas:not([aria-hidden]), input, [tabindex]")].filter(
            each => !(each.getAttribute("aria-label") || each.textContent.trim() || each.closest("label")?.textContent.trim())).length"""), 0)
        # A sample that is not shown is shown when it is chosen.
        before = page.evaluate("document.querySelectorAll('.panel:not([hidden])').length")
        page.evaluate("""(() => { const details = document.querySelector('details'); details.open = true;
            details.querySelector('input:not(:checked)').focus(); })()""")
        page.press(" ")
        self.assertEqual(page.evaluate("document.querySelectorAll('.panel:not([hidden])').length"), before + 1)

    def test_names_are_text_whatever_is_in_them(self):
        page, _ = self.open_call()
        self.assertEqual(page.evaluate("document.querySelector('h1').textContent"), self.call_name)
        self.assertEqual(page.evaluate("document.querySelectorAll('b[onclick], h1 *, #found td b').length"), 0)
        names = page.evaluate("[...document.querySelectorAll('.head b')].map(each => each.textContent)")
        self.assertIn(HOSTILE.replace('"', ""), names)

    def test_pictures(self):
        def point(page):
            page.evaluate("document.getElementById('charts').focus()")
            page.press("n")
            page.press("0")

        self.pictures(self.page_path, "call", self.READY, point)


class EvaluationPage(PageTest):
    @classmethod
    def make_pages(cls):
        for name, folder in (("samples", demo_calls.ENGLISH), ("speech", demo_calls.FRENCH)):
            (cls.folder / name).mkdir()
            for path in list(prompts(folder, 3))[:12]:
                (cls.folder / name / path.name).symlink_to(path)
        (cls.folder / "rules.json").write_text('{"rules": [{"id": 1, "samples": ["*"]}]}')
        cls.page_path = cls.folder / "evaluate.html"
        corvanth("evaluate", "--samples", cls.folder / "samples", "--rules", cls.folder / "rules.json", "--background", cls.folder / "speech",
                 "--plant", 12, "--conditions", "clean,noise:0", "--phases", "1,4", "--plot", cls.page_path)

    def test_is_read_by_mouse_and_keys(self):
        page = self.open(self.page_path)
        note = lambda: page.evaluate("document.getElementById('note').textContent")  # noqa: E731
        self.assertTrue({"chart"} <= self.reached_by_tab(page, 3))
        page.evaluate("document.getElementById('chart').focus()")
        page.press("ArrowRight")
        first = note()
        self.assertRegex(first, r"threshold [\d.]+, .*: [\d.]+ % found")
        page.press("ArrowDown")
        self.assertNotEqual(note(), first)
        box = page.evaluate("(({left, top, width, height}) => [left, top, width, height])(document.getElementById('chart').getBoundingClientRect())")
        page.point(box[0] + box[2] / 2, box[1] + box[3] / 2)
        self.assertIn("found", note())
        curves = page.evaluate("document.querySelectorAll('polyline').length")
        self.assertEqual(curves, page.evaluate("document.querySelectorAll('#table tr').length - 1"))
        drawn = page.evaluate("document.getElementById('chart').innerHTML")
        page.evaluate("document.querySelector('input:not(:checked)').click()")
        self.assertNotEqual(page.evaluate("document.getElementById('chart').innerHTML"), drawn)

    def test_pictures(self):
        self.pictures(self.page_path, "evaluate", "document.readyState === 'complete'")


if __name__ == "__main__":
    BIN, PICTURES = (pathlib.Path(path).resolve() for path in sys.argv[1:3])
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
