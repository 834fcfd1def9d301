"""Compares look-ups of new connections, as a proxy makes them, with ss and lsof. connections.h describes the measurement."""

DESCRIPTORS = (50, 300)
# The goal for a look-up among 300 processes, as a multiple of the floor.
GOALS = {"1 of 50": 7, "4 of 50": 15, "8 of 50": 25, "8 of 300": 200, "8 of 300, own groups": 50, "12 of 300": 300,
        "new process": 100, "new process, own group": 50}


def cases():
    """The name of a case and its words, as in connections.h."""
    for clients in (1, 4, 8, 12):
        for descriptors in DESCRIPTORS:
            for group in ("shared", "own"):
                name = f"{clients} of {descriptors}" + (", own groups" if group == "own" else "")
                yield name, f"tcp known {clients} {descriptors} {group} alone"
    yield "new process", "tcp new 1 30 shared alone"
    yield "new process, own group", "tcp new 1 30 own alone"
    yield "1 of 50, remote named", "tcp known 1 50 shared remote"
    yield "1 of 50, UDP", "udp known 1 50 shared alone"
    yield "1 of 50, UDP, remote named", "udp known 1 50 shared remote"
    yield "8 of 50, UDP", "udp known 8 50 shared alone"


def lookups(client, processes, chosen):
    lines = "".join(f"{number} {words}\n" for number, (_, words) in enumerate(chosen))
    values = client("connections", str(processes), input=lines)
    return {name: {what: values[f"{number}/{what}"] for what in
                   ("helper", "wall", "wall99", "floor", "ss", "ss-wall", "lsof", "lsof-wall")}
            for number, (name, _) in enumerate(chosen)}


def measure(client):
    few = [case for case in cases() if case[0] in ("1 of 50", "8 of 50", "new process", "1 of 50, UDP")]
    return {300: lookups(client, 300, list(cases())), 2000: lookups(client, 2000, few)}, client("beside", "1000")


def print_table(measured, goal):
    tables, beside = measured
    print("owner of a new connection, medians in µs; \"8 of 300\": 8 clients with 300 descriptors each, among processes with 30\n"
          "(helper: processor time minus that of a refused request; floor: one exact request to the kernel, two readlinks)")
    for processes, table in tables.items():
        print(f"{f'{processes} processes':28}{'helper':>9}{'floor':>7}{'ratio':>7}{'ss':>9}{'lsof':>10}{'wall':>9}"
              f"{'99 %':>9}{'ss':>9}{'lsof':>10}")
        for name, row in table.items():
            print(f"{name:28}{row['helper']:9.1f}{row['floor']:7.1f}{row['helper'] / row['floor']:7.1f}{row['ss']:9.0f}"
                  f"{row['lsof']:10.0f}{row['wall']:9.1f}{row['wall99']:9.1f}{row['ss-wall']:9.0f}{row['lsof-wall']:10.0f}")
    for name, bar in GOALS.items():
        ratio = tables[300][name]["helper"] / tables[300][name]["floor"]
        print("  " + goal(f"{name}: at most {bar} times the floor ({ratio:.1f})", ratio <= bar))
    print(f"\n\"version\" beside {beside['lookups']:.0f} look-ups among 20 processes of 15,000 descriptors: median "
          f"{beside['median'] / 1000:.2f} ms, 99 % {beside['p99'] / 1000:.2f}, worst {beside['worst'] / 1000:.2f}")
    print("  " + goal("median at most 2 ms, 99 % at most 50", beside["median"] <= 2000 and beside["p99"] <= 50_000),
          flush=True)
