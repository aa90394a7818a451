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
MANY_FRAMES = 60
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
            raise subprocess.CalledProcessError(process.returncode, list(map(str, command)))
        self.seconds = time.monotonic() - start
        self.cpu = usage.ru_utime + usage.ru_stime
        self.megabytes = usage.ru_maxrss / 1024

    def figures(self):
        return {"seconds": round(self.seconds, 3), "cpu_seconds": round(self.cpu, 3),
                "peak_megabytes": round(self.megabytes, 1)}


class Job:
    """A job of this program, and the commands of its peers."""

    def __init__(self, title, command, peers, rounds=ROUNDS):
        self.title = title
        self.command = command
        self.peers = peers  # (name, command)
        self.rounds = rounds


def rendered(bench, tool, folder, count, size):
    """Pictures of the scenes, rendered once. A folder that is there is whole, because it gets its name last."""
    if not folder.is_dir():
        made = folder.with_name(folder.name + ".part")
        shutil.rmtree(made, ignore_errors=True)
        subprocess.run([bench.bin / tool, made, str(count), *map(str, size)], check=True, stdout=subprocess.DEVNULL)
        made.rename(folder)
    return sorted(folder.glob("*.jpg"))


class Inputs:
    """The pictures of the jobs, each set rendered when the first job asks for it."""

    def __init__(self, bench):
        self.bench = bench
        self.folder = bench.work / ("quick" if bench.quick else "whole")
        self.folder.mkdir(parents=True, exist_ok=True)
        self.large, self.middle = ((1500, 1000), (1000, 750)) if bench.quick else ((6000, 4000), (4000, 3000))

    def bracket(self):
        return rendered(self.bench, "bench_render", self.folder / "bracket", 3, self.large)

    def many(self):
        count = 6 if self.bench.quick else MANY_FRAMES
        return rendered(self.bench, "bench_render", self.folder / "many", count, FRAME_OF_GROWTH)

    def huge(self):
        """(megapixels, frames)"""
        megapixels = GROWTH_MEGAPIXELS[1 if self.bench.quick else -1]
        return megapixels, bracket_of(self.bench, megapixels)[:2]

    def series(self):
        return rendered(self.bench, "bench_render_focus", self.folder / "series", 8, self.middle)

    def row(self):
        return rendered(self.bench, "bench_render_pano", self.folder / "row", 4 if self.bench.quick else 8, self.middle)


def jobs_of(bench):
    """Functions that make the jobs, by name."""
    inputs = Inputs(bench)
    tif, jpeg = inputs.folder / "out.tif", inputs.folder / "out.jpg"
    tif_peer, jpeg_peer = inputs.folder / "peer.tif", inputs.folder / "peer.jpg"

    def orvo(*arguments, output=tif, bits=8):
        return [bench.bin / "orvo", *arguments, "-o", output, "--bits", str(bits), "--json"]

    def enfuse(name, frames, *options, output=tif_peer):
        return name, ["enfuse", *options, "-o", output, *frames]

    def merge():
        frames = inputs.bracket()
        fusion = ("OpenCV exposure fusion", [bench.bin / "bench_opencv_fusion", tif_peer, *frames])
        return Job("orvo hdr", orvo("hdr", *frames), [enfuse("enfuse", frames), fusion])

    def merge_16():
        frames = inputs.bracket()
        return Job("orvo hdr --bits 16", orvo("hdr", *frames, bits=16),
                   [enfuse("enfuse --depth=16", frames, "--depth=16")])

    def merge_jpeg():
        frames = inputs.bracket()
        return Job("orvo hdr, JPEG", orvo("hdr", *frames, output=jpeg),
                   [enfuse("enfuse, JPEG", frames, "--compression=95", output=jpeg_peer)])

    def merge_all():
        options = ("--align", "--deghost", "2")
        return Job(" ".join(("orvo hdr", *options)), orvo("hdr", *inputs.bracket(), *options), [])

    def single():
        return Job("orvo hdr, one frame", orvo("hdr", inputs.bracket()[-1]), [])

    def merge_many():
        frames = inputs.many()
        return Job(f"orvo hdr, {len(frames)} frames", orvo("hdr", *frames), [enfuse("enfuse", frames)])

    def merge_huge():
        megapixels, frames = inputs.huge()
        # One round, since it takes as long as many of the others.
        return Job(f"orvo hdr, {len(frames)} frames of {megapixels} megapixels", orvo("hdr", *frames),
                   [enfuse("enfuse", frames)], rounds=1)

    def stack_still():
        frames = inputs.series()
        hard = ("--exposure-weight=0", "--saturation-weight=0", "--contrast-weight=1", "--hard-mask")
        return Job("orvo stack --no-align", orvo("stack", *frames, "--no-align"),
                   [enfuse("enfuse, hard mask", frames, *hard)])

    def stack_fast():
        return Job("orvo stack --fast", orvo("stack", *inputs.series(), "--fast"), [])

    def stack():
        frames = inputs.series()
        return Job("orvo stack", orvo("stack", *frames),
                   [("focus-stack", ["focus-stack", f"--output={tif_peer}", *frames])])

    def panorama():
        pictures = inputs.row()
        return Job("orvo pano", orvo("pano", *pictures),
                   [("OpenCV stitcher", [bench.bin / "bench_opencv_stitcher", tif_peer, *pictures])])

    def upscale():
        return Job("orvo upscale", orvo("upscale", inputs.series()[0]), [])

    return {make.__name__: make for make in (merge, merge_16, merge_jpeg, merge_all, single, merge_many, merge_huge,
                                             stack_still, stack_fast, stack, panorama, upscale)}


