#!/usr/bin/env python3
"""Runs the benchmarks of a release build and says what came out as one table; scripts/bench builds and calls it.

    bench/Report.py BUILD [--quick]

Without --quick the table and the plots of docs/performance.md are written anew. What is compared takes turns in one
run; figures are medians. The result is 0 when everything ran, whatever the ratios are.
"""

import argparse
import datetime
import json
import os
import pathlib
import platform
import re
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
import Plot

ROOT = pathlib.Path(__file__).resolve().parent.parent
DOCUMENT = ROOT / "docs/performance.md"
USUAL = {"realistic": 61440, "wide": 100000, "fat": 100000, "deep": 10000}
PEERS = ["protobuf-arena", "protobuf-heap", "nlohmann-json", "pugixml"]
CURVE = [1000, 10000, 100000, 1000000]
READ_LIMIT = {"realistic": 0.60, "wide": 0.60, "fat": 0.70, "deep": 0.60}
BOARDS = [1, 2, 5, 10, 20, 50, 100, 200]


def run(command, **options):
    result = subprocess.run([str(word) for word in command], capture_output=True, text=True, **options)
    if result.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))}\nfailed ({result.returncode}):\n"
                 f"{result.stdout[-2000:]}{result.stderr[-2000:]}")
    return result.stdout


class Bench:
    """Runs the programs and keeps what they measured."""

    def __init__(self, build, quick, folder):
        self.build, self.quick, self.folder = build, quick, folder
        self.times = {}
        self.rows = []

    def say(self, what):
        print(f"  {what}", file=sys.stderr, flush=True)

    def model(self, names):
        """Medians of the CPU time of these benchmarks, in microseconds, measured in turns."""
        result = self.folder / "model.json"
        for name in names:
            self.times.pop(name, None)
        repetitions, seconds = (3, 0.02) if self.quick else (11, 0.1)
        run([self.build / "bench/bench_model", "--benchmark_filter=^(" + "|".join(names) + ")$",
             f"--benchmark_repetitions={repetitions}", f"--benchmark_min_time={seconds}",
             "--benchmark_enable_random_interleaving=true", "--benchmark_report_aggregates_only=true",
             f"--benchmark_out={result}", "--benchmark_out_format=json"])
        for entry in json.loads(result.read_text())["benchmarks"]:
            if entry.get("error_occurred"):
                sys.exit(f"{entry['name']}: {entry['error_message']}")
            if entry.get("aggregate_name") == "median":
                self.times[entry["run_name"].replace("/repeats:" + str(repetitions), "")] = entry["cpu_time"]
        missing = [name for name in names if name not in self.times]
        if missing:
            sys.exit(f"bench_model did not measure {', '.join(missing)}")

    def program(self, command, *arguments):
        """The rows that a program writes; `arguments` stand behind the option for them."""
        result = self.folder / "rows.json"
        result.unlink(missing_ok=True)
        run([*command, "--json", result, *arguments])
        return json.loads(result.read_text())

    def compare(self, row, against, ours, peer, limit, each, unit, scale):
        """A row of two measured benchmarks; figures are divided by `each` and multiplied by `scale`."""
        own, other = self.times[ours] / each[0] * scale, self.times[peer] / each[1] * scale
        self.rows.append({"row": row, "against": against, "ours": own, "peer": other, "ratio": own / other,
                          "limit": limit, "unit": unit})


def measure_model(bench):
    """The rows of reading and writing; the times of all who did it, too."""
    for shape, size in USUAL.items():
        base = f"{shape}/{size}"
        bench.say(f"reading and writing: {shape}")
        for work in ("read", "write"):
            # The others by themselves: their large documents leave the heap in another state.
            bench.model([f"{work}/{base}/{who}" for who in ("kvinventory", "protobuf-arena")])
            bench.model([f"{work}/{base}/{who}" for who in PEERS[1:]])
        bench.model([f"read/{base}/memcpy"])
    for work, title in (("read", "read, walk and free"), ("write", "write")):
        for shape, size in USUAL.items():
            limit = READ_LIMIT[shape] if work == "read" else 0.30
            bench.compare(f"{title}: {shape}", "protobuf, arena", f"{work}/{shape}/{size}/kvinventory",
                          f"{work}/{shape}/{size}/protobuf-arena", limit, (size, size), "ns a parameter", 1000)
    return dict(bench.times)


def measure_memory(bench):
    bench.say("memory")
    memory = bench.program([bench.build / "bench/bench_memory"])
    for row in memory:
        if row["against"] == "protobuf-arena":
            bench.rows.append({**row, "against": "protobuf, arena"})
    return memory


def measure_growth(bench):
    for work in ("read", "write"):
        for shape, size in USUAL.items():
            bench.say(f"growth: {work} {shape}")
            bench.model([f"{work}/{shape}/{n}/kvinventory" for n in (size, 10 * size)])
            bench.compare(f"{work}, {10 * size} parameters: {shape}", f"itself with {size}",
                          f"{work}/{shape}/{10 * size}/kvinventory", f"{work}/{shape}/{size}/kvinventory",
                          2.0 if shape == "realistic" else 1.5, (10 * size, size), "ns a parameter", 1000)


