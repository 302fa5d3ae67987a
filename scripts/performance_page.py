#!/usr/bin/env python3
"""Brings docs/performance.md and its plot up to date with one run of the benchmarks.

  scripts/performance_page.py DIRECTORY     which holds for each program velmoor_bench_NAME what it printed, NAME.txt,
                                            and its NAME.json if it writes one

Only what stands between the page's marks is replaced: <!-- NAME: begin --> and <!-- NAME: end -->.
"""
import json
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
PAGE = ROOT / "docs" / "performance.md"
PLOT = ROOT / "docs" / "pictures" / "performance.svg"
TO_NANOSECONDS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


class Run:
    """The figures of one run, by program and name."""

    def __init__(self, directory):
        self.directory = directory
        self.contexts = {}
        self.rows = {}
        for path in sorted(directory.glob("*.json")):
            run = json.loads(path.read_text())
            self.contexts[path.stem] = run["context"]
            for row in run["benchmarks"]:
                self.rows[path.stem, row["name"]] = row

    def row(self, program, name):
        if (program, name) not in self.rows:
            sys.exit(f"performance_page: {program} gives no figure '{name}'")
        return self.rows[program, name]

    def ns(self, program, name):
        return processor_ns(self.row(program, name))

    def count(self, program, name, counter):
        return self.row(program, name)[counter]

    def capture_calls(self):
        """For each size of picture its pixels in millions, its name, and the milliseconds of the call's parts."""
        path = self.directory / "capture_call.txt"
        for line in path.read_text().splitlines() if path.exists() else []:
            size = re.match(r"(\d+)x(\d+), .*?: ", line)
            if size:
                parts = re.findall(r"([^,]+?) ([\d.]+)(?: ms)?(?:, |$)", line[size.end():])
                yield int(size[1]) * int(size[2]) / 1e6, f"{size[1]} × {size[2]}", {a: float(b) for a, b in parts}

    def told(self, program):
        """For each subject, such as a graphics interface, and case its figure, and what else is told of it."""
        path = self.directory / f"{program}.txt"
        interface = ""
        for line in path.read_text().splitlines() if path.exists() else []:
            told = re.match(r"  (.*?): (.*?)(?:[;,] (.*))?$", line)
            if told:
                yield f"{interface}: {told[1]}", told[2], told[3] or ""
            elif not line.startswith("["):
                interface = line

    def grown(self, program, pattern):
        """(match, row) of each row whose name matches as a whole, in the order of the run."""
        for (of_program, name), row in self.rows.items():
            match = re.fullmatch(pattern, name)
            if of_program == program and match:
                yield match, row


def processor_ns(row):
    """What a round took of the processor, which other programs can't add to."""
    return row["cpu_time"] * TO_NANOSECONDS[row["time_unit"]]


def number(value):
    """Three digits that count."""
    if abs(value) >= 1000:
        return f"{round(value, 2 - len(str(int(abs(value)))) + 1):,.0f}"
    return f"{value:.3g}"


def duration(ns):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if abs(ns) >= size:
            return f"{number(ns / size)} {unit}"
    return f"{number(ns)} ns"


def per_second(row):
    return f"{number(row['bytes_per_second'] / 1e9)} GB/s"


def call(sessions, in_flight):
    return f"tool call/sessions:{sessions}/in_flight:{in_flight}/iterations:1/manual_time"


