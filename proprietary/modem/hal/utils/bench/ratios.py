#!/usr/bin/env python3
"""Runs kovani_bench in both switch modes (or reads JSON it wrote) and prints
each measured pair as a ratio or value against its goal, from the medians of
the repetitions. Ratios also show the fastest repetitions' ratio: on a shared
machine a run's time depends on what runs beside it."""

import argparse
import json
import statistics
import subprocess
import sys

MODES = ("suppressed", "enabled")


def run(program, mode, repetitions):
    command = [program, f"--mode={mode}", "--benchmark_format=json",
               f"--benchmark_repetitions={repetitions}", "--benchmark_min_time=0.1",
               "--benchmark_enable_random_interleaving=true"]
    print("running:", " ".join(command), file=sys.stderr)
    return json.loads(subprocess.run(command, check=True, capture_output=True, text=True).stdout)


def summarise(reports):
    """run_name -> {field: median over the repetitions, "min_" + field: least},
    times in ns."""
    per_unit = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
    runs = {}
    for report in reports:
        for entry in report["benchmarks"]:
            if entry.get("run_type") != "iteration" or entry.get("error_occurred"):
                continue
            scale = per_unit[entry["time_unit"]]
            fields = {k: v for k, v in entry.items() if isinstance(v, (int, float))}
            fields["real_ns"] = entry["real_time"] * scale
            fields["cpu_ns"] = entry["cpu_time"] * scale
            name = entry["run_name"].split("/iterations:")[0].split("/manual_time")[0]
            runs.setdefault(name, []).append(fields)
    summary = {}
    for name, rs in runs.items():
        summary[name] = {k: statistics.median(r[k] for r in rs) for k in rs[0]}
        summary[name].update({"min_" + k: min(r[k] for r in rs) for k in rs[0]})
    return summary


def ratio_row(runs, label, name, base, field, goal):
    goal_text = "report" if goal is None else f"<= {goal}"
    if name not in runs or base not in runs:
        return [label, "missing", goal_text, "-"]
    a, b = runs[name][field], runs[base][field]
    fastest = runs[name]["min_" + field] / runs[base]["min_" + field]
    met = "-" if goal is None else ("yes" if a / b <= goal else "no")
    return [label, f"{a / b:.2f} ({a:.1f} / {b:.1f} ns; fastest {fastest:.2f})", goal_text, met]


def table(runs):
    rows = [
        ratio_row(runs, "1 suppressed debug line: library / local", "BM_SuppressedLine_Library",
                  "BM_SuppressedLine_Local", "cpu_ns", 1.3),
        ratio_row(runs, "2 enabled debug line: library / sinks", "BM_EnabledLine_Library/0",
                  "BM_EnabledLine_Sinks", "cpu_ns", 1.15),
        ratio_row(runs, "3 enabled line, instance 255: 255 / 0", "BM_EnabledLine_Library/255",
                  "BM_EnabledLine_Library/0", "cpu_ns", None),
        ratio_row(runs, "4 timer start+stop: library / thread+calloc",
                  "BM_TimerStartStop_Library", "BM_TimerStartStop_ThreadAndRecord",
                  "real_ns", 1.2),
    ]
    starts = [runs.get(n) for n in ("BM_TimerStartStop_Library",
                                    "BM_TimerStartStop_ThreadAndRecord")]
    if all(starts) and all("preemptions" in r for r in starts):
        rows[3][1] += (f"; caller CPU {starts[0]['cpu_ns'] / 1e3:.1f} / "
                       f"{starts[1]['cpu_ns'] / 1e3:.1f} us, preempted "
                       f"{starts[0]['preemptions']:.2f} / {starts[1]['preemptions']:.2f} per call")
    late = runs.get("BM_TimerLateness")
    if late:
        rows.append(["5 lateness, 1000 one-second timers",
                     f"median {late['median_ms']:.2f} ms, p99 {late['p99_ms']:.2f} ms, "
                     f"max {late['max_ms']:.2f} ms", "p99 <= 10 ms",
                     "yes" if late["p99_ms"] <= 10 else "no"])
    mem = runs.get("BM_TimerMemory")
    if mem:
        rows.append(["6 memory per pending timer",
                     f"record {mem['record_bytes']:.0f} B (usable {mem['usable_bytes']:.0f} B), "
                     f"stack {mem['stack_bytes'] / 1024:.0f} KiB + guard "
                     f"{mem['guard_bytes'] / 1024:.0f} KiB", "report", "-"])
    if late:
        rows.append(["6 per pending timer, measured with 1000",
                     f"RSS {late['rss_kib_per_timer']:.1f} KiB, "
                     f"address space {late['vm_kib_per_timer']:.0f} KiB", "report", "-"])
    header = ["pair", "measured", "goal", "met?"]
    widths = [max(len(r[i]) for r in rows + [header]) for i in range(4)]
    for row in [header, ["-" * w for w in widths]] + rows:
        print("  ".join(cell.ljust(w) for cell, w in zip(row, widths)).rstrip())


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("source", nargs="+",
                        help="the kovani_bench program, or JSON files it wrote")
    parser.add_argument("--repetitions", type=int, default=15)
    parser.add_argument("--save", metavar="PREFIX",
                        help="also write each mode's JSON to PREFIX-<mode>.json")
    args = parser.parse_args()

    if args.source[0].endswith(".json"):
        reports = []
        for path in args.source:
            with open(path, encoding="utf-8") as file:
                reports.append(json.load(file))
    else:
        reports = [run(args.source[0], mode, args.repetitions) for mode in MODES]
        if args.save:
            for mode, report in zip(MODES, reports):
                with open(f"{args.save}-{mode}.json", "w", encoding="utf-8") as file:
                    json.dump(report, file, indent=1)
    table(summarise(reports))


if __name__ == "__main__":
    main()
