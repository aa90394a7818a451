/// How gently colours change where a picture has no structure: in skies, water and walls.
#pragma once

#include "filling/hole.hpp"

#include <orvo_core/geometry.hpp>
#include <orvo_core/image_data.hpp>

#include <cstddef>
#include <vector>

namespace orvo::details {

/// The change of colour from pixel to pixel without grain and fine texture, in cells of a few pixels.
class GentleShading
{
public:
    struct Change
    {
        PixelRGB<float> right;   ///< from a pixel to its right neighbour
        PixelRGB<float> below;   ///< and to the one below
        float gentleness = 0.0f; ///< 1 where there is only a gentle change all around, 0 at edges and in coarse texture
    };

    /// Of the known pixels in the part `window` of `picture`. In the hole and close to it, the change is that of the
    /// gentle parts around it, continued smoothly (the more gradual, the farther away); gentleness has no meaning
    /// there.
    GentleShading(const _ImageData<PixelRGB<float>>& picture, const Hole& hole, const _Rect<int>& window);

    /// At a pixel of the window.
    [[nodiscard]] const Change& at(int x, int y) const
    {
        return changes[cellAt((x - left) / kCell, (y - top) / kCell)];
    }

    /// The colour there without grain and fine texture.
    [[nodiscard]] PixelRGB<float> colourAt(int x, int y) const;

private:
    static constexpr int kCell = 4; // pixels

    [[nodiscard]] std::size_t cellAt(int column, int row) const
    {
        return static_cast<std::size_t>(row) * static_cast<std::size_t>(columns) + static_cast<std::size_t>(column);
    }
    void continueIntoHole(const Hole& hole);

    int left;
    int top;
    int columns;
    int rows;
    std::vector<Change> changes;
    std::vector<PixelRGB<float>> colours;
};

} // namespace orvo::details
