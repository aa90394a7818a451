/// The filling by patches, with its settings.
#pragma once

#include "filling/fill_settings.hpp"

#include <orvo/filling.hpp>

namespace orvo::details {

/// See orvo::patchFiller().
class PatchFiller : public Filler
{
public:
    explicit PatchFiller(const PatchFillSettings& settings_ = {}) : settings(settings_) {}

    [[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>> fill(const _ImageData<PixelRGB<float>>& picture,
                                                                    const _ImageData<float>& mask,
                                                                    const RunControl& control) const override;

private:
    const PatchFillSettings settings;
};

} // namespace orvo::details
