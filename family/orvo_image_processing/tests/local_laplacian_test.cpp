#include "test_planes.hpp"

#include <orvo_image_processing/local_laplacian.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

using orvo::grfx::local_laplacian_gray16;
using planes::area;
using Plane = std::vector<std::int16_t>;

namespace {

constexpr double kFullScale = 32767.0;

struct Settings
{
    float detail = 0.0f;
    float floor = 0.0f;
    int samples = 9;
    float threshold = 0.5f;
    float edgeGain = 1.0f;
};

Plane filtered(Plane plane, int width, int height, const Settings& s)
{
    local_laplacian_gray16(plane.data(), width, height, width, s.detail, s.floor, s.samples, s.threshold, s.edgeGain);
    return plane;
}

Plane toPlane(const std::vector<double>& values)
{
    Plane plane(values.size());
    std::transform(values.begin(), values.end(), plane.begin(),
                   [](double v) { return static_cast<std::int16_t>(std::clamp(v, 0.0, 1.0) * kFullScale + 0.5); });
    return plane;
}

/// A level of a pyramid in double, implemented directly.
struct Level
{
    int width, height;
    std::vector<double> v;
    [[nodiscard]] double at(int x, int y) const
    {
        return v[area(width, std::clamp(y, 0, height - 1)) + static_cast<std::size_t>(std::clamp(x, 0, width - 1))];
    }
};

Level reduced(const Level& fine)
{
    constexpr double kWeights[] = {1, 4, 6, 4, 1};
    Level coarse{(fine.width + 1) / 2, (fine.height + 1) / 2, {}};
    for (int y = 0; y < coarse.height; ++y)
        for (int x = 0; x < coarse.width; ++x) {
            double sum = 0;
            for (int j = -2; j <= 2; ++j)
                for (int i = -2; i <= 2; ++i)
                    sum += kWeights[i + 2] * kWeights[j + 2] * fine.at(2 * x + i, 2 * y + j) / 256;
            coarse.v.push_back(sum);
        }
    return coarse;
}

double expandedAt(const Level& coarse, int x, int y)
{
    const auto along = [](int p, int offset) {
        constexpr double kEven[] = {0.125, 0.75, 0.125};
        constexpr double kOdd[] = {0.0, 0.5, 0.5};
        return p % 2 == 0 ? kEven[offset + 1] : kOdd[offset + 1];
    };
    double sum = 0;
    for (int j = -1; j <= 1; ++j)
        for (int i = -1; i <= 1; ++i)
            sum += along(x, i) * along(y, j) * coarse.at(x / 2 + i, y / 2 + j);
    return sum;
}

std::vector<Level> gaussians(Level finest)
{
    std::vector<Level> levels{std::move(finest)};
    while (std::max(levels.back().width, levels.back().height) > 2)
        levels.push_back(reduced(levels.back()));
    return levels;
}

double curve(double v, double g, const Settings& s)
{
    const double t = static_cast<double>(s.threshold);
    const double gain = std::exp2(static_cast<double>(s.detail));
    const double size = std::abs(v - g);
    const double inside = std::min(size, t);
    const double x = inside / t;
    double detail =
        t * (gain > 1 ? gain * x / (1 + (gain - 1) * x) : gain * x + (1 - gain) * x * x * (0.25 + 0.75 * x));
    if (s.detail > 0 && s.floor > 0) {
        const double p = std::clamp(size / static_cast<double>(s.floor) - 1, 0.0, 1.0);
        detail = inside + (detail - inside) * p * p * (3 - 2 * p);
    }
    const double changed = detail + (size - inside) * static_cast<double>(s.edgeGain);
    return v < g ? g - changed : g + changed;
}

/// The filter as Paris et al. define it: a curve and a pyramid for each coefficient.
std::vector<double> direct(const Plane& plane, int width, int height, const Settings& s)
{
    Level input{width, height, std::vector<double>(plane.begin(), plane.end())};
    for (double& v : input.v)
        v /= kFullScale;
    const std::vector<Level> levels = gaussians(input);
    Level result = levels.back();
    for (std::size_t l = levels.size() - 1; l-- > 0;) {
        Level finer{levels[l].width, levels[l].height, {}};
        for (int y = 0; y < finer.height; ++y)
            for (int x = 0; x < finer.width; ++x) {
                Level changed = input;
                for (double& v : changed.v)
                    v = curve(v, levels[l].at(x, y), s);
                const std::vector<Level> own = gaussians(changed);
                finer.v.push_back(own[l].at(x, y) - expandedAt(own[l + 1], x, y) + expandedAt(result, x, y));
            }
        result = finer;
    }
    return result.v;
}

double deviation(const Plane& plane)
{
    double mean = 0;
    double square = 0;
    for (const auto v : plane) {
        mean += v / static_cast<double>(plane.size());
        square += static_cast<double>(v) * v / static_cast<double>(plane.size());
    }
    return std::sqrt(square - mean * mean);
}

Plane grain(int width, int height, double amplitude, std::uint32_t seed)
{
    planes::Random random(seed);
    std::vector<double> values(area(width, height));
    for (double& v : values)
        v = 0.5 + amplitude * static_cast<double>(random.normal());
    return toPlane(values);
}

Plane step(int width, int height, double low, double high)
{
    std::vector<double> values(area(width, height));
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = i % static_cast<std::size_t>(width) < static_cast<std::size_t>(width) / 2 ? low : high;
    return toPlane(values);
}

} // namespace

