#!/usr/bin/env python3
"""Prints the table of scripts/bench from the JSON files its benchmark programs wrote.

Every figure is the median over the repetitions of one program run; every ratio divides two
figures of the same run. End-to-end cases are compared with the yardstick of the same client
count: a routed request (and the D-Bus call) with the raw relay, a locally answered request
with the raw one-hop round trip. Per-layer figures are CPU time per operation, which the
machine's load disturbs least.
"""
import json
import os
import sys


def load(directory, name):
    path = os.path.join(directory, name)
    if not os.path.exists(path):
        return None, {}
    with open(path) as file:
        data = json.load(file)
    medians = {}
    for bench in data["benchmarks"]:
        if bench.get("aggregate_name") == "median":
            medians[bench["run_name"]] = bench
    # The spread of the p50 latencies over the repetitions, beside their median.
    for bench in data["benchmarks"]:
        if bench.get("aggregate_name") == "cv" and bench["run_name"] in medians:
            medians[bench["run_name"]]["p50_cv"] = bench.get("p50_us")
    return data["context"], medians


def round_trip(medians, case, clients, arg="clients"):
    for name, bench in medians.items():
        if name.startswith(case + "/%s:%d/" % (arg, clients)):
            return bench
    return None


IDLE = (0, 100, 1000, 10000)


def idle_table(medians):
    """One client's round trips while other processes hold idle connections open."""
    if round_trip(medians, "Idle/Query508", 0, "idle") is None:
        return
    print("  with idle connections held open by other processes, 1 client:")
    print("  %-27s %7s %9s %9s %9s  %s" % ("case", "idle", "p50 us", "p99 us", "p50 x", "against"))
    for case in ("Idle/Query508", "Idle/Routed"):
        base = (round_trip(medians, case, 0, "idle") or {}).get("p50_us")
        for idle in IDLE:
            bench = round_trip(medians, case, idle, "idle") or {}
            print("  %-27s %7d %9s %9s %9s  %s"
                  % (case, idle, fmt(bench.get("p50_us")), fmt(bench.get("p99_us")),
                     fmt(ratio(bench.get("p50_us"), base), 2), "idle 0"))
    print()


def cpu_ns(medians, name, field="cpu_time"):
    bench = medians.get(name)
    if bench is None:
        return None
    scale = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}[bench["time_unit"]]
    return bench[field] * scale


def fmt(value, digits=1):
    return "-" if value is None else "%.*f" % (digits, value)


def ratio(a, b):
    return None if a is None or b is None or b == 0 else a / b


CASES = [
    # case, yardstick, what it is
    ("Raw/Relay", None, "client -> poll relay -> server (raw sockets)"),
    ("Coordinator/Routed", "Raw/Relay", "client -> coordinator -> driver, by tablet"),
    ("Coordinator/RoutedSettings", "Raw/Relay", "the same, answered with a settings archive"),
    ("DBus/Call", "Raw/Relay", "client -> dbus-daemon -> service (sd-bus)"),
    ("Raw/OneHop", None, "client -> server (raw sockets)"),
    ("Coordinator/Query508", "Raw/OneHop", "answered by the coordinator"),
    ("Coordinator/TabletCount", "Raw/OneHop", "count by index (asks both drivers)"),
]


def round_trip_table(title, context, medians):
    print(title)
    if context is None:
        print("  (not run)\n")
        return
    print("  bytes per request/reply on the wire: routed %s, local %s; processors usable: %s"
          % (context.get("routed_bytes", "?"), context.get("local_bytes", "?"),
             context.get("processors", "?")))
    print("  %-27s %7s %9s %7s %9s %9s %9s %9s  %s"
          % ("case", "clients", "p50 us", "p50 cv", "p99 us", "req/s", "p50 x", "req/s x",
             "against"))
    for clients in (1, 8):
        for case, yardstick, _ in CASES:
            bench = round_trip(medians, case, clients)
            if bench is None:
                continue
            base = round_trip(medians, yardstick, clients) if yardstick else None
            p50, p99, rps = bench.get("p50_us"), bench.get("p99_us"), bench.get("rps")
            cv = bench.get("p50_cv")
            print("  %-27s %7d %9s %7s %9s %9s %9s %9s  %s"
                  % (case, clients, fmt(p50), "-" if cv is None else "%.0f%%" % (cv * 100),
                     fmt(p99), fmt(rps, 0),
                     fmt(ratio(p50, base and base.get("p50_us")), 2),
                     fmt(ratio(rps, base and base.get("rps")), 2), yardstick or ""))
    print()
    idle_table(medians)


