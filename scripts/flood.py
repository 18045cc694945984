"""Floods a node while it serves good calls, and checks that these do not notice.

A hundred two-sided calls come through a relay that copies, cuts, repeats and imitates their packets 50,000 times a
second. Each part has a third of the time and a node of its own:

  sources  media_sources names the good source; the flood comes from another and ends, switches off and garbles the
           good calls by name. All of it is refused.
  open     no limit is set. Besides noise, cut and repeated packets the flood names a new call with every spoofed
           one: a node has to hold each of them until it times out.
  limit    session_limit and report_destinations are set, and the flood makes calls with audio, media times far
           ahead and report addresses anywhere. The good calls are there before it; as the table is full of the
           flood's calls, others would find no place.

Checked in each: every finding of the good calls is reported once and none is wrong; every datagram sent is counted
as accepted, rejected, refused or dropped; resident memory stays under the part's bound; what is refused is said, and
in one line in five seconds at most; the node ends cleanly. `flood --help` tells about the generator, `corvanth load
--help` about the good calls.
"""

import argparse
import json
import pathlib
import re
import signal
import sys
import tempfile
import time

import capacity
import node_counters
import running_site

CALLS = 100
RATE = 50000
PROMPTS = 20
RAMP_S = 2
AFTER_S = RAMP_S + 3  # until the flood, in the part whose good calls are there before it
TIMEOUT_S = 300  # of a session
# The pool of packet buffers and the queue, when all of it has been used once, and the node itself.
BASE_MIB = 320
SESSION_BYTES = 400  # of a call that has no audio
CALL_MIB = 0.2  # of a call with both sides' analysers
SESSION_LIMIT = 1000
# Of the flood's datagrams the default buffer holds 0.3 seconds; a machine that others share keeps a thread waiting
# for longer than that.
BUFFER = f"media_receive_buffer_bytes={64 << 20}"


def fresh_sessions(seconds):
    """Spoofed packets of a second that make a session, for as long as they last and the session lives."""
    return RATE / 4 * 3 / 4 * min(seconds, TIMEOUT_S)


# What differs: the node's settings, the flood's options, seconds of a call (None: all of the time), what must be
# refused, and the bound on resident memory in MiB.
PARTS = {
    "sources": ("media_sources=127.0.0.1", ["--source", "127.0.0.2", "--spoof", "good"], 10, ["source"],
                lambda seconds: BASE_MIB),
    "open": ("", ["--source", "127.0.0.2", "--spoof", "fresh"], 10, [],
             lambda seconds: BASE_MIB + fresh_sessions(seconds) * SESSION_BYTES / 2**20),
    "limit": (f"session_limit={SESSION_LIMIT},report_destinations=127.0.0.1",
              ["--source", "127.0.0.2", "--spoof", "few", "--after", str(AFTER_S)], None,
              ["session", "destination"], lambda seconds: BASE_MIB + SESSION_LIMIT * CALL_MIB),
}


def peak_mib(pid):
    return int(re.search(r"VmHWM:\s*(\d+)", pathlib.Path(f"/proc/{pid}/status").read_text())[1]) / 1024


def stop(process):
    process.send_signal(signal.SIGTERM)
    output, _ = process.communicate(timeout=20)
    if process.returncode != 0:
        sys.exit(f"flood: {process.args[0]} ended with status {process.returncode}")
    return output


