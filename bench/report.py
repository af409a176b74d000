#!/usr/bin/env python3
"""Writes docs/performance.md and its charts from the results of one run of script/bench.

    bench/report.py RESULTS HOST COMPILER

RESULTS holds *.jsonl (one measurement a line: group, name, subject, metric, value) and json.json
(Google Benchmark's output). HOST is the host's stripped binary.
"""
import collections
import json
import pathlib
import platform
import re
import statistics
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
IMAGES = ROOT / "docs" / "images"
TIME_UNITS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}
PACKAGES = ["libnss3", "libnspr4", "libsofthsm2", "opensc", "gnutls-bin", "rapidjson-dev",
            "libsimdjson-dev", "nlohmann-json3-dev", "libjsoncpp-dev", "libbenchmark-dev",
            "python3", "gnuplot-nox"]
JSON_CASES = {
    "read_initialize": "(a) read an Initialize request, copy out its four texts",
    "read_signing": "(b) read a signing request",
    "write_indented": "(c) full envelope with a signature, indented",
    "write_compact": "(d) the same, compact",
    "write_listing": "(e) listing of three certificates with accented names",
    "read_members": "(f) one 1 MB line of 10,000 members, read the last",
}
# The largest share of a peer's time that the host may take: 1.0 where nothing is said.
JSON_LIMITS = {
    ("read_initialize", "rapidjson_in_situ"): 0.85, ("read_signing", "rapidjson_in_situ"): 0.85,
    ("read_initialize", "simdjson_dom"): 1.2, ("read_signing", "simdjson_dom"): 1.2,
    ("read_initialize", "simdjson_on_demand"): 1.5, ("read_signing", "simdjson_on_demand"): 1.5,
}


class Results:
    """Samples of each (group, name, subject, metric), in the order of the repetitions."""

    def __init__(self, folder):
        self.samples = collections.defaultdict(list)
        self.json_context = {}
        for file in sorted(folder.glob("*.jsonl")):
            for line in file.read_text().splitlines():
                r = json.loads(line)
                self.samples[r["group"], r["name"], r["subject"], r["metric"]].append(r["value"])
        benchmarks = folder / "json.json"
        if benchmarks.exists():
            measured = json.loads(benchmarks.read_text())
            self.json_context = measured["context"]
            for run in measured["benchmarks"]:
                if run["run_type"] == "iteration":
                    self.add_benchmark(run)

    def add_benchmark(self, run):
        """Google Benchmark names are case/subject or case/subject/bytes."""
        case, subject, *size = run["run_name"].split("/")
        name = "/".join([case, *size])
        value = run["cpu_time"] * TIME_UNITS[run["time_unit"]]
        self.samples["json", name, subject, "ns"].append(value)

    def names(self, group):
        return list(dict.fromkeys(key[1] for key in self.samples if key[0] == group))

    def subjects(self, group, name, metric="ns"):
        found = [key[2] for key in self.samples if key[:2] == (group, name) and key[3] == metric]
        return sorted(found, key=lambda subject: (subject != "host", subject))

    def typical(self, *key):
        """The median; of JSON the fastest: that code does the same each time, and a disturbance
        only ever adds to it."""
        return (min if key[0] == "json" else statistics.median)(self.samples[key])

    def ratio(self, group, name, peer, metric="ns"):
        """Host over peer: the median of the ratios within each repetition, which the two ran side
        by side, so that a disturbance of the machine weighs on both. Google Benchmark runs in no
        such order: there, the ratio of the fastest."""
        if group == "json":
            return self.typical(group, name, "host", metric) / self.typical(group, name, peer, metric)
        pairs = zip(self.samples[group, name, "host", metric], self.samples[group, name, peer, metric])
        return statistics.median(ours / theirs for ours, theirs in pairs)


def spread(values):
    """Half the distance between the quartiles, in per cent of the median."""
    if len(values) < 4:
        return "-"
    low, middle, high = statistics.quantiles(values, n=4)
    return f"±{(high - low) / 2 / middle * 100:.0f} %" if middle else "-"


def duration(ns):
    for limit, divisor, unit in ((1e3, 1, "ns"), (1e6, 1e3, "µs"), (1e9, 1e6, "ms")):
        if ns < limit:
            return f"{ns / divisor:.3g} {unit}"
    return f"{ns / 1e9:.3g} s"


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "|" + "---|" * len(header)]
    return "\n".join(lines + ["| " + " | ".join(map(str, row)) + " |" for row in rows]) + "\n"


def comparison(results, group, names, labels=None):
    """Every case with the time of the host and of each peer, and the host's share of it."""
    rows = []
    for name in names:
        for subject in results.subjects(group, name):
            samples = results.samples[group, name, subject, "ns"]
            ratio = "" if subject == "host" else f"{results.ratio(group, name, subject):.2f}"
            label = (labels or {}).get(name, name) if subject == "host" else ""
            rows.append((label, subject, duration(results.typical(group, name, subject, "ns")), spread(samples), ratio))
    return table(("Case", "Program", "Time", "Spread", "Host / this"), rows)


