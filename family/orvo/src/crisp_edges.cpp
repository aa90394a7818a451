#include "crisp_edges.hpp"

#include "vector_clones.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cstring>

namespace orvo::details {
namespace {

constexpr int kStep = 2; // samples between taps: an edge that was enlarged by 2 is about 4 wide
constexpr int kReach = 2 * kStep;
constexpr int kBandRows = 64; // so that the rows kept aside are few
constexpr int kKeptRows = 2 * kReach;
constexpr float kPush = 3.0f; // of the distance to the mean; judged by eye, beyond it soft edges turn into steps
// Values around that differ by so much are half treated: above the grain of a clean picture, below any edge one sees.
constexpr float kVisible = 0.05f;
constexpr int kChannels = 3;

// Least, greatest and binomial mean of five rows, which stand kStep apart.
ORVO_VECTOR_CLONES void gatherDown(const float* const* rows, float* __restrict low, float* __restrict high,
                                   float* __restrict mean, int count)
{
    const float* __restrict const a = rows[0];
    const float* __restrict const b = rows[1];
    const float* __restrict const c = rows[2];
    const float* __restrict const d = rows[3];
    const float* __restrict const e = rows[4];
    for (int i = 0; i < count; ++i) {
        low[i] = std::min(std::min(std::min(a[i], b[i]), std::min(d[i], e[i])), c[i]);
        high[i] = std::max(std::max(std::max(a[i], b[i]), std::max(d[i], e[i])), c[i]);
        mean[i] = (a[i] + e[i] + 4.0f * (b[i] + d[i]) + 6.0f * c[i]) * (1.0f / 16.0f);
    }
}

// The same across, and the step itself. The rows begin kReach pixels before the picture.
ORVO_VECTOR_CLONES void pushAcross(const float* __restrict middle, const float* __restrict low,
                                   const float* __restrict high, const float* __restrict mean, float* __restrict out,
                                   int count)
{
    constexpr int kNext = kStep * kChannels;
    constexpr int kAfter = 2 * kNext;
    for (int i = 0; i < count; ++i) {
        const float* const l = low + i + kReach * kChannels;
        const float* const h = high + i + kReach * kChannels;
        const float* const m = mean + i + kReach * kChannels;
        const float least = std::min(std::min(std::min(l[-kAfter], l[-kNext]), std::min(l[kNext], l[kAfter])), l[0]);
        const float most = std::max(std::max(std::max(h[-kAfter], h[-kNext]), std::max(h[kNext], h[kAfter])), h[0]);
        const float around = (m[-kAfter] + m[kAfter] + 4.0f * (m[-kNext] + m[kNext]) + 6.0f * m[0]) * (1.0f / 16.0f);
        const float range = most - least;
        const float weight = kPush * range * range / (range * range + kVisible * kVisible);
        const float v = middle[i + kReach * kChannels];
        out[i] = std::min(std::max(v + weight * (v - around), least), most);
    }
}

// A row with its end pixels repeated kReach times on both sides.
void padRow(const PixelRGB<float>* row, int width, PixelRGB<float>* padded)
{
    std::fill_n(padded, kReach, row[0]);
    std::copy_n(row, width, padded + kReach);
    std::fill_n(padded + kReach + width, kReach, row[width - 1]);
}

} // namespace

bool steepenEdges(_ImageData<PixelRGB<float>>& picture, const std::atomic<bool>* cancel)
{
    const int width = picture.width();
    const int height = picture.height();
    if (width < 1 || height < 1)
        return true;
    const int bands = (height + kBandRows - 1) / kBandRows;
    const auto rowSize = static_cast<std::size_t>(width);
    // The rows just outside of each band as they were, half above and half below.
    const ManagedPlane<PixelRGB<float>> kept(static_cast<std::size_t>(bands) * kKeptRows * rowSize);
    const auto keptRow = [&](int band, int i) {
        return kept.data() + (static_cast<std::size_t>(band) * kKeptRows + static_cast<std::size_t>(i)) * rowSize;
    };
    forEachRow(bands, [&](int band) {
        const int first = band * kBandRows;
        const int last = std::min(height, first + kBandRows);
        for (int i = 0; i < kReach; ++i) {
            std::copy_n(picture.row(std::max(0, first - kReach + i)), width, keptRow(band, i));
            std::copy_n(picture.row(std::min(height - 1, last + i)), width, keptRow(band, kReach + i));
        }
    });
    std::atomic<bool> stopped = false;
    forEachRow(bands, [&](int band) {
        if (cancel != nullptr && cancel->load(std::memory_order_relaxed)) {
            stopped.store(true, std::memory_order_relaxed);
            return;
        }
        const int first = band * kBandRows;
        const int rows = std::min(height, first + kBandRows) - first;
        const std::size_t paddedSize = rowSize + 2 * kReach;
        const ManagedPlane<PixelRGB<float>> before(static_cast<std::size_t>(rows + kKeptRows) * paddedSize);
        const ManagedPlane<PixelRGB<float>> gathered(3 * paddedSize);
        const auto beforeRow = [&](int y) { return before.data() + static_cast<std::size_t>(y + kReach) * paddedSize; };
        for (int i = 0; i < kReach; ++i) {
            padRow(keptRow(band, i), width, beforeRow(i - kReach));
            padRow(keptRow(band, kReach + i), width, beforeRow(rows + i));
        }
        for (int y = 0; y < rows; ++y)
            padRow(picture.row(first + y), width, beforeRow(y));
        auto* const low = reinterpret_cast<float*>(gathered.data());
        float* const high = low + kChannels * paddedSize;
        float* const mean = high + kChannels * paddedSize;
        for (int y = 0; y < rows; ++y) {
            const float* around[5];
            for (int i = 0; i < 5; ++i)
                around[i] = reinterpret_cast<const float*>(beforeRow(y + kStep * (i - 2)));
            gatherDown(around, low, high, mean, static_cast<int>(kChannels * paddedSize));
            pushAcross(around[2], low, high, mean, reinterpret_cast<float*>(picture.row(first + y)), kChannels * width);
        }
    });
    return !stopped;
}

} // namespace orvo::details
