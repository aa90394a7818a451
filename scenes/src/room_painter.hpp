// The room as a function of position. Each part of it is painted by its own source file.
#pragma once

#include "paint.hpp"

#include <orvo_core/geometry.hpp>

#include <cstdint>

namespace orvo::scenes {

// Positions of objects, in units of the composition.
inline constexpr Box kWindow{0.43f, 0.09f, 0.99f, 0.59f}; // the opening, frame included
inline constexpr Box kShelf{0.02f, 0.12f, 0.31f, 0.765f};
inline constexpr Box kChimney{1.10f, -1.0f, 2.5f, 0.765f};
inline constexpr Box kFireplace{1.18f, 0.475f, 1.42f, 0.745f};
inline constexpr Box kMantel{1.12f, 0.405f, 1.48f, 0.430f};
inline constexpr float kFloorLine = 0.765f; // where the wall meets the floor
inline constexpr float kLampU = 1.415f;     // middle of the lamp shade
inline constexpr float kLampV = 0.275f;

/// Light on the surfaces of the room: reflected by the walls, and the lamp's warm pool.
[[nodiscard]] Light roomLight(float u, float v);

/// Sky, sun, clouds, hills and town behind the window.
[[nodiscard]] Light paintOutdoors(const Spot& p, std::uint32_t seed);

/// Plaster, skirting, brick and the fireplace.
[[nodiscard]] Light paintWall(const Spot& p, std::uint32_t seed);
/// Planks, the carpet, and the sun on both.
[[nodiscard]] Light paintFloor(const Spot& p, std::uint32_t seed);

// These paint their subject over the existing light.
void paintShelf(Light& light, const Spot& p, std::uint32_t seed);
void paintWindowFrame(Light& light, const Spot& p, std::uint32_t seed);
void paintCurtains(Light& light, const Spot& p, std::uint32_t seed);
void paintTable(Light& light, const Spot& p, std::uint32_t seed);
void paintChart(Light& light, const Spot& p);
void paintVaseAndPlant(Light& light, const Spot& p, std::uint32_t seed);
void paintMantel(Light& light, const Spot& p, std::uint32_t seed);
void paintLamp(Light& light, const Spot& p);
void paintPoster(Light& light, const Spot& p, std::uint32_t seed);

class RoomPainter
{
public:
    /// For a scene of `size` pixels; the composition covers it, centred.
    RoomPainter(_Size<int> size, std::uint64_t seed);

    /// Paints the pixels (firstX, y) .. (firstX + count - 1, y) of the scene; they may be outside its extent.
    void paintRow(int y, int firstX, int count, Light* row) const;

private:
    float pixelSize;
    float originU;
    float originV;
    std::uint32_t roomSeed;
};

} // namespace orvo::scenes
