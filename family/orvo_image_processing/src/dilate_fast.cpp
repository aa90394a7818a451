#include <orvo_common/memory_manager.hpp>
#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/dilate_fast.hpp>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>

namespace orvo {

namespace {

constexpr int kLanes = 32; // lines processed together in vector registers

ORVO_INLINE float larger(float a, float b) { return a < b ? b : a; }

/// Running maximum along `length` steps of kLanes lines, interleaved, in `lines`. `fromEnd` is scratch of the same
/// size. Steps are divided into blocks of 2 radius + 1: a window is the end of one block and the start of the next, and
/// one pass over each block from either end gives both maxima.
ORVO_VECTOR_CLONES void runningMaximum(float* lines, float* fromEnd, int length, int radius)
{
    const int block = 2 * radius + 1;
    const auto at = [](float* plane, int step) { return plane + static_cast<std::ptrdiff_t>(step) * kLanes; };
    std::memcpy(fromEnd, lines, sizeof(float) * kLanes * static_cast<std::size_t>(length));
    for (int i = length - 2; i >= 0; --i)
        if ((i + 1) % block != 0)
            for (int k = 0; k < kLanes; ++k)
                at(fromEnd, i)[k] = larger(at(fromEnd, i)[k], at(fromEnd, i + 1)[k]);
    for (int i = 1; i < length; ++i)
        if (i % block != 0)
            for (int k = 0; k < kLanes; ++k)
                at(lines, i)[k] = larger(at(lines, i)[k], at(lines, i - 1)[k]);
    // The window of step i extends `radius` to both sides. Writing at i is safe: both reads are ahead of it in `lines`,
    // and `fromEnd` does not change.
    for (int i = 0; i < length; ++i) {
        const int last = std::min(i + radius, length - 1);
        const int first = std::max(i - radius, 0);
        const float* const head = at(fromEnd, first);
        const float* const tail = at(lines, last);
        // At the ends of the plane a window can be inside one block, whose start `tail` would include.
        const bool within = first / block == last / block;
        float* const out = at(lines, i);
        if (!within)
            for (int k = 0; k < kLanes; ++k)
                out[k] = larger(head[k], tail[k]);
        else
            std::memcpy(out, first % block == 0 ? tail : head, sizeof(float) * kLanes);
    }
}

/// Reads lines `first` .. `first` + kLanes - 1 of the plane `from` and writes their maxima to `to`. Samples of a line
/// are `along` apart, lines `across`.
void dilateLines(const float* from, float* to, int first, int lines, int length, std::ptrdiff_t along,
                 std::ptrdiff_t across, int radius)
{
    const std::size_t count = static_cast<std::size_t>(kLanes) * static_cast<std::size_t>(length);
    const ManagedPlane<float> side(2 * count, true);
    const int lanes = std::min(kLanes, lines - first);
    const std::ptrdiff_t start = first * across;
    for (int i = 0; i < length; ++i)
        for (int k = 0; k < lanes; ++k)
            side.data()[static_cast<std::ptrdiff_t>(i) * kLanes + k] = from[start + k * across + i * along];
    runningMaximum(side.data(), side.data() + count, length, radius);
    for (int i = 0; i < length; ++i)
        for (int k = 0; k < lanes; ++k)
            to[start + k * across + i * along] = side.data()[static_cast<std::ptrdiff_t>(i) * kLanes + k];
}

} // namespace

void dilateFast(float* data, const _Size<int>& size, int radius, float* scratch)
{
    if (size.width <= 0 || size.height <= 0 || radius <= 0)
        return;
    const std::size_t pixels = static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height);
    std::optional<ManagedPlane<float>> own;
    float* const between = scratch != nullptr ? scratch : own.emplace(pixels).data();
    const auto groups = [](int lines) { return (lines + kLanes - 1) / kLanes; };
    // No window is longer than the plane.
    const int radiusX = std::min(radius, size.width);
    const int radiusY = std::min(radius, size.height);
    forEachRow(groups(size.height), [&](int group) {
        dilateLines(data, between, group * kLanes, size.height, size.width, 1, size.width, radiusX);
    });
    forEachRow(groups(size.width), [&](int group) {
        dilateLines(between, data, group * kLanes, size.width, size.height, size.width, 1, radiusY);
    });
}

} // namespace orvo
