#!/usr/bin/env python3
"""Trains the built-in filters of the upscaler: family/orvo/upscaling/upscale_filters.bin.

    python3 scripts/train_upscaler/train.py PICTURES [OUT]      (numpy and Pillow; ten minutes, 4 GB)

PICTURES is the folder of the project's test pictures. The same pictures and the same numpy give the same file: all
random numbers come from SEED, and one thread computes the sums, because their order would depend on the thread count.

Method: filters that are linear within a class of places and learned by least squares, after Romano, Isidoro, Milanfar,
"RAISR: rapid and accurate image super resolution", IEEE TCI 3(1), 2017. Departures: the filters work on the small
picture itself, four for the four samples that one becomes; the classes are not a fixed grid of direction, strength and
coherence but the leaves of a tree that is grown where a split lowers the error most, as regression forests do (Schulter,
Leistner, Bischof, CVPR 2015), over more features; every filter keeps constants and slopes exactly; and there is a set of
filters for each of several strengths of noise, so that noise is not taken for detail.
"""
import heapq
import io
import os
import pathlib
import struct
import sys
import time

os.environ["OPENBLAS_NUM_THREADS"] = "1"  # before numpy is loaded

import numpy as np
from PIL import Image

import features as ft

SEED = 20261121
# Training pictures: the middle exposure or focus of each set.
TRAINING = ["brackets/window_player/img2.jpg", "brackets/knight_handheld/4.jpg", "brackets/arch_night/arch_2.jpg",
            "brackets/building_iso/20240401_175720.JPG", "brackets/yard_night_orientation8/yard_3.jpg",
            "brackets/church_film/church_08.jpg", "brackets/living_room/room_04.jpg",
            "brackets/sunset_rocks/SecretBeach2.jpg", "brackets/temple_handheld/temple_3.jpg",
            "focus/pcb_switch/pcb_004.jpg", "focus/bottle_street/bottle_2.png", "panorama/deck_360/DSC_0175.jpg",
            "panorama/deck_360/DSC_0180.jpg", "panorama/deck_360/DSC_0186.jpg", "panorama/map_grid/map_2.jpg",
            "panorama/roof_exposure/roof_1.jpg", "panorama/ledge_vertical/ledge_2.jpg"]
# Not used for training; bench/jobs/orvo_upscale_bench.cpp measures on these. Whole sets, so that no scene is in both.
HELD_OUT = ["single/faces_cafe/faces_cafe.jpg", "single/skiers/skiers.jpg", "single/lake_horizon/lake_horizon.jpg",
            "single/waterfall_orientation6/waterfall_orientation6.jpg", "single/p3_vs_srgb/iceland_srgb.jpg",
            "brackets/street_tree/street_03.jpg", "brackets/canal_boat/grandcanal_mean.jpg",
            "panorama/weir/weir_2.jpg", "panorama/tower_library/IMG_8725.JPG", "focus/pcb_usb/pcb_004.jpg"]

# Standard deviation of the noise that each set of filters is for, in encoded values, and its number of leaves.
BANKS = [(0.0, 512), (0.006, 256), (0.012, 128), (0.025, 96)]
SAMPLES_PER_PICTURE = 110_000
SAMPLES_PER_TRIAL = 60_000  # maximum used to evaluate a split
BINS = 10                   # the quantiles between them are the thresholds tried
SMALLEST_LEAF = 1200
PRIOR = 300                 # weight, in samples, of the filter of all places in a leaf's filter
COEFFICIENT_STEP = 1 / 8192  # of the stored 16-bit numbers, whose range is +-4


def load(path):
    """The picture in the working space."""
    encoded = np.asarray(Image.open(path).convert("RGB"), np.float32) / 255
    return ft.encode_srgb(ft.decode_srgb(encoded) @ ft.srgb_to_working().T)


def lumas(folder):
    """Training lumas: each picture, and its half, which is crisper than any camera's own pixels."""
    for name in TRAINING:
        y = load(folder / name) @ ft.LUMA
        yield y
        yield ft.halve(y)


def degraded(small, sigma, generator):
    """`small` as input of the set for `sigma`: with noise, and for every second picture JPEG's mosquito noise too."""
    if sigma == 0:
        return small
    noisy = small + generator.normal(0, sigma, small.shape).astype(np.float32)
    if sigma > 0.01 or generator.random() < 0.5:
        return noisy
    file = io.BytesIO()
    Image.fromarray(np.uint8(np.clip(small, 0, 1) * 255 + 0.5)).save(file, "JPEG", quality=int(generator.integers(70, 93)))
    return np.asarray(Image.open(file), np.float32) / 255


