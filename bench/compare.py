"""Measures the helper beside other programs and prints one table.

Runs as the first process of its own mount, network and pid namespaces (see scripts/bench): all that it starts ends with
it. Argument: the build folder. Exit status 1 when something could not be run, whatever the numbers.
"""

import json
import os
import re
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import time

import network_settings
import probes

PROCESSES, DESCRIPTORS, TCP_SOCKETS, UDP_SOCKETS = 300, 50, 5000, 500
PLACE = "/run/bench"  # only root can write there, and nothing is on disk


def run(*command, **options):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, **options).stdout


def medians(*command, **options):
    """What a program printed as lines of a name and a number."""
    return {name: float(value) for name, value in (line.split() for line in run(*command, **options).splitlines())}


def prepare(build):
    run("mount", "-t", "tmpfs", "-o", "mode=755", "tmpfs", "/run")
    shutil.copytree(f"{build}/bench/Bench.app", f"{PLACE}/Bench.app")
    for program in ("BrimoHelper", "bench_lookup", "bench_probes", "bench_transports", "fifo_queue_bench"):
        shutil.copy(f"{build}/bin/{program}", PLACE)
    os.chdir(PLACE)
    run("mount", "-t", "tmpfs", "-o", "mode=1777", "tmpfs", "/tmp")
    run("mount", "-t", "tmpfs", "-o", "mode=755", "tmpfs", "/var/lib")
    run("ip", "link", "set", "lo", "up")


# --- The environment ---


