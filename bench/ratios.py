#!/usr/bin/python3
"""Turns the JSON of the benchmark program into the ratio table of the README.

Rows are named "<family>/<variant>/<case>" (bench/BenchSupport.h). For every "ours" row the table shows its
time and its ratios to the rows of the same family and case: OpenCV on one thread (opencv1), OpenCV with
its default threads (opencvN, when the run has them) and memcpy of the same bytes (the case's own memcpy
row, else the family's "<family>/memcpy" row). A ratio above 1 means ours is slower. With repetitions the
median of each row is used (wall-clock time: OpenCV's threads do not show in CPU time).

Usage: bench/ratios.py RESULT.json [MORE.json ...]   (standard library only; a row missing from the first
file is taken from the next, so a pinned run and a run of the opencvN rows can be combined)
"""
import json
import re
import sys

VARIANTS = ("ours", "opencv1", "opencvN", "memcpy")


def row_times(document):
    """{run name: median real time in ms}; a run without aggregates counts as its own median."""
    scale = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}
    medians, singles = {}, {}
    for b in document.get("benchmarks", []):
        if b.get("error_occurred"):
            continue
        name = b.get("run_name", b["name"])
        time = b["real_time"] * scale[b.get("time_unit", "ns")]
        if b.get("run_type") == "aggregate":
            if b.get("aggregate_name") == "median":
                medians[name] = time
        else:
            singles.setdefault(name, time)
    return {**singles, **medians}


def split(name):
    """(family, variant, case) of a conventional name, or None."""
    parts = name.split("/", 2)
    if len(parts) < 2 or parts[1] not in VARIANTS:
        return None
    return parts[0], parts[1], parts[2] if len(parts) == 3 else ""


def ratio_rows(times):
    """(family, case, ours ms, ours/opencv1, ours/opencvN, ours/memcpy) in the order of the run."""
    by_key = {}
    order = []
    for name, time in times.items():
        parsed = split(name)
        if parsed is None:
            continue
        family, variant, case = parsed
        by_key[(family, variant, case)] = time
        if variant == "ours":
            order.append((family, case))
    rows = []
    for family, case in sorted(order, key=natural_key):
        ours = by_key[(family, "ours", case)]

        def ratio(variant, fallback=None):
            other = by_key.get((family, variant, case), by_key.get(fallback) if fallback else None)
            return ours / other if other else None

        rows.append((family, case, ours, ratio("opencv1"), ratio("opencvN"),
                     ratio("memcpy", (family, "memcpy", ""))))
    return rows


def natural_key(key):
    """Family, then case with its numbers compared as numbers ("BoxSums/2/3" before "BoxSums/2/15")."""
    family, case = key
    return family, [int(p) if p.isdigit() else p for p in re.split(r"(\d+)", case)]


def text(value, digits=2):
    return "–" if value is None else f"{value:.{digits}f}"


def main(argv):
    if len(argv) < 2:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    times = {}
    contexts = []
    for path in argv[1:]:
        with open(path, encoding="utf-8") as f:
            loaded = json.load(f)
        contexts.append(loaded.get("context", {}))
        for name, time in row_times(loaded).items():
            times.setdefault(name, time)
    rows = ratio_rows(times)
    with_default = any(r[4] is not None for r in rows)
    head = ["family", "case", "ours ms", "ours / OpenCV 1 thread"]
    head += ["ours / OpenCV default threads"] if with_default else []
    head += ["ours / memcpy"]
    print("| " + " | ".join(head) + " |")
    print("|" + "---|" * len(head))
    for family, case, ours, cv1, cvn, mem in rows:
        cells = [family, case or "–", text(ours, 3), text(cv1)]
        cells += [text(cvn)] if with_default else []
        cells += [text(mem)]
        print("| " + " | ".join(cells) + " |")
    print()
    for context in contexts:
        print(f"{context.get('date', '')}, {context.get('num_cpus', '?')} CPUs at "
              f"{context.get('mhz_per_cpu', '?')} MHz, load average "
              f"{', '.join(f'{v:.1f}' for v in context.get('load_avg', []))}")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