class Samples:
    """Patches in the standard position, the target of their filters relative to the cubic, features, weights."""

    def __init__(self, folder, sigma, generator):
        parts = []
        for y in lumas(folder):
            clean = ft.halve(y)
            h, w = clean.shape
            small = degraded(clean, sigma, generator)
            weight = 10 ** (ft.psnr(ft.cubic(small), y[:2 * h, :2 * w]) / 10)  # every picture's decibels count equally
            table, turn = ft.features(small)
            # Flat places are the majority and teach the least: they are sampled less often and weigh more.
            chance = np.clip(table[0].ravel() / 0.02, 0.08, 1)
            chance *= min(1, SAMPLES_PER_PICTURE / chance.sum())
            chosen = np.flatnonzero(generator.random(h * w) < chance)
            truth = np.stack([y[py:2 * h:2, px:2 * w:2].ravel()[chosen] for py in (0, 1) for px in (0, 1)], 1)
            truth = truth - small.ravel()[chosen, None]
            patch = ft.patches(small)[chosen]
            turn = turn.ravel()[chosen]
            for kind in range(4):
                mine = np.flatnonzero(turn == kind)
                patch[mine] = patch[mine][:, ft.tap_order(kind)]
                truth[mine] = truth[mine][:, ft.phase_order(kind)]
            scale = np.sqrt(weight / chance[chosen] / (h * w))[:, None].astype(np.float32)
            parts.append((patch * scale, truth.astype(np.float32) * scale,
                          table.reshape(ft.FEATURES, -1)[:, chosen].T))
        self.patch, self.truth, self.table = (np.concatenate(column) for column in zip(*parts))
        unit = np.sqrt(np.mean(self.truth**2))
        self.patch /= unit
        self.truth /= unit


class Moments:
    """Normal equations of some samples, symmetric under half a turn, with filters that keep slopes."""

    half_turn = len(ft.TAPS) - 1 - np.arange(len(ft.TAPS))
    base = ft.cubic_taps()
    # Changes of a filter that affect no constant and no slope: orthogonal to the taps' positions.
    free = np.linalg.svd(np.array(ft.TAPS, float).T)[2][2:].T

    def __init__(self, patch, truth):
        a = (patch.T @ patch).astype(np.float64)
        rest = truth - patch @ self.base.astype(np.float32)
        b = (patch.T @ rest).astype(np.float64)
        a = a + a[self.half_turn][:, self.half_turn]
        b = b + b[self.half_turn][:, ::-1]
        self.a = self.free.T @ a @ self.free
        self.b = self.free.T @ b
        self.energy = 2 * float(np.sum(rest.astype(np.float64)**2))
        self.count = len(patch)

    def __add__(self, other):
        total = Moments.__new__(Moments)
        for name in ("a", "b", "energy", "count"):
            setattr(total, name, getattr(self, name) + getattr(other, name))
        return total

    def solve(self, prior):
        """The free part of the filters and their remaining squared error."""
        size = len(self.a)
        ridge = (PRIOR / max(self.count, 1) * np.trace(self.a) / size + 1e-9) * np.eye(size)
        z = prior + np.linalg.solve(self.a + ridge, self.b - self.a @ prior)
        return z, self.energy - 2 * np.sum(z * self.b) + np.sum(z * (self.a @ z))