def hold_sockets(index):
    """Opens one process's share of the sockets; descriptors that are none come first. Returns what can be asked for."""
    tcp, udp = (total // PROCESSES + (index < total % PROCESSES) for total in (TCP_SOCKETS, UDP_SOCKETS))
    while len(os.listdir("/proc/self/fd")) - 1 < DESCRIPTORS - tcp - udp:
        os.open("/dev/null", os.O_RDONLY)
    v4, v6 = socket.create_server(("127.0.0.1", 0)), socket.create_server(("::1", 0), family=socket.AF_INET6)
    kept = [v4, v6] + [socket.create_server(("127.0.0.1", 0)) for _ in range(tcp % 2)]
    connected = {}
    while len(kept) < tcp:
        kinds = (("ipv4", v4, "127.0.0.1"), ("ipv6", v6, "::1"), ("mapped", v4, "::ffff:127.0.0.1"))
        kind, listener, host = kinds[len(kept) // 2 % 3]
        client = socket.socket(socket.AF_INET if kind == "ipv4" else socket.AF_INET6)
        # Bound first: connect() alone may share a port among connections, and then there is no one owner to expect.
        client.bind((host, 0))
        client.connect((host, listener.getsockname()[1]))
        kept += [client, listener.accept()[0]]
        connected[kind] = client
    for _ in range(udp):
        kept.append(socket.socket(socket.AF_INET, socket.SOCK_DGRAM))
        kept[-1].bind(("127.0.0.1", 0))
        kept[-1].connect(("127.0.0.1", 9))
    asked = {"tcp-listener": v4, "tcp-connected": connected["ipv4"], "tcp-mapped": connected["mapped"], "udp": kept[-1]}
    return kept, [(name, name[:3], "127.0.0.1", which.getsockname()[1]) for name, which in asked.items()]


def start_process(index):
    """A process that holds its share until it is killed. Returns the cases that ask for it."""
    reader, writer = os.pipe()
    if not (pid := os.fork()):
        os.close(reader)
        os.dup2(writer, 3)
        os.closerange(4, 1000)
        kept, cases = hold_sockets(index)
        with open(3, "w", closefd=False) as pipe:
            json.dump([len(os.listdir("/proc/self/fd")) - 1, cases], pipe)
        os.dup2(0, 3)
        while True:
            signal.pause()
    os.close(writer)
    with open(reader) as pipe:
        descriptors, cases = json.load(pipe)
    assert descriptors == DESCRIPTORS, descriptors
    return [(*case, pid) for case in cases]


def populate():
    processes = [start_process(index) for index in range(PROCESSES)]
    counts = [len(run("ss", "-H", option).splitlines()) for option in ("-tan", "-uan")]
    assert counts == [TCP_SOCKETS, UDP_SOCKETS], counts
    ages = {0: "oldest", PROCESSES // 2: "middle", PROCESSES - 1: "newest"}
    # Eight in all, which is how many owners the helper remembers.
    ages |= {PROCESSES * number // 6: f"other{number}" for number in (1, 2, 4, 5)} | {PROCESSES // 4: "other"}
    return [(f"{name}/{age}", *rest) for index, age in ages.items() for name, *rest in processes[index]]


# --- The measurements; times in microseconds ---


def time_of(*command, repetitions=15):
    """Median time of a program from its start to its end, its output thrown away."""
    times = []
    for _ in range(repetitions):
        start = time.perf_counter()
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
        times.append(1e6 * (time.perf_counter() - start))
    return statistics.median(times)


def as_lines(cases):
    return "".join(" ".join(map(str, case)) + "\n" for case in cases)


def in_process(cases):
    output = run("./bench_lookup", "--benchmark_format=json", "--benchmark_min_time=0.05",
                 "--benchmark_report_aggregates_only=true", input=as_lines(cases))
    results = {}
    for entry in json.loads(output)["benchmarks"]:
        assert not entry.get("error_occurred"), entry
        if entry["aggregate_name"] == "median":
            name = entry["run_name"].split("/iterations:")[0].split("/repeats:")[0]
            results[name] = entry["real_time"] / 1000
    return results


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
    """Round trips among processes that may run on these processors alone."""
    everywhere = os.sched_getaffinity(0)
    os.sched_setaffinity(0, processors)
    bus = start_bus(f"{PLACE}/bus{len(processors)}")
    rounds = []
    for _ in range(7):  # in turn, so that a busy machine is busy for all of them
        rounds.append(client("version", "2000") | medians("./bench_transports", "seqpacket", "2000")
                      | medians("./bench_transports", "dbus", "2000", bus))
    os.sched_setaffinity(0, everywhere)
    return {name: statistics.median(each[name] for each in rounds) for name in rounds[0]}


def queues():
    """Processor time by operation, size of arrays, and queue; other programs disturb it less than time."""
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


def print_lookups(cases, own, remote, tools):
    print(f"process-lookup among {PROCESSES} processes of {DESCRIPTORS} descriptors, {TCP_SOCKETS} TCP and "
          f"{UDP_SOCKETS} UDP sockets; medians in ms, in parentheses how many times faster than ss\n"
          "(cold: nothing looked up before; warm: its owner just found; mapped: IPv4 connection of an IPv6 socket)")
    print(f"{'socket/its process':22}{'ss':>8}{'lsof':>8}{'in process: cold':>22}{'warm':>16}{'endpoint: cold':>22}"
          f"{'warm':>16}")
    worst = {}
    for name, protocol, *_ in cases:
        ss = tools["ss", "tcp-listener" if "listener" in name else protocol]
        line = f"{name:22}{ss / 1000:8.1f}{tools['lsof', protocol] / 1000:8.1f}"
        for table, kind, width in ((own, "cold", 22), (own, "warm", 16), (remote, "cold", 22), (remote, "warm", 16)):
            ratio = ss / table[f"{kind}/{name}"]
            if table is own:
                worst[kind] = min(ratio, worst.get(kind, ratio))
            text = f"{table[f'{kind}/{name}'] / 1000:.2f} ({ratio:.1f}x)"
            line += f"{text:>{width}}"
        print(line)
    for kind in ("tcp-listener", "tcp-connected", "tcp-mapped", "udp"):
        ss, value = tools["ss", kind if "listener" in kind else kind[:3]], own[f"turns/{kind}"]
        print(f"{kind + '/8 in turn':22}{ss / 1000:8.1f}{'':30}{f'{value / 1000:.2f} ({ss / value:.1f}x)':>16}")
        worst["warm"] = min(ss / value, worst["warm"])
    print("  " + goal(f"warm in process at least 40 times faster than ss ({worst['warm']:.1f}x at worst)", worst["warm"] >= 40))
    print("  " + goal(f"cold in process no slower than ss ({worst['cold']:.1f}x at worst)", worst["cold"] >= 1))


def print_throughput(name, rates):
    print(f"\nlook-ups a second of {name} through the client library")
    for threads in (1, 8):
        waiting, together = (rates[f"throughput/{name}/{threads}-threads/{count}-under-way"] for count in (threads, 64))
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
    prepare(os.path.abspath(sys.argv[1]))
    processors = os.sched_getaffinity(0)
    trips, narrow = round_trips(processors), round_trips({min(processors)})
    start = client("start", "21")
    fifo = queues()
    probed = probes.measure()
    settings = network_settings.measure(f"{PLACE}/BrimoHelper", client)
    cases = populate()
    own = in_process(cases)
    cases = [case for case in cases if "/other" not in case[0]]
    remote = client("lookup", "11", input=as_lines(cases))
    rates = client("throughput", "4000", input=as_lines(cases[:1]))
    tools = {
        ("ss", "tcp-listener"): time_of("ss", "-tlnp"),
        ("ss", "tcp"): time_of("ss", "-tnp"),
        ("ss", "udp"): time_of("ss", "-unp"),
        ("lsof", "tcp"): time_of("lsof", "-nP", "-iTCP"),
        ("lsof", "udp"): time_of("lsof", "-nP", "-iUDP"),
    }

    print_lookups(cases, own, remote, tools)
    print_throughput(cases[0][0], rates)
    own_trip, bare, bus = (trips[name] for name in ("version", "seqpacket", "dbus"))
    print('\nround trip of "version", medians in µs; on one processor, nothing waits for another to wake up')
    print(f"{'':22}{'any processor':>16}{'one processor':>16}")
    for text, name in (("through the endpoint", "version"), ("bare SOCK_SEQPACKET", "seqpacket"),
                       ("through dbus-daemon", "dbus")):
        print(f"{text:22}{trips[name]:16.1f}{narrow[name]:16.1f}")
    print("  " + goal(f"faster than dbus-daemon ({bus / own_trip:.2f}x)", own_trip < bus))
    print("  " + goal(f"within twice the bare round trip ({own_trip / bare:.2f}x)", own_trip <= 2 * bare))

    print("\nstart, and memory after the first reply, medians")
    print(f"{'exec to first reply':22}{start['start'] / 1000:8.1f} ms")
    for name in ("VmRSS", "Pss", "Private"):
        print(f"{name:22}{start[name] / 1024:8.1f} MiB")
    print("  " + goal("first reply in less than 50 ms", start["start"] < 50_000))
    print("  " + goal("VmRSS less than 12 MiB", start["VmRSS"] < 12 * 1024))
    probes.print_table(probed)
    network_settings.print_table(settings, goal)
    print_queues(fifo)


main()