class Part:
    def __init__(self, name, executables, folder, seconds):
        self.name, self.executables, self.folder, self.seconds = name, executables, folder, seconds
        self.settings, self.flood_options, self.call_length, self.refused, self.bound = PARTS[name]

    def run(self):
        self.syslog = running_site.Syslog(self.folder)
        with running_site.Site(self.executables, self.folder, self.folder / "samples") as site:
            capacity.copy_prompts(PROMPTS, site.samples)
            site.start_configd()
            node = site.start_node(self.syslog, ",".join(filter(None, [BUFFER, self.settings])))
            relay_port = running_site.free_udp_port()
            relay = site.start("flood", [
                str(self.executables / "flood"), "--listen", str(relay_port), "--to", f"127.0.0.1:{site.media_port}",
                "--rate", str(RATE), *self.flood_options])
            relay.stdout.readline()
            load = self.start_load(site, relay_port)
            before = time.monotonic()
            cpu = capacity.Processors(node.pid)
            calls = running_site.load_result(load, self.folder / "load.log")
            cpu_shares, elapsed = cpu.shares(), time.monotonic() - before
            sent = json.loads(stop(relay))
            # The queue is empty long before the block after the next.
            counters = self.syslog.fresh_counters()
            peak = peak_mib(node.pid)
            stop(node)
            log = site.log_path("node").read_text(errors="replace")
        return self.judge(calls, sent, counters, node_counters.said(log), peak, elapsed, cpu_shares)

    def start_load(self, site, port):
        """Many scripts of long calls would take memory and time to write."""
        length = self.call_length or self.seconds + RAMP_S + 1
        return site.start("load", [
            site.tool, "load", str(running_site.prompts_folder("fr")), "--json", "--to", f"127.0.0.1:{port}",
            "--samples", str(site.samples), "--rules", str(site.rules), "--rule", str(running_site.RULE),
            "--calls", str(CALLS), "--ramp", str(RAMP_S), "--duration", str(self.seconds),
            "--call-length", str(length), "--scripts", "16" if self.call_length else "4", "--share", "1"])

    def judge(self, calls, sent, counters, lines, peak, elapsed, cpu):
        account = node_counters.Account(counters, lines)
        all_sent = sent["good"] + sent["flood"]
        bound = self.bound(elapsed)
        print(f"{self.name}: {calls['calls']} calls, {calls['reported']} findings of {calls['expected']}, "
              f"{calls['missing']} missing, {calls['wrong']} wrong; last packet to report p99 "
              f"{calls['after_packet_ms']['p99']:.1f} ms\n"
              f"  {sent['good']} good packets and {sent['flood']} of the flood in {sent['flood_seconds']:.0f} s "
              f"({sent['flood'] / max(sent['flood_seconds'], 1):.0f} a second)\n"
              f"  {account}: {account.counted} of {all_sent}\n"
              f"  refused sessions {lines['session'][1]}, report addresses {lines['destination'][1]}\n"
              f"  resident at most {peak:.0f} MiB, bound {bound:.0f} MiB; sessions at the end "
              f"{counters['session number']}\n"
              f"  node, of one processor: " + ", ".join(f"{name} {share:.0%}" for name, share in cpu.items()
                                                       if share >= 0.01), flush=True)
        most_lines = elapsed / 5 + 3
        checks = {
            "findings of good calls are missing or wrong": not calls["missing"] and not calls["wrong"],
            "the good calls have no findings": calls["expected"] > 0,
            "good packets were lost before the node": calls["packets_sent"] == sent["good"]
                and not sent["good_dropped"] + sent["good_refused"] + sent["flood_refused"],
            "the generator did not keep its pace": sent["flood"] >= 0.99 * RATE * sent["flood_seconds"]
                and sent["flood_seconds"] >= 0.9 * self.seconds - AFTER_S,
            "the counters do not add up to what was sent": account.counted == all_sent,
            "packets are left in the queue": counters["packet queue elements number"] == 0,
            "the node uses more memory than its bound": peak <= bound,
            "there are more than the session limit": self.name != "limit"
                or counters["session number"] <= SESSION_LIMIT,
        }
        for kind, (count, total) in lines.items():
            checks[f"lines about {kind}: {count} in {elapsed:.0f} s"] = count <= most_lines
            if kind != "kernel":
                checks[f"refused by {kind}: {total}"] = (total > 0) == (kind in self.refused)
        if self.name == "sources":
            checks["the flood was not refused whole"] = account.refused + account.kernel >= sent["flood"]
        failed = [what for what, passed in checks.items() if not passed]
        for what in failed:
            print(f"  FAILED: {what}", flush=True)
        return not failed


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("executables", type=pathlib.Path, help="folder of corvanth, corvanthmedianode and flood")
    parser.add_argument("minutes", type=float, help="of the flood, all parts together")
    parser.add_argument("--parts", nargs="+", choices=PARTS, default=list(PARTS))
    options = parser.parse_args()
    seconds = options.minutes * 60 / len(options.parts)
    if not 10 <= seconds <= 3500:
        parser.error("a part takes 10 seconds at least, and less than an hour")
    passed = True
    for name in options.parts:
        with tempfile.TemporaryDirectory(prefix="corvanth-flood-") as folder:
            passed &= Part(name, options.executables.resolve(), pathlib.Path(folder), seconds).run()
    return 0 if passed else 1


if __name__ == "__main__":
    sys.exit(main())