def best_split(samples, members, prior, generator):
    """(gain, feature, threshold) of the best split, or None."""
    share = 1.0
    if len(members) > SAMPLES_PER_TRIAL:
        share = len(members) / SAMPLES_PER_TRIAL
        members = generator.choice(members, SAMPLES_PER_TRIAL, replace=False)
    smallest = SMALLEST_LEAF / share
    patch, truth, table = samples.patch[members], samples.truth[members], samples.table[members]
    best = None
    for feature in range(ft.FEATURES):
        values = table[:, feature]
        order = np.argsort(values, kind="stable")
        cuts = [len(order) * i // BINS for i in range(BINS + 1)]
        bins = [Moments(patch[order[i:j]], truth[order[i:j]]) for i, j in zip(cuts, cuts[1:])]
        below = bins[0]
        whole = sum(bins[1:], below)
        error = whole.solve(prior)[1]
        for i in range(1, BINS):
            above = sum(bins[i + 1:], bins[i])
            if min(below.count, above.count) >= smallest:
                gain = (error - below.solve(prior)[1] - above.solve(prior)[1]) * share
                if best is None or gain > best[0]:
                    best = (gain, feature, float(values[order[cuts[i]]]))
            below = below + bins[i]
    return best


def grow(samples, leaves, generator):
    """A tree as a list of nodes [feature, threshold, below, above] or [None, filters (48 x 4)]."""
    everything = np.arange(len(samples.patch))
    size = Moments.free.shape[1]
    prior = Moments(samples.patch, samples.truth).solve(np.zeros((size, 4)))[0]
    nodes = [None]
    open_leaves = []

    def consider(node, members):
        nodes[node] = members
        split = best_split(samples, members, prior, generator) if len(members) >= 2 * SMALLEST_LEAF else None
        if split and split[0] > 0:
            heapq.heappush(open_leaves, (-split[0], node, split[1], split[2]))

    consider(0, everything)
    while open_leaves and (len(nodes) + 1) // 2 < leaves:
        _, node, feature, threshold = heapq.heappop(open_leaves)
        members = nodes[node]
        above = samples.table[members, feature] >= threshold
        if not above.any() or above.all():
            continue
        below_node = len(nodes)
        nodes += [None, None]
        nodes[node] = [feature, threshold, below_node, below_node + 1]
        consider(below_node, members[~above])
        consider(below_node + 1, members[above])
    for node, content in enumerate(nodes):
        if isinstance(content, np.ndarray):
            z = Moments(samples.patch[content], samples.truth[content]).solve(prior)[0]
            nodes[node] = [None, Moments.base + Moments.free @ z]
    return nodes


def quantised(nodes):
    for node in nodes:
        if node[0] is None:
            node[1] = np.clip(np.round(node[1] / COEFFICIENT_STEP), -32768, 32767).astype(np.int16)
    return nodes


def write(path, banks):
    """Little-endian: "ORUF", version, taps, features, sets; for each set sigma, nodes, leaves; its nodes (feature or -1,
    threshold, number of the node below the threshold, which the one above follows; a leaf has its own number there); its
    leaves' filters of the samples 00 and 01, tap by tap. Those of 11 and 10 are the same after half a turn."""
    out = bytearray(b"ORUF" + struct.pack("<4I", 1, len(ft.TAPS), ft.FEATURES, len(banks)))
    for sigma, nodes in banks:
        filters = [node[1] for node in nodes if node[0] is None]
        out += struct.pack("<fII", sigma, len(nodes), len(filters))
        leaf = 0
        for node in nodes:
            if node[0] is None:
                out += struct.pack("<ifI", -1, 0.0, leaf)
                leaf += 1
            else:
                out += struct.pack("<ifI", *node[:3])
        for taps in filters:
            out += taps[:, :2].astype("<i2").tobytes()
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(out)
    return len(out)


def upscale(small, nodes):
    """Twice the size with a tree, as the library does it, for the table at the end."""
    table, turn = ft.features(small)
    table = table.reshape(ft.FEATURES, -1)
    turn = turn.ravel()
    patch = ft.patches(small)
    out = np.empty((small.size, 4), np.float32)
    stack = [(0, np.arange(small.size))]
    while stack:
        node, members = stack.pop()
        if nodes[node][0] is None:
            filters = (nodes[node][1] * COEFFICIENT_STEP).astype(np.float32)
            for kind in range(4):
                mine = members[turn[members] == kind]
                values = patch[mine][:, ft.tap_order(kind)] @ filters
                out[mine[:, None], ft.phase_order(kind)] = values
        else:
            feature, threshold, below, above = nodes[node]
            side = table[feature, members] >= threshold
            stack += [(below, members[~side]), (above, members[side])]
    out += small.reshape(-1, 1)
    h, w = small.shape
    return out.reshape(h, w, 2, 2).transpose(0, 2, 1, 3).reshape(2 * h, 2 * w)


def report(folder, nodes):
    gains = []
    for name in HELD_OUT:
        y = load(folder / name) @ ft.LUMA
        h, w = y.shape[0] // 2 * 2, y.shape[1] // 2 * 2
        top, left = max(0, h // 2 - 500) // 2 * 2, max(0, w // 2 - 700) // 2 * 2
        y = y[:h, :w][top:top + 1000, left:left + 1400]
        small = ft.halve(y)
        plain = ft.psnr(ft.cubic(small), y)
        gains.append(ft.psnr(upscale(small, nodes), y) - plain)
        print(f"{name:56} cubic {plain:6.2f} dB, learned {gains[-1]:+.2f}")
    print(f"mean {np.mean(gains):+.2f} dB, least {np.min(gains):+.2f}", flush=True)


def main():
    folder = pathlib.Path(sys.argv[1])
    default = pathlib.Path(__file__).resolve().parents[2] / "family/orvo/upscaling/upscale_filters.bin"
    path = pathlib.Path(sys.argv[2]) if len(sys.argv) > 2 else default
    start = time.time()
    banks = []
    for number, (sigma, leaves) in enumerate(BANKS):
        generator = np.random.default_rng([SEED, number])
        samples = Samples(folder, sigma, generator)
        banks.append((sigma, quantised(grow(samples, leaves, generator))))
        print(f"noise {sigma}: {len(samples.patch)} samples, {(len(banks[-1][1]) + 1) // 2} leaves, "
              f"{time.time() - start:.0f} s", flush=True)
        del samples
        if number == 0:
            report(folder, banks[0][1])
    print(f"{path}: {write(path, banks)} bytes")


if __name__ == "__main__":
    main()
