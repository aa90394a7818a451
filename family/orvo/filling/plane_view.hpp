/// A plane seen in perspective, as if seen from straight above.
#pragma once

#include "filling/convergence.hpp"
#include "filling/hole.hpp"

#include <orvo_core/geometry.hpp>
#include <orvo_core/image_data.hpp>

#include <memory>
#include <optional>

namespace orvo::details {

/// The surroundings of a hole, warped so that lines through a vanishing point become parallel (the rectification of
/// Huang, Kang, Ahuja, Kopf, SIGGRAPH 2014, for the one plane around the hole). Lines across, level ones if the point
/// is above or below the hole and upright ones beside it, stay parallel. The part of the hole nearest to the viewer
/// keeps its scale; everything farther is enlarged.
class PlaneView
{
public:
    /// Nothing if the hole would become much larger, or extends to the vanishing point. `hole` must have pixels.
    [[nodiscard]] static std::optional<PlaneView> around(const Hole& hole, VanishingPoint point);

    [[nodiscard]] _Size<int> size() const { return extent; }
    /// The warped picture, in its colour profile, by Catmull-Rom interpolation. What is not known is black.
    [[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>> picture(const _ImageData<PixelRGB<float>>& from,
                                                                       const Hole& hole) const;
    /// The warped hole: every pixel that is interpolated from one of the hole. Beyond the picture, and where the plane
    /// is enlarged or reduced too much, nothing is known.
    [[nodiscard]] Hole hole(const Hole& from) const;
    /// Paints the hole of `to` from a warped picture that is painted.
    void paint(const _ImageData<PixelRGB<float>>& warped, const Hole& hole, _ImageData<PixelRGB<float>>& to) const;

private:
    struct Position
    {
        float x;
        float y;
    };

    PlaneView(VanishingPoint point, const Hole& hole);
    // Between pixels of the picture and of the view; the centre of a pixel has whole coordinates.
    [[nodiscard]] Position inView(Position picture) const;
    [[nodiscard]] Position inPicture(Position view) const;
    [[nodiscard]] Place placeOf(Position picture, const Hole& from) const;

    VanishingPoint point;
    bool across = false;         // the vanishing point lies left or right of the hole, not above or below
    float side = 1.0f;           // +1 if coordinates grow from the vanishing point to the hole
    float nearest = 1.0f;        // distance, along the axis, from the vanishing point to the nearest part of the hole
    Position origin{0.0f, 0.0f}; // of the view
    _Size<int> extent{0, 0};
    float enlarged = 1.0f; // area of the hole in the view relative to the picture
};

} // namespace orvo::details
