"""Finds the largest number of two-sided calls that a node on this machine carries with nothing lost.

A number of calls is carried when, for the whole run, nothing is dropped anywhere (kernel, queue, buffer pool,
packets missing in a sequence, reports), every finding is reported and none is wrong; for the search the load
generator must have been on time, too. Node and load generator share the machine.

The search doubles the calls until they are too many, bisects in short runs, and confirms with a full one: what is
printed has been carried for the full time.
"""

import argparse
import json
import pathlib
import shutil
import subprocess
import sys
import tempfile
import threading
import time

import running_site

RAMP_S = 8
SEARCH_S = 15
WINDOW_S = 15
# That corvanth load plays.
MOST_CALLS = 100000
# Bisection ends when the bounds are this close.
RESOLUTION = 0.05
# A generator that is later has not put the load on the node that it was asked for.
LATEST_MS = 250
# Two seconds of speech and more: all that a prompt needs to be found at any threshold worth setting.
LEAST_PROMPT_BYTES = 2 * 16000
# Counters that must not grow.
LOSSES = [
    "packet queue dropped elements number",
    "packet dropped  by min length",
    "packet dropped  by max length",
    "packet dropped  by failed allocation",
    "packet rejected by corrupted size",
    "session lost packets number",
    "session sequence break errors number",
    "session unknown index errors number",
    "session existing index errors number",
    "session allocation errors number",
    "report queue dropped elements number",
]


