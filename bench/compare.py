"""Compares the helper with other programs and prints each table as soon as it is measured.

Runs as the first process of its own mount, network and PID namespaces (see scripts/bench), so everything that it starts ends
with it. Argument: the build folder. The exit status is 1 if something could not be run, but 0 if only a goal is missed.
"""

import json
import os
import re
import socket
import shutil
import statistics
import subprocess
import sys

import connections
import network_settings
import probes

PLACE = "/run/bench"  # only root can write here; a tmpfs


def run(*command, **options):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, **options).stdout


def medians(*command, **options):
    """Runs a program and parses its output, lines with a name and a number."""
    return {name: float(value) for name, value in (line.split() for line in run(*command, **options).splitlines())}


def prepare(build):
    disk = f"{build}/bench/disk"
    os.makedirs(disk, mode=0o755, exist_ok=True)
    run("mount", "-t", "tmpfs", "-o", "mode=755", "tmpfs", "/run")
    shutil.copytree(f"{build}/bench/Bench.app", f"{PLACE}/Bench.app")
    for program in ("BrimoHelper", "bench_probes", "bench_transports", "fifo_queue_bench", "json_bench"):
        shutil.copy(f"{build}/bin/{program}", PLACE)
    os.chdir(PLACE)
    run("mount", "-t", "tmpfs", "-o", "mode=1777", "tmpfs", "/tmp")
    run("mount", "-t", "tmpfs", "-o", "mode=755", "tmpfs", "/var/lib")
    run("ip", "link", "set", "lo", "up")
    return disk


# --- Measurements; times in microseconds ---


def client(*arguments, helper=f"{PLACE}/BrimoHelper", **options):
    return medians("./Bench.app/Contents/MacOS/Brimo", helper, *arguments, **options)


