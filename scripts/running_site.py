"""A site in a temporary folder: configd with its broker, the node, and whatever else is started with them.

Everything is on 127.0.0.1 and on ports of its own; leaving the site ends what it started.
"""

import json
import os
import pathlib
import random
import re
import signal
import socket
import subprocess
import sys
import threading
import time

SOUNDS = pathlib.Path("/usr/share/asterisk/sounds")
RULE = 1

claims = []  # sockets that claim ports

# A view of the file system in which /dev is the given folder, so that the node's syslog lines arrive in
# its "log". The devices that programs expect are bound into it.
PRIVATE_DEV = """
for device in null zero full random urandom; do
  touch "$0/$device" && mount --bind "/dev/$device" "$0/$device" || exit 1
done
mount --rbind "$0" /dev && exec "$@"
"""


def prompts_folder(language):
    return next(folder for folder in sorted(SOUNDS.iterdir()) if folder.name.startswith(language))


def free_udp_port():
    """For a process that binds it later: none of those that the kernel gives to sockets which ask for any, and none
    that this process or another test has got here or from tests/support/udp_receiver.h: a socket of the port's name
    claims it until this process ends."""
    while True:
        port = random.randrange(10000, 32768)
        claim = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
            try:
                claim.bind(f"\0corvanth-test-port-{port}")
                probe.bind(("", port))
            except OSError:
                claim.close()
                continue
        claims.append(claim)
        return port


def load_result(load, log):
    """What `corvanth load --json` found, once it has ended."""
    output, _ = load.communicate()
    if not output:
        sys.exit("corvanth load: " + log.read_text(errors="replace"))
    return json.loads(output)


class Syslog:
    """Keeps the node's newest block of counters."""

    def __init__(self, folder):
        self.dev = folder / "dev"
        self.dev.mkdir()
        self.counters = {}
        self.blocks = 0
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(str(self.dev / "log"))
        threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        while text := self.socket.recv(65536).decode(errors="replace"):
            if "* packet queue" not in text:
                continue
            found = re.findall(r"^\* (.*?)\.*: (\d+) *\*?$", text, re.MULTILINE)
            self.counters = {label: int(value) for label, value in found}
            self.blocks += 1

    def fresh_counters(self, seconds=30):
        """Of the block after the next, which is written from now on: the next one may be on its way already. One comes
        every five seconds."""
        wanted = self.blocks + 2
        deadline = time.monotonic() + seconds
        while self.blocks < wanted and time.monotonic() < deadline:
            time.sleep(0.05)
        if self.blocks < wanted:
            sys.exit("the node writes no counters")
        return dict(self.counters)


class Site:
    """Started in order, ended in reverse."""

    def __init__(self, executables, folder, samples):
        self.folder = folder
        self.samples = samples
        self.tool = str(executables / "corvanth")
        self.node = str(executables / "corvanthmedianode")
        self.media_port = free_udp_port()
        self.rules = folder / "rules.json"
        self.kafka_conf = folder / "kafka.conf"
        self.processes = []

    def __enter__(self):
        # So that what was started ends also when this process is told to.
        signal.signal(signal.SIGTERM, lambda *_: sys.exit("ended by a signal"))
        return self

    def __exit__(self, *_):
        for name, process in reversed(self.processes):
            if process.poll() is None:
                process.send_signal(signal.SIGTERM)
            try:
                if process.wait(timeout=20) != 0:
                    print(f"{name} ended with status {process.returncode}", file=sys.stderr)
            except subprocess.TimeoutExpired:
                process.kill()

    def start(self, name, arguments, environment=None):
        log = open(self.log_path(name), "wb")
        process = subprocess.Popen(arguments, stdout=subprocess.PIPE, stderr=log, env=environment)
        self.processes.append((name, process))
        return process

    def log_path(self, name):
        return self.folder / (name + ".log")

    def wait_for_log(self, name, text, seconds):
        process = dict(self.processes)[name]
        deadline = time.monotonic() + seconds
        while text not in (content := self.log_path(name).read_text(errors="replace")):
            if process.poll() is not None or time.monotonic() > deadline:
                sys.exit(f"{name} did not get ready:\n{content[-3000:]}")
            time.sleep(0.05)

    def start_configd(self, brokers=None, options=()):
        """With a broker of its own, or at others, HOST:PORT. A rules file that is there is left as it is."""
        if not self.rules.exists():
            self.rules.write_text(json.dumps({"rules": [{"id": RULE, "samples": ["*"], "threshold": 4.5}]}))
        broker = ["--brokers", brokers] if brokers else ["--embedded-broker"]
        configd = self.start("configd", [
            self.tool, "configd", *broker, "--samples", str(self.samples), "--rules", str(self.rules),
            "--state", str(self.folder / "state.json"), "--write-kafka-conf", str(self.kafka_conf),
            "--node-topic", f"corvanth_medianode_127o0o0o1_{self.media_port}", *options])
        if brokers:
            self.wait_for_log("configd", "CONFIGD: ready", 60)
        # Printed once the broker takes connections.
        elif not configd.stdout.readline().startswith(b"broker "):
            sys.exit("configd did not start:\n" + self.log_path("configd").read_text())

    def start_node(self, syslog=None, settings=""):
        """With a Syslog, in a private view of /dev: as root, or where unprivileged users may have one."""
        arguments = [self.node, "--config", str(self.folder / "none.conf"),
                     "--args", f"port={self.media_port}" + ("," + settings if settings else "")]
        if syslog:
            rights = [] if os.geteuid() == 0 else ["--map-root-user"]
            arguments = ["unshare", "--mount", *rights, "sh", "-c", PRIVATE_DEV, str(syslog.dev), *arguments]
        process = self.start("node", arguments, {**os.environ, "CORVANTH_KAFKA_CONF": str(self.kafka_conf)})
        # The first alone may be for a database that still lacks samples.
        for text in ("PACKETS_READER: thread", "successfully built"):
            self.wait_for_log("node", text, 60)
        return process
