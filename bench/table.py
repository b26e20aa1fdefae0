#!/usr/bin/env python3
"""Runs every benchmark program in a folder and prints one Markdown table.

Benchmarks are named "Group/Case:Impl". Corestone's own implementation is "Kiv"; every other
column is the time of a peer divided by Kiv's time in the same run, so 2.00 means Kiv is twice
as fast and 0.50 half as fast. A benchmark that reports a "ratio" counter (coded size / plain size)
also gets a second table of those ratios as they are, one column per implementation."""
import json
import os
import subprocess
import sys
from collections import OrderedDict


def run(program):
    out = subprocess.run([program, "--benchmark_format=json"], check=True, capture_output=True, text=True)
    return json.loads(out.stdout)["benchmarks"]


def main(folder):
    programs = sorted(os.path.join(folder, f) for f in os.listdir(folder) if "Bench" in f)
    rows = OrderedDict()  # (group, case) -> {impl: nanoseconds}
    ratios = OrderedDict()  # (group, case) -> {impl: coded / plain}
    impls = OrderedDict()
    for program in programs:
        print(f"running {os.path.basename(program)}", file=sys.stderr)
        for b in run(program):
            if b.get("run_type") == "aggregate" or ":" not in b["name"]:
                continue
            label, impl = b["name"].split(":", 1)
            impl = impl.split("/")[0]
            group, _, case = label.partition("/")
            scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[b.get("time_unit", "ns")]
            rows.setdefault((group, case), {})[impl] = b["real_time"] * scale
            if "ratio" in b:
                ratios.setdefault((group, case), {})[impl] = b["ratio"]
            impls.setdefault(group, OrderedDict())[impl] = None
    for group, names in impls.items():
        peers = [n for n in names if n != "Kiv"]
        print(f"\n#### {group}\n")
        print("| case | Kiv (ns) | " + " | ".join(f"{p} / Kiv" for p in peers) + " |")
        print("|---|---:|" + "---:|" * len(peers))
        for (g, case), times in rows.items():
            if g != group:
                continue
            kiv = times.get("Kiv")
            cells = []
            for p in peers:
                t = times.get(p)
                cells.append(f"{t / kiv:.2f}" if t and kiv else "-")
            kiv_text = f"{kiv:.1f}" if kiv else "-"
            print(f"| {case} | {kiv_text} | " + " | ".join(cells) + " |")
        print_ratios(group, list(names), ratios)


def print_ratios(group, names, ratios):
    cases = [(case, values) for (g, case), values in ratios.items() if g == group]
    if not cases:
        return
    print(f"\n{group}, coded size / plain size:\n")
    print("| case | " + " | ".join(names) + " |")
    print("|---|" + "---:|" * len(names))
    for case, values in cases:
        cells = [f"{values[n]:.3f}" if n in values else "-" for n in names]
        print(f"| {case} | " + " | ".join(cells) + " |")


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else "build/linux-x64-bench/bin")
