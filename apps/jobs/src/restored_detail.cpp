#include "restored_detail.hpp"

#include <orvo/answers.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>

namespace orvo::jobs {
namespace {

using Picture = _ImageData<PixelRGB<float>>;

// `target` plus `sign` times `other`, sample by sample.
void add(Picture& target, const Picture& other, float sign)
{
    forEachRow(target.height(), [&](int y) {
        PixelRGB<float>* const row = target.row(y);
        const PixelRGB<float>* const from = other.row(y);
        for (int x = 0; x < target.width(); ++x) {
            row[x].r += sign * from[x].r;
            row[x].g += sign * from[x].g;
            row[x].b += sign * from[x].b;
        }
    });
}

RestoredPicture inProfile(const Picture& picture, _Size<int> size, const std::shared_ptr<ColorProfile>& profile)
{
    auto sized = picture.resize(size, {}, true);
    sized->convertTo(profile);
    return sized;
}

} // namespace

RestoredPicture answerInColours(const Picture& answer, const Picture& sent, const Picture& picture)
{
    const bool fits = answer.width() <= picture.width() && answer.height() <= picture.height();
    const _Size<int> size = fits ? answer.size() : picture.size();
    auto result = picture.resize(size, {}, true);
    add(*result, *inProfile(answer, size, picture.colorProfile()), 1.0f);
    add(*result, *inProfile(sent, size, picture.colorProfile()), -1.0f);
    return result;
}

RestoredPicture withFineDetail(RestoredPicture answer, RestoredPicture quiet)
{
    const _Size<int> size = quiet->size();
    auto shown = quiet->resize(answer->size(), {}, true);
    upscaleToInitialSize(shown, size, {}); // both ways alike, so that what the upscaler adds to both cancels
    add(*quiet, *shown, -1.0f);
    shown.reset();
    upscaleToInitialSize(answer, size, {});
    add(*quiet, *answer, 1.0f);
    return quiet;
}

} // namespace orvo::jobs
