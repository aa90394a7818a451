#include "bracket/deghosted_ladder.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>

namespace orvo {

DeghostedLadder::DeghostedLadder(std::vector<HDRFrame>& ladder_, const std::vector<float>& shifts, int reference_,
                                 const HDRSettings& settings, const RunControl& run)
    : ladder(ladder_), reference(static_cast<std::size_t>(reference_)), referenceFrame(ladder_[reference].image),
      deghosting(
          std::make_unique<Deghosting>(referenceFrame->size(), settings.deghostAmount, ladder_.size(), reference_))
{
    for (const float shift : shifts)
        curves.push_back(curveOfShift(shift, settings));
    const _Size<int> size = referenceFrame->size();
    const auto shifted = [&](std::size_t i, std::shared_ptr<Picture>& picture) -> const PixelRGB<float>* {
        if (curves[i].isIdentity())
            return ladder[i].image->data();
        if (!picture)
            picture = std::make_shared<Picture>(size, ladder[i].image->colorProfile());
        const PixelRGB<float>* const source = ladder[i].image->data();
        const auto columns = static_cast<std::size_t>(size.width);
        forEachRow(size.height, [&](int y) {
            curves[i].apply(source + static_cast<std::size_t>(y) * columns, picture->row(y), columns);
        });
        return picture->data();
    };
    std::shared_ptr<Picture> ofReference;
    std::shared_ptr<Picture> ofRung;
    const PixelRGB<float>* const referencePixels = shifted(reference, ofReference);
    for (std::size_t i = 0; i < ladder.size(); ++i) {
        if (run.cancelled())
            return;
        if (i != reference)
            deghosting->compare(i, shifted(i, ofRung), referencePixels);
    }
    deghosting->finishMask();
    if (settings.highlightHue == HighlightHue::Kept)
        hues.emplace(referenceFrame->data(), size.width, size.height,
                     ladder[reference].metadata ? ladder[reference].metadata->fileProfile : nullptr);
}

void DeghostedLadder::make(std::size_t index)
{
    std::shared_ptr<Picture>& image = ladder[index].image;
    const _Size<int> size = referenceFrame->size();
    const std::shared_ptr<Picture> source = image;
    if (source.use_count() > 2) // this and the rung; else it can be changed in place
        image = std::make_shared<Picture>(size, source->colorProfile());
    const auto columns = static_cast<std::size_t>(size.width);
    const RungCurve& ofReference = curves[reference];
    const auto referencePixels = [&](int y, int first, int end, PixelRGB<float>* scratch) {
        const PixelRGB<float>* const pixels =
            referenceFrame->data() + static_cast<std::size_t>(y) * columns + static_cast<std::size_t>(first);
        if (ofReference.isIdentity())
            return pixels;
        ofReference.apply(pixels, scratch, static_cast<std::size_t>(end - first));
        return static_cast<const PixelRGB<float>*>(scratch);
    };
    Deghosting::ReferenceRow hueRow;
    if (hues)
        hueRow = [&](int y, int first, int end, PixelRGB<float>* scratch) {
            const auto pixels = static_cast<std::size_t>(end - first);
            std::copy_n(referenceFrame->row(y) + first, pixels, scratch);
            hues->row(y, first, end, scratch);
            ofReference.apply(scratch, scratch, pixels);
            return static_cast<const PixelRGB<float>*>(scratch);
        };
    forEachRow(size.height, [&](int y) {
        PixelRGB<float>* const row = image->row(y);
        curves[index].apply(source->data() + static_cast<std::size_t>(y) * columns, row, columns);
        if (index != reference)
            deghosting->replaceRow(index, y, row, referencePixels, hueRow);
    });
}

} // namespace orvo
