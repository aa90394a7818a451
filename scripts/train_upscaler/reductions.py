"""Ways in which programs reduce a picture to a half, which are what the filters learn to undo."""
import math

import numpy as np

import features as ft


def cubic(sharpness):
    def kernel(x):
        x = abs(x)
        if x < 1:
            return (sharpness + 2) * x**3 - (sharpness + 3) * x**2 + 1
        return sharpness * (x**3 - 5 * x**2 + 8 * x - 4) if x < 2 else 0.0
    return kernel


def lanczos(lobes):
    def sinc(x):
        return math.sin(math.pi * x) / (math.pi * x)
    return lambda x: sinc(x) * sinc(x / lobes) if abs(x) < lobes else 0.0


def taps(kernel, radius, stretch):
    """Weights of the samples at distances 0.5, 1.5, ... from the middle of the new sample. A kernel stretched by the
    scale, 2, reaches over all samples that the new one replaces; one that is not (1) leaves gaps, so detail aliases."""
    one_side = np.array([kernel((i + 0.5) / stretch) for i in range(radius * stretch)])
    return np.concatenate([one_side[::-1], one_side]) / (2 * one_side.sum())


def halve_axis(a, axis, weights):
    count = a.shape[axis] // 2
    reach = len(weights) // 2 - 1
    padded = np.pad(a, [(reach, reach) if i == axis else (0, 0) for i in (0, 1)], "edge")
    index = [slice(None), slice(None)]
    total = 0
    for i, weight in enumerate(weights):
        index[axis] = slice(i, i + 2 * count - 1, 2)
        total = total + np.float32(weight) * padded[tuple(index)]
    return total


def by(weights):
    return lambda a: halve_axis(halve_axis(a, 0, weights), 1, weights)


# Every source sample has its share: what careful programs do.
SOFT = {"area": ft.halve,
        "cubic": by(taps(cubic(-0.5), 2, 2)),
        "lanczos": by(taps(lanczos(3), 3, 2))}
# Interpolated at the new positions, as if the picture were enlarged: crisp, with stairs and moire.
ALIASED = {"plain cubic": by(taps(cubic(-0.75), 2, 1)),
           "plain lanczos": by(taps(lanczos(4), 4, 1))}
