"""Runs a site under everything at once for a long time, and checks that nothing is lost and nothing grows.

Twice, each for half of the time: the address and undefined behaviour sanitizers' node and configuration manager,
then the release's. A real Kafka broker, configd, a node, and calls from `corvanth load` that end and begin all the
time, with packets lost, late and doubled and features switched under way. Every 20 seconds configd has a new
configuration; every two minutes the broker is restarted or stopped in its tracks for ten seconds (in a
short run once in each half, one way and the other).

What the calls' packets undergo is decided before they are played, so what the node must find in what is left is
known exactly (`corvanth load --help`, --loss and the options beside it). The configurations change event objects,
dead-air options and another rule's recordings and thresholds: what is found in the calls stays the same, but every
database they are matched against is a new one. Not part of it: lost START and TERM packets (a call whose TERM is lost
lives on for 300 seconds), and noise (scripts/flood).

Checked: every finding is reported once and none is wrong; each datagram sent is counted as accepted, rejected or
dropped, and each late and doubled one as a break of its sequence; no call is left over; the node runs with configd's
newest configuration in the end; resident memory does not grow in the second half; every thread of the node has run
in every ten seconds; node and configd end with status 0, the node within 15 seconds, and no sanitizer has a word to
say.
"""

import argparse
import contextlib
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import capacity
import node_counters
import running_site

KAFKA = pathlib.Path(__file__).parent / "kafka"
# Two-sided, at once. The sanitizers' node takes several times the processor time.
CALLS = {"asan-ubsan": 120, "release": 150}
CALL_LENGTH_S = 12
RAMP_S = 3
CONFIGURATION_S = 20
BOUNCE_S = 120
PAUSE_S = 10
THREADS_S = 10
STOP_LIMIT_S = 15
THREADS = ["packet reader", "reports", "kafka consumer", "statistics", "syslog"]
IMPAIRMENTS = ["--loss", "0.01", "--reorder", "0.01", "--duplicate", "0.01", "--switch", "0.4"]
# What a heap moves about without growing, spread over the time that is looked at (the sanitizer keeps freed memory
# back), and what would be noticed in a month.
NOISE_KB = {"asan-ubsan": 16384, "release": 4096}
SLOPE_KB_PER_MINUTE = 50
SANITIZERS = {"ASAN_OPTIONS": "quarantine_size_mb=16:detect_leaks=1", "UBSAN_OPTIONS": "print_stacktrace=1"}
COMPLAINT = re.compile(r"runtime error:|Sanitizer")


def slope(points):
    """Of the straight line that fits (x, y) best."""
    middle_x = sum(x for x, _ in points) / len(points)
    middle_y = sum(y for _, y in points) / len(points)
    return (sum((x - middle_x) * (y - middle_y) for x, y in points)
            / sum((x - middle_x) ** 2 for x, _ in points))


class Broker:
    """A real one, bounced in turn without waiting for it."""

    def __init__(self, folder, restart_first):
        self.restart_next = restart_first
        self.options = ["--dir", str(folder)]
        self.address = subprocess.run([KAFKA, "up", *self.options], stdout=subprocess.PIPE, check=True,
                                      text=True).stdout.strip()
        self.bounces, self.running, self.resume_at = 0, None, None

    def bounce(self):
        self.settle()
        if self.restart_next:
            self.running = subprocess.Popen([KAFKA, "restart", *self.options], stdout=subprocess.DEVNULL)
        else:
            subprocess.run([KAFKA, "pause", *self.options], check=True)
            self.resume_at = time.monotonic() + PAUSE_S
        self.bounces += 1
        self.restart_next = not self.restart_next

    def turn(self):
        if self.resume_at and time.monotonic() >= self.resume_at:
            self.resume_at = None
            subprocess.run([KAFKA, "resume", *self.options], check=True)

    def settle(self):
        """Until it is up."""
        if self.running and self.running.wait(timeout=100) != 0:
            sys.exit("soak: the broker did not come back")
        self.running = None
        if self.resume_at:
            time.sleep(max(0, self.resume_at - time.monotonic()))
            self.turn()

    def down(self):
        self.resume_at = None
        subprocess.run([KAFKA, "down", *self.options], stdout=subprocess.DEVNULL)


