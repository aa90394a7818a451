#include "restoration/blur_reduction.hpp"
#include "restoration/noise_reduction.hpp"
#include "restoration/steps.hpp"

#include <orvo/deblur_ai_effect.hpp>
#include <orvo/finishing.hpp>
#include <orvo/restoration.hpp>
#include <orvo_common/part_progress.hpp>
#include <orvo_core/color_transform.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace orvo {
namespace {

using Pixel = PixelRGB<float>;
using Picture = _ImageData<Pixel>;
using details::Step;

// Start of each step as a fraction of the total time.
constexpr double kBlurFrom = 0.5;
constexpr double kContrastFrom = 0.8;
constexpr double kFacesFrom = 0.9;
constexpr float kLeast = -1.0f; // values outside of the range count as broken and stay unchanged
constexpr float kMost = 16.0f;

float limited(float amount) { return amount > 0.0f ? std::min(amount, 1.0f) : 0.0f; } // NaN: 0

bool usable(const Pixel& p)
{
    const auto good = [](float v) { return v > kLeast && v < kMost; };
    return good(p.r) && good(p.g) && good(p.b);
}

template <typename Change>
void changeUsable(Picture& target, const Picture& source, const Picture& judged, const Change& change)
{
    forEachRow(target.height(), [&](int y) {
        for (int x = 0; x < target.width(); ++x)
            target.row(y)[x] = change(source.row(y)[x], usable(judged.row(y)[x]), target.row(y)[x]);
    });
}

Pixel eachChannel(const Pixel& p, float (*curve)(float)) { return {curve(p.r), curve(p.g), curve(p.b)}; }

std::shared_ptr<Picture> restored(const Picture& picture, const RestorationSettings& settings,
                                  const RunControl& control)
{
    if (picture.pixelCount() == 0)
        throw std::invalid_argument("restorePicture: the picture is empty");
    const bool linear = picture.colorProfile() != nullptr && picture.colorProfile()->isLinear();
    auto work = std::make_shared<Picture>(picture.size(), picture.colorProfile());
    changeUsable(*work, picture, picture, [linear](const Pixel& p, bool good, const Pixel&) {
        return !good ? Pixel{} : linear ? eachChannel(p, srgbCurveFromLinear) : p;
    });

    if (const float amount = limited(settings.noise); amount > 0.0f)
        details::reduceNoise(*work, amount, Step(control, 0.0, kBlurFrom));
    if (const float amount = limited(settings.blur); amount > 0.0f)
        details::reduceBlur(*work, amount, Step(control, kBlurFrom, kContrastFrom));
    const Step contrast(control, kContrastFrom, kFacesFrom);
    contrast.goOn(0.0);
    if (const float amount = limited(settings.contrast); amount > 0.0f)
        applyDetails(work->data(), work->width(), work->height(), amount);

    const auto backInPlace = [&](Picture& target) {
        changeUsable(target, picture, picture, [linear](const Pixel& p, bool good, const Pixel& done) {
            return !good ? p : linear ? eachChannel(done, linearFromSRGBCurve) : done;
        });
    };
    contrast.goOn(1.0);
    backInPlace(*work);
    if (const float amount = limited(settings.faces); amount > 0.0f) {
        work = DeblurAIEffect::withDeblurredFaces("restoration", std::move(work), amount, true, true,
                                                  partOf(control, static_cast<float>(kFacesFrom), 1.0f));
        if (!work)
            throw FailureError(cancelledFailure());
    }
    control.report(1.0f);
    return work;
}

} // namespace

std::shared_ptr<Picture> restorePicture(const Picture& picture, const RestorationSettings& settings,
                                        const RunControl& control)
{
    return details::keepingFailure([&] { return restored(picture, settings, control); });
}

} // namespace orvo
