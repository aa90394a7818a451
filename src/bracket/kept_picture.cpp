#include "bracket/kept_picture.hpp"

#include <orvo_core/color_profile.hpp>
#include <orvo_core/color_transform.hpp>
#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <atomic>
#include <limits>
#include <utility>

namespace orvo {
namespace {

// As the reader turns samples into floats.
template <typename Step>
constexpr float kStep = static_cast<float>(1.0 / std::numeric_limits<Step>::max());

template <typename Step>
struct StepLoop
{
    const float* samples;
    Step* steps;
    std::size_t count;
    int& wrong; // above 0 if a sample is no step

    ORVO_INLINE void operator()() const
    {
        constexpr float kFull = std::numeric_limits<Step>::max();
        const float* const from = samples;
        Step* const to = steps;
        const std::size_t length = count;
        int missed = 0;
        for (std::size_t i = 0; i < length; ++i) {
            const float positive = from[i] > 0.0f ? from[i] : 0.0f;
            const float v = positive < 1.0f ? positive : 1.0f;
            const auto step = static_cast<std::int32_t>(v * kFull + 0.5f);
            missed |= static_cast<float>(step) * kStep<Step> == from[i] ? 0 : 1;
            to[i] = static_cast<Step>(step);
        }
        wrong = missed;
    }
};

// False if a sample is no step, in which case `steps` is of no use.
template <typename Step>
bool toSteps(const float* samples, std::size_t count, Step* steps)
{
    std::atomic<bool> fits = true;
    forEachRange(count, [&](std::size_t first, std::size_t last) {
        if (!fits.load(std::memory_order_relaxed))
            return;
        int wrong = 0;
        runLoop(StepLoop<Step>{samples + first, steps + first, last - first, wrong});
        if (wrong != 0)
            fits.store(false, std::memory_order_relaxed);
    });
    return fits.load();
}

bool isGray(const _ImageData<PixelRGB<float>>& picture)
{
    const PixelRGB<float>* const pixels = picture.data();
    return std::all_of(pixels, pixels + picture.pixelCount(),
                       [](const PixelRGB<float>& p) { return p.r == p.g && p.g == p.b; });
}

} // namespace

KeptPicture::KeptPicture(const Picture& picture, std::variant<Bytes, Words> steps)
    : size(picture.size()), profile(picture.colorProfile()), samples(std::move(steps))
{}

std::unique_ptr<KeptPicture> KeptPicture::of(const Picture& picture)
{
    if (isGray(picture))
        return nullptr;
    const std::size_t count = 3 * picture.pixelCount();
    const float* const values = &picture.data()->r;
    if (Bytes bytes(count); toSteps(values, count, bytes.data()))
        return std::unique_ptr<KeptPicture>(new KeptPicture(picture, std::move(bytes)));
    if (Words words(count); toSteps(values, count, words.data()))
        return std::unique_ptr<KeptPicture>(new KeptPicture(picture, std::move(words)));
    return nullptr;
}

std::shared_ptr<KeptPicture::Picture> KeptPicture::inWorkingSpace() const
{
    if (const auto* const bytes = std::get_if<Bytes>(&samples)) {
        auto picture = std::make_shared<Picture>(size, ColorProfileType::melissaRGB());
        const RowConverter converter(profile, 3, picture->colorProfile());
        forEachRow(size.height, [&](int y) {
            const std::size_t row = static_cast<std::size_t>(y) * static_cast<std::size_t>(size.width);
            converter.convert(bytes->data() + 3 * row, picture->row(y), size.width);
        });
        return picture;
    }
    const Words& words = std::get<Words>(samples);
    auto picture = std::make_shared<Picture>(size, profile);
    float* const values = &picture->data()->r;
    forEachRange(3 * picture->pixelCount(), [&](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i < last; ++i)
            values[i] = static_cast<float>(words.data()[i]) * kStep<std::uint16_t>;
    });
    picture->convertTo(ColorProfileType::melissaRGB());
    return picture;
}

} // namespace orvo
