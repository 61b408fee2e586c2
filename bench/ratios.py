#!/usr/bin/env python3
"""Reads the JSON report of kvx_bench and prints each road against its reference.

A ratio above 1 means the library is faster than its reference. Times are CPU
times per iteration (wall-clock for the thread row); with repetitions the
median is used. Usage: ratios.py report.json [--markdown]
"""
import json
import statistics
import sys

UNIT_NS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}
SIZES = ["1KB", "64KB", "4MB"]


def load(path):
    with open(path) as f:
        report = json.load(f)
    runs = {}
    medians = {}
    for b in report.get("benchmarks", []):
        if b.get("error_occurred"):
            continue
        name = b.get("run_name", b["name"])
        if b.get("run_type") == "aggregate":
            if b.get("aggregate_name") == "median":
                medians[name] = b
        else:
            runs.setdefault(name, []).append(b)
    result = {}
    for name, entries in runs.items():
        result[name] = entries
    for name, entry in medians.items():
        result[name] = [entry]
    return result


def pick(runs, name, key):
    entries = runs.get(name)
    if not entries:
        return None
    values = []
    for e in entries:
        if key in ("cpu_time", "real_time"):
            values.append(e[key] * UNIT_NS[e.get("time_unit", "ns")])
        elif key in e:
            values.append(e[key])
    return statistics.median(values) if values else None


def fmt_time(ns):
    if ns is None:
        return "-"
    for unit, scale in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if ns >= scale:
            return "%.3g %s" % (ns / scale, unit)
    return "%.3g ns" % ns


def rows(runs):
    out = []

    def versus(road, mine, ref, target, ref_label):
        a = pick(runs, mine, "cpu_time")
        b = pick(runs, ref, "cpu_time")
        ratio = b / a if a and b else None
        out.append((road, fmt_time(a), ref_label + " " + fmt_time(b), ratio, target))

    versus("init 1 MiB frame", "FrameLoad/init/1MiB", "FrameLoad/memcpy/1MiB", 0.9, "memcpy")
    versus("deserialize 1 MiB frame", "FrameLoad/deserialize/1MiB", "FrameLoad/memcpy/1MiB",
           0.9, "memcpy")
    versus("serialize 1 MiB frame (allocating)", "FrameStore/serialize/1MiB",
           "FrameStore/malloc+memcpy/1MiB", 0.9, "malloc+memcpy")
    versus("  same, against a copy into a kept buffer", "FrameStore/serialize/1MiB",
           "FrameStore/memcpy/1MiB", None, "memcpy")
    versus("  serialize, fixed buffer", "FrameStore/serializeFixed/1MiB",
           "FrameStore/memcpy/1MiB", None, "memcpy")
    for size in SIZES:
        versus("cursor walk " + size, "Walk/cursor/" + size, "Walk/pugixml/" + size, 1.0,
               "pugixml")
    for size in SIZES:
        versus("fromText " + size, "Parse/fromText/" + size, "Parse/pugixml/" + size, 1.0,
               "pugixml")
    for size in SIZES:
        versus("toText 40500 " + size, "Write/toText/" + size, "Write/pugixml/" + size, 1.0,
               "pugixml")

    for name, road in (("Soap/roundtrip/1KB", "SOAP round trip 1 KB, packet header"),
                       ("Soap/roundtrip-noheader/1KB", "SOAP round trip 1 KB, no header")):
        rate = pick(runs, name, "items_per_second")
        out.append((road, "%.0f/s" % rate if rate else "-", "50000/s",
                    rate / 50000.0 if rate else None, 1.0))

    per = {}
    for n in (1000, 10000, 100000):
        t = pick(runs, "Build/cursor/%d" % n, "cpu_time")
        per[n] = t / n if t else None
    for n in (1000, 10000, 100000):
        ratio = per[1000] / per[n] if per[1000] and per[n] else None
        out.append(("build %dk records, per record" % (n // 1000), fmt_time(per[n]),
                    "1k: " + fmt_time(per[1000]), ratio, 0.8 if n != 1000 else None))

    one = pick(runs, "Threads/convert/64KB/min_time:0.500/real_time/threads:1", "items_per_second")
    two = pick(runs, "Threads/convert/64KB/min_time:0.500/real_time/threads:2", "items_per_second")
    out.append(("2 threads vs 1, fromText+toText 64KB", "%.0f/s" % two if two else "-",
                "1 thread %.0f/s" % one if one else "1 thread -",
                two / one if one and two else None, 1.9))
    one = pick(runs, "Threads/pugixml/64KB/min_time:0.500/real_time/threads:1", "items_per_second")
    two = pick(runs, "Threads/pugixml/64KB/min_time:0.500/real_time/threads:2", "items_per_second")
    out.append(("  control: pugixml parse+save, 2 vs 1", "%.0f/s" % two if two else "-",
                "1 thread %.0f/s" % one if one else "1 thread -",
                two / one if one and two else None, None))
    return out


def main():
    args = [a for a in sys.argv[1:] if not a.startswith("--")]
    markdown = "--markdown" in sys.argv
    if len(args) != 1:
        sys.exit(__doc__)
    table = rows(load(args[0]))
    header = ("Road", "KVX", "Reference", "Ratio", "Target", "Met")
    lines = []
    for road, mine, ref, ratio, target in table:
        met = "-" if target is None or ratio is None else ("yes" if ratio >= target else "NO")
        lines.append((road, mine, ref, "%.2fx" % ratio if ratio else "-",
                      ">= %.2gx" % target if target else "", met))
    if markdown:
        print("| " + " | ".join(header) + " |")
        print("|" + "---|" * len(header))
        for line in lines:
            # Indented rows are details of the row above; markdown drops the blanks.
            road = line[0]
            if road.startswith("  "):
                road = "(detail) " + road.strip()
            print("| " + " | ".join((road,) + tuple(line[1:])) + " |")
        return
    widths = [max(len(r[i]) for r in lines + [header]) for i in range(len(header))]
    for line in [header] + lines:
        print("  ".join(c.ljust(w) for c, w in zip(line, widths)).rstrip())


if __name__ == "__main__":
    main()
