"""Features for the filters of the upscaler, in numpy: equal to family/orvo/upscaling/learned_filters.cpp.

A picture here is a float32 array in the encoded values of the working space (wide primaries of ProPhoto RGB, curve of
sRGB), as the library holds it.
"""
import numpy as np

RADIUS = 3  # of a patch, in samples of the small picture: 7 x 7
TAPS = [(y, x) for y in range(-RADIUS, RADIUS + 1) for x in range(-RADIUS, RADIUS + 1) if (y, x) != (0, 0)]
FEATURES = 9
EPSILON = np.float32(1e-4)  # a tenth of a step of 8 bits and less: no structure
LUMA = np.array([0.3, 0.6, 0.1], np.float32)  # near the luminance of these primaries, with some weight left for blue
BINOMIAL = np.array([1, 4, 6, 4, 1], np.float32) / 16


def srgb_to_working():
    """The 3 x 3 matrix from linear sRGB to linear ProPhoto RGB, through Bradford's adaptation to D50."""
    def to_xyz(primaries, white):
        columns = np.array([[x / y, 1, (1 - x - y) / y] for x, y in primaries]).T
        return columns * np.linalg.solve(columns, white)

    d65, d50 = np.array([0.95047, 1, 1.08883]), np.array([0.96422, 1, 0.82521])
    bradford = np.array([[0.8951, 0.2664, -0.1614], [-0.7502, 1.7135, 0.0367], [0.0389, -0.0685, 1.0296]])
    adapt = np.linalg.solve(bradford, np.diag(bradford @ d50 / (bradford @ d65)) @ bradford)
    srgb = to_xyz([(0.64, 0.33), (0.30, 0.60), (0.15, 0.06)], d65)
    wide = to_xyz([(0.7347, 0.2653), (0.1596, 0.8404), (0.0366, 0.0001)], d50)
    return np.linalg.solve(wide, adapt @ srgb).astype(np.float32)


def decode_srgb(v):
    return np.where(v <= 0.04045, v / 12.92, (np.maximum(v, 0.04045) + 0.055) ** 2.4 / 1.055 ** 2.4).astype(np.float32)


def encode_srgb(v):
    return np.where(v <= 0.0031308, v * 12.92, 1.055 * np.maximum(v, 0.0031308) ** (1 / 2.4) - 0.055).astype(np.float32)


def halve(a):
    """Mean of 2 x 2 samples; an odd last row or column is dropped."""
    h, w = a.shape[0] // 2 * 2, a.shape[1] // 2 * 2
    a = a[:h, :w]
    return (a[0::2, 0::2] + a[1::2, 0::2] + a[0::2, 1::2] + a[1::2, 1::2]) * np.float32(0.25)


def catmull_rom(t):
    return np.array([-t + 2 * t**2 - t**3, 2 - 5 * t**2 + 3 * t**3, t + 4 * t**2 - 3 * t**3, t**3 - t**2]) / 2


def double_axis(a, axis):
    padded = np.pad(a, [(2, 2) if i == axis else (0, 0) for i in range(a.ndim)], "edge")
    part = lambda shift: np.take(padded, range(2 + shift, 2 + shift + a.shape[axis]), axis=axis)
    pair = [sum(np.float32(w) * part(i + first) for i, w in enumerate(catmull_rom(t)))
            for t, first in ((0.75, -2), (0.25, -1))]
    shape = list(a.shape)
    shape[axis] *= 2
    return np.stack(pair, axis + 1).reshape(shape)


def cubic(a):
    """Twice the size by Catmull-Rom, sample centres kept: the reference that the filters must beat."""
    return double_axis(double_axis(a, 0), 1)


def cubic_taps():
    """cubic() as filters on TAPS, one column for each of the four samples that a sample becomes (y, x: 00 01 10 11)."""
    line = np.zeros((2, 2 * RADIUS + 1))
    line[0, 1:5], line[1, 2:6] = catmull_rom(0.75), catmull_rom(0.25)
    return np.array([[line[py, y + RADIUS] * line[px, x + RADIUS] for py in (0, 1) for px in (0, 1)] for y, x in TAPS])