def programs_of(bench, job):
    """(name, command) of this program, and of all peers that are installed."""
    programs = [(job.title, job.command)]
    if bench.against:
        programs.append((f"{job.title}, other build", [bench.against, *job.command[1:]]))
    for name, command in job.peers:
        if shutil.which(str(command[0])):
            programs.append((name, command))
        else:
            print(f"bench_all: {command[0]} is not installed and is left out", file=sys.stderr)
    return programs


def measured(bench, job):
    """The runs of all programs of a job, by name, which take turns. A peer that fails is named and left out."""
    programs = programs_of(bench, job)
    runs = {name: [] for name, _ in programs}
    for _ in range(1 if bench.quick else job.rounds):
        for name, command in programs:
            if name not in runs:
                continue
            try:
                runs[name].append(Measurement(command))
            except subprocess.CalledProcessError as error:
                if name == job.title:
                    raise
                print(f"bench_all: {name} is left out: {error}", file=sys.stderr)
                del runs[name]
    return runs


def median(runs, what):
    return statistics.median(getattr(run, what) for run in runs)


def ratio(own, peer, what):
    """Ours by theirs, the median over rounds: runs of one round find the machine in the same state."""
    return statistics.median(getattr(mine, what) / getattr(theirs, what) for mine, theirs in zip(own, peer))


def table(title, runs):
    """A Markdown table; the ratios are this program's figures by those of the row."""
    own = runs[title]
    lines = ["| program | seconds | CPU seconds | peak MB | time ratio | memory ratio |", "|---|---|---|---|---|---|"]
    for name, each in runs.items():
        ratios = ["", ""] if each is own else [f"{ratio(own, each, what):.2f}" for what in ("seconds", "megabytes")]
        lines.append(f"| {name} | {median(each, 'seconds'):.1f} | {median(each, 'cpu'):.1f} | "
                     f"{median(each, 'megabytes'):.0f} | {ratios[0]} | {ratios[1]} |")
    steps = ", ".join(f"{name} {100 * share:.0f} %" for name, share in steps_of(own).items())
    return lines + ["", f"Steps: {steps}."]


def steps_of(runs):
    """The shares of the steps of this program's runs in their wall time."""
    sums = {}
    for run in runs:
        for phase in json.loads(run.output)["phases"]:
            sums[phase["name"]] = sums.get(phase["name"], 0.0) + phase["milliseconds"]
    total = sum(sums.values()) or 1.0
    return {name: spent / total for name, spent in sums.items()}


def job_record(title, runs):
    """What --json keeps of a job: every run, and the ratios."""
    own = runs[title]
    programs = []
    for name, each in runs.items():
        record = {"program": name, "runs": [run.figures() for run in each]}
        if each is not own:
            record["time_ratio"] = round(ratio(own, each, "seconds"), 4)
            record["memory_ratio"] = round(ratio(own, each, "megabytes"), 4)
        programs.append(record)
    return {"programs": programs, "steps": {name: round(share, 4) for name, share in steps_of(own).items()}}


def bracket_of(bench, megapixels):
    """Three frames of that size, which growth and the merge of large frames share."""
    width = round((megapixels * 1e6 * 1.5) ** 0.5)
    at = bench.work / "growth"
    at.mkdir(parents=True, exist_ok=True)
    return rendered(bench, "bench_render", at / f"size_{megapixels}", 3, (width, round(width / 1.5)))


