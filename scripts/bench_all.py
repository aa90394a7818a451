"""The work of bench_all.sh, which describes it."""

import argparse
import json
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import time

ROUNDS = 3
GROWTH_MEGAPIXELS = (1, 6, 24, 50, 100, 200)
GROWTH_FRAMES = (2, 5, 10, 20, 50, 100)
FRAME_OF_GROWTH = (1632, 1224)  # pixels of each of many frames


class Measurement:
    """One run of a program."""

    def __init__(self, command):
        start = time.monotonic()
        with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as process:
            self.output = process.stdout.read()
            _, status, usage = os.wait4(process.pid, 0)
            process.returncode = os.waitstatus_to_exitcode(status)
        if status != 0:
            sys.exit("bench_all: failed: " + " ".join(map(str, command)))
        self.seconds = time.monotonic() - start
        self.cpu = usage.ru_utime + usage.ru_stime
        self.megabytes = usage.ru_maxrss / 1024


class Job:
    """A job of this program, and the commands of its peers."""

    def __init__(self, name, title, arguments, peers):
        self.name = name
        self.title = title
        self.arguments = arguments
        self.peers = peers  # (name, command)


def rendered(bench, tool, folder, count, size):
    """Pictures of the scenes, rendered once. A folder that is there is whole, because it gets its name last."""
    if not folder.is_dir():
        made = folder.with_name(folder.name + ".part")
        shutil.rmtree(made, ignore_errors=True)
        subprocess.run([bench.bin / tool, made, str(count), *map(str, size)], check=True, stdout=subprocess.DEVNULL)
        made.rename(folder)
    return sorted(folder.glob("*.jpg"))


def jobs_of(bench):
    large, middle = ((1500, 1000), (1000, 750)) if bench.quick else ((6000, 4000), (4000, 3000))
    at = bench.work / ("quick" if bench.quick else "whole")
    at.mkdir(parents=True, exist_ok=True)
    bracket = rendered(bench, "bench_render", at / "bracket", 3, large)
    series = rendered(bench, "bench_render_focus", at / "series", 8, middle)
    row = rendered(bench, "bench_render_pano", at / "row", 4 if bench.quick else 8, middle)
    out = at / "out.tif"
    peer = at / "peer.tif"

    def orvo(*arguments):
        return [bench.bin / "orvo", *arguments, "-o", out, "--bits", "8", "--json"]

    enfuse = ("enfuse", ["enfuse", "-o", peer, *bracket])
    hard = ["--exposure-weight=0", "--saturation-weight=0", "--contrast-weight=1", "--hard-mask"]
    fusion = ("OpenCV exposure fusion", [bench.bin / "bench_opencv_fusion", peer, *bracket])
    stitcher = ("OpenCV stitcher", [bench.bin / "bench_opencv_stitcher", peer, *row])
    return [
        Job("merge", "orvo hdr", orvo("hdr", *bracket), [enfuse, fusion]),
        Job("merge_all", "orvo hdr --align --deghost 2", orvo("hdr", *bracket, "--align", "--deghost", "2"), []),
        Job("single", "orvo hdr, one frame", orvo("hdr", bracket[-1]), []),
        Job("stack_still", "orvo stack --no-align", orvo("stack", *series, "--no-align"),
            [("enfuse, hard mask", ["enfuse", *hard, "-o", peer, *series])]),
        Job("stack", "orvo stack", orvo("stack", *series),
            [("focus-stack", ["focus-stack", f"--output={peer}", *series])]),
        Job("panorama", "orvo pano", orvo("pano", *row), [stitcher]),
        Job("upscale", "orvo upscale", orvo("upscale", series[0]), []),
    ]


def measured(bench, job):
    """The medians of all programs of a job, which take turns."""
    commands = [(job.title, job.arguments)]
    for name, command in job.peers:
        if shutil.which(str(command[0])):
            commands.append((name, command))
        else:
            print(f"bench_all: {command[0]} is not installed and is left out", file=sys.stderr)
    runs = {name: [] for name, _ in commands}
    for _ in range(1 if bench.quick else ROUNDS):
        for name, command in commands:
            runs[name].append(Measurement(command))
    lines = ["| program | seconds | CPU seconds | peak MB |", "|---|---|---|---|"]
    for name, each in runs.items():
        median = [statistics.median(getattr(run, what) for run in each) for what in ("seconds", "cpu", "megabytes")]
        lines.append(f"| {name} | {median[0]:.1f} | {median[1]:.1f} | {median[2]:.0f} |")
    return lines + ["", steps_of(runs[job.title])]


def steps_of(runs):
    """The shares of the steps of this program's runs."""
    sums = {}
    for run in runs:
        for phase in json.loads(run.output)["phases"]:
            sums[phase["name"]] = sums.get(phase["name"], 0.0) + phase["milliseconds"]
    total = sum(sums.values()) or 1.0
    return "Steps: " + ", ".join(f"{name} {100 * spent / total:.0f} %" for name, spent in sums.items()) + "."


