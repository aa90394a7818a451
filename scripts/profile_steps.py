#!/usr/bin/env python3
"""Prints where a job of the program spends its processor time, step by step.

Usage: scripts/profile_steps.py build/release/bin/orvo pano a.jpg b.jpg -o out.jpg

Needs perf (Debian: linux-perf). Samples the stacks of all threads, and counts a sample for the innermost function that
belongs to a step of STEPS; the first row that matches counts. Where stacks end in the vector code of a worker, that
function alone decides.
"""

import collections
import os
import re
import subprocess
import sys
import tempfile

# Functions, as their names begin after the namespaces, and the step that they are part of.
STEPS = [
    ("decode and convert the files", r"io::read|PictureSink|ImageReader|loadFrame|loadPanoramaFrame|cvMatThroughWorkingSpace"
                                     r"|RoundTrip|KeptPicture|toSteps|libjpeg|isGray"),
    ("encode and write", r"PartCompressor|libisal|RowSource|io::write|writeImage"),
    ("describe and find features", r"SURF|detectKeypoints|computeImageFeatures|PanoramaStitcher::findFeatures"),
    ("match features", r"BatchDist|BFMatcher|cvflann|flann::|FeaturesMatcher|knnMatch|matchBothWays|findHomography|estimatePair"),
    ("register finely", r"registerFinely|equationsOf|warpStructure|lumaOf|structureAt|halved|placeFrames|structureOf\(orvo::_Image"),
    ("bundle adjustment", r"BundleAdjuster|estimateCameras"),
    ("resample aligned frames", r"lanczosWarp|warpRow|warpShared|warpPixel|placePixels"),
    ("find where the scene is still", r"SceneAgreement|addPixels"),
    ("grow the ghost mask", r"GhostMask"),
    ("re-expose and compare with the reference", r"Deghosting::compare|GuidedFilter|autoExposureEstimate|fitCurve|collectPatches"
                                                 r"|meansOfWindows|applyTables|markRow"),
    ("replace ghosts, recover hues", r"Deghosting::replaceRow|HighlightHue|HueField"),
    ("expose the rungs", r"RungCurve|ExposureCurve|DeghostedLadder"),
    ("blend the ladder", r"blendLadder|BlendMask|blendIn|local_laplacian|LocalContrast|grfx::.*Filter|downsample"),
    ("normalise", r"normalize_for_hdr"),
    ("seams", r"cutSeams|GraphCutSeamFinder|findSeams"),
    ("even out exposure", r"ExposureGains|exposureGains|multiplyRow|multiplyByGains|ExposureCompensator"),
    ("warp", r"remapBilinear|PanoramaWarper|warpByRows|fillMaps|WarpRows|warpFullSize|warpLate|RemapInvoker"),
    ("blend bands", r"BandBlender|pyramidOf|forEachStrip|bordered|coverRow|weightedIn"),
    ("convert the panorama", r"PanoramaStitcher::converted|imageDataFromCVMat|ImageDataGrayFromCVMat|finished|becomeGaps"),
    ("stack", r"LaplacianFocusStacker|measureActivity|reducePicture|SampleRange|reduceLevel|fillAbsent|levelEnergy"),
    ("reduce pictures for registration", r"ResizeArea|cv::resize|CvtColor"),
    ("convert colours", r"CurveLoop|MatrixLoop|lookUp|gatherRGB|spreadRGB"),  # called by threads whose stacks end there
    ("clear new pages", r"clear_page|page_fault"),
]

FREQUENCY = 199  # samples a second of each thread; no multiple of a timer of the machine
STACK_BYTES = 32000  # above the depth of the deepest calls


def step_of(frames):
    for frame in frames:
        for name, pattern in STEPS:
            if re.search(pattern, frame):
                return name
    return "other"


def main():
    if len(sys.argv) < 2 or sys.argv[1] in ("-h", "--help"):
        print(__doc__)
        return 0 if len(sys.argv) > 1 else 2
    with tempfile.TemporaryDirectory() as folder:
        data = os.path.join(folder, "perf.data")
        recorded = subprocess.run(["perf", "record", "-q", "-e", "cpu-clock", "-F", str(FREQUENCY), "--call-graph",
                                   f"dwarf,{STACK_BYTES}", "-o", data, "--"] + sys.argv[1:], check=False)
        if recorded.returncode != 0:
            print(f"profile_steps.py: the job ended with {recorded.returncode}", file=sys.stderr)
            return 1
        text = subprocess.run(["perf", "script", "-i", data, "-F", "comm,tid,ip,sym,dso", "--no-inline"],
                              capture_output=True, text=True, check=True).stdout
    steps = collections.Counter()
    in_kernel = 0
    for sample in text.split("\n\n"):
        lines = sample.strip("\n").split("\n")[1:]
        if not lines:
            continue
        frames = [line.strip().split(" ", 1)[-1] for line in lines]
        steps[step_of(frames)] += 1
        in_kernel += any(frame.startswith(("asm_exc_page_fault", "entry_SYSCALL")) for frame in frames)
    total = sum(steps.values())
    if total == 0:
        print("profile_steps.py: perf took no samples", file=sys.stderr)
        return 1
    print(f"{total / FREQUENCY:.1f} s of processor time, {100 * in_kernel / total:.0f} % of it in the kernel\n")
    print("| step | % |\n|---|---|")
    for name, count in steps.most_common():
        print(f"| {name} | {100 * count / total:.1f} |")
    return 0


if __name__ == "__main__":
    sys.exit(main())
