/// Planes and checks shared by the tests of this library.
#pragma once

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_core/pixel.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

namespace planes {

using orvo::PixelRGB;

/// A small generator with the same numbers for every standard library.
class Random
{
public:
    explicit Random(std::uint32_t seed) : state(seed * 2654435761U + 1U) {}
    /// 0 .. 1
    float next()
    {
        state = state * 1664525U + 1013904223U;
        return static_cast<float>(state >> 8) * (1.0f / 16777216);
    }
    /// Approximately normal, deviation 1.
    float normal()
    {
        float sum = 0.0f;
        for (int i = 0; i < 12; ++i)
            sum += next();
        return sum - 6.0f;
    }

private:
    std::uint32_t state;
};

inline std::size_t area(int width, int height)
{
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
}

inline std::vector<float> noise(std::size_t count, std::uint32_t seed)
{
    Random random(seed);
    std::vector<float> samples(count);
    for (float& v : samples)
        v = random.next();
    return samples;
}

inline std::vector<PixelRGB<float>> asPixels(const std::vector<float>& samples)
{
    std::vector<PixelRGB<float>> picture;
    for (std::size_t i = 0; i + 2 < samples.size(); i += 3)
        picture.push_back({samples[i], samples[i + 1], samples[i + 2]});
    return picture;
}

inline std::vector<PixelRGB<float>> noisePicture(int width, int height, std::uint32_t seed)
{
    return asPixels(noise(3 * area(width, height), seed));
}

/// Sizes that first break loops over blocks, bands and borders.
inline const std::vector<std::pair<int, int>>& awkwardSizes()
{
    static const std::vector<std::pair<int, int>> sizes = {{0, 0},  {0, 5},   {1, 1},   {2, 1},   {1, 2},   {2, 2},
                                                           {3, 3},  {1, 300}, {300, 1}, {7, 17},  {16, 16}, {17, 31},
                                                           {33, 5}, {257, 9}, {9, 261}, {64, 129}};
    return sizes;
}

template <typename T>
bool sameBytes(const std::vector<T>& a, const std::vector<T>& b)
{
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

/// `make` returns a vector; it must be the same for one worker and for two, and release all its planes.
template <typename Make>
void expectSameForAnyWorkers(const Make& make)
{
    const std::size_t live = orvo::MemoryManager::instance().liveBytes();
    auto one = [&] {
        const orvo::WorkerLimit limit(1);
        return make();
    }();
    auto two = [&] {
        const orvo::WorkerLimit limit(2);
        return make();
    }();
    EXPECT_TRUE(sameBytes(one, two));
    EXPECT_EQ(orvo::MemoryManager::instance().liveBytes(), live);
}

} // namespace planes
