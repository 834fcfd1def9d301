"""Measures set-proxy for 1, 10 and 100 services, without NetworkManager and with a connection for each."""

import re
import sys
import unittest
from pathlib import Path

sys.path.append(str(Path(__file__).resolve().parent.parent / "tests/system"))
from network_manager import NetworkManager
from system_bus import SystemBus

COUNTS = (1, 10, 100)
ROUNDS = 15


def synchronisations(helper, client, lines):
    """Counts disk synchronisations per set-proxy: of the store when the services are applied for the first time, of the store
    later, and of the log."""
    trace, traced = Path("trace"), Path("traced_helper")
    # The tracer is the helper's grandchild, so that the helper keeps the PID that LISTEN_PID names.
    traced.write_text(f"#!/bin/sh\nexec strace -D -f -y -e trace=fsync,fdatasync -o trace {helper}\n")
    traced.chmod(0o755)
    counts = {}
    for line in lines:
        for projected in Path("/var/lib").glob("*/projected.json"):
            projected.unlink()
        in_store, in_all = [], []
        for _ in ("first", "later"):
            client("proxies", "1", helper="./traced_helper", input=line)
            paths = re.findall(r"f(?:data)?sync\(\d+<([^>]*)>\)\s*= 0", trace.read_text())
            in_store.append(sum(path.startswith("/var/lib/") for path in paths))
            in_all.append(len(paths))
        counts[line.split()[0]] = *in_store, in_all[1] - in_store[1]
    return counts


def measure(helper, client):
    """The times that bench_client prints, and the synchronisations: without NetworkManager and with it."""
    test = unittest.TestCase()  # no clean-up: everything ends with the namespaces
    results = {}
    identifiers = [f"service{number}" for number in range(max(COUNTS))]
    for where in ("without", "with"):
        if where == "with":
            SystemBus(test)
            manager = NetworkManager(test)
            identifiers = manager.add_connections(max(COUNTS), "nm0")
        lines = [" ".join([str(count), *identifiers[:count]]) + "\n" for count in COUNTS]
        times = client("proxies", str(ROUNDS), input="".join(lines))
        results[where] = times, synchronisations(helper, client, lines)
    return results


def print_table(results, goal):
    print(f"""
set-proxy through the endpoint, medians of {ROUNDS} in ms; store and log are in memory, NetworkManager's connections are idle
("Singly" sends one command for each service. "fsync" counts the calls of one command. "First" and "later" are those for the
store, while its services are new and after that; "log" are those for the log, which synchronises every line.)""")
    print(f"{'':34}{'together':>10}{'singly':>10}{'fsync: first':>14}{'later':>8}{'log':>6}")
    stores = set()
    for where, (times, counts) in results.items():
        for count in map(str, COUNTS):
            name = f"{count} service{'s' * (count != '1')}, {where} NetworkManager"
            first, later, log = counts[count]
            stores.add((where, first, later))
            together, singly = (times[f"{how}/{count}"] / 1000 for how in ("together", "singly"))
            print(f"{name:34}{together:10.2f}{singly:10.2f}{first:14}{later:8}{log:6}")
    print("  " + goal("one commit whatever the number of services: two fsync calls, and two more for new ones",
                      stores == {("without", 2, 2), ("with", 4, 2)}))