def growth(bench):
    """Time and memory over megapixels of a merge, and over frames of a stack."""
    at = bench.work / "growth"
    at.mkdir(parents=True, exist_ok=True)
    points = {"megapixels": [], "frames": []}
    for megapixels in GROWTH_MEGAPIXELS[:2] if bench.quick else GROWTH_MEGAPIXELS:
        width = round((megapixels * 1e6 * 1.5) ** 0.5)
        pictures = rendered(bench, "bench_render", at / f"size_{megapixels}", 3, (width, round(width / 1.5)))
        points["megapixels"].append((megapixels, Measurement(
            [bench.bin / "orvo", "hdr", *pictures, "-o", at / "out.tif", "--quiet"])))
    for frames in GROWTH_FRAMES[:2] if bench.quick else GROWTH_FRAMES:
        pictures = rendered(bench, "bench_render_focus", at / f"frames_{frames}", frames, FRAME_OF_GROWTH)
        points["frames"].append((frames, Measurement(
            [bench.bin / "orvo", "stack", *pictures, "-o", at / "out.tif", "--quiet", "--no-align"])))
    return points


def growth_table(points):
    lines = []
    for what, title in (("megapixels", "megapixels, orvo hdr of three frames"),
                        ("frames", "frames of 2 megapixels, orvo stack --no-align")):
        lines += [f"| {title} | CPU seconds | peak MB |", "|---|---|---|"]
        lines += [f"| {count} | {run.cpu:.1f} | {run.megabytes:.0f} |" for count, run in points[what]] + [""]
    return lines[:-1]


def growth_drawing(points):
    """Two diagrams side by side, each with time and memory relative to their largest value."""
    side, margin, gap = 260, 40, 80
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{2 * (side + margin) + gap}" '
             f'height="{side + 2 * margin}" font-family="sans-serif" font-size="12">']
    for index, (what, runs) in enumerate(points.items()):
        left = margin + index * (side + gap)
        largest = runs[-1][0]
        parts.append(f'<rect x="{left}" y="{margin}" width="{side}" height="{side}" fill="none" stroke="#888"/>')
        parts.append(f'<text x="{left}" y="{side + margin + 16}">0</text>')
        parts.append(f'<text x="{left + side}" y="{side + margin + 16}" text-anchor="end">{largest} {what}</text>')
        for row, (value, unit, colour) in enumerate((("cpu", "CPU seconds", "#06c"), ("megabytes", "MB", "#c40"))):
            top = max(getattr(run, value) for _, run in runs)
            line = " ".join(f"{left + side * count / largest:.1f},{margin + side * (1 - getattr(run, value) / top):.1f}"
                            for count, run in runs)
            parts.append(f'<polyline points="{line}" fill="none" stroke="{colour}" stroke-width="2"/>')
            parts.append(f'<text x="{left}" y="{margin - 20 + 14 * row}" fill="{colour}">'
                         f'{unit}, at most {top:.0f}</text>')
    return "\n".join(parts + ["</svg>", ""])


def replaced(page, name, lines):
    """The page with these lines between the markers of that name."""
    begin, end = f"<!-- bench_all: {name} -->", f"<!-- bench_all: end of {name} -->"
    head, found, rest = page.partition(begin)
    _, found_end, tail = rest.partition(end)
    if not found or not found_end:
        sys.exit(f"bench_all: docs/performance.md has no markers of {name}")
    return head + begin + "\n\n" + "\n".join(lines) + "\n\n" + end + tail


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--root", type=pathlib.Path, required=True)
    parser.add_argument("--bin", type=pathlib.Path, required=True)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--write", action="store_true")
    parser.add_argument("work", nargs="?", type=pathlib.Path)
    bench = parser.parse_args()
    if bench.quick and bench.write:
        sys.exit("bench_all: the figures of --quick are not for the page")
    bench.work = bench.work or bench.root / "build" / "bench"
    for tool in ("orvo", "bench_render", "bench_render_focus", "bench_render_pano"):
        if not (bench.bin / tool).exists():
            sys.exit(f"bench_all: {bench.bin / tool} is missing; build the release preset")

    tables = {}
    for job in jobs_of(bench):
        tables[job.name] = measured(bench, job)
        print("\n".join([f"\n{job.name}:\n"] + tables[job.name]), flush=True)
    points = growth(bench)
    tables["growth"] = growth_table(points)
    print("\n".join(["\ngrowth:\n"] + tables["growth"]))
    (bench.work / "growth.svg").write_text(growth_drawing(points))
    print(f"\n{bench.work / 'growth.svg'} shows it.")
    if bench.write:
        page = bench.root / "docs" / "performance.md"
        text = page.read_text()
        for name, lines in tables.items():
            text = replaced(text, name, lines)
        page.write_text(text)
        shutil.copy(bench.work / "growth.svg", bench.root / "docs" / "growth.svg")


if __name__ == "__main__":
    main()