def output_of(*command):
    return subprocess.run(command, capture_output=True, text=True, check=False).stdout.strip()


def machine(compiler, json_context):
    cpu = re.search(r"model name\s*:\s*(.+)", pathlib.Path("/proc/cpuinfo").read_text())
    cores = output_of("nproc")
    system = re.search(r'PRETTY_NAME="(.+)"', pathlib.Path("/etc/os-release").read_text())
    versions = output_of("dpkg-query", "-W", "-f", "${Package} ${Version}, ", *PACKAGES)
    return table(("", ""), [
        ("Processor", f"{cpu[1] if cpu else platform.machine()}, {cores} cores"),
        ("System", f"{system[1] if system else 'Linux'}, kernel {platform.release()}"),
        ("Compiler", output_of(compiler, "--version").splitlines()[0] + ", the release preset"),
        ("simdjson", f"kernel {json_context.get('simdjson_kernel', '-')}"),
        ("Packages", versions.rstrip(", "))])


def bytes_of(name):
    return int(name.split("/")[1])


def line_names(results):
    return sorted((n for n in results.names("json") if n.startswith("growth/")), key=bytes_of)


def targets(results):
    rows = []

    def judge(what, value, limit, form="{:.2f}"):
        verdict = "yes" if value <= limit else "**no**"
        rows.append((what, form.format(value), "at most " + form.format(limit), verdict))

    for name in (name for name in JSON_CASES if name in results.names("json")):
        for peer in results.subjects("json", name)[1:]:
            limit = JSON_LIMITS.get((name, peer), 1.0)
            if name != "read_members" or peer.startswith("rapidjson"):
                judge(f"JSON {JSON_CASES[name][:3]} / {peer}", results.ratio("json", name, peer), limit)
    lines = line_names(results)
    for peer in ("rapidjson_dom", "rapidjson_in_situ"):
        judge(f"JSON (g) / {peer}, the worst of all sizes",
              max(results.ratio("json", name, peer) for name in lines), 1.0)
    per_byte = {name: results.typical("json", name, "host", "ns") / bytes_of(name) for name in lines}
    # Caches and pages tell over four orders of magnitude; anything but linear would be far above.
    judge("JSON (g) is linear: the dearest byte / the cheapest",
          max(per_byte.values()) / min(per_byte.values()), 2.0)
    for name in results.names("round_trip"):
        judge(f"version over pipes, {name.replace('_', ' ')} / minimal C program",
              results.ratio("round_trip", name, "minimal_c", "median_ns"), 1.15)
    for name in results.names("browser"):
        judge(f"{name} / minimal extension and host", results.ratio("browser", name, "minimal"), 1.10)
    for name in results.names("token"):
        peer, limit = ("bare_listing", 1.03) if name.startswith("list") else ("bare_calls", 1.05)
        judge(f"token {name} certificates / {peer}", results.ratio("token", name, peer), limit)
    per_certificate = [results.typical("token", f"list/{n}", "host", "ns") / n for n in (100, 1000)]
    judge("listing is linear: a certificate's share at 1000 / at 100",
          per_certificate[1] / per_certificate[0], 1.25)
    judge("start to first answer / minimal C++ program",
          results.ratio("start", "first_answer", "minimal_cpp"), 1.5)
    for name, few, many, subject in memory_rows(results):
        if subject == "host":
            judge(f"memory growth over many {name} requests, kB", many - few, 64, "{:.0f}")
    return table(("Target", "Measured", "Wanted", "Reached"), rows)


def memory_rows(results):
    for name in results.names("memory"):
        for subject in results.subjects("memory", name, "resident_kb_few"):
            yield (name, results.typical("memory", name, subject, "resident_kb_few"),
                   results.typical("memory", name, subject, "resident_kb_many"), subject)


def round_trip(results):
    rows = []
    for name, subject in ((name, subject) for name in results.names("round_trip")
                          for subject in results.subjects("round_trip", name, "median_ns")):
        key = ("round_trip", name, subject)
        ratio = results.ratio("round_trip", name, subject, "median_ns")
        rows.append((name.replace("_", " ") if subject == "host" else "", subject,
                     f"{results.typical(*key, 'requests_per_second'):,.0f}",
                     duration(results.typical(*key, "median_ns")),
                     spread(results.samples[*key, "median_ns"]),
                     duration(results.typical(*key, "p99_ns")),
                     "" if subject == "host" else f"{ratio:.2f}"))
    return table(("Case", "Program", "Requests a second", "Median", "Spread", "99th percentile",
                  "Host / this"), rows)


def start(results, host):
    memory = [(name.replace("_", " "), subject,
               f"{results.typical('start', name, subject, 'peak_kb'):,.0f} kB")
              for name in results.names("start")
              for subject in results.subjects("start", name, "peak_kb")]
    libraries = re.findall(r"^\s*(\S+\.so[.\d]*) =>", output_of("ldd", host), re.MULTILINE)
    return "\n".join([
        comparison(results, "start", ["first_answer"], {"first_answer": "exec to first answer"}),
        table(("Peak memory", "Program", "Median"), memory),
        f"The stripped binary has {pathlib.Path(host).stat().st_size:,} bytes and loads "
        f"{len(libraries)} shared libraries at start: {', '.join(sorted(libraries))}. The token "
        "module, and the libraries that NSS loads when it starts, come with the first token "
        "command.\n"])