TEST(LocalLaplacian, AgreesWithTheDirectFilter)
{
    planes::Random random(5);
    std::vector<double> values;
    for (int y = 0; y < 15; ++y)
        for (int x = 0; x < 18; ++x)
            values.push_back((x + y > 16 ? 0.7 : 0.25) + 0.02 * y / 15 + 0.1 * static_cast<double>(random.next()));
    const Plane plane = toPlane(values);
    for (const Settings& s : {Settings{-2.0f, 0.0f, 9, 0.5f, 1.0f}, Settings{-2.0f, 0.0f, 9, 0.5f, 0.4f},
                              Settings{1.0f, 0.0f, 9, 0.2f, 1.0f}, Settings{1.5f, 0.03f, 9, 0.3f, 0.5f},
                              Settings{0.0f, 0.0f, 9, 0.1f, 0.3f}}) {
        const std::vector<double> slow = direct(plane, 18, 15, s);
        Settings many = s;
        many.samples = 200; // the sampled filter converges to the direct one
        const Plane fine = filtered(plane, 18, 15, many);
        const Plane usual = filtered(plane, 18, 15, s);
        for (std::size_t i = 0; i < slow.size(); ++i) {
            const double expected = std::clamp(slow[i], 0.0, 1.0);
            ASSERT_NEAR(fine[i] / kFullScale, expected, 0.004) << s.detail << ' ' << s.edgeGain << " at " << i;
            ASSERT_NEAR(usual[i] / kFullScale, expected, 0.05) << s.detail << ' ' << s.edgeGain << " at " << i;
        }
    }
}

TEST(LocalLaplacian, NeutralIsTheIdentityWithinOneStep)
{
    const std::vector<float> values = planes::noise(area(97, 61), 3);
    Plane plane(values.size());
    std::transform(values.begin(), values.end(), plane.begin(),
                   [](float v) { return static_cast<std::int16_t>(v * 32767.0f); });
    plane.front() = 0;
    plane.back() = 32767;
    // A detail of a millionth takes the whole path through the pyramids, unlike 0.
    for (const float detail : {0.0f, 1e-6f, -1e-6f})
        for (const int samples : {2, 9, 17})
            for (const float threshold : {0.1f, 0.5f}) {
                const Plane result = filtered(plane, 97, 61, {detail, 0.0f, samples, threshold, 1.0f});
                for (std::size_t i = 0; i < plane.size(); ++i)
                    ASSERT_NEAR(result[i], plane[i], 1) << detail << ' ' << samples << ' ' << threshold;
            }
}

TEST(LocalLaplacian, NoHaloAtAStepEdge)
{
    // The published filter is only approximately monotone across an edge; so is the direct form.
    constexpr double kStumble = 0.012;
    const int width = 256;
    const int height = 32;
    for (const auto& [low, high] : {std::pair{0.1, 0.9}, {0.3, 0.6}, {0.0, 1.0}, {0.45, 0.55}})
        for (const float detail : {-2.0f, 0.0f, 1.0f})
            for (const float edgeGain : {1.0f, 0.6f, 0.25f}) {
                const Plane result =
                    filtered(step(width, height, low, high), width, height, {detail, 0.0f, 9, 0.5f, edgeGain});
                const std::int16_t* const row = result.data() + area(width, height / 2);
                const double left = row[0] / kFullScale;
                const double right = row[width - 1] / kFullScale;
                for (int x = 0; x < width; ++x) {
                    const double v = row[x] / kFullScale;
                    EXPECT_GT(v, left - 0.02) << low << ' ' << high << ' ' << detail << ' ' << edgeGain << " at " << x;
                    EXPECT_LT(v, right + 0.02) << low << ' ' << high << ' ' << detail << ' ' << edgeGain << " at " << x;
                    if (x > 0) {
                        EXPECT_GT(v, row[x - 1] / kFullScale - kStumble)
                            << low << ' ' << high << ' ' << detail << ' ' << edgeGain << " at " << x;
                    }
                }
            }
}

