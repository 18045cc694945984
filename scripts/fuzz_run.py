"""Runs fuzz targets side by side and prints what came of it; see scripts/fuzz."""

import concurrent.futures
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time

# An input that takes longer, or a target that needs more memory, is a finding.
LONGEST_INPUT_S = 20
SLOW_INPUT_S = 10  # libFuzzer keeps such an input, too
MOST_MEMORY_MIB = 2048

# On a machine so busy that a target gets less than this share of a processor, its run ends early.
LEAST_SHARE = 0.02

TIMEOUT_STATUS = 70  # libFuzzer's

BUILD = pathlib.Path("build/fuzz")


def processor_seconds(pid):
    """User and system time that a process has had so far, its threads included."""
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


class Run:
    """One target, run for some seconds."""

    def __init__(self, target):
        self.target = target
        self.corpus = BUILD / "corpus" / target
        self.log = BUILD / "logs" / f"{target}.log"
        self.findings = BUILD / "findings" / target

    def command(self, seconds):
        dictionary = pathlib.Path(f"fuzz/dictionaries/{self.target}.dict")
        seeds = [f for f in (BUILD / "seeds" / self.target, pathlib.Path("fuzz/corpus") / self.target)
                 if f.is_dir()]
        return (["setpriv", "--pdeathsig", "KILL", self.binary(), f"-max_total_time={int(seconds / LEAST_SHARE)}",
                 f"-timeout={LONGEST_INPUT_S}",
                 f"-rss_limit_mb={MOST_MEMORY_MIB}", "-print_final_stats=1", "-use_value_profile=0",
                 f"-artifact_prefix={self.findings}/"]
                + ([f"-dict={dictionary}"] if dictionary.exists() else [])
                + [str(self.corpus)] + [str(folder) for folder in seeds])

    def binary(self):
        return str(BUILD / "bin" / f"{self.target}_fuzz")

    def run(self, seconds):
        shutil.rmtree(self.findings, ignore_errors=True)
        for folder in (self.corpus, self.log.parent, self.findings):
            folder.mkdir(parents=True, exist_ok=True)
        self.processor_s = 0
        with self.log.open("wb") as log:
            while True:
                process = subprocess.Popen(self.command(seconds), stdout=log, stderr=log, env=self.environment())
                self.status = self.wait(process, seconds)
                starved = self.drop_starved() and self.status == TIMEOUT_STATUS and not self.found()
                if not starved:
                    return self
                self.status = 0
                if self.processor_s >= seconds:
                    return self

    @staticmethod
    def environment():
        # Files that a target writes are small and gone at once.
        return os.environ | ({"TMPDIR": "/dev/shm"} if os.access("/dev/shm", os.W_OK) else {})

    def wait(self, process, seconds):
        """Ends the run when it has had so much processor time: what else the machine does then makes it
        longer, not thinner. libFuzzer ends at SIGUSR1 as it does when its time is over."""
        before = self.processor_s
        asked = False
        while process.poll() is None:
            self.processor_s = before + processor_seconds(process.pid)
            if self.processor_s >= seconds and not asked:
                process.send_signal(signal.SIGUSR1)
                asked = True
            time.sleep(0.2)
        return process.returncode

    def drop_starved(self):
        """libFuzzer's clock is on the wall: an input during which the process got no processor looks slow.
        Whether one was dropped that does not take long by itself."""
        dropped = False
        for path in self.found():
            kind = path.name.partition("-")[0]
            if kind in ("timeout", "slow") and self.processor_s_of(path) < SLOW_INPUT_S:
                path.unlink()
                dropped = True
        return dropped

    def processor_s_of(self, path):
        """Of one input; no more than LONGEST_INPUT_S."""
        process = subprocess.Popen(["prlimit", f"--cpu={LONGEST_INPUT_S}", self.binary(), "-timeout=0", str(path)],
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env=self.environment())
        used = os.wait4(process.pid, 0)[2]
        process.returncode = 0  # it is reaped
        return used.ru_utime + used.ru_stime

    def row(self):
        text = self.log.read_text(errors="replace")

        def last(pattern):
            found = re.findall(pattern, text)
            return found[-1] if found else "?"

        executions = str(sum(map(int, re.findall(r"stat::number_of_executed_units: +(\d+)", text))))
        return [self.target, f"{self.processor_s:.0f}", executions,
                last(r" cov: (\d+)"), last(r" ft: (\d+)"), last(r" corp: (\d+)/"), last(r"stat::peak_rss_mb: +(\d+)"),
                str(len(self.found()))]

    def found(self):
        return sorted(self.findings.iterdir())

    def complaint(self):
        """None when all was well."""
        if self.status == 0 and not self.found():
            return None
        lines = [f"fuzz: {self.target} ended with status {self.status}; {self.log} says how"]
        lines += [f"fuzz:   {self.binary()} {path}" for path in self.found()]
        return "\n".join(lines)


def main(seconds, targets):
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        runs = list(pool.map(lambda target: Run(target).run(seconds), targets))
    rows = [["target", "processor s", "executions", "edges", "features", "corpus", "MiB", "findings"]]
    rows += [run.row() for run in runs]
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    for row in rows:
        print(row[0].ljust(widths[0]), *[cell.rjust(w) for cell, w in zip(row[1:], widths[1:])],
              sep="  ")
    complaints = [run.complaint() for run in runs if run.complaint()]
    print(*complaints, sep="\n", file=sys.stderr, end="\n" if complaints else "")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main(int(sys.argv[1]), sys.argv[2:]))
