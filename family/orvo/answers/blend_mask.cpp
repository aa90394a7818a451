#include <orvo/answers.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <vector>

namespace orvo {
namespace {

constexpr float kCore = 0.5f;       // values from here on are hole
constexpr double kFadeShare = 0.03; // of the extent of the hole
constexpr double kLeastFade = 3.0;  // pixels: less would show as an edge
constexpr double kMostFade = 48.0;  // pixels: more would spread into neighbouring objects
constexpr float kFar = 1e12f;       // a squared distance larger than any picture

// The lower envelope of parabolas: squared distances along one line, from `values` across it.
class LineDistance
{
public:
    explicit LineDistance(int length)
        : from(static_cast<std::size_t>(length)), feet(static_cast<std::size_t>(length)),
          borders(static_cast<std::size_t>(length) + 1)
    {}

    void run(float* values, std::ptrdiff_t stride, int length)
    {
        for (int i = 0; i < length; ++i)
            from[static_cast<std::size_t>(i)] = values[i * stride];
        int last = 0;
        feet[0] = 0;
        borders[0] = -kFar;
        borders[1] = kFar;
        for (int q = 1; q < length; ++q) {
            double border = meeting(q, feet[static_cast<std::size_t>(last)]);
            while (last > 0 && border <= borders[static_cast<std::size_t>(last)])
                border = meeting(q, feet[static_cast<std::size_t>(--last)]);
            if (last == 0 && border <= borders[0])
                border = borders[0];
            ++last;
            feet[static_cast<std::size_t>(last)] = q;
            borders[static_cast<std::size_t>(last)] = border;
            borders[static_cast<std::size_t>(last) + 1] = kFar;
        }
        int k = 0;
        for (int q = 0; q < length; ++q) {
            while (borders[static_cast<std::size_t>(k) + 1] < q)
                ++k;
            const int foot = feet[static_cast<std::size_t>(k)];
            const auto way = static_cast<float>(q - foot);
            values[q * stride] = std::min(kFar, way * way + from[static_cast<std::size_t>(foot)]);
        }
    }

private:
    [[nodiscard]] double meeting(int q, int p) const
    {
        const double fq = static_cast<double>(from[static_cast<std::size_t>(q)]) + static_cast<double>(q) * q;
        const double fp = static_cast<double>(from[static_cast<std::size_t>(p)]) + static_cast<double>(p) * p;
        return (fq - fp) / (2.0 * (q - p));
    }

    std::vector<float> from;
    std::vector<int> feet;
    std::vector<double> borders;
};

// Area of the hole in pixels, summed per row so that it does not depend on the number of threads.
double holeArea(const _ImageData<float>& mask)
{
    std::vector<std::size_t> counts(static_cast<std::size_t>(mask.height()));
    forEachRow(mask.height(), [&](int y) {
        const float* const row = mask.row(y);
        counts[static_cast<std::size_t>(y)] =
            static_cast<std::size_t>(std::count_if(row, row + mask.width(), [](float v) { return v >= kCore; }));
    });
    double area = 0.0;
    for (const std::size_t count : counts)
        area += static_cast<double>(count);
    return area;
}

} // namespace

void prepareBlendMask(const std::shared_ptr<_ImageData<float>>& mask)
{
    if (!mask)
        throw std::invalid_argument("prepareBlendMask: there is no mask");
    const int width = mask->width();
    const int height = mask->height();
    const double area = holeArea(*mask);
    if (area == 0.0)
        return; // nothing is painted hard enough to be a hole, so the mask stays as it is
    const auto fade = static_cast<float>(std::clamp(kFadeShare * std::sqrt(area), kLeastFade, kMostFade));

    ManagedPlane<float> squares(mask->pixelCount());
    const auto line = [&](int y) { return squares.data() + static_cast<std::ptrdiff_t>(y) * width; };
    forEachRow(height, [&](int y) {
        const float* const row = mask->row(y);
        for (int x = 0; x < width; ++x)
            line(y)[x] = row[x] >= kCore ? 0.0f : kFar;
        LineDistance(width).run(line(y), 1, width);
    });
    forEachRow(width, [&](int x) { LineDistance(height).run(squares.data() + x, width, height); });
    forEachRow(height, [&](int y) {
        float* const row = mask->row(y);
        for (int x = 0; x < width; ++x) {
            const float t = std::clamp(1.0f - std::sqrt(line(y)[x]) / (fade + 1.0f), 0.0f, 1.0f);
            const float faded = t * t * (3.0f - 2.0f * t);
            row[x] = std::min(1.0f, std::max(row[x] > 0.0f ? row[x] : 0.0f, faded));
        }
    });
}

} // namespace orvo