def targets(pinned, unpinned, settings):
    rows = []

    def both(label, compute, goal):
        values = [compute(m) for m in (pinned, unpinned)]
        rows.append((label, values, goal))

    def p50_ratio(case, base, clients):
        return lambda m: ratio((round_trip(m, case, clients) or {}).get("p50_us"),
                               (round_trip(m, base, clients) or {}).get("p50_us"))

    def rps_ratio(case, base, clients):
        return lambda m: ratio((round_trip(m, case, clients) or {}).get("rps"),
                               (round_trip(m, base, clients) or {}).get("rps"))

    both("routed p50 / raw relay p50, 1 client", p50_ratio("Coordinator/Routed", "Raw/Relay", 1),
         ("<=", 1.3))
    def p99_ratio(case, base, clients):
        return lambda m: ratio((round_trip(m, case, clients) or {}).get("p99_us"),
                               (round_trip(m, base, clients) or {}).get("p99_us"))

    def idle_ratio(case, idle):
        return lambda m: ratio((round_trip(m, case, idle, "idle") or {}).get("p50_us"),
                               (round_trip(m, case, 0, "idle") or {}).get("p50_us"))

    both("routed req/s / raw relay req/s, 8 clients",
         rps_ratio("Coordinator/Routed", "Raw/Relay", 8), (">=", 0.8))
    both("routed p99 / raw relay p99, 8 clients",
         p99_ratio("Coordinator/Routed", "Raw/Relay", 8), ("<=", 2.0))
    both("508 p50, 10,000 idle connections / none",
         idle_ratio("Idle/Query508", 10000), ("<=", 1.2))
    both("routed p50, 10,000 idle connections / none",
         idle_ratio("Idle/Routed", 10000), ("<=", 1.2))
    both("routed p50 / D-Bus call p50, 1 client", p50_ratio("Coordinator/Routed", "DBus/Call", 1),
         ("<", 1.0))
    both("routed p50 / D-Bus call p50, 8 clients", p50_ratio("Coordinator/Routed", "DBus/Call", 8),
         ("<", 1.0))
    both("508 query p50 / raw one-hop p50, 1 client",
         p50_ratio("Coordinator/Query508", "Raw/OneHop", 1), ("<=", 1.3))
    both("tablet count p50 / raw one-hop p50, 1 client",
         p50_ratio("Coordinator/TabletCount", "Raw/OneHop", 1), ("<=", 1.3))
    archive = ratio(cpu_ns(settings, "BM_JSONRead"), cpu_ns(settings, "BM_ArchiveRead"))
    ours = ratio(cpu_ns(settings, "BM_JSONRead"), cpu_ns(settings, "BM_NlohmannJSONRead"))
    rows.append(("JSON read time / archive read time", [archive, None], (">=", 3.0)))
    rows.append(("our JSON read time / nlohmann::json read", [ours, None], ("<=", 1.0)))

    print("Targets (ratios of this run)")
    print("  %-46s %10s %10s  %s" % ("", "pinned", "unpinned", "goal"))
    for label, values, (op, goal) in rows:
        marks = []
        for value in values:
            if value is None:
                marks.append("-")
                continue
            met = {"<=": value <= goal, ">=": value >= goal, "<": value < goal}[op]
            marks.append("%.2f %s" % (value, "ok" if met else "NO"))
        if label.startswith(("JSON", "our")):
            marks[1] = ""
        print("  %-46s %10s %10s  %s %.1f" % (label, marks[0], marks[1], op, goal))
    print()


