// The layers of the focus scene, and how a lens sees them.
#pragma once

#include "disc_kernels.hpp"

#include <orvo_core/image_data.hpp>
#include <scenes/camera.hpp>
#include <scenes/focus_lens.hpp>
#include <scenes/homography.hpp>

#include <cstdint>
#include <memory>
#include <vector>

namespace orvo::scenes {

/// 1/distance in 1/m over a plane in space: linear in picture coordinates, by perspective.
struct DepthPlane
{
    double atOrigin = 0.0;
    double perX = 0.0;
    double perY = 0.0;
    [[nodiscard]] double operator()(double x, double y) const { return atOrigin + perX * x + perY * y; }
};

/// One painted plane of the scene. Positions are pixels of the reference frame.
struct FocusLayer
{
    /// Coefficients of the cubic B-spline: linear light with the primaries of sRGB, multiplied by the coverage.
    std::shared_ptr<const _ImageData<PixelRGBA<float>>> grid;
    int left = 0; ///< position of the first coefficient
    int top = 0;
    bool endless = false; ///< continues its rim beyond the grid; otherwise there is nothing
    DepthPlane dioptres;

    [[nodiscard]] PixelRGBA<float> sample(double x, double y) const;
    /// Positions outside which it covers nothing; not for an endless one.
    [[nodiscard]] _Rect<double> bounds() const;
};

/// The setting of the lens: the circle of confusion of a dioptre value d is perDioptre * |d - focus| pixels.
struct FocusSetting
{
    double focus = 0.0;      ///< 1/m
    double perDioptre = 0.0; ///< 0: everything is sharp
};
[[nodiscard]] FocusSetting focusSetting(const FocusLens& lens, double focusDistance);

class FocusScene
{
public:
    FocusScene(_Size<int> size, std::uint64_t seed, double texture);

    /// Linear light with the primaries of sRGB in the frame whose pixels `sceneFromFrame` maps to those of the scene.
    /// Peak: the result and one layer.
    [[nodiscard]] std::shared_ptr<Picture> light(const Homography& sceneFromFrame, const FocusSetting& setting) const;
    /// 1/m of the layer that dominates each pixel of the frame.
    [[nodiscard]] std::shared_ptr<_ImageData<float>> dioptres(const Homography& sceneFromFrame) const;

private:
    _Size<int> extent;
    std::vector<FocusLayer> layers; // from back to front
};

} // namespace orvo::scenes