def measure_use(bench):
    bench.say("text, sections, lookups")
    size = USUAL["realistic"]
    bench.model([f"text/realistic/{size}/{who}" for who in ("kvinventory", "pugixml")])
    bench.compare("tree to text: realistic", "pugixml, save of the document", f"text/realistic/{size}/kvinventory",
                  f"text/realistic/{size}/pugixml", 1.0, (size, size), "ns a parameter", 1000)
    bench.model([f"section/realistic/{size}/{who}" for who in ("kvinventory", "read-2-and-read")])
    bench.compare("section from file to tree: realistic", "read(2), then the read row",
                  f"section/realistic/{size}/kvinventory", f"section/realistic/{size}/read-2-and-read", 1.15,
                  (size, size), "ns a parameter", 1000)
    for shape in ("realistic", "wide"):
        base = f"lookup/{shape}/{USUAL[shape]}"
        bench.model([f"{base}/kvinventory", f"{base}/unordered_map"])
        bench.compare(f"getParameter, four steps: {shape}", "std::unordered_map", f"{base}/kvinventory",
                      f"{base}/unordered_map", 1.0, (4096, 4096), "ns", 1000)


def measure_start(bench):
    bench.say("starting programs")
    programs = [bench.build / "bench" / name for name in ("bench_bare", "bench_empty", "bench_loading")]
    rows = bench.program([bench.build / "bench/bench_start", *programs, bench.build / "tools/kvinv/kvinv",
                          "51" if bench.quick else "501"])
    bench.rows += [row for row in rows if "limit" in row]


def measure_remote(bench):
    own_network = ROOT / "tests/support/own-network.sh"
    remote = [own_network, bench.build / "bench/bench_remote"]
    rounds = "3" if bench.quick else "21"
    for part in ("calls", "scans", "large"):
        bench.say(f"boards: {part}")
        bench.rows += [row for row in bench.program([*remote, rounds, part]) if "limit" in row]
    bench.say("boards: put")
    command = [own_network, sys.executable, ROOT / "bench/BoardBench.py", bench.build / "tools", ROOT / "samples",
               "put", "--folder", bench.folder, "--runs", "3" if bench.quick else "7"]
    if bench.quick:
        command += ["--mebibytes", "100"]
    for row in bench.program(command):
        bench.rows.append({"unit": "s", "against": "raw socket copy, same writes, sync, checksum", **row})
    if bench.quick:
        return []
    bench.say("boards: one to two hundred")
    return bench.program([*remote, "9", "curve"])


def measure_curves(bench):
    curves = {}
    for shape in USUAL:
        bench.say(f"from a thousand to a million: {shape}")
        whos = ("kvinventory", "protobuf-arena")
        bench.model([f"read/{shape}/{n}/{who}" for n in CURVE for who in whos])
        curves[shape] = [[(n, bench.times[f"read/{shape}/{n}/{who}"] / n * 1000) for n in CURVE] for who in whos]
    return curves


def figure(value, unit):
    digits = 0 if value >= 1000 else 1 if value >= 100 else 2 if value >= 10 else 3
    return f"{value:.{digits}f} {unit}"


def cells(row):
    more = "more" in row
    result = row["more"] if more else row["ratio"]
    unit = row["unit"]
    return [row["row"], row["against"], figure(row["ours"], unit), figure(row["peer"], unit),
            f"{result:+.2f} {unit}" if more else f"{result:.3f}",
            f"{row['limit']:+.2f} {unit}" if more else f"{row['limit']:.2f}",
            "yes" if result <= row["limit"] else "NO"]


HEADER = ["row", "against", "ours", "peer", "ratio", "limit", "reached"]


def text_table(rows):
    table = [HEADER, *map(cells, rows)]
    widths = [max(len(line[i]) for line in table) for i in range(len(HEADER))]
    lines = ["  ".join(cell.ljust(width) if i < 2 else cell.rjust(width)
                       for i, (cell, width) in enumerate(zip(line, widths))) for line in table]
    return "\n".join([lines[0], "-" * len(lines[0]), *lines[1:]])


def markdown_table(header, lines, left=1):
    rule = [*["---"] * left, *["---:"] * (len(header) - left)]
    return "\n".join("| " + " | ".join(line) + " |" for line in [header, rule, *lines])


def rows_section(rows):
    lines = [[*cells(row)[:-1], "yes" if cells(row)[-1] == "yes" else "**no**"] for row in rows]
    missed = [row["row"] for row in rows if cells(row)[-1] == "NO"]
    closing = "Every row is reached." if not missed else "Not reached: " + "; ".join(missed) + "."
    return markdown_table(HEADER, lines, 2) + "\n\n" + closing


