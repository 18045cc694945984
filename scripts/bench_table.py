"""Prints, as a page, what the benchmarks' results say about the targets.

The argument is a folder of Google Benchmark's JSON files. A missing result is said to be missing.
"""

import datetime
import json
import pathlib
import subprocess
import sys

# what, over, under, value, bound, whether the bound is the least or the most
TARGETS = [
    ("frame and hash point / tuned FFT library with minimal passes, AVX2",
     "frame_and_point/AVX2", "frame_and_point/FFTW", "time", 1.15, "most"),
    ("the same on SSE2 only",
     "frame_and_point/SSE2", "frame_and_point/FFTW", "time", 2.6, "most"),
    ("plain / fast, frame and hash point, AVX2",
     "frame_and_point/plain", "frame_and_point/AVX2", "time", 7, "least"),
    ("plain / fast, matching, 568 prompts, speech, warm",
     "match/568/unrelated_speech/plain", "match/568/unrelated_speech/fast", "time", 15, "least"),
    ("the same with 2,000 streams interleaved", "interleaved/568/unrelated_speech/plain",
     "interleaved/568/unrelated_speech/fast", "time", 12, "least"),
    ("memory of votes per stream-minute, plain / fast, 568 prompts",
     "match/568/unrelated_speech/plain", "match/568/unrelated_speech/fast", "memory_KiB", 4, "least"),
    ("a packet from `read_from` to its first spectrum sample, 100,000 sessions / 1 session",
     "packet/100000/fast", "packet/1/fast", "time", 3, "most"),
    ("queue hand-over / plain shared counters",
     "queue/busy_reader/fast", "queue/busy_reader/plain", "time", 0.7, "most"),
    ("real-time factor of the whole path (10 samples) / fpcalc's fingerprint alone",
     "path/fpcalc", "path/10/fast", "time", 3, "least"),
]


def load(folder):
    medians = {}
    for path in sorted(pathlib.Path(folder).glob("*.json")):
        for run in json.loads(path.read_text())["benchmarks"]:
            # A single repetition has no aggregates.
            if run.get("aggregate_name", "median") != "median" or run.get("error_occurred"):
                continue
            # The name without the settings that the library appends to it.
            parts = run["run_name"].split("/")
            manual = "manual_time" in parts
            name = "/".join(p for p in parts if ":" not in p and p != "manual_time")
            values = {k: v for k, v in run.items() if k.startswith("memory")}
            # In the units of the run: those of a pair are the same.
            values["time"] = run["real_time" if manual else "cpu_time"]
            values["unit"] = run["time_unit"]
            medians[name] = values
    return medians


def ratio(medians, over, under, value):
    if over not in medians or under not in medians:
        return None
    numerator, denominator = medians[over].get(value), medians[under].get(value)
    return numerator / denominator if numerator is not None and denominator else None


def significant(number):
    return f"{number:.3g}" if number < 100 else f"{number:.0f}"


def machine_line():
    model = next((line.split(":", 1)[1].strip() for line in open("/proc/cpuinfo")
                  if line.startswith("model name")), "unknown processor")
    cores = subprocess.run(["nproc"], capture_output=True, text=True, check=True).stdout.strip()
    compiler = subprocess.run(["c++", "--version"], capture_output=True, text=True,
                              check=True).stdout.splitlines()[0]
    return f"{model}, {cores} cores, {compiler}, {datetime.date.today()}"


def print_targets(medians):
    print("| what | ratio | target | |\n|---|---|---|---|")
    for what, over, under, value, bound, kind in TARGETS:
        found = ratio(medians, over, under, value)
        shown, verdict = "not measured", ""
        if found is not None:
            met = found <= bound if kind == "most" else found >= bound
            shown, verdict = significant(found), "ok" if met else "short"
        print(f"| {what} | {shown} | at {kind} {bound} | {verdict} |")


def print_pairs(medians):
    print("| scenario | fast | plain / fast | memory, plain / fast |\n|---|---|---|---|")
    for plain in sorted(name for name in medians if name.endswith("/plain")):
        scenario = plain.removesuffix("/plain")
        fast = f"{scenario}/fast"
        if fast not in medians:
            continue
        time = f"{significant(medians[fast]['time'])} {medians[fast]['unit']}"
        memory = ratio(medians, plain, fast, "memory_KiB")
        print(f"| {scenario} | {time} | {significant(ratio(medians, plain, fast, 'time'))} | "
              f"{significant(memory) if memory else ''} |")


def main():
    medians = load(sys.argv[1])
    if not medians:
        sys.exit("no results")
    print("# Benchmarks\n\nWritten by `scripts/bench`. Medians; every ratio is of two measurements of "
          "one run.\n")
    print(machine_line() + "\n")
    print_targets(medians)
    print("\nTwo more are tests, since they count and do not measure: no packet of a burst is lost "
          "while the reader\nstalls (`tests/net`), and a warm stream allocates nothing but vote tables and "
          "blocks of its points\n(`tests/medianode`).\n")
    print("## All pairs\n\nfast: the time of one point, packet, item, report or second of audio, or of "
          "one build.\n")
    print_pairs(medians)


if __name__ == "__main__":
    main()
