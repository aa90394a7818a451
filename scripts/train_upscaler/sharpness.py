"""Which mix of the filters for soft and for aliased pictures a picture needs, from two measures of its luma: equal to
family/orvo/upscaling/picture_sharpness.cpp. The mix is a logistic function of a quadratic one of the two; it is fitted
so that the enlargements of the training pictures, however they were reduced, gain the most decibels."""
import numpy as np

BLOCK = 16
STRUCTURE = 0.03      # least deviation of differences, both axes together, of a block with structure
NOISE_EXCESS = 4      # over the energy that the noise has in them
LEAST_BLOCKS = 4
LEAST_RATIO = 1e-3    # of energies, in case the noise was more than all
TERMS = 6             # of the quadratic function: 1, a, b, aa, ab, bb

ALIASED_WEIGHT = 1.6   # the smaller gains: to lose them is to be worse than the cubic
BLURRED_WEIGHT = 0.5   # pictures without a sharp pixel: few in the training set, many elsewhere
STEPS, STEP = 6000, 0.02


def blocks(plane):
    h, w = plane.shape[0] // BLOCK, plane.shape[1] // BLOCK
    return plane[:h * BLOCK, :w * BLOCK].reshape(h, BLOCK, w, BLOCK).transpose(0, 2, 1, 3).reshape(-1, BLOCK, BLOCK)


def noise_level(y):
    """As noiseLevel() of noise_level.cpp, over all blocks."""
    if min(y.shape) < BLOCK:
        return 0.0
    all_blocks = blocks(y).astype(np.float64)
    bends = np.diff(np.diff(all_blocks, 2, 1), 2, 2)
    noise = np.mean(bends**2, (1, 2)) / 36
    centred = all_blocks - all_blocks.mean((1, 2), keepdims=True)
    place = np.arange(BLOCK) - (BLOCK - 1) / 2
    slopes = np.sum(centred * place, (1, 2))**2 + np.sum(centred * place[:, None], (1, 2))**2
    count = BLOCK * BLOCK
    variance = (np.sum(centred**2, (1, 2)) - slopes / (count * (count - 1) / 12)) / (count - 3)
    busy = noise >= 2e-4**2
    bare = np.sqrt(noise[busy & (variance <= 1.5 * noise)])
    if len(bare) < max(4, len(noise) // 200):
        return 0.0
    every = np.sort(np.sqrt(noise[busy]))
    return min(np.sort(bare)[len(bare) // 2], 1.1 * every[len(every) // 20])


def measures(y):
    """(a, b), or None without structure."""
    noise = noise_level(y)**2
    h, w = y.shape[0] - 4, y.shape[1] - 4
    def energy(taps):
        """Of a filter of five taps, across and down."""
        total = 0
        for plane, (rows, columns) in ((y, (h, w)), (y.T, (w, h))):
            part = sum(tap * plane[2:2 + rows, i:i + columns] for i, tap in enumerate(taps) if tap)
            part = part if plane is y else part.T
            total = total + blocks(part * part).mean((1, 2))
        return total - 2 * noise * sum(tap * tap for tap in taps)
    wide, narrow, bend = energy((-1, 0, 0, 0, 1)), energy((0, -1, 0, 1, 0)), energy((0, 1, -2, 1, 0))
    chosen = (wide > STRUCTURE**2) & (wide > 4 * NOISE_EXCESS * noise)
    if np.count_nonzero(chosen) < LEAST_BLOCKS:
        return None
    ratios = np.sort(narrow[chosen] / wide[chosen])
    return (np.log(max(ratios[len(ratios) // 2], LEAST_RATIO)),
            np.log(max(bend[chosen].sum() / max(narrow[chosen].sum(), 1e-9), LEAST_RATIO)))


def terms(a, b):
    return np.array([np.ones_like(a), a, b, a * a, a * b, b * b]).T


def fitted(pairs, errors, weights):
    """The coefficients. For each example: its two measures, the mean products of the errors of its enlargements (soft
    by soft, soft by aliased, aliased by aliased), and its weight."""
    table = terms(*np.array(pairs).T)
    low, centre, high = np.array(errors).T
    middle, spread = table.mean(0), table.std(0)
    middle[0], spread[0] = 0, 1
    table = (table - middle) / spread
    w, mean, square = np.zeros((3, TERMS))
    for step in range(1, STEPS + 1):
        mix = 1 / (1 + np.exp(-table @ w))
        error = (1 - mix)**2 * low + 2 * mix * (1 - mix) * centre + mix**2 * high
        slope = 2 * ((mix - 1) * low + (1 - 2 * mix) * centre + mix * high)
        gradient = np.mean(table.T * (weights * slope / error * mix * (1 - mix)), 1)
        # Adam: Kingma, Ba, ICLR 2015.
        mean = 0.9 * mean + 0.1 * gradient
        square = 0.999 * square + 0.001 * gradient**2
        w = w - STEP * mean / (1 - 0.9**step) / (np.sqrt(square / (1 - 0.999**step)) + 1e-9)
    w = w / spread
    w[0] -= w[1:] @ middle[1:]
    return w.astype(np.float32)


def mix(pair, coefficients):
    return 0.5 if pair is None else 1 / (1 + np.exp(-terms(*pair) @ coefficients))
