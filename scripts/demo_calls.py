"""The demo behind scripts/demo: a site in a temporary folder, calls of real prompts, a verdict.

Usage: demo_calls.py FOLDER_OF_EXECUTABLES
Exit status 0 only when every call was reported exactly as expected, and when `corvanth analyse` finds
the very same in the recordings of the calls.
"""

import array
import json
import math
import pathlib
import random
import re
import subprocess
import sys
import tempfile
import threading
import time
import wave

import running_site

RATE = 8000
# How long to wait for findings on a machine that is busy with other things.
PATIENCE_S = 60

ENGLISH = running_site.prompts_folder("en")
FRENCH = running_site.prompts_folder("fr")


# Audio: lists of 16-bit samples at 8 kHz.


def read_wav(path):
    with wave.open(str(path)) as file:
        assert (file.getframerate(), file.getnchannels(), file.getsampwidth()) == (RATE, 1, 2), path
        return array.array("h", file.readframes(file.getnframes()))


def write_wav(path, samples, channels=1):
    with wave.open(str(path), "wb") as file:
        file.setnchannels(channels)
        file.setsampwidth(2)
        file.setframerate(RATE)
        file.writeframes(array.array("h", samples).tobytes())


def silence(seconds):
    return array.array("h", bytes(2 * round(seconds * RATE)))


def through_mu_law(samples):
    """Companded to 8 bits and back, as a G.711 line does it (ITU-T G.711, mu = 255)."""

    def once(sample):
        magnitude = min(abs(sample), 32635) + 132
        exponent = magnitude.bit_length() - 8
        mantissa = magnitude >> (exponent + 3) & 15
        restored = ((mantissa << 3 | 132) << exponent) - 132
        return -restored if sample < 0 else restored

    return array.array("h", map(once, samples))


def with_noise(samples, signal_to_noise_db, seed):
    """White Gaussian noise so far below the samples' mean power."""
    rng = random.Random(seed)
    power = sum(s * s for s in samples) / len(samples)
    sigma = math.sqrt(power / 10 ** (signal_to_noise_db / 10))
    return array.array("h", (max(-32768, min(32767, round(s + rng.gauss(0, sigma)))) for s in samples))


def write_stereo(path, sides):
    """The originator's audio on the left, the terminator's on the right."""
    frames = array.array("h", bytes(4 * max(map(len, sides))))
    for side, samples in enumerate(sides):
        frames[side : 2 * len(samples) : 2] = samples
    write_wav(path, frames, channels=2)


# Calls.


class Call:
    """What is played on each side, and which prompts are to be found where.

    `sides` holds two lists of samples (empty: the side has no audio at all); `expected` a tuple
    (side, prompt, second at which the prompt starts, negative when the call joins in its middle)
    for each prompt; `active` the sides that are not dead air.
    """

    def __init__(self, number, title, sides, expected, active):
        self.number = number
        self.title = title
        self.sides = sides
        self.expected = expected
        self.active = active
        self.uuid = f"00000000-0000-4000-8000-{number:012d}"
        self.reports = []
        self.lines = []
        self.started = None