def layer_table(packet, settings, route, port):
    print("Per layer (CPU time per operation, median; the message port round trip in wall time)")
    print("  %-56s %10s  %s" % ("", "time", "ratio"))

    def row(label, ns, base=None, base_label=""):
        text = "-" if ns is None else ("%.0f ns" % ns if ns < 10_000 else "%.1f us" % (ns / 1e3))
        r = ratio(ns, base)
        print("  %-56s %10s  %s" % (label, text, "" if r is None else "%.2f x %s" % (r, base_label)))

    copy = cpu_ns(packet, "BM_PlainCopy")
    row("event packet: copy of its block (yardstick)", copy)
    row("event packet: serialize", cpu_ns(packet, "BM_Serialize"), copy, "copy")
    row("event packet: deserialize", cpu_ns(packet, "BM_Deserialize"), copy, "copy")
    row("event packet: both ways", cpu_ns(packet, "BM_RoundTrip"), copy, "copy")
    archive_read = cpu_ns(settings, "BM_ArchiveRead")
    nlohmann_read = cpu_ns(settings, "BM_NlohmannJSONRead")
    nlohmann_write = cpu_ns(settings, "BM_NlohmannJSONWrite")
    row("settings tree: archive read", archive_read)
    row("settings tree: copy, no decoding (floor)", cpu_ns(settings, "BM_TreeCopy"), archive_read,
        "archive read")
    row("settings tree: archive write", cpu_ns(settings, "BM_ArchiveWrite"))
    row("settings tree: JSON read", cpu_ns(settings, "BM_JSONRead"), archive_read, "archive read")
    row("settings tree: JSON read", cpu_ns(settings, "BM_JSONRead"), nlohmann_read, "nlohmann")
    row("settings tree: JSON write", cpu_ns(settings, "BM_JSONWrite"), nlohmann_write, "nlohmann")
    row("settings tree: nlohmann::json read", nlohmann_read)
    row("settings tree: nlohmann::json write", nlohmann_write)
    for name, label in (("LocalVersionQuery", "local: protocol version"),
                        ("LocalTabletCount", "local: tablet count"),
                        ("ToOwningDriver", "routed to the owning driver"),
                        ("ToSuccessfulDriver", "routed to the first that succeeds"),
                        ("ToAllDrivers", "routed to all drivers")):
        row("route table, per packet: " + label, cpu_ns(route, "BM_ProcessEvent_" + name))
    one = cpu_ns(route, "BM_Sync/1")
    for tablets in (1, 8, 64, 512):
        ns = cpu_ns(route, "BM_Sync/%d" % tablets)
        row("route table: Sync with %d tablets" % tablets, ns, one, "Sync of 1")
    socket = cpu_ns(port, "BM_UnixSocketPingPong/real_time", "real_time")
    row("message port round trip, 256 bytes (wall)",
        cpu_ns(port, "BM_MessagePortRoundTrip/real_time", "real_time"), socket, "socket pair")
    print()


def main():
    directory = sys.argv[1]
    pinned_context, pinned = load(directory, "round_trip_pinned.json")
    unpinned_context, unpinned = load(directory, "round_trip_unpinned.json")
    _, packet = load(directory, "serialized_packet.json")
    _, settings = load(directory, "settings.json")
    _, route = load(directory, "route_table.json")
    _, port = load(directory, "message_port.json")
    machine = pinned_context or unpinned_context or {}
    model = "?"
    with open("/proc/cpuinfo") as cpuinfo:
        for line in cpuinfo:
            if line.startswith("model name"):
                model = line.split(":", 1)[1].strip()
                break
    print("Machine: %s, %d processors at %s MHz, %s %s; load average when the round trips "
          "started: %s"
          % (model, os.cpu_count() or 0, machine.get("mhz_per_cpu", "?"), os.uname().sysname,
             os.uname().release, ", ".join("%.2f" % x for x in machine.get("load_avg", []))))
    print()
    round_trip_table("Round trip, every process pinned to one processor", pinned_context, pinned)
    round_trip_table("Round trip, unpinned", unpinned_context, unpinned)
    targets(pinned, unpinned, settings)
    layer_table(packet, settings, route, port)


if __name__ == "__main__":
    main()
