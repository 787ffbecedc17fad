#!/usr/bin/env python3
"""Runs every benchmark program of a build and prints keel beside its anchors.

    tools/bench_table.py BUILD_DIR OUTPUT.md [--repetitions N] [--min-time S] [--filter REGEX]

Benchmark names follow "<work>/<implementation>/<size>": rows of the same work
and size are paired, and every implementation other than "keel" is an anchor.
The ratio is keel's time over the anchor's: below 1 keel is faster. The table
is printed and written to OUTPUT.md so that runs can be compared.

Times are CPU time per iteration, the median of the repetitions. Every
benchmark is single-threaded, and on a shared machine CPU time leaves out the
time the process waited for a core, which wall time would count. The
repetitions of all benchmarks of a program run in random order, so that a
spell of load elsewhere falls on keel and its anchors alike rather than on
one of them. The load average before and after the run goes into the table's
header line.
"""
import argparse
import datetime
import glob
import json
import os
import platform
import subprocess
import sys

UNITS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def run(binary, repetitions, min_time, filter_regex):
    args = [binary, "--benchmark_format=json", f"--benchmark_repetitions={repetitions}",
            f"--benchmark_min_time={min_time}", "--benchmark_enable_random_interleaving=true",
            "--benchmark_report_aggregates_only=true"]
    if filter_regex:
        args.append(f"--benchmark_filter={filter_regex}")
    out = subprocess.run(args, check=True, capture_output=True, text=True).stdout
    return json.loads(out)


def split_name(name):
    parts = name.split("/")
    work = parts[0]
    impl = parts[1] if len(parts) > 1 else "keel"
    size = "/".join(parts[2:])
    return work, impl, size


def fmt_time(ns):
    if ns >= 1e6:
        return f"{ns / 1e6:.2f} ms"
    if ns >= 1e3:
        return f"{ns / 1e3:.2f} us"
    return f"{ns:.1f} ns"


def load_average():
    try:
        with open("/proc/loadavg") as f:
            return f.read().split()[0]
    except OSError:
        return "?"


def machine_line(context, repetitions, when, load_before, load_after):
    cpu = context.get("num_cpus", "?")
    mhz = context.get("mhz_per_cpu", "?")
    model = ""
    try:
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name"):
                    model = line.split(":", 1)[1].strip()
                    break
    except OSError:
        pass
    return (f"Run of {when} on {platform.machine()} ({model}), {cpu} CPUs at {mhz} MHz, "
            f"load average {load_before} before and {load_after} after; "
            f"median of {repetitions} repetitions, CPU time per iteration "
            f"(wall time for the rows that wait for the disk).")


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("build")
    ap.add_argument("output")
    ap.add_argument("--repetitions", type=int, default=5)
    # Seconds each repetition runs at least: with 5 repetitions the whole set
    # of programs takes about three minutes.
    ap.add_argument("--min-time", type=float, default=0.1)
    ap.add_argument("--filter", default="")
    a = ap.parse_args()

    rows = {}
    context = {}
    when = datetime.datetime.now().strftime("%Y-%m-%d %H:%M")
    load_before = load_average()
    binaries = sorted(glob.glob(os.path.join(a.build, "bench", "*_bench")))
    if not binaries:
        sys.exit(f"no benchmark programs under {a.build}/bench")
    for binary in binaries:
        print(f"running {os.path.basename(binary)}", file=sys.stderr, flush=True)
        data = run(binary, a.repetitions, a.min_time, a.filter)
        context = context or data.get("context", {})
        for b in data["benchmarks"]:
            if b.get("aggregate_name") != "median":
                continue
            # A benchmark that waits for the disk asks for wall time, and
            # its name then ends in "/real_time".
            name, clock = b["run_name"], "cpu_time"
            if name.endswith("/real_time"):
                name, clock = name[: -len("/real_time")], "real_time"
            ns = b[clock] * UNITS[b["time_unit"]]
            work, impl, size = split_name(name)
            rows.setdefault((work, size), {})[impl] = ns

    lines = [machine_line(context, a.repetitions, when, load_before, load_average()), "",
             "| work | size | keel | anchor | anchor time | keel / anchor |",
             "|---|---|---|---|---|---|"]
    for (work, size), impls in sorted(rows.items()):
        keel = impls.get("keel")
        if keel is None:
            continue
        anchors = [(k, v) for k, v in sorted(impls.items()) if k != "keel"]
        if not anchors:
            lines.append(f"| {work} | {size} | {fmt_time(keel)} | | | |")
        for impl, ns in anchors:
            lines.append(f"| {work} | {size} | {fmt_time(keel)} | {impl} | {fmt_time(ns)} "
                         f"| {keel / ns:.2f} |")
    text = "\n".join(lines) + "\n"
    sys.stdout.write(text)
    with open(a.output, "w") as f:
        f.write(text)


if __name__ == "__main__":
    main()