def figures(run):
    """Rows of: what, figure, what it is held against."""
    echo = "bare TCP echo/iterations:1/manual_time"
    yield ("A tool call over HTTP and SSE, one at a time: median",
           duration(run.count("mcp", call(1, 1), "p50_us") * 1e3),
           f"4 × a bare TCP echo in the same run ({duration(run.count('mcp', echo, 'p50_us') * 1e3)}): "
           f"{number(run.count('mcp', call(1, 1), 'echoes'))} ×")
    yield ("… the slowest of a hundred", duration(run.count("mcp", call(1, 1), "p99_us") * 1e3), "1 ms")
    yield ("… answers a second, 8 in flight on one session", number(run.count("mcp", call(1, 8), "per_second")),
           "20,000")
    yield ("… with 64 in flight on each of four sessions", number(run.count("mcp", call(4, 64), "per_second")), "")
    yield ("… answers lost or doubled, all cases",
           number(sum(row["lost"] + row["duplicates"] for _, row in run.grown("mcp", "tool call.*"))), "0")

    frame = "BM_FrameThroughTheLayer/real_time"
    busy_frame = "BM_FrameThroughTheLayerWhileToolsRead/real_time"
    yield ("The three frame hooks: added to a frame", duration(run.count("frame", frame, "added_cpu_ns")), "1 µs")
    yield ("… while a tool reads all the time", duration(run.count("frame", busy_frame, "added_cpu_ns")),
           "1 µs")

    def added(what, name, base, aim):
        base_ns = run.ns("hooks", base + "/real_time/threads:1")
        added_ns = run.ns("hooks", name + "/real_time/threads:1") - base_ns
        return (f"{what}: added", duration(added_ns), f"{aim}the next layer itself: {duration(base_ns)}")
    locate = "xrLocateSpace/next layer"
    yield added("`xrLocateSpace`, no action space", "xrLocateSpace/no action space", locate, "60 ns; ")
    yield added("`xrLocateSpace`, action space, automation off", "xrLocateSpace/action space, automation off", locate,
                "60 ns; ")
    yield added("`xrLocateSpace`, action space, automation on", "xrLocateSpace/action space, automation on", locate, "")
    yield added("`xrGetActionStatePose`, automation off", "xrGetActionStatePose/automation off",
                "xrGetActionStatePose/next layer", "")
    yield added("`xrSyncActions`, 4 sets", "xrSyncActions/layer, sets/4", "xrSyncActions/next layer, sets/4",
                "300 ns; ")

    bare = run.ns("automation", "BM_FrameWithoutTheLayer")
    idle = run.ns("automation", "BM_FrameWithTheLayerAndNothingSimulated")
    yield ("The automation layer, nothing simulated: added to a frame", duration(idle - bare),
           f"1 µs; the same 21 calls without it: {duration(bare)}")

    handler = run.ns("invoke", "BM_Handler/nothing")
    invoke = run.ns("invoke", "BM_InvokeTool/nothing")
    told = run.ns("invoke", "BM_InvokeTool/nothing_with_telemetry")
    yield ("`OrvanicXR_InvokeTool` of a tool that does nothing", duration(invoke),
           f"the tool itself: {duration(handler)}")
    yield ("… added by telemetry", duration(told - invoke), "")
    yield ("`sqrt(3**2+4**2)*2-1`", duration(run.ns("math", "BM_EvaluateExpression/hypotenuse")), "1 µs")
    yield ("`xrCreateInstance`: added", duration(run.count("instance", INSTANCE, "create_ms") * 1e6), "")
    yield ("`xrDestroyInstance`: added", duration(run.count("instance", INSTANCE, "destroy_ms") * 1e6),
           "two pauses of 300 ms, one for each server's streams")
    yield ("Memory: added", f"{number(run.count('instance', INSTANCE, 'resident_mb'))} MB", "")

    copy = run.row("capture", "BM_Copy/4194304")
    for match, row in run.grown("capture", r"BM_Base64Path/([\w.]+)/4194304"):
        yield (f"Base64 of 4 MiB, {match[1]}", per_second(row), f"`memcpy`: {per_second(copy)}")
    for match, row in run.grown("capture", r"BM_Png/(\d+)/(\d+)"):
        by_stb = run.row("capture", f"BM_PngOfStb/{match[1]}/{match[2]}")
        yield (f"PNG of {match[1]} × {match[2]}", duration(processor_ns(row)),
               f"stb_image_write alone: {duration(processor_ns(by_stb))}")
    for _, size, parts in run.capture_calls():
        whole, *rest = parts.items()
        yield (f"A picture of {size}, {whole[0]}", duration(whole[1] * 1e6),
               "; ".join(f"{name}: {duration(ms * 1e6)}" for name, ms in rest))
    yield from run.told("bridge")
    yield from run.told("rendering")


INSTANCE = "BM_InstanceAddedByTheLayer/iterations:1"


def table(run):
    lines = ["| What | Figure | Compared with |", "|---|---|---|"]
    lines += ["| " + " | ".join(cell or "—" for cell in cells) + " |" for cells in figures(run)]
    return "\n".join(lines)