def build_calls():
    prompt = lambda name: read_wav(ENGLISH / (name + ".wav"))
    french = lambda name: read_wav(FRENCH / (name + ".wav"))
    # No lead is a multiple of the 128-sample hop: a call never starts where the fingerprint did.
    lead = silence(1.0) + silence(0.0075)
    at = len(lead) / RATE

    mailbox, busy = prompt("vm-mailboxfull"), prompt("all-circuits-busy-now")
    second_at = at + (len(mailbox) + RATE // 2) / RATE
    password, privacy, goodbye = prompt("vm-newpassword"), prompt("privacy-prompt"), prompt("vm-goodbye")
    review = prompt("vm-review-nonurgent")
    skipped = round(1.2 * RATE) + 37
    tone = prompt("at-tone-time-exactly")
    speech = french("demo-instruct")
    return [
        Call(1, "two prompts, one after the other", [lead + mailbox + silence(0.5) + busy, silence(6)],
             [(0, "vm-mailboxfull", at), (0, "all-circuits-busy-now", second_at)], {0}),
        Call(2, "joins in the middle of a prompt", [silence(4), review[skipped:]],
             [(1, "vm-review-nonurgent", -skipped / RATE)], {1}),
        Call(3, "through a mu-law line", [silence(5), through_mu_law(lead + password)],
             [(1, "vm-newpassword", at)], {1}),
        Call(4, "in noise, 10 dB below", [with_noise(lead + privacy, 10, seed=4), silence(5)],
             [(0, "privacy-prompt", at)], {0}),
        Call(5, "a prompt on each side at once",
             [lead + tone, silence(0.4) + lead + prompt("invalid")],
             [(0, "at-tone-time-exactly", at), (1, "invalid", 0.4 + at)], {0, 1}),
        Call(6, "one side talks, the other is dead air", [lead + french("vm-tocallback"), silence(6)], [], {0}),
        Call(7, "unrelated speech on both sides", [speech[: 12 * RATE], speech[15 * RATE : 27 * RATE]], [], {0, 1}),
    ]


# Processes.


class DemoSite(running_site.Site):
    def __init__(self, executables, folder):
        super().__init__(executables, folder, ENGLISH)
        self.report_port = running_site.free_udp_port()

    def start_listener(self, on_report):
        listener = self.start("listen", [self.tool, "listen", "--port", str(self.report_port)])

        # A call may be reported a tenth of a second after its start.
        self.wait_for_log("listen", "listening on port", 30)

        def read():
            for line in listener.stdout:
                on_report(line.decode().rstrip("\n"), time.monotonic())

        threading.Thread(target=read, daemon=True).start()

    def play(self, call):
        names = []
        for side, samples in enumerate(call.sides):
            names.append(str(self.folder / f"call-{call.number}-{side}.wav"))
            write_wav(names[-1], samples)
        call.started = time.monotonic()
        return subprocess.Popen(
            [self.tool, "play", "--to", f"127.0.0.1:{self.media_port}", "--rule", str(running_site.RULE),
             "--report-to", f"127.0.0.1:{self.report_port}", "--uuid", call.uuid,
             "--call-id", f"demo-{call.number}"] + names,
            stderr=open(self.folder / f"play-{call.number}.log", "wb"))

    def analyse(self, calls):
        """The lines of `corvanth analyse` about each call, from recordings of both sides in one file."""
        recordings = [str(self.folder / f"call-{call.number}.wav") for call in calls]
        for call, name in zip(calls, recordings):
            write_stereo(name, call.sides)
        index = self.folder / "index.tsv"
        output = subprocess.run(
            [self.tool, "analyse", "--samples", str(self.samples), "--rules", str(self.rules),
             "--state", str(self.folder / "state.json"), "--rule", str(running_site.RULE), "--index", str(index)] + recordings,
            stdout=subprocess.PIPE, check=True, text=True).stdout.splitlines()
        uuids = [line.split("\t")[0] for line in index.read_text().splitlines()]
        return [[line for line in output if uuid in line] for uuid in uuids]


# The verdict.


def without_identifiers(line):
    """A report but for what no two calls have in common."""
    return re.sub(r'"(session_uuid|session_timestamp)": [^,]*, ', "", line)


def compare_with_analysis(calls, analysed):
    """Whether the recordings of the calls gave what the calls gave, line by line."""
    agreed = True
    for call, lines in zip(calls, analysed, strict=True):
        reported = [without_identifiers(line) for line in call.lines]
        found = [without_identifiers(line) for line in lines]
        if reported != found:
            agreed = False
            print(f"call {call.number}: the node reported\n  " + "\n  ".join(reported) +
                  "\nand corvanth analyse finds\n  " + "\n  ".join(found))
    total = sum(len(call.lines) for call in calls)
    if agreed:
        print(f"\ncorvanth analyse finds the same {total} reports, digit for digit, in recordings of these calls.")
    return agreed and total > 0


def wait_for_reports(calls):
    """Until there are as many as expected, and a second more for those that are not."""
    deadline = time.monotonic() + PATIENCE_S
    while time.monotonic() < deadline and any(len(c.lines) < len(c.expected) + len(c.active) for c in calls):
        time.sleep(0.1)
    time.sleep(1)


def judge(call):
    """Lines of (side, expected, reported, seconds, whether they agree)."""
    lines = []
    side_name = ("originator", "terminator")
    detections = [(r, t) for r, t in call.reports if r["type"] == "corvanth_detection"]
    matched = []
    for side, name, start in call.expected:
        # The same recording at the place where it was played; the first report counts.
        hits = [(r, t) for r, t in detections
                if r["call_side"] == side_name[side] and r["sample_name"] == name and abs(r["offset"] - start) < 0.2]
        matched += [id(r) for r, _ in hits]
        if not hits:
            lines.append((side, name, "nothing", None, False))
            continue
        after = hits[0][1] - call.started - max(start, 0)
        lines.append((side, name, f"{name} (score {hits[0][0]['score']:.1f})", after, True))
    for report, _ in detections:
        if id(report) not in matched:
            side = side_name.index(report["call_side"])
            lines.append((side, "nothing more", f"{report['sample_name']} (score {report['score']:.1f})", None, False))
    for side in (0, 1):
        heard = any(r["type"] == "audio_activity" and r["call_side"] == side_name[side] for r, _ in call.reports)
        texts = ("dead air", "activity")
        lines.append((side, texts[side in call.active], texts[heard], None, heard == (side in call.active)))
    return lines


def print_verdict(calls):
    agreed = True
    print(f"\n{'call':<42}{'side':<12}{'expected':<25}{'reported':<38}{'after':<9}verdict")
    for call in calls:
        title = f"{call.number}. {call.title}"
        for side, expected, reported, seconds, agrees in judge(call):
            after = "" if seconds is None else f"{seconds:.2f} s"
            side_text = ("originator", "terminator")[side]
            print(f"{title:<42}{side_text:<12}{expected:<25}{reported:<38}{after:<9}{'ok' if agrees else 'WRONG'}")
            title = ""
            agreed = agreed and agrees
    return agreed


def main():
    executables = pathlib.Path(sys.argv[1]).resolve()
    with tempfile.TemporaryDirectory(prefix="corvanth-demo-") as name, DemoSite(executables, pathlib.Path(name)) as site:
        calls = build_calls()
        by_uuid = {call.uuid: call for call in calls}
        count = len(list(ENGLISH.rglob("*.wav")))
        print(f"demo: fingerprinting {count} prompts, starting the broker and the node", file=sys.stderr)
        site.start_configd()
        site.start_node()

        def on_report(line, at):
            report = json.loads(line)
            call = by_uuid[report["session_uuid"]]
            call.reports.append((report, at))
            call.lines.append(line)

        site.start_listener(on_report)
        print(f"demo: playing {len(calls)} calls in real time", file=sys.stderr)
        failed = [p.args for p in [site.play(call) for call in calls] if p.wait() != 0]
        wait_for_reports(calls)
        agreed = print_verdict(calls)
        agreed = compare_with_analysis(calls, site.analyse(calls)) and agreed
        print(f"\n{'All calls were reported as expected.' if agreed and not failed else 'Reports differ.'}")
        return 0 if agreed and not failed else 1


if __name__ == "__main__":
    sys.exit(main())
