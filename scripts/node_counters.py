"""What a node says about the datagrams it got: its counters, and the lines about those that have none."""

import re
import sys

ACCEPTED = ["packet 'start' type number", "packet 'term'  type number", "packet 'data'  type number",
            "packet 'ctrl'  type number"]
REJECTED = ["packet rejected by bad marker", "packet rejected by version", "packet rejected by corrupted size",
            "packet rejected by unknown type"]
DROPPED = ["packet dropped  by min length", "packet dropped  by max length", "packet dropped  by failed allocation",
           "packet queue dropped elements number"]

SAID = {
    "kernel": re.compile(r"the kernel dropped \((\d+)\) datagrams before they were read; \((\d+)\) in all"),
    "source": re.compile(r"\((\d+)\) datagrams refused whose sources are not allowed, .*; \((\d+)\) in all"),
    "session": re.compile(r"\((\d+)\) packets refused that would have made a session; \((\d+)\) in all"),
    "destination": re.compile(r"\((\d+)\) calls named a report address that is not allowed, .*; \((\d+)\) in all"),
}


def said(log):
    """By kind: how many lines a node's whole log has, and the total that the last of them names."""
    result = {}
    for kind, pattern in SAID.items():
        found = pattern.findall(log)
        if found and sum(int(new) for new, _ in found) != int(found[-1][1]):
            sys.exit(f"the node's lines about {kind} do not add up")
        result[kind] = (len(found), int(found[-1][1]) if found else 0)
    return result


class Account:
    """Where every datagram went that was sent to a node."""

    def __init__(self, counters, lines):
        self.accepted, self.rejected, self.dropped = (sum(counters[label] for label in labels)
                                                      for labels in (ACCEPTED, REJECTED, DROPPED))
        self.refused, self.kernel = lines["source"][1], lines["kernel"][1]
        self.counted = self.accepted + self.rejected + self.dropped + self.refused + self.kernel

    def __str__(self):
        return (f"accepted {self.accepted}, rejected {self.rejected}, dropped {self.dropped}, refused by source "
                f"{self.refused}, dropped by the kernel {self.kernel}")