def start_bus(path):
    with open("bus.conf", "w") as config:
        config.write(f"""<busconfig><listen>unix:path={path}</listen><auth>EXTERNAL</auth><policy context="default">
            <allow user="*"/><allow own="*"/><allow send_destination="*"/><allow receive_sender="*"/>
            </policy></busconfig>""")
    bus = subprocess.Popen(["dbus-daemon", "--nofork", "--config-file=bus.conf", "--print-address=1"],
                           stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    address = bus.stdout.readline().decode().strip()
    assert address, "dbus-daemon does not start"
    return address


def round_trips(processors):
    """Round trips between processes that run only on the given processors."""
    everywhere = os.sched_getaffinity(0)
    os.sched_setaffinity(0, processors)
    bus = start_bus(f"{PLACE}/bus{len(processors)}")
    rounds = []
    for _ in range(7):  # alternates between the programs, so that load on the machine affects all of them
        rounds.append(client("version", "2000") | medians("./bench_transports", "seqpacket", "2000")
                      | medians("./bench_transports", "dbus", "2000", bus))
    os.sched_setaffinity(0, everywhere)
    return {name: statistics.median(each[name] for each in rounds) for name in rounds[0]}


def log_on_disk(folder, processors):
    """The round trip of "version" with the log file on the build folder's disk and each line synchronised."""
    run("mount", "--bind", folder, "/tmp")
    everywhere = os.sched_getaffinity(0)
    os.sched_setaffinity(0, processors)
    trip = client("version", "500")["version"]
    os.sched_setaffinity(0, everywhere)
    run("umount", "/tmp")
    return trip


def queues():
    """Processor time by operation, array size and queue. Load on the machine changes it less than it changes elapsed time."""
    output = run("./fifo_queue_bench", "--benchmark_format=json", "--benchmark_min_time=0.1", "--benchmark_repetitions=5",
                 "--benchmark_enable_random_interleaving=true", "--benchmark_report_aggregates_only=true")
    results = {}
    for entry in json.loads(output)["benchmarks"]:
        if entry["aggregate_name"] == "median":
            operation, queue, size = re.fullmatch(r"(\w+)<(\w+)>/?(\d*)", entry["run_name"]).groups()
            results.setdefault((operation, size), {})[queue] = entry["cpu_time"]  # milliseconds
    return results


# --- The table ---


def goal(text, met):
    return f"{text}: {'met' if met else 'MISSED'}"


def print_round_trips(trips, narrow, disk):
    print('\nround trip of "version", medians in µs; on one processor, no other processor has to wake up')
    print(f"{'':32}{'any processor':>16}{'one processor':>16}")
    for text, name in (("through the endpoint", "version"), ("bare SOCK_SEQPACKET", "seqpacket"),
                       ("through dbus-daemon", "dbus")):
        print(f"{text:32}{trips[name]:16.1f}{narrow[name]:16.1f}")
    print(f"{'through the endpoint, log on disk':32}{'':16}{disk:16.1f}")
    print("  " + goal(f"faster than dbus-daemon ({trips['dbus'] / trips['version']:.2f}x)", trips["version"] < trips["dbus"]))
    ratio = narrow["version"] / narrow["seqpacket"]
    print("  " + goal(f"on one processor within three times the bare round trip ({ratio:.2f}x)", ratio <= 3))


def print_start(start):
    print("\nstart, and memory after the first reply, medians")
    print(f"{'exec to first reply':22}{start['start'] / 1000:8.1f} ms")
    for name in ("VmRSS", "Pss", "Private"):
        print(f"{name:22}{start[name] / 1024:8.1f} MiB")
    print("  " + goal("first reply in less than 50 ms", start["start"] < 50_000))
    print("  " + goal("VmRSS less than 12 MiB", start["VmRSS"] < 12 * 1024))


def print_numbers():
    output = run("./json_bench", "--benchmark_format=json", "--benchmark_min_time=1")
    rate = json.loads(output)["benchmarks"][0]["bytes_per_second"] / 1e6
    print(f"\n4 MiB of JSON numbers, parsed: {rate:.0f} MB/s\n  " + goal("at least 50 MB/s", rate >= 50))


def print_throughput():
    with socket.create_server(("127.0.0.1", 0)) as server:
        address = "127.0.0.1:%d" % server.getsockname()[1]
        rates = client("throughput", "4000", input=f"tcp {address} {os.getpid()}\n")
    print("\nlook-ups of a listening socket through the client library, per second")
    for threads in (1, 8):
        waiting, together = (rates[f"throughput/{address}/{threads}-threads/{count}-under-way"] for count in (threads, 64))
        print(f"{f'{threads} thread(s)':22}{waiting:10.0f} waiting for each{together:10.0f} with 64 under way")


def print_queues(measured):
    print("\none million elements through HXFIFOQueue and through a std::deque under a mutex, medians of processor time in ms")
    print(f"{'':38}{'HXFIFOQueue':>12}{'std::deque':>12}{'ratio':>8}")
    worst = {}
    for operation, text in (("append", "append"), ("appendToNew", "append to a new queue"), ("peek", "peek at each"),
                            ("drain", "drain one by one"), ("drainAtOnce", "drain at once")):
        for size in ("1", "1000", ""):
            if times := measured.get((operation, size)):
                ratio = times["FIFOQueue"] / times["LockedDeque"]
                name = text + (f", arrays of {size}" if size else "")
                print(f"{name:38}{times['FIFOQueue']:12.1f}{times['LockedDeque']:12.1f}{ratio:8.2f}")
                kind = text.split()[0]
                worst[kind] = max(ratio, worst.get(kind, ratio))
    for kind, ratio in worst.items():
        print("  " + goal(f"{kind} no slower than 1.2 times ({ratio:.2f} at worst)", ratio <= 1.2))


def main():
    disk = prepare(os.path.abspath(sys.argv[1]))
    processors = os.sched_getaffinity(0)
    connections.print_table(connections.measure(client), goal)
    print_round_trips(round_trips(processors), round_trips({min(processors)}), log_on_disk(disk, {min(processors)}))
    print_throughput()
    print_start(client("start", "21"))
    print_numbers()
    print_queues(queues())
    probes.print_table(probes.measure())
    network_settings.print_table(network_settings.measure(f"{PLACE}/BrimoHelper", client), goal)


main()