def others_section(times, memory):
    names = ["protobuf, arena", "protobuf, heap", "nlohmann-json", "pugixml"]
    lines = []
    for work, title in (("read", "read, walk and free"), ("write", "write")):
        for shape, size in USUAL.items():
            whos = ["kvinventory", *PEERS]
            values = [f"{times[f'{work}/{shape}/{size}/{who}'] / size * 1000:.1f}" for who in whos]
            copied = times[f"read/{shape}/{size}/memcpy"] / size * 1000
            lines.append([f"{title}: {shape}, ns", *values, f"{copied:.2f}"])
    for shape in USUAL:
        rows = [row for row in memory if row["row"].endswith(shape)]
        lines.append([f"peak heap: {shape}, B", f"{rows[0]['ours']:.1f}", *[f"{row['peer']:.1f}" for row in rows], ""])
    return markdown_table(["for a parameter", "ours", *names, "memcpy of the stream"], lines)


def cache_sizes():
    sizes = []
    for index in sorted(pathlib.Path("/sys/devices/system/cpu/cpu0/cache").glob("index*")):
        kind = (index / "type").read_text().strip()
        if kind != "Instruction":
            sizes.append(f"L{(index / 'level').read_text().strip()} {(index / 'size').read_text().strip()}")
    return ", ".join(sizes)


def machine_section(bench, load):
    compiler = re.search(r"CMAKE_CXX_COMPILER:\w+=(.*)", (bench.build / "CMakeCache.txt").read_text())[1]
    version = run([compiler, "-dumpfullversion"]).strip()
    system = re.search(r'PRETTY_NAME="?([^"\n]*)', pathlib.Path("/etc/os-release").read_text())[1]
    pages = os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE")
    virtual = "virtual machine, " if "hypervisor" in pathlib.Path("/proc/cpuinfo").read_text() else ""
    return (f"Measured {datetime.date.today().isoformat()} on: {virtual}{platform.machine()}, {os.cpu_count()} cores "
            f"(caches: {cache_sizes()}), {pages / 2**30:.0f} GiB of memory, {system}, GCC {version} with `-O3`. "
            f"Load average at the start: {load:.2f}.")


def replace(text, name, content):
    begin, end = f"<!-- {name}: written by scripts/bench -->", f"<!-- end of {name} -->"
    head, found, rest = text.partition(begin)
    _, closed, tail = rest.partition(end)
    if not found or not closed:
        sys.exit(f"{DOCUMENT.name} has no place for {name}")
    return f"{head}{begin}\n\n{content}\n\n{end}{tail}"


def write_document(bench, times, memory, scans, curves, load):
    text = DOCUMENT.read_text()
    text = replace(text, "machine", machine_section(bench, load))
    text = replace(text, "table", rows_section(bench.rows))
    text = replace(text, "others", others_section(times, memory))
    DOCUMENT.write_text(text)
    names = ("Korvel Inventory", "protobuf, arena")
    Plot.write(DOCUMENT.parent / "performance-growth.svg",
               "Reading, walking and freeing a tree: cost of one parameter from a thousand to a million",
               [Plot.Panel(shape, "parameters", "ns for a parameter", list(zip(names, lines)), logarithmic=True)
                for shape, lines in curves.items()], columns=2, height=260)
    values = {row["row"]: row for row in scans}

    def points(kind, key):
        return [(n, values[f"{kind} scan of {n} board{'s' * (n > 1)}"][key]) for n in BOARDS]

    Plot.write(DOCUMENT.parent / "performance-scan.svg", "Scans of one to two hundred boards",
               [Plot.Panel("Boards that take 20 ms to answer with 64 KiB", "boards", "ms",
                           [("first scan", points("first", "ours")), ("second scan", points("second", "ours")),
                            ("floor: waiting, receiving, reading", points("first", "peer"))],
                           x_ticks=[1, 20, 50, 100, 150, 200])], height=320)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--quick", action="store_true")
    arguments = parser.parse_args()
    load = os.getloadavg()[0]
    os.environ["KV_OWN_NETWORK"] = "1"
    with tempfile.TemporaryDirectory(dir=arguments.build) as folder:
        bench = Bench(arguments.build.resolve(), arguments.quick, pathlib.Path(folder).resolve())
        times = measure_model(bench)
        memory = measure_memory(bench)
        measure_growth(bench)
        measure_use(bench)
        measure_start(bench)
        scans = measure_remote(bench)
        curves = {} if bench.quick else measure_curves(bench)
    print(text_table(bench.rows))
    missed = sum(cells(row)[-1] == "NO" for row in bench.rows)
    print(f"\n{len(bench.rows) - missed} of {len(bench.rows)} rows reached" +
          (", a short look: docs/performance.md stays as it is" if bench.quick else ""))
    if not bench.quick:
        write_document(bench, times, memory, scans, curves, load)


if __name__ == "__main__":
    main()