def plot(name, title, commands, series):
    """Draws one chart; `series` is a list of (legend, [(x, ns)...]), drawn in microseconds."""
    IMAGES.mkdir(parents=True, exist_ok=True)
    script = ["set terminal svg size 860,440 font 'sans-serif,13' background '#ffffff'",
              f"set output '{IMAGES / name}.svg'", f"set title '{title}'", "set grid", "set key outside",
              "set format y '%g'"]
    script += commands
    data = []
    for index, (_, points) in enumerate(series):
        data.append(f"$d{index} << EOD")
        data += [f'{json.dumps(x)} {float(y) / 1e3}' for x, y in points] + ["EOD"]
    draws = [f"$d{i} using {'2:xtic(1)' if 'set style data histogram' in commands else '1:2'} "
             f"title '{legend}'" for i, (legend, _) in enumerate(series)]
    subprocess.run(["gnuplot"], input="\n".join(data + script + ["plot " + ", ".join(draws)]),
                   text=True, check=True)


BARS = ["set style data histogram", "set style histogram clustered gap 1", "set style fill solid 0.8",
        "set yrange [0:*]"]
LINES = ["set style data linespoints", "set logscale xy", "set format x '%g'"]


def by_size(results, group, case, subject, per=lambda size: 1):
    """Times of the sizes of one case, as (size, ns / per(size))."""
    found = sorted((int(name.split("/")[1]), name) for name in results.names(group)
                   if name.startswith(case + "/") and results.samples.get((group, name, subject, "ns")))
    return [(size, results.typical(group, name, subject, "ns") / per(size)) for size, name in found]


def charts(results):
    cases = [name for name in JSON_CASES if name in results.names("json") and name != "read_members"]
    if cases:
        subjects = list(dict.fromkeys(s for name in cases for s in results.subjects("json", name)))
        plot("json", "JSON: µs per document, logarithmic", BARS + ["set yrange [*:*]", "set logscale y"],
             [(s.replace("_", " "), [(JSON_CASES[name][:3], results.typical("json", name, s, "ns")
                                      if (("json", name, s, "ns") in results.samples) else "NaN")
                                     for name in cases]) for s in subjects])
        first = next(name for name in results.names("json") if name.startswith("growth/"))
        plot("json-growth", "JSON: ns per byte against bytes of the line", LINES,
             [(s.replace("_", " "), by_size(results, "json", "growth", s, lambda size: size / 1e3))
              for s in results.subjects("json", first)])
    plot("round-trip", "Version command: median round trip over pipes, µs", BARS,
         [(s.replace("_", " "), [(name.replace("_", " "), results.typical("round_trip", name, s, "median_ns"))
                                 for name in results.names("round_trip")])
          for s in ("host", "minimal_c", "python")])
    plot("listing", "Listing: µs against certificates on the token", LINES,
         [(legend, by_size(results, group, "list", subject)) for legend, group, subject in (
             ("host", "token", "host"), ("guarded listing", "token", "guarded_listing"),
             ("bare calls", "token", "bare_calls"),
             ("host, whole process", "token_process", "host"),
             ("pkcs11-tool", "token_process", "pkcs11-tool"),
             ("p11tool", "token_process", "p11tool"),
             ("p11tool, URLs only", "token_process", "p11tool_urls"))])
    plot("start", "From exec to the first answer, µs", BARS + ["unset key"],
         [("", [(s.replace("_", " "), results.typical("start", "first_answer", s, "ns"))
                for s in results.subjects("start", "first_answer")])])


def main():
    folder, host, compiler = pathlib.Path(sys.argv[1]), sys.argv[2], sys.argv[3]
    results = Results(folder)
    charts(results)
    json_names = results.names("json")
    growth = line_names(results)
    memory = table(("Requests", "Program", "After few, kB", "After many, kB"),
                   [(name, subject, f"{few:,.0f}", f"{many:,.0f}")
                    for name, few, many, subject in memory_rows(results)])
    text = (ROOT / "bench" / "performance.md.in").read_text()
    for placeholder, section in {
            "MACHINE": machine(compiler, results.json_context), "TARGETS": targets(results),
            "JSON": comparison(results, "json", [n for n in JSON_CASES if n in json_names], JSON_CASES),
            "GROWTH": comparison(results, "json", growth),
            "BROWSER": comparison(results, "browser", results.names("browser")),
            "ROUND_TRIP": round_trip(results),
            "TOKEN": comparison(results, "token", results.names("token")),
            "TOKEN_PROCESS": comparison(results, "token_process", results.names("token_process")),
            "START": start(results, host), "MEMORY": memory}.items():
        text = text.replace(f"@{placeholder}@\n", section)
    (ROOT / "docs" / "performance.md").write_text(text)


main()