def copy_prompts(count, folder):
    """`count` English prompts, spread over all of them; all there are when they are fewer."""
    english = running_site.prompts_folder("en")
    prompts = sorted(english.rglob("*.wav"))
    if count < len(prompts):
        prompts = [path for path in prompts if path.stat().st_size >= LEAST_PROMPT_BYTES]
        prompts = [prompts[i * len(prompts) // count] for i in range(count)]
    folder.mkdir()
    for path in prompts:
        shutil.copy(path, folder / "-".join(path.relative_to(english).parts))
    return len(prompts)


class Processors:
    """Processor time of a process by thread, as a share of one processor."""

    def __init__(self, pid):
        self.tasks = pathlib.Path(f"/proc/{pid}/task")
        self.at = time.monotonic()
        self.before = self.read()

    def read(self):
        times = {}
        for task in self.tasks.iterdir():
            try:
                name, fields = (task / "stat").read_text().rsplit(")", 1)
            except (FileNotFoundError, ProcessLookupError):  # it has just ended
                continue
            fields = fields.split()
            times[(task.name, name.split("(", 1)[1])] = (int(fields[11]) + int(fields[12])) / 100
        return times

    def shares(self):
        seconds = time.monotonic() - self.at
        shares = {}
        for key, after in self.read().items():
            share = (after - self.before.get(key, 0)) / seconds
            shares[key[1]] = shares.get(key[1], 0) + share
        return {name: round(share, 3) for name, share in sorted(shares.items(), key=lambda item: -item[1])
                if share >= 0.0005}


def resident_mib(pid):
    for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines():
        if line.startswith("VmRSS:"):
            return int(line.split()[1]) / 1024


class Trial:
    """A run of a number of calls against a site's node."""

    def __init__(self, site, syslog, node, options):
        self.site, self.syslog, self.node, self.options = site, syslog, node, options

    def run(self, calls, seconds):
        before = self.syslog.fresh_counters()
        log_size = self.site.log_path("node").stat().st_size
        load = subprocess.Popen(
            [self.site.tool, "load", str(running_site.prompts_folder("fr")), "--json",
             "--to", f"127.0.0.1:{self.site.media_port}", "--samples", str(self.site.samples),
             "--rules", str(self.site.rules), "--rule", str(running_site.RULE), "--calls", str(calls),
             "--ramp", str(RAMP_S), "--duration", str(seconds), "--call-length", str(self.options.call_length),
             "--scripts", str(self.options.scripts), "--drain", str(self.options.drain)],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.site.processes.append(("load", load))
        # While it fingerprints nothing is sent; the packets say when the calls begin.
        samples = []
        watcher = threading.Thread(target=self.watch, args=(load, before, seconds, samples))
        watcher.start()
        output, errors = load.communicate()
        self.site.processes.pop()
        watcher.join()
        if not output:
            sys.exit("corvanth load: " + errors.decode())
        result = json.loads(output)
        after = self.syslog.fresh_counters()
        result["losses"] = {label: after[label] - before.get(label, 0) for label in LOSSES
                            if after[label] != before.get(label, 0)}
        with open(self.site.log_path("node"), errors="replace") as log:
            log.seek(log_size)
            dropped = [line for line in log if "the kernel dropped (" in line]
        if dropped:
            result["losses"]["kernel"] = sum(int(line.split("dropped (")[1].split(")")[0]) for line in dropped)
        result.update(samples[0] if samples else {})
        result["reasons"] = self.reasons(result)
        return result

    def watch(self, load, before, seconds, samples):
        """What the node and the generator use in the time with all calls, and how that goes on."""
        started = before["packet queue passed elements number"]
        # The counters are of up to five seconds ago.
        while load.poll() is None and self.syslog.counters["packet queue passed elements number"] == started:
            time.sleep(0.2)
        time.sleep(RAMP_S)
        if load.poll() is not None:
            return
        begin = time.monotonic()
        node, generator = Processors(self.node), Processors(load.pid)
        timeline = []
        while time.monotonic() - begin < seconds * 0.6:
            window = Processors(self.node)
            time.sleep(min(WINDOW_S, seconds * 0.6))
            if load.poll() is not None:
                return
            timeline.append({"at_s": round(RAMP_S + time.monotonic() - begin, 1),
                             "node_cpu": window.shares(), "node_mib": resident_mib(self.node)})
        samples.append({"node_cpu": node.shares(), "load_cpu": generator.shares(),
                        "node_mib": timeline[-1]["node_mib"], "timeline": timeline})

    @staticmethod
    def reasons(result):
        reasons = [f"{label}: {count}" for label, count in result["losses"].items()]
        for what in ("missing", "wrong", "packets_refused", "reports_dropped"):
            if result[what]:
                reasons.append(f"{what}: {result[what]}")
        return reasons


def search(trial, options):
    """The result of the largest number of calls that was carried for the full time."""

    def attempt(calls, seconds):
        result = trial.run(calls, seconds)
        if result["latest_ms"] > LATEST_MS:
            result["reasons"].append(f"the generator was {result['latest_ms']:.0f} ms late")
        say(calls, seconds, result)
        return result

    low, high = 0, options.start
    while not attempt(high, SEARCH_S)["reasons"]:
        low, high = high, min(2 * high, MOST_CALLS)
        if low == high:
            break
    while high - low > max(1, RESOLUTION * high):
        middle = (low + high) // 2
        if attempt(middle, SEARCH_S)["reasons"]:
            high = middle
        else:
            low = middle
    while low:
        result = attempt(low, options.seconds)
        if not result["reasons"]:
            return result
        low = int(low * (1 - RESOLUTION))
    sys.exit("capacity: not a single call is carried")


def say(calls, seconds, result):
    outcome = "carried" if not result["reasons"] else "; ".join(result["reasons"])
    print(f"  {calls} calls, {seconds} s: {outcome}", file=sys.stderr, flush=True)


def describe(result):
    shares = lambda group: ", ".join(f"{name} {share:.1%}" for name, share in result.get(group, {}).items())
    start, packet = result["after_start_ms"], result["after_packet_ms"]
    return "\n".join([
        f"{result['prompts_in_database']} prompts: {result['calls_at_once']} calls at once for "
        f"{result['seconds'] - RAMP_S:.0f} s, {result['packets_sent']} packets, {result['reported']} findings",
        f"  node, of one processor    {shares('node_cpu')}",
        f"  load, of one processor    {shares('load_cpu')}",
        f"  node's resident memory    {result.get('node_mib', 0):.0f} MiB",
        f"  prompt's start to report  median {start['median']:.0f} ms, p95 {start['p95']:.0f}, p99 {start['p99']:.0f}",
        f"  last packet to report     median {packet['median']:.1f} ms, p95 {packet['p95']:.1f}, "
        f"p99 {packet['p99']:.1f}, largest {packet['largest']:.1f}",
        f"  packets behind their time at most {result['latest_ms']:.0f} ms",
        *(f"  NOT CARRIED               {reason}" for reason in result["reasons"])])


def measure(executables, prompts, options):
    with tempfile.TemporaryDirectory(prefix="corvanth-capacity-") as name:
        folder = pathlib.Path(name)
        syslog = running_site.Syslog(folder)
        with running_site.Site(executables, folder, folder / "samples") as site:
            count = copy_prompts(prompts, site.samples)
            site.start_configd()
            node = site.start_node(syslog).pid
            trial = Trial(site, syslog, node, options)
            if options.calls:
                results = [trial.run(calls, options.seconds) for calls in options.calls]
            else:
                results = [search(trial, options)]
            for result in results:
                result["prompts_in_database"] = count
                print(describe(result), flush=True)
            return results


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("executables", type=pathlib.Path, help="folder of corvanth and corvanthmedianode")
    parser.add_argument("--prompts", type=int, nargs="+", default=[10, 100, 568], help="sizes of database (default: 10 100 568)")
    parser.add_argument("--calls", type=int, nargs="+", help="measure just these numbers of calls; no search")
    parser.add_argument("--start", type=int, default=500, help="the search's first number of calls (default: 500)")
    parser.add_argument("--seconds", type=int, default=60, help="length of a full run (default: 60)")
    parser.add_argument("--call-length", type=int, default=60, help="seconds of a call (default: 60)")
    parser.add_argument("--scripts", type=int, default=64, help="different calls (default: 64)")
    parser.add_argument("--drain", type=int, default=5,
                        help="seconds in which the last findings must have come (default: 5)")
    parser.add_argument("--json", type=pathlib.Path, help="write all results to this file, too")
    options = parser.parse_args()
    results = []
    for prompts in options.prompts:
        results += measure(options.executables.resolve(), prompts, options)
    if options.json:
        options.json.write_text(json.dumps(results, indent=1) + "\n")
    return 1 if any(result["reasons"] for result in results) else 0


if __name__ == "__main__":
    sys.exit(main())
