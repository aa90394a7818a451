/// A surrounding world, seen from one point by cameras of any rotation: the ground truth of panoramas.
#pragma once

#include <orvo_core/image_data.hpp>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace orvo::scenes {

/// Row-major; rotates a direction of the camera (x right, y down, z ahead) to the world's.
using Rotation = std::array<double, 9>;

/// Right-handed about y (to the right), then x (up), then z (clockwise), in degrees.
[[nodiscard]] Rotation rotationOf(double yaw, double pitch, double roll);
/// The angle in degrees of the rotation between two.
[[nodiscard]] double angleBetween(const Rotation& a, const Rotation& b);
/// transpose(a) * b.
[[nodiscard]] Rotation relative(const Rotation& a, const Rotation& b);

/// A ball in front of the world in one view.
struct SphereSubject
{
    double yaw = 0.0; ///< degrees
    double pitch = 0.0;
    double radius = 3.0;
};

/// One view. The principal point is the middle of the picture: (width / 2, height / 2).
struct SphereView
{
    _Size<int> size{800, 600};
    double focal = 800.0; ///< pixels
    Rotation rotation = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    double ev = 0.0;
    /// Light decreases by 1 / (1 + a r^2 + b r^4 + c r^6), where r is 1 in the corners.
    std::array<double, 3> vignetting{};
    double noise = 0.0; ///< standard deviation, of encoded values
    std::optional<SphereSubject> subject;
};

/// Blobs, edges and lines of all sizes down to a tenth of a degree everywhere, most of it between 0.02 and 0.7 of full
/// scale at EV 0. Determined by its seed; immutable, usable from any thread.
class SphereScene
{
public:
    explicit SphereScene(std::uint64_t seed = 1);

    /// Linear light, primaries of sRGB, in a direction of length 1. Omits details finer than `finest` degrees.
    [[nodiscard]] PixelRGB<float> light(double x, double y, double z, double finest) const;

    /// The camera's picture: sRGB-encoded, clamped to 0..1, profile sRGB(). Parallel over rows.
    [[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>> see(const SphereView& view,
                                                                   std::uint64_t noiseSeed = 1) const;

private:
    std::uint64_t seed;
};

/// `count` views side by side at one pitch, each `step` degrees of yaw to the right of the previous one, centred at
/// yaw 0, with small deviations of an unsteady hand (up to `shake` degrees each way) from the seed.
[[nodiscard]] std::vector<SphereView> rowOfViews(int count, double step, double pitch, const SphereView& like,
                                                 double shake, std::uint64_t seed);

} // namespace orvo::scenes
