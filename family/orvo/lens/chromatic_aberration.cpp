#include "lens/chromatic_fit.hpp"

#include <orvo/lens_correction.hpp>
#include <orvo_common/scoped_timer.hpp>

namespace orvo {

void applyChromaticAbberationsCorrection(PicturePointer& image)
{
    if (!image || image->pixelCount() == 0)
        return;
    const ScopedTimer timer("applyChromaticAbberationsCorrection", 0);
    const std::vector<details::EdgePatch> patches = details::findEdgePatches(*image);
    // Both are measured against green, which does not change, so the order does not matter.
    for (const details::Channel channel : {details::Channel::Red, details::Channel::Blue}) {
        const details::RadialScale scale = details::fitRadialScale(*image, channel, patches);
        if (scale.constant != 0.0 || scale.cubic != 0.0)
            details::undoRadialScale(*image, channel, scale);
    }
}

void LensCorrectionUnit::applyAndDismissRawCA(PicturePointer& image, const std::shared_ptr<const ImageMetadata>&,
                                              const std::shared_ptr<AdditionalRawMetadata>& rawMetadata, bool chromatic)
{
    if (!rawMetadata || !chromatic)
        return;
    rawMetadata->wait();
    if (!rawMetadata->hasPendingChromaticAberration())
        return;
    applyChromaticAbberationsCorrection(image);
    rawMetadata->dismissChromaticAberration();
}

} // namespace orvo
