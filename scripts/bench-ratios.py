#!/usr/bin/env python3
"""bench-ratios.py BENCH_JSON - peer time / our time for every benchmark
pair named BM_<Workload>_Ours/<args> and BM_<Workload>_<Peer>/<args> in a
Google Benchmark JSON report (--benchmark_format=json or --benchmark_out),
using the median when the run has repetitions. Above 1: we are faster."""
import json
import re
import sys


def main() -> int:
    if len(sys.argv) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    with open(sys.argv[1], encoding="utf-8") as f:
        report = json.load(f)
    times = {}
    for b in report["benchmarks"]:
        if b.get("run_type") == "aggregate" and b.get("aggregate_name") != "median":
            continue
        m = re.match(r"BM_([A-Za-z0-9]+)_([A-Za-z0-9]+)(/[^_]*)?(_median)?$", b["name"])
        if not m:
            continue
        workload, side, args = m.group(1), m.group(2), m.group(3) or ""
        label = b.get("label", "")
        times[(workload, args, side)] = (b["cpu_time"], b["time_unit"], label)
    print(f"{'workload':<28} {'ours':>12} {'peer':>8} {'peer time':>12} {'ratio':>7}")
    for (workload, args, side), (ours, unit, label) in sorted(times.items()):
        if side != "Ours":
            continue
        name = f"{workload}{args} {label}".strip()
        peers = [(p, t) for (w, a, p), t in times.items() if w == workload and a == args and p != "Ours"]
        if not peers:
            print(f"{name:<28} {ours:>9.1f} {unit:<2} {'-':>8}")
        for peer, (t, u, _) in sorted(peers):
            print(f"{name:<28} {ours:>9.1f} {unit:<2} {peer:>8} {t:>9.1f} {u:<2} {t / ours:>7.2f}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