def smooth(a, step=1):
    """Binomial of 5 taps on both axes, `step` samples apart."""
    for axis in (0, 1):
        reach = 2 * step
        padded = np.pad(a, [(reach, reach) if i == axis else (0, 0) for i in (0, 1)], "edge")
        n = a.shape[axis]
        a = sum(BINOMIAL[i] * np.take(padded, range(i * step, i * step + n), axis=axis) for i in range(5))
    return a


def features(y):
    """FEATURES numbers of every sample of the luma `y`, (FEATURES, h, w), and the turn (0..3) that brings it into the
    standard position: 1 mirrors x, 2 then swaps the axes. The numbers are invariant under mirroring, turning and
    negation."""
    p = np.pad(y, 1, "edge")
    mid = p[1:-1, 1:-1]
    left, right, up, down = p[1:-1, :-2], p[1:-1, 2:], p[:-2, 1:-1], p[2:, 1:-1]
    gx, gy = (right - left) * np.float32(0.5), (down - up) * np.float32(0.5)
    gxx, gyy = left + right - 2 * mid, up + down - 2 * mid
    gxy = (p[2:, 2:] - p[2:, :-2] - p[:-2, 2:] + p[:-2, :-2]) * np.float32(0.25)
    bend = gxx + gyy
    a, b, d, e = smooth(gx * gx), smooth(gx * gy), smooth(gy * gy), smooth(bend * bend)
    trace, across, skew = a + d, a - d, 2 * b
    spread = np.sqrt(across * across + skew * skew)
    strong = np.sqrt(np.maximum((trace + spread) * np.float32(0.5), 0))
    weak = np.sqrt(np.maximum((trace - spread) * np.float32(0.5), 0))
    scale = 1 / (strong + EPSILON)
    along = (gxx * a + 2 * gxy * b + gyy * d) / (trace + EPSILON * EPSILON)
    table = [strong,
             (strong - weak) / (strong + weak + EPSILON),
             np.abs(skew) / (np.abs(across) + np.abs(skew) + EPSILON * EPSILON),
             np.abs(bend) * scale,
             np.sqrt(e) * scale,
             mid,
             np.sqrt(gx * gx + gy * gy) * scale,
             np.sqrt(smooth(trace, 2)),
             np.abs(along) * scale]
    turn = (b < 0).astype(np.uint8) + 2 * (across < 0).astype(np.uint8)
    return np.stack(table).astype(np.float32), turn


def turned(place, turn):
    """The position of `place` (y, x) after the turn into the standard position."""
    y, x = place
    if turn & 1:
        x = -x
    return (x, y) if turn & 2 else (y, x)


def tap_order(turn):
    """For each tap in the standard position, the index of the tap of the unturned picture."""
    index = {turned(tap, turn): i for i, tap in enumerate(TAPS)}
    return np.array([index[tap] for tap in TAPS])


def phase_order(turn):
    """The same for the four samples that a sample becomes."""
    phases = [(y, x) for y in (-1, 1) for x in (-1, 1)]
    index = {turned(phase, turn): i for i, phase in enumerate(phases)}
    return np.array([index[phase] for phase in phases])


def patches(y):
    """Differences to the middle sample, (h * w, 48)."""
    p = np.pad(y, RADIUS, "edge")
    h, w = y.shape
    return np.stack([p[RADIUS + dy:RADIUS + dy + h, RADIUS + dx:RADIUS + dx + w].ravel() for dy, dx in TAPS],
                    1) - y.reshape(-1, 1)


def psnr(a, b, border=8):
    difference = (np.clip(a, 0, 1) - np.clip(b, 0, 1))[border:-border, border:-border].astype(np.float64)
    return -10 * np.log10(np.mean(difference**2))
