// A picture that records its enlargement.
#pragma once

#include <orvo_core/image_data.hpp>

#include <memory>
#include <utility>

namespace orvo {

class EnlargedPicture final : public _ImageData<PixelRGB<float>>
{
public:
    EnlargedPicture(_Size<int> size, std::shared_ptr<ColorProfile> itsProfile, double growth_)
        : _ImageData(size, std::move(itsProfile)), growth(growth_)
    {}

    double growth; // of the side that grew most
};

} // namespace orvo
