#!/usr/bin/env python3
"""Trains the built-in filters of the upscaler: family/orvo/upscaling/upscale_filters.bin.

    python3 scripts/train_upscaler/train.py PICTURES [OUT]      (numpy and Pillow; twenty minutes, 4 GB)

PICTURES is the folder of the project's test pictures. The same pictures and the same numpy give the same file: all
random numbers come from SEED, and one thread computes the sums, because their order would depend on the thread count.

Method: filters that are linear within a class of places and learned by least squares, after Romano, Isidoro, Milanfar,
"RAISR: rapid and accurate image super resolution", IEEE TCI 3(1), 2017. Departures: the filters work on the small
picture itself, four for the four samples that one becomes; the classes are not a fixed grid of direction, strength and
coherence but the leaves of a tree that is grown where a split lowers the error most, as regression forests do (Schulter,
Leistner, Bischof, CVPR 2015), over more features; every filter keeps constants and slopes exactly; there is a set of
filters for each of several strengths of noise, so that noise is not taken for detail; and every leaf has two filters,
for pictures reduced with and without averaging (reductions.py), which are mixed as sharpness.py measures the picture.
"""
import heapq
import io
import itertools
import os
import pathlib
import struct
import sys
import time

os.environ["OPENBLAS_NUM_THREADS"] = "1"  # before numpy is loaded

import numpy as np
from PIL import Image

import features as ft
import reductions as rd
import sharpness

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
SAMPLES_PER_PICTURE = 110_000  # for a tree
SAMPLES_PER_FIT = 60_000      # of each picture and reduction
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
    return as_jpeg(small, int(generator.integers(70, 93)))


def as_jpeg(picture, quality):
    file = io.BytesIO()
    Image.fromarray(np.uint8(np.clip(picture, 0, 1) * 255 + 0.5)).save(file, "JPEG", quality=quality)
    return np.asarray(Image.open(file), np.float32) / 255


def places(y, clean, small, count, generator):
    """(patches, targets, features) of about `count` places of `small`, which comes from the luma `y`: the patches in
    the standard position, the targets of their filters relative to the middle, both weighted."""
    h, w = clean.shape
    weight = 10 ** (ft.psnr(ft.cubic(small), y[:2 * h, :2 * w]) / 10)  # every picture's decibels count equally
    table, turn = ft.features(small)
    # Flat places are the majority and teach the least: they are sampled less often and weigh more.
    chance = np.clip(table[0].ravel() / 0.02, 0.08, 1)
    chance *= min(1, count / chance.sum())
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
    return patch * scale, truth.astype(np.float32) * scale, table.reshape(ft.FEATURES, -1)[:, chosen].T


class Samples:
    """Places of all training pictures, reduced by area, from which a tree grows."""

    def __init__(self, folder, sigma, generator):
        parts = []
        for y in lumas(folder):
            clean = ft.halve(y)
            parts.append(places(y, clean, degraded(clean, sigma, generator), SAMPLES_PER_PICTURE, generator))
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
    """A tree as a list of nodes [feature, threshold, below, above] or [None, number of the leaf]."""
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
    numbers = itertools.count()
    return [[None, next(numbers)] if isinstance(node, np.ndarray) else node for node in nodes]


def leaves_of(nodes, table):
    """The number of the leaf of every place, whose features are a row of `table`."""
    found = np.empty(len(table), np.int32)
    stack = [(0, np.arange(len(table)))]
    while stack:
        node, members = stack.pop()
        if nodes[node][0] is None:
            found[members] = nodes[node][1]
        else:
            feature, threshold, below, above = nodes[node]
            side = table[members, feature] >= threshold
            stack += [(below, members[~side]), (above, members[side])]
    return found


def fitted(folder, nodes, sigma, reductions, generator):
    """The filters of the leaves for pictures that were reduced in any of these ways: (leaves, 48, 4), as stored."""
    moments = [None] * sum(node[0] is None for node in nodes)
    for y in lumas(folder):
        for reduce in reductions.values():
            clean = np.clip(reduce(y), 0, 1)
            patch, truth, table = places(y, clean, degraded(clean, sigma, generator), SAMPLES_PER_FIT, generator)
            leaves = leaves_of(nodes, table)
            order = np.argsort(leaves, kind="stable")
            for members in np.split(order, np.flatnonzero(np.diff(leaves[order])) + 1):
                leaf = leaves[members[0]]
                mine = Moments(patch[members], truth[members])
                moments[leaf] = mine if moments[leaf] is None else moments[leaf] + mine
    first, *others = (m for m in moments if m)
    everywhere = sum(others, first)
    prior = everywhere.solve(np.zeros_like(everywhere.b))[0]
    filters = [Moments.base + Moments.free @ (m.solve(prior)[0] if m else prior) for m in moments]
    return np.clip(np.round(np.array(filters) / COEFFICIENT_STEP), -32768, 32767).astype(np.int16)


def write(path, coefficients, banks):
    """Little-endian: "ORUF", version, taps, features, sets; the coefficients of sharpness.mix(); for each set sigma,
    nodes, leaves; its nodes (feature or -1, threshold, number of the node below the threshold, which the one above
    follows; a leaf has its own number there); its leaves' filters of the samples 00 and 01, tap by tap, those for soft
    pictures and then those for aliased ones. The filters of 11 and 10 are the same after half a turn."""
    out = bytearray(b"ORUF" + struct.pack("<4I", 2, len(ft.TAPS), ft.FEATURES, len(banks)))
    out += coefficients.astype("<f4").tobytes()
    for sigma, nodes, soft, aliased in banks:
        out += struct.pack("<fII", sigma, len(nodes), len(soft))
        for node in nodes:
            out += struct.pack("<ifI", -1, 0.0, node[1]) if node[0] is None else struct.pack("<ifI", *node[:3])
        for filters in (soft, aliased):
            out += filters[:, :, :2].astype("<i2").tobytes()
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(out)
    return len(out)


