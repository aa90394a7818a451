/// A scene whose light is known at every point.
#pragma once

#include <orvo_core/image_data.hpp>
#include <scenes/homography.hpp>

#include <cstdint>

namespace orvo::scenes {

struct SceneSettings
{
    /// Extent of the scene in pixels of a frame without camera motion; each side 16..65536.
    _Size<int> size{1536, 1024};
    /// Another seed: other clouds, hills, houses, books, wood and plaster in the same room.
    std::uint64_t seed = 1;
    /// How far the scene continues beyond each edge, as a share of the shorter side, 0..0.5. A frame that looks further
    /// out sees the outermost point repeated.
    double margin = 0.06;
};

/// A living room against the light: a window with sun, clouds, hills and a town, plaster, brick, wood, books, a colour
/// chart, a lit lamp, and a fireplace so dark that its lettering needs a long exposure. Linear light with the
/// primaries of sRGB, never negative; 1 in a channel clips at EV 0. The luminance spans more than 14 stops between its
/// 0.1 % and 99.9 % quantiles. Composed for 3:2; other shapes show its middle part.
///
/// The radiance is defined everywhere, not only at pixels: it is the uniform cubic B-spline over a painted grid of one
/// coefficient per pixel. That function is positive, twice differentiable and known exactly, so a frame of any motion
/// is exact too; its blur is about that of a good lens. The grid limits the detail.
///
/// Painted once by the constructor; immutable and usable from any thread afterwards. Uses 12 bytes per pixel.
class RadianceScene
{
public:
    /// Throws std::invalid_argument that names the field, its value and the limit; std::bad_alloc.
    explicit RadianceScene(const SceneSettings& settings);

    [[nodiscard]] _Size<int> size() const { return extent; }
    /// Pixels by which the scene continues beyond each edge.
    [[nodiscard]] int margin() const { return marginPx; }

    /// The light at any point of the scene, pixel centres at integers.
    [[nodiscard]] PixelRGB<float> radiance(double x, double y) const;

    /// The light seen by the pixels (0, y) .. (width - 1, y) of a frame. `row` has `width` values.
    void radianceRow(const Homography& sceneFromFrame, int y, int width, PixelRGB<float>* row) const;

private:
    [[nodiscard]] PixelRGB<float> sample(double x, double y) const;

    _Size<int> extent;
    int marginPx = 0;
    int stride = 0;      // coefficients of a grid row
    double lowest = 0.0; // smallest coordinate used, both axes
    double highestX = 0.0;
    double highestY = 0.0;
    _ImageData<PixelRGB<float>> grid;
};

} // namespace orvo::scenes
