// lensfun's data on a lens, behind our own interface: only lens_database.cpp includes its header.
#pragma once

#include <orvo_core/geometry.hpp>
#include <orvo_core/image_metadata.hpp>

#include <memory>

namespace orvo::details {

/// The faults of one lens at one setting, for pictures of one size. Usable from any thread.
class LensModel
{
public:
    virtual ~LensModel() = default;

    [[nodiscard]] virtual bool bends() const = 0;
    [[nodiscard]] virtual bool darkens() const = 0;

    /// The positions in the uncorrected picture of the pixels of row `y` of the corrected one: x, y of each in turn.
    /// Only if bends(). Scaled so that the corrected picture is filled.
    virtual void sourcePlaces(int y, float* places) const = 0;

    /// The factor by which the light at a position of the uncorrected picture must be raised. Only if darkens().
    [[nodiscard]] virtual float gainAt(float x, float y) const = 0;
};

/// Empty if the camera or its lens is unknown, if it has no measurements, or if there is no database.
[[nodiscard]] std::unique_ptr<LensModel> findLensModel(const ImageMetadata& metadata, _Size<int> size);

} // namespace orvo::details
