// The objects of the focus scene. Each is painted in the units of the composition by its own function.
#pragma once

#include "paint.hpp"

#include <cstdint>
#include <span>

namespace orvo::scenes {

inline constexpr float kFocusCompositionWidth = 1.5f; // u runs 0..1.5, v 0..1
inline constexpr float kTableEdge = 0.42f;            // where the table ends in front of the wall

/// Light of an object, valid where it covers something, and the share of the pixel that it covers.
struct Patch
{
    Light light;
    float cover = 1.0f;
    float texture = 1.0f; ///< share of the fine texture that the scene gives it
};

/// Nearness of a plane: 0 at the farthest distance of the scene, 1 at the nearest, linear in 1/m.
struct Nearness
{
    float atOrigin;
    float perU = 0.0f;
    float perV = 0.0f;
    [[nodiscard]] constexpr float operator()(float u, float v) const { return atOrigin + perU * u + perV * v; }
};

struct Thing
{
    Nearness nearness;
    Box bounds; ///< covers nothing outside; ignored if `endless`
    bool endless;
    Patch (*paint)(const Spot& p, std::uint32_t seed);
};

/// From back to front.
[[nodiscard]] std::span<const Thing> focusThings();

/// The table is level and extends from the wall to the lower rim of the picture.
inline constexpr Nearness kTableNearness{-kTableEdge / (1.0f - kTableEdge), 0.0f, 1.0f / (1.0f - kTableEdge)};
/// Position on the table of something with that nearness.
constexpr float standingAt(float nearness) { return kTableEdge + nearness * (1.0f - kTableEdge); }
/// 1/m
[[nodiscard]] float dioptresOf(float nearness);

// The surroundings.
[[nodiscard]] Patch paintBackdrop(const Spot& p, std::uint32_t seed);
[[nodiscard]] Patch paintTabletop(const Spot& p, std::uint32_t seed);

// Objects on the table.
inline constexpr float kStrawsNearness = 0.15f;
inline constexpr float kTinNearness = 0.30f;
inline constexpr float kBallNearness = 0.50f;
inline constexpr float kSpoolNearness = 0.72f;
inline constexpr float kFernNearness = 0.95f;
inline constexpr Nearness kCardNearness{-0.08f, 1.5f, 0.0f};
inline constexpr Nearness kStickNearness{0.10f, 0.0f, 0.82f};
inline constexpr Box kStrawsBounds{1.02f, 0.02f, 1.46f, 0.53f};
inline constexpr Box kTinBounds{0.62f, 0.25f, 0.91f, 0.62f};
inline constexpr Box kCardBounds{0.09f, 0.15f, 0.57f, 0.90f};
inline constexpr Box kStickBounds{0.50f, 0.26f, 0.68f, 0.93f};
inline constexpr Box kBallBounds{0.90f, 0.50f, 1.14f, 0.74f};
inline constexpr Box kSpoolBounds{0.70f, 0.59f, 0.86f, 0.87f};
inline constexpr Box kFernBounds{1.02f, 0.52f, 1.50f, 1.04f};
[[nodiscard]] Patch paintStraws(const Spot& p, std::uint32_t seed);
[[nodiscard]] Patch paintTin(const Spot& p, std::uint32_t seed);
[[nodiscard]] Patch paintCard(const Spot& p, std::uint32_t seed);
[[nodiscard]] Patch paintStick(const Spot& p, std::uint32_t seed);
[[nodiscard]] Patch paintBall(const Spot& p, std::uint32_t seed);
[[nodiscard]] Patch paintSpool(const Spot& p, std::uint32_t seed);
[[nodiscard]] Patch paintFern(const Spot& p, std::uint32_t seed);

} // namespace orvo::scenes
