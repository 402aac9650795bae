#!/usr/bin/env python3
"""Turns Google Benchmark's JSON into a CSV, a table of ratios and, where asked, a plot.

    bench-report.py [--plot FILE.svg] RESULTS.csv FILE.json...

Names are operation/.../who; what is called "qzString" is compared with everything else of the same name.
"""
import json
import sys

OURS = "qzString"
# The library by other ways, and what a measurement consists of: no peers.
OURS_OTHERWISE = ("class", "locale", "copy")
# What the plot leaves out, as not everyone has it.
UNPACKAGED = ("simdutf", "rapidhash")


def medians(files):
    rates = {}
    for file in files:
        with open(file) as stream:
            content = stream.read()
        if not content.strip():
            continue
        for run in json.loads(content)["benchmarks"]:
            if run.get("aggregate_name") == "median":
                name, _, who = run["run_name"].rpartition("/")
                rates.setdefault(name, {})[who] = (run["bytes_per_second"] / 1e9, run["cpu_time"])
    return {name: rates[name] for name in sorted(rates, key=by_name_and_size)}


def by_name_and_size(name):
    """Interleaved runs finish in any order."""
    return [(int(part) if part.isdigit() else -1, part) for part in name.split("/")]


def write_csv(path, rates):
    with open(path, "w") as stream:
        stream.write("measurement,who,gigabytes_per_second,nanoseconds\n")
        for name, row in rates.items():
            for who, (rate, time) in row.items():
                stream.write(f"{name},{who},{rate:.4f},{time:.2f}\n")


def peers_of(row):
    return {who: rate for who, (rate, _) in row.items() if who != OURS and who not in OURS_OTHERWISE}


def print_ratios(rates):
    print(f"{'measurement':44} {'GB/s':>8} {'ns':>10}   best peer        GB/s  ratio")
    for name, row in rates.items():
        if OURS not in row:
            continue
        rate, time = row[OURS]
        peers = peers_of(row)
        line = f"{name:44} {rate:8.2f} {time:10.1f}"
        if peers:
            best = max(peers, key=peers.get)
            line += f"   {best:12} {peers[best]:8.2f} {rate / peers[best]:6.2f}"
        print(line)
        for who in OURS_OTHERWISE:
            if who in row:
                print(f"  {who + ':':42} {row[who][0]:8.2f} {row[who][1]:10.1f}")


def draw(path, rates):
    """Horizontal bars: the 64 KiB conversions, ours above the best peer's."""
    rows = [(name, row) for name, row in rates.items()
            if name.endswith("/65536") and name.split("/")[0] in ("decode", "encode") and OURS in row]
    if not rows:
        return
    left, width, step = 150, 430, 34
    most = max(row[OURS][0] for _, row in rows)
    parts = []
    for i, (name, row) in enumerate(rows):
        y = 40 + i * step
        label = " ".join(name.split("/")[:2])
        parts.append(f'<text x="{left - 8}" y="{y + 15}" text-anchor="end">{label}</text>')
        peers = {who: rate for who, rate in peers_of(row).items() if who not in UNPACKAGED}
        best = max(peers, key=peers.get) if peers else None
        for offset, who, color in ((0, OURS, "#2a6fdb"), (12, best, "#b8bec8")):
            if who is None:
                continue
            length = max(1, width * row[who][0] / most)
            parts.append(f'<rect x="{left}" y="{y + offset}" width="{length:.1f}" height="11" fill="{color}"/>')
            parts.append(f'<text x="{left + length + 5:.1f}" y="{y + offset + 10}" font-size="10">'
                         f'{row[who][0]:.2f} {who}</text>')
    height = 60 + len(rows) * step
    with open(path, "w") as stream:
        stream.write(f'<svg xmlns="http://www.w3.org/2000/svg" width="{left + width + 130}" height="{height}" '
                     f'font-family="sans-serif" font-size="12">\n<rect width="100%" height="100%" fill="white"/>\n'
                     f'<text x="{left}" y="22" font-weight="bold">64 KiB, GB/s of UTF-8: this library and the best '
                     f'packaged peer</text>\n' + "\n".join(parts) + "\n</svg>\n")


def main(arguments):
    plot = None
    if arguments and arguments[0] == "--plot":
        plot, arguments = arguments[1], arguments[2:]
    if len(arguments) < 2:
        sys.exit(__doc__)
    rates = medians(arguments[1:])
    write_csv(arguments[0], rates)
    print_ratios(rates)
    if plot:
        draw(plot, rates)


main(sys.argv[1:])