class Configurations:
    """The site's rules and recordings, revised again and again."""

    def __init__(self, site, recordings):
        self.site, self.revision = site, 0
        self.judged, self.others = site.samples / "judged", site.samples / "others"
        self.judged.mkdir(parents=True)
        self.others.mkdir()
        for path in recordings[:-6]:
            shutil.copy(path, self.judged)
        self.spare = recordings[-6:]
        self.write()

    def write(self):
        """Another rule's recordings come and go; the calls' own rule says the same with other words."""
        for i, path in enumerate(self.spare):
            wanted, there = (self.revision + i) % 3 != 0, self.others / path.name
            if wanted and not there.exists():
                shutil.copy(path, there)
            elif not wanted:
                there.unlink(missing_ok=True)
        rules = {"rules": [
            {"id": running_site.RULE, "samples": ["judged/*"], "event_object": {"revision": self.revision}},
            {"id": running_site.RULE + 1, "samples": ["others/*", "judged/*"],
             "threshold": 4 + self.revision % 5, "dead_air": {"activity_hits": 5 + self.revision % 7}}]}
        new = self.site.rules.with_suffix(".new")
        new.write_text(json.dumps(rules))
        new.rename(self.site.rules)

    def revise(self):
        self.revision += 1
        self.write()


class Watch:
    """A node's memory and threads over time."""

    def __init__(self, pid):
        self.tasks = pathlib.Path(f"/proc/{pid}/task")
        self.pid = pid
        self.begin = time.monotonic()
        self.memory = []  # minutes, KB
        self.stuck = set()
        self.slices = None

    def look_at_memory(self):
        kb = capacity.resident_mib(self.pid) * 1024
        self.memory.append(((time.monotonic() - self.begin) / 60, kb))

    def look_at_threads(self):
        """A thread that the scheduler has not run since the last look does not even wait with a limit any more."""
        slices = {}
        for task in self.tasks.iterdir():
            with contextlib.suppress(FileNotFoundError, ProcessLookupError):  # it has just ended
                name = "main" if task.name == str(self.pid) else (task / "comm").read_text().strip()
                slices[name] = slices.get(name, 0) + int((task / "schedstat").read_text().split()[2])
        if self.slices:
            self.stuck |= {name for name in ["main", *THREADS] if slices.get(name, 0) <= self.slices.get(name, 0)}
        self.slices = slices

    def growth(self):
        """KB a minute in the second half, and its minutes. Until the packets have gone once through their pool it
        grows."""
        points = self.memory[len(self.memory) // 2:]
        return slope(points), points[-1][0] - points[0][0]


class Soak:
    def __init__(self, build, root, folder, seconds):
        self.build, self.folder, self.seconds = build, folder, seconds
        self.executables = root / build / "bin"
        # The generator has to keep its pace.
        self.load_tool = root / "release" / "bin" / "corvanth"

    def run(self):
        os.environ.update(SANITIZERS)
        syslog = running_site.Syslog(self.folder)
        broker = Broker(self.folder / "kafka", restart_first=self.build == "release")
        try:
            with running_site.Site(self.executables, self.folder, self.folder / "samples") as site:
                english = sorted(running_site.prompts_folder("en").glob("*.wav"))
                long_ones = [path for path in english if path.stat().st_size >= capacity.LEAST_PROMPT_BYTES]
                configurations = Configurations(site, long_ones[::max(1, len(long_ones) // 26)][:26])
                # What a bounce swallows comes again with the next announcement.
                site.start_configd(broker.address, ["--announce-every", "10"])
                node = site.start_node(syslog)
                load = self.start_load(site)
                watch = self.play(load, node, configurations, broker)
                calls = running_site.load_result(load, self.folder / "load.log")
                broker.settle()
                up_to_date = self.wait_for_configuration(site)
                counters = syslog.fresh_counters()
                stop_s = self.stop(node)
                configd = dict(site.processes)["configd"]
                self.stop(configd)
                logs = {name: site.log_path(name).read_text(errors="replace") for name in ("node", "configd")}
        finally:
            broker.down()
        ends = {"node": node.returncode, "configd": configd.returncode}
        return self.judge(calls, counters, watch, configurations, broker, up_to_date, stop_s, ends, logs)

    def start_load(self, site):
        return site.start("load", [
            str(self.load_tool), "load", str(running_site.prompts_folder("fr")), "--json", "--to",
            f"127.0.0.1:{site.media_port}", "--samples", str(site.samples), "--rules", str(site.rules),
            "--rule", str(running_site.RULE), "--calls", str(CALLS[self.build]), "--ramp", str(RAMP_S),
            "--duration", str(self.seconds), "--call-length", str(CALL_LENGTH_S), "--scripts", "24",
            "--drain", "20", "--seed", str(int(time.time())), *IMPAIRMENTS])

    def play(self, load, node, configurations, broker):
        """Until the calls are over: look every second, and do what is due."""
        # In a short run once, not too late for what is new to get through. Not together with a configuration.
        first_bounce_s = min(BOUNCE_S, 0.4 * self.seconds) + 5
        watch = Watch(node.pid)
        actions = [[1, 1, watch.look_at_memory], [THREADS_S, THREADS_S, watch.look_at_threads],
                   [CONFIGURATION_S, CONFIGURATION_S, configurations.revise], [first_bounce_s, BOUNCE_S, broker.bounce]]
        while load.poll() is None:
            if node.poll() is not None:
                sys.exit("soak: the node ended:\n" + (self.folder / "node.log").read_text(errors="replace")[-5000:])
            for action in actions:
                now = time.monotonic() - watch.begin
                if now >= action[0]:
                    # Its beat, but after a stall a new one: two looks at the threads are never close together.
                    action[0] = max(action[0], now - 1) + action[1]
                    action[2]()
            broker.turn()
            time.sleep(0.1)
        return watch

    def wait_for_configuration(self, site):
        """Whether the node has built the database of the version that configd announced last."""
        deadline = time.monotonic() + 90
        while time.monotonic() < deadline:
            announced = json.loads((self.folder / "state.json").read_text())["sample_configuration"]["version"]
            if f"database version ({announced}) successfully built" in site.log_path("node").read_text(errors="replace"):
                return True
            time.sleep(1)
        return False

    @staticmethod
    def stop(process):
        begin = time.monotonic()
        process.send_signal(signal.SIGTERM)
        try:
            process.wait(timeout=60)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
        return time.monotonic() - begin

    def judge(self, calls, counters, watch, configurations, broker, up_to_date, stop_s, ends, logs):
        account = node_counters.Account(counters, node_counters.said(logs["node"]))
        grown, minutes = watch.growth()
        bound = SLOPE_KB_PER_MINUTE + NOISE_KB[self.build] / minutes
        built = len(re.findall(r"database version \(\d+\) successfully built", logs["node"]))
        breaks = counters["session sequence break errors number"]
        print(f"{self.build}: {calls['calls']} calls, {calls['calls_at_once']} at once, in {self.seconds / 60:.1f} minutes;"
              f" findings {calls['reported']} of {calls['expected']}, {calls['missing']} missing, {calls['wrong']} wrong\n"
              f"  {calls['packets_sent']} datagrams sent, {calls['packets_left_out']} left out, "
              f"{calls['packets_repeated']} late or doubled; {account}: {account.counted}\n"
              f"  {configurations.revision} new configurations, {built} databases built, "
              f"{broker.bounces} bounces of the broker; last packet to report p99 {calls['after_packet_ms']['p99']:.1f} ms\n"
              f"  resident {watch.memory[-1][1] / 1024:.0f} MiB, slope {grown:+.0f} KB/min, bound {bound:.0f}; "
              f"stopped in {stop_s:.1f} s", flush=True)
        for example in calls.get("examples", []):
            print(f"  {example}", flush=True)
        checks = {
            "findings are missing or wrong": not calls["missing"] and not calls["wrong"] and calls["expected"] > 0,
            "the generator could not send everything": not calls["packets_refused"] + calls["reports_dropped"],
            "the counters do not add up to what was sent": account.counted == calls["packets_sent"],
            f"{breaks} packets broke their sequence": breaks == calls["packets_repeated"],
            f"{counters['session number']} calls are left over": counters["session number"] == 0,
            "calls were not known, or known twice": not counters["session unknown index errors number"]
                + counters["session existing index errors number"],
            "the node does not run with the newest configuration": up_to_date,
            "resident memory grows": grown <= bound,
            f"threads are stuck: {', '.join(sorted(watch.stuck))}": not watch.stuck,
            "the node's threads were not seen": bool(watch.slices) and set(THREADS) <= set(watch.slices),
            f"the node took {stop_s:.1f} s to stop": stop_s <= STOP_LIMIT_S,
        }
        for name, status in ends.items():
            checks[f"{name} ended with status {status}"] = status == 0
            complaint = COMPLAINT.search(logs[name])
            checks[f"{name}: " + (logs[name][complaint.start():][:3000] if complaint else "")] = not complaint
        failed = [what for what, passed in checks.items() if not passed]
        for what in failed:
            print(f"  FAILED: {what}", flush=True)
        return not failed


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("root", type=pathlib.Path, help="folder of the builds")
    parser.add_argument("minutes", type=float, help="of calls, all builds together")
    parser.add_argument("--builds", nargs="+", choices=CALLS, default=list(CALLS))
    options = parser.parse_args()
    seconds = options.minutes * 60 / len(options.builds)
    if seconds < 30:
        parser.error("a build takes 30 seconds at least")
    passed = True
    for build in options.builds:
        with tempfile.TemporaryDirectory(prefix="corvanth-soak-") as folder:
            passed &= Soak(build, options.root.resolve(), pathlib.Path(folder), seconds).run()
    return 0 if passed else 1


if __name__ == "__main__":
    sys.exit(main())