TEST(LocalLaplacian, NegativeDetailSmoothsAndPositiveAmplifies)
{
    const Plane plane = grain(200, 150, 0.02, 1);
    const double before = deviation(plane);
    EXPECT_LT(deviation(filtered(plane, 200, 150, {-2.0f, 0.0f, 9, 0.5f, 1.0f})), 0.4 * before);
    EXPECT_GT(deviation(filtered(plane, 200, 150, {1.0f, 0.0f, 9, 0.5f, 1.0f})), 1.7 * before);
}

TEST(LocalLaplacian, DifferencesBelowTheFloorAreNotAmplified)
{
    const Plane faint = grain(200, 150, 0.003, 1);
    EXPECT_LT(deviation(filtered(faint, 200, 150, {1.5f, 0.02f, 129, 0.3f, 1.0f})), 1.15 * deviation(faint));
    EXPECT_GT(deviation(filtered(faint, 200, 150, {1.5f, 0.0f, 33, 0.3f, 1.0f})), 2.0 * deviation(faint));
    const Plane strong = grain(200, 150, 0.08, 1);
    EXPECT_GT(deviation(filtered(strong, 200, 150, {1.5f, 0.02f, 33, 0.3f, 1.0f})), 1.4 * deviation(strong));
}

TEST(LocalLaplacian, EdgeGainCompressesTheRange)
{
    const Plane plane = step(256, 64, 0.05, 0.95);
    const auto range = [](const Plane& p) { return p.back() - p.front(); };
    const int whole = range(plane);
    int before = whole;
    for (const float edgeGain : {0.75f, 0.5f, 0.25f}) {
        const int now = range(filtered(plane, 256, 64, {0.0f, 0.0f, 9, 0.1f, edgeGain}));
        EXPECT_LT(now, before - whole / 20) << edgeGain;
        before = now;
    }
}

TEST(LocalLaplacian, DoesNotWriteBeyondTheWidthOfARow)
{
    const int width = 37;
    const int height = 21;
    const int stride = 50;
    Plane wide(area(stride, height), 12345);
    Plane narrow;
    planes::Random random(7);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const auto v = static_cast<std::int16_t>(32767.0f * random.next());
            wide[area(stride, y) + static_cast<std::size_t>(x)] = v;
            narrow.push_back(v);
        }
    local_laplacian_gray16(wide.data(), width, height, stride, -2.0f, 0.0f, 9, 0.5f, 0.5f);
    narrow = filtered(narrow, width, height, {-2.0f, 0.0f, 9, 0.5f, 0.5f});
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < stride; ++x)
            ASSERT_EQ(wide[area(stride, y) + static_cast<std::size_t>(x)],
                      x < width ? narrow[area(width, y) + static_cast<std::size_t>(x)] : 12345);
}

TEST(LocalLaplacian, HandlesAnySizeAndSetting)
{
    const float nan = std::nanf("");
    const float inf = std::numeric_limits<float>::infinity();
    for (const auto& [width, height] : planes::awkwardSizes()) {
        const Plane flat(area(width, height), 20000);
        for (const Settings& s : {Settings{-2.0f, 0.0f, 9, 0.5f, 0.5f}, Settings{nan, nan, 0, nan, nan},
                                  Settings{inf, inf, -5, inf, inf}, Settings{-inf, -inf, 3, -inf, -inf}})
            for (const auto v : filtered(flat, width, height, s))
                ASSERT_NEAR(v, 20000, 2) << width << 'x' << height << ' ' << s.detail;
    }
    Plane negative(area(40, 40), -5);
    negative[50] = 30000;
    for (const auto v : filtered(negative, 40, 40, {-2.0f, 0.0f, 9, 0.5f, 0.5f}))
        ASSERT_GE(v, 0);
}

TEST(LocalLaplacian, SameForAnyWorkersAndLeavesNoPlane)
{
    const Plane plane = grain(301, 211, 0.2, 2);
    planes::expectSameForAnyWorkers([&] { return filtered(plane, 301, 211, {-2.0f, 0.0f, 9, 0.5f, 0.5f}); });
}

TEST(LocalLaplacian, UsesTwoFloatPlanesAtMost)
{
    auto& memory = orvo::MemoryManager::instance();
    const Plane plane = grain(800, 600, 0.2, 2);
    memory.resetPeak();
    const std::size_t before = memory.liveBytes();
    filtered(plane, 800, 600, {-2.0f, 0.0f, 33, 0.5f, 0.5f});
    const std::size_t rows = 64 * 900 * sizeof(float); // of the workers
    EXPECT_LT(memory.peakBytes() - before, 2 * plane.size() * sizeof(float) + rows * 4);
}