def upscale(small, nodes, banks):
    """Twice the size with each of the filters of a tree, as the library does it, to calibrate and report."""
    table, turn = ft.features(small)
    leaves, turn = leaves_of(nodes, table.reshape(ft.FEATURES, -1).T), turn.ravel()
    patch = ft.patches(small)
    kinds = leaves * 4 + turn
    out = np.empty((len(banks), small.size, 4), np.float32)
    order = np.argsort(kinds, kind="stable")
    for mine in np.split(order, np.flatnonzero(np.diff(kinds[order])) + 1):
        kind, leaf = turn[mine[0]], leaves[mine[0]]
        turned = patch[mine][:, ft.tap_order(kind)]
        for result, filters in zip(out, banks):
            result[mine[:, None], ft.phase_order(kind)] = turned @ (filters[leaf] * np.float32(COEFFICIENT_STEP))
    out += small.reshape(-1, 1)
    h, w = small.shape
    return out.reshape(-1, h, w, 2, 2).transpose(0, 1, 3, 2, 4).reshape(-1, 2 * h, 2 * w)


def middle(y):
    """At most 1400 x 1000 samples of the middle, with even sides."""
    h, w = y.shape[0] // 2 * 2, y.shape[1] // 2 * 2
    top, left = max(0, h // 2 - 500) // 2 * 2, max(0, w // 2 - 700) // 2 * 2
    return y[:h, :w][top:top + 1000, left:left + 1400]


def calibrated(folder, nodes, soft, aliased):
    """The coefficients of sharpness.mix() for the filters of this tree."""
    pairs, errors, weights = [], [], []

    def learn(small, y, weight):
        pair = sharpness.measures(small)
        if pair is not None:
            # The errors come from the middle, as enlarging is slow here.
            h, w = (min(most, length) for most, length in zip((240, 320), small.shape))
            top, left = (small.shape[0] - h) // 2, (small.shape[1] - w) // 2
            truth = y[2 * top:2 * (top + h), 2 * left:2 * (left + w)]
            wrong = upscale(small[top:top + h, left:left + w], nodes, (soft, aliased)) - truth
            a, b = wrong[:, 8:-8, 8:-8].astype(np.float64)
            pairs.append(pair)
            errors.append((np.mean(a * a), np.mean(a * b), np.mean(b * b)))
            weights.append(weight)

    for number, whole in enumerate(lumas(folder)):
        y = middle(whole)
        for reductions, weight in ((rd.SOFT, 1), (rd.ALIASED, sharpness.ALIASED_WEIGHT)):
            for reduce in reductions.values():
                small = np.round(np.clip(reduce(y), 0, 1) * 255) / np.float32(255)
                learn(small, y, weight)
                if number % 2:
                    learn(as_jpeg(small, 92), y, weight)
                else:
                    once = ft.smooth(y)
                    for blurred in (once, ft.smooth(once)):
                        learn(reduce(blurred), blurred, weight * sharpness.BLURRED_WEIGHT)
    return sharpness.fitted(pairs, errors, np.array(weights) / np.mean(weights))


def report(folder, nodes, soft, aliased, coefficients):
    """The gain over the cubic on held-out pictures in dB, with the filters for soft and for aliased pictures, and with
    the mix of them that is used."""
    names = list(rd.SOFT | rd.ALIASED)
    print(f"{'soft, aliased filters; mix, its gain':56}" + "".join(f"{name:>28}" for name in names))
    gains = []
    for name in HELD_OUT:
        y = middle(load(folder / name) @ ft.LUMA)
        gains.append([])
        for reduce in (rd.SOFT | rd.ALIASED).values():
            small = reduce(y)
            plain = ft.psnr(ft.cubic(small), y)
            a, b = upscale(small, nodes, (soft, aliased))
            mix = sharpness.mix(sharpness.measures(small), coefficients)
            gains[-1].append((ft.psnr(a, y) - plain, ft.psnr(b, y) - plain, mix, ft.psnr(a + mix * (b - a), y) - plain))
        print(f"{name:56}" + "".join(f"{a:+9.2f} {b:+6.2f} {c:5.2f} {d:+6.2f}" for a, b, c, d in gains[-1]))
    print(f"{'mean':56}" + "".join(f"{a:+9.2f} {b:+6.2f} {c:5.2f} {d:+6.2f}" for a, b, c, d in np.mean(gains, 0)),
          flush=True)


def main():
    folder = pathlib.Path(sys.argv[1])
    default = pathlib.Path(__file__).resolve().parents[2] / "family/orvo/upscaling/upscale_filters.bin"
    path = pathlib.Path(sys.argv[2]) if len(sys.argv) > 2 else default
    start = time.time()
    banks = []
    for number, (sigma, leaves) in enumerate(BANKS):
        generator = np.random.default_rng([SEED, number])
        samples = Samples(folder, sigma, generator)
        nodes = grow(samples, leaves, generator)
        print(f"noise {sigma}: {len(samples.patch)} samples, {(len(nodes) + 1) // 2} leaves, "
              f"{time.time() - start:.0f} s", flush=True)
        del samples
        soft, aliased = (fitted(folder, nodes, sigma, reductions, np.random.default_rng([SEED, number, kind]))
                         for kind, reductions in enumerate((rd.SOFT, rd.ALIASED)))
        banks.append((sigma, nodes, soft, aliased))
        if number == 0:
            coefficients = calibrated(folder, nodes, soft, aliased)
            report(folder, nodes, soft, aliased, coefficients)
    print(f"{path}: {write(path, coefficients, banks)} bytes")


if __name__ == "__main__":
    main()
