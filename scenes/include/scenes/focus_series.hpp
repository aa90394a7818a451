/// Focus series with their ground truth.
#pragma once

#include <orvo_core/image_data.hpp>
#include <scenes/camera.hpp>
#include <scenes/focus_lens.hpp>
#include <scenes/homography.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace orvo::scenes {

/// Distance from the lens in m of the nearest and the farthest point of the scene in the reference frame.
inline constexpr double kNearestDistance = 0.40;
inline constexpr double kFarthestDistance = 0.65;

/// Movement of the camera. The whole picture shifts, near and far alike: there is no parallax.
struct FrameMotion
{
    double shiftX = 0.0;          ///< pixels by which the frame's middle is further right in the scene
    double shiftY = 0.0;          ///< ... further down
    double rotationDegrees = 0.0; ///< about the middle of the frame, clockwise as seen in the scene
};

/// Describes a series. With the defaults every point of the scene has a circle of confusion below 0.7 pixels in at
/// least one frame, so an all-sharp picture can be made from them: the frames named by sharpestFrame() make one that is
/// 53 dB from truth(). The remaining error is at edges, where a blurred near object veils sharp far ones.
struct FocusSeriesSettings
{
    _Size<int> size{1024, 768};          ///< of every frame in pixels, each side 16..65536
    std::uint64_t seed = 1;              ///< another seed: other grain, weave and scratches on the same objects
    int frames = 8;                      ///< 1..1000; one frame alone is focused half-way
    double nearFocus = kNearestDistance; ///< m, focus of the first frame, beyond the focal length
    double farFocus = kFarthestDistance; ///< m, focus of the last one; those between are evenly spaced in 1/m
    /// Amplitude of a texture that is random from pixel to pixel of the scene, as a share of the light, 0..1. It covers
    /// everything except the plain notice on the wall, and the scene then appears turned by half a degree. Without it
    /// the finest detail is two pixels wide.
    double texture = 0.0;
    FocusLens lens; ///< such that no circle of confusion is wider than 64 pixels
    /// Share by which the first frame shows objects larger than the last one, -0.2..0.2: a lens extended to focus near
    /// magnifies more. It changes evenly from frame to frame, about the middle of the frame.
    double breathing = 0.0;
    FrameMotion drift;                ///< steady movement from each frame to the next: a skewed rail
    FrameMotion shake;                ///< largest deviation of each frame by an unsteady hand
    std::uint64_t shakeSeed = 1;      ///< another seed: another hand
    std::optional<int> reference;     ///< frame whose geometry is the scene's; empty: the middle one
    std::optional<SensorNoise> noise; ///< empty: none
    std::uint64_t noiseSeed = 1;      ///< each frame derives its own noise from it
    double isoSpeed = 100.0;          ///< above 0; amplifies noise and is written to files
};

class FocusScene;

/// A table with objects on it, in front of a papered wall: wood, lettering, ruler, ball, thread, straws and a fern,
/// textured at several scales almost everywhere, with hard edges in depth. Composed for 3:2; other shapes show its
/// middle part.
///
/// The scene is a stack of layers, each a plane in space with its own coverage. A frame is composed from back to front:
/// each layer is blurred by the disc for its depth at each pixel, light and coverage together, and composited over what
/// is behind. So a blurred near object spreads over sharp far ones, which exist behind it. Departure from a real lens:
/// it does not model that the light of two blurred layers at one pixel passes through different parts of the lens.
///
/// Layers are defined everywhere, as uniform cubic B-splines over painted grids, so a frame of any motion is exact;
/// light is blurred before its curve is applied. Painted once by the constructor; immutable and usable from any thread
/// afterwards. Uses at most 4 layers of 16 bytes per pixel (beyond 0.3 megapixels; smaller ones have a wider margin).
/// All results are the same for any number of threads.
class FocusSeries
{
public:
    /// Throws std::invalid_argument that names the field, its value and the limit; std::bad_alloc.
    explicit FocusSeries(const FocusSeriesSettings& settings);

    [[nodiscard]] const FocusSeriesSettings& settings() const { return recipe; }
    [[nodiscard]] _Size<int> size() const { return recipe.size; }
    [[nodiscard]] int frameCount() const { return recipe.frames; }
    /// The frame whose geometry is that of truth() and of the maps below.
    [[nodiscard]] int reference() const { return referenceIndex; }
    /// In m. Throws std::out_of_range, as all members with an index do.
    [[nodiscard]] double focusDistance(int index) const;
    /// Exact map from pixels of frame `index` to those of the reference; kIdentity for the reference itself.
    [[nodiscard]] Homography referenceFromFrame(int index) const;

    /// The camera's picture: melissaRGB(), 0..1, not quantised. Peak: the result and one layer of 16 bytes per pixel.
    [[nodiscard]] std::shared_ptr<Picture> frame(int index) const;
    [[nodiscard]] std::vector<std::shared_ptr<Picture>> frames() const;

    /// The picture of a lens with infinite depth of field in the geometry of the reference, without noise;
    /// melissaRGB(). Peak: as frame().
    [[nodiscard]] std::shared_ptr<Picture> truth() const;
    /// Distance in m of the layer that dominates each pixel of truth(). No profile. Peak: the result.
    [[nodiscard]] std::shared_ptr<_ImageData<float>> depth() const;
    /// The index of the frame in which that layer is sharpest: its circle of confusion is the smallest, among equals
    /// the first. No profile. Peak: the result.
    [[nodiscard]] std::shared_ptr<_ImageData<float>> sharpestFrame() const;

private:
    void checkIndex(int index) const;

    FocusSeriesSettings recipe;
    int referenceIndex = 0;
    std::vector<double> focus;        // m, of each frame
    std::vector<Homography> geometry; // reference from frame
    Homography sceneFromReference = kIdentity;
    std::shared_ptr<const FocusScene> scene;
};

} // namespace orvo::scenes