def machine(run):
    context = next(iter(run.contexts.values()))
    model = re.search(r"model name\s*: (.*)", pathlib.Path("/proc/cpuinfo").read_text())
    loads = [each["load_avg"][0] for each in run.contexts.values() if each.get("load_avg")]
    load = f" The load of the machine stood between {min(loads):.1f} and {max(loads):.1f}." if loads else ""
    return (f"Measured on {context['date'][:10]}, on {context['num_cpus']} processors of the kind "
            f"{model[1] if model else 'unknown'}, with everything on one machine.{load}")


def series(run):
    """For each panel its curves: title, and points of x and y."""
    def of(program, pattern, x, y):
        return [(x(match), y(row)) for match, row in run.grown(program, pattern)]

    def first(match):
        return int(match[1])
    one_session = call(1, r"(\d+)")
    one_in_flight = call(r"(\d+)", 1)
    yield "calls", [
        ("one session, median", of("mcp", one_session, first, lambda row: row["p50_us"])),
        ("one session, 99 %", of("mcp", one_session, first, lambda row: row["p99_us"])),
        ("a session each, median", of("mcp", one_in_flight, first, lambda row: row["p50_us"])),
        ("a session each, 99 %", of("mcp", one_in_flight, first, lambda row: row["p99_us"])),
    ]
    yield "spaces", [("xrLocateSpace", of("hooks", r"xrLocateSpace/layer, spaces/(\d+)", first,
                                          processor_ns))]
    yield "frames", [
        ("hooks, by layers", of("frame", r"BM_FrameOfLayers/(\d+)", first, lambda row: row["added_cpu_ns"])),
        ("pose animations", of("hooks", r"pose animation tick/animations/(\d+)", first, processor_ns)),
    ]
    by_name = {}
    for megapixels, _, parts in run.capture_calls():
        whole, milliseconds = next(iter(parts.items()))
        by_name.setdefault(f"tool call, {whole}", []).append((megapixels, milliseconds))
    for match, row in run.grown("capture", r"(?:BM_)?(.+?)/(\d+)/(\d+)(?:/.*)?"):
        point = (int(match[2]) * int(match[3]) / 1e6, processor_ns(row) / 1e6)
        by_name.setdefault(CURVES.get(match[1], match[1]), []).append(point)
    yield "pictures", list(by_name.items())


CURVES = {"Draw": "drawn by the simulator", "Png": "made a PNG"}
PANELS = {
    "calls": ("Tool call over HTTP and SSE", "calls in flight", "µs",
              "set logscale xy; set yrange [*:*]; set key bottom right"),
    "spaces": ("Locating one of the application's action spaces", "action spaces", "ns",
               "set logscale x; set yrange [0:*]"),
    "frames": ("Added to a frame", "layers, animations", "ns", "set yrange [0:*]"),
    "pictures": ("Picture", "megapixels", "ms", "set yrange [0:*]"),
}


def draw(run):
    script = ["set terminal svg size 960,720 font 'sans,13' background 'white'", f"set output '{PLOT}'",
              "set multiplot layout 2,2 spacing 0.1,0.12", "set key samplen 2", "set grid"]
    for panel, curves in series(run):
        title, x, y, extra = PANELS[panel]
        script += ["unset logscale", "set key top left", extra, f'set title "{title}"',
                   f'set xlabel "{x}"', f'set ylabel "{y}"']
        for place, (_, points) in enumerate(curves):
            script += [f"${panel}{place} << END"] + [f"{a} {b}" for a, b in sorted(points)] + ["END"]
        script.append("plot " + ", ".join(f"${panel}{place} with linespoints lw 2 pt 7 ps 0.5 title '{name}' noenhanced"
                                          for place, (name, _) in enumerate(curves)))
    subprocess.run(["gnuplot"], input="\n".join(script) + "\n", text=True, check=True)


def replace(text, name, content):
    begin, end = f"<!-- {name}: begin -->", f"<!-- {name}: end -->"
    if begin not in text or end not in text:
        sys.exit(f"performance_page: {PAGE} has no place for '{name}'")
    head, rest = text.split(begin)
    return head + begin + "\n" + content + "\n" + end + rest.split(end)[1]


def main():
    run = Run(pathlib.Path(sys.argv[1]))
    text = replace(PAGE.read_text(), "machine", machine(run))
    text = replace(text, "figures", table(run))
    draw(run)
    PAGE.write_text(text)


main()
