// Tools for painting the scenes: colours, edges of known coverage, and noise without sine or table.
#pragma once

#include <orvo_core/pixel.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace orvo::scenes {

using Light = PixelRGB<float>;

constexpr Light operator*(Light a, float k) { return {a.r * k, a.g * k, a.b * k}; }
constexpr Light operator*(Light a, Light b) { return {a.r * b.r, a.g * b.g, a.b * b.b}; }
constexpr Light operator+(Light a, Light b) { return {a.r + b.r, a.g + b.g, a.b + b.b}; }
constexpr Light mix(Light a, Light b, float t)
{
    return {a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t};
}
constexpr float mix(float a, float b, float t) { return a + (b - a) * t; }
constexpr float limited(float t) { return t < 0.0f ? 0.0f : (t > 1.0f ? 1.0f : t); }
constexpr float smooth(float from, float to, float value)
{
    const float t = limited((value - from) / (to - from));
    return t * t * (3.0f - 2.0f * t);
}
constexpr float square(float v) { return v * v; }
/// Floor of `v`. By truncation: std::floor is a library call on plain x86-64.
constexpr int cell(float v)
{
    const int whole = static_cast<int>(v);
    return whole - (v < static_cast<float>(whole) ? 1 : 0);
}
constexpr float fraction(float v) { return v - static_cast<float>(cell(v)); }

/// A point of the picture in its own units: v is 0..1 from top to bottom of the 3:2 composition, u 0..1.5. `px` is
/// the size of a pixel in these units, so that edges and detail end at the resolution of the pixels.
struct Spot
{
    float u;
    float v;
    float px;
};

struct Box
{
    float left;
    float top;
    float right;
    float bottom;

    [[nodiscard]] bool near(const Spot& p, float reach = 0.0f) const
    {
        const float slack = p.px + reach;
        return p.u > left - slack && p.u < right + slack && p.v > top - slack && p.v < bottom + slack;
    }
    /// Share of the pixel inside the box.
    [[nodiscard]] float cover(const Spot& p) const
    {
        const float across = limited((p.u - left) / p.px + 0.5f) * limited((right - p.u) / p.px + 0.5f);
        return across * limited((p.v - top) / p.px + 0.5f) * limited((bottom - p.v) / p.px + 0.5f);
    }
    [[nodiscard]] constexpr float width() const { return right - left; }
    [[nodiscard]] constexpr float height() const { return bottom - top; }
    [[nodiscard]] constexpr Box shrunk(float by) const { return {left + by, top + by, right - by, bottom - by}; }
};

/// Share of the pixel on the inner side of an edge at `distance` (negative inside), in the units of `px`.
constexpr float coverage(float distance, float px) { return limited(0.5f - distance / px); }

inline float ellipseDistance(const Spot& p, float centreU, float centreV, float radiusU, float radiusV)
{
    const float du = (p.u - centreU) / radiusU;
    const float dv = (p.v - centreV) / radiusV;
    return (std::sqrt(du * du + dv * dv) - 1.0f) * std::min(radiusU, radiusV);
}

/// 32 well-mixed bits of a lattice point.
constexpr std::uint32_t mixBits(std::int32_t x, std::int32_t y, std::uint32_t seed)
{
    std::uint32_t h =
        static_cast<std::uint32_t>(x) * 0x9E3779B1u ^ static_cast<std::uint32_t>(y) * 0x85EBCA77u ^ seed * 0xC2B2AE3Du;
    h = (h ^ (h >> 15)) * 0x2C1B3C6Du;
    h = (h ^ (h >> 12)) * 0x297A2D39u;
    return h ^ (h >> 15);
}
/// 0..1
constexpr float chance(std::int32_t x, std::int32_t y, std::uint32_t seed)
{
    return static_cast<float>(mixBits(x, y, seed) >> 8) * (1.0f / 16777216.0f);
}

/// Value noise, -1..1, smooth, one feature per unit.
inline float valueNoise(float x, float y, std::uint32_t seed)
{
    const int column = cell(x);
    const int line = cell(y);
    float s = x - static_cast<float>(column);
    float t = y - static_cast<float>(line);
    s = s * s * (3.0f - 2.0f * s);
    t = t * t * (3.0f - 2.0f * t);
    const float top = mix(chance(column, line, seed), chance(column + 1, line, seed), s);
    const float bottom = mix(chance(column, line + 1, seed), chance(column + 1, line + 1, seed), s);
    return 2.0f * mix(top, bottom, t) - 1.0f;
}

/// Octaves of noise from `frequency` (features per unit) up to the resolution of pixels of `px`, about -1..1.
inline float layeredNoise(float x, float y, float frequency, float px, std::uint32_t seed, float persistence = 0.62f,
                          int octaves = 6)
{
    constexpr float kFinestPerPixel = 0.45f; // features per pixel: just below the limit of the grid
    float sum = 0.0f;
    float amplitude = 1.0f;
    float total = 0.0f;
    for (int octave = 0; octave < octaves; ++octave) {
        total += amplitude;
        // an octave fades in as the pixels become fine enough for it, so that sizes differ in detail only
        const float visible = limited(2.0f - frequency * px / kFinestPerPixel);
        if (visible > 0.0f)
            sum += visible * amplitude *
                   valueNoise(x * frequency, y * frequency, seed + static_cast<std::uint32_t>(octave) * 101u);
        amplitude *= persistence;
        frequency *= 2.03f; // not exactly 2, so that lattice lines of the octaves do not coincide
    }
    return sum / total * 1.6f;
}

} // namespace orvo::scenes