def growth(bench):
    """Time and memory over megapixels of a merge, and over frames of a stack."""
    at = bench.work / "growth"
    at.mkdir(parents=True, exist_ok=True)
    points = {"megapixels": [], "frames": []}
    for megapixels in GROWTH_MEGAPIXELS[:2] if bench.quick else GROWTH_MEGAPIXELS:
        points["megapixels"].append((megapixels, Measurement(
            [bench.bin / "orvo", "hdr", *bracket_of(bench, megapixels), "-o", at / "out.tif", "--quiet"])))
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


def markers(name):
    return f"<!-- bench_all: {name} -->", f"<!-- bench_all: end of {name} -->"


def replaced(page, name, lines):
    """The page with these lines between the markers of that name."""
    begin, end = markers(name)
    head, _, rest = page.partition(begin)
    return head + begin + "\n\n" + "\n".join(lines) + "\n\n" + end + rest.partition(end)[2]


def arguments():
    parser = argparse.ArgumentParser(prog="bench_all.sh")
    parser.add_argument("--root", type=pathlib.Path, required=True)
    parser.add_argument("--bin", type=pathlib.Path, required=True)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--write", action="store_true")
    parser.add_argument("--json", type=pathlib.Path)
    parser.add_argument("--against", type=pathlib.Path)
    parser.add_argument("--only", type=lambda text: text.split(","))
    parser.add_argument("work", nargs="?", type=pathlib.Path)
    bench = parser.parse_args()
    bench.work = bench.work or bench.root / "build" / "bench"
    bench.against = bench.against and bench.against.absolute()
    return bench


def check(bench, names):
    """Ends the script now, rather than after half an hour, if something is missing."""
    if bench.quick and bench.write:
        sys.exit("bench_all: the figures of --quick are not for the page")
    for tool in ("orvo", "bench_render", "bench_render_focus", "bench_render_pano"):
        if not (bench.bin / tool).exists():
            sys.exit(f"bench_all: {bench.bin / tool} is missing; build the release preset")
    if bench.against and not os.access(bench.against, os.X_OK):
        sys.exit(f"bench_all: --against {bench.against} is not a program")
    for name in bench.only or []:
        if name not in names:
            sys.exit(f"bench_all: --only {name}: there is no such job, only {', '.join(names)}")
    if bench.json and not bench.json.absolute().parent.is_dir():
        sys.exit(f"bench_all: --json {bench.json}: its folder is missing")
    page = (bench.root / "docs" / "performance.md").read_text()
    for name in bench.only or names:
        if bench.write and not all(marker in page for marker in markers(name)):
            sys.exit(f"bench_all: docs/performance.md has no markers of {name}")


def measure(bench, jobs, names):
    """The tables by name. Prints each as soon as it is measured, and writes --json anew."""
    tables, record = {}, {"cores": os.cpu_count(), "quick": bench.quick, "jobs": {}}
    for name in names:
        if name == "growth":
            points = growth(bench)
            tables[name] = growth_table(points)
            record[name] = {what: [{"count": count, **run.figures()} for count, run in runs]
                            for what, runs in points.items()}
            (bench.work / "growth.svg").write_text(growth_drawing(points))
        else:
            job = jobs[name]()
            runs = measured(bench, job)
            tables[name] = table(job.title, runs)
            record["jobs"][name] = job_record(job.title, runs)
        print("\n".join([f"\n{name}:\n"] + tables[name]), flush=True)
        if bench.json:
            bench.json.write_text(json.dumps(record, indent=2) + "\n")
    return tables


def main():
    bench = arguments()
    jobs = jobs_of(bench)
    names = [*jobs, "growth"]
    check(bench, names)
    try:
        tables = measure(bench, jobs, bench.only or names)
    except subprocess.CalledProcessError as error:
        sys.exit(f"bench_all: {error}")
    if "growth" in tables:
        print(f"\n{bench.work / 'growth.svg'} shows the growth.")
    if bench.write:
        page = bench.root / "docs" / "performance.md"
        text = page.read_text()
        for name, lines in tables.items():
            text = replaced(text, name, lines)
        page.write_text(text)
        if "growth" in tables:
            shutil.copy(bench.work / "growth.svg", bench.root / "docs" / "growth.svg")


if __name__ == "__main__":
    main()
