#include "upscaling/crisp_edges.hpp"
#include "upscaling/cubic_rows.hpp"
#include "upscaling/learned_filters.hpp"
#include "upscaling/network_upscaler.hpp"
#include "upscaling/noise_level.hpp"
#include "upscaling/noise_map.hpp"
#include "upscaling/picture_sharpness.hpp"
#include "upscaling/upscale_cache.hpp"

#include <orvo/upscaling.hpp>
#include <orvo_common/part_progress.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_image_processing/guided_filter.hpp>
#include <orvo_io/settings.hpp>
#include <orvo_logger/logstream.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <limits>
#include <optional>
#include <system_error>

namespace orvo {

UpscaleAISettings::UpscaleAISettings() = default;

namespace {

using Picture = _ImageData<PixelRGB<float>>;

constexpr int kMostDenoise = 3;
constexpr int kBuiltInScale = 2;
constexpr int kUsualOverlap = 16;

// Smoothing before enlarging. Where there is only noise of variance v, a guided filter leaves the part v / (v + eps) of
// each value's distance to the mean, so eps is the measured variance times 1, 4 and 9.
constexpr float kSmoothingRadius = 4.0f;
constexpr std::array<float, kMostDenoise + 1> kSmoothing = {0.0f, 1.0f, 4.0f, 9.0f};
constexpr float kLeastNoise = 1.0f / 255.0f; // requested smoothing affects any picture

[[noreturn]] void refuse(FailureKind kind, const std::string& sentence) { throw FailureError({kind, {}, sentence}); }

std::string text(_Size<int> size) { return std::to_string(size.width) + " x " + std::to_string(size.height); }

void checkSettings(const UpscaleAISettings& settings)
{
    if (settings.passes < 1 || settings.passes > kMostUpscalePasses)
        refuse(FailureKind::Internal, "UpscaleAISettings.passes is " + std::to_string(settings.passes) +
                                          ", expected 1 to " + std::to_string(kMostUpscalePasses));
    if (settings.denoise < 0 || settings.denoise > kMostDenoise)
        refuse(FailureKind::Internal, "UpscaleAISettings.denoise is " + std::to_string(settings.denoise) +
                                          ", expected 0 to " + std::to_string(kMostDenoise));
}

void check(const Picture* image, const UpscaleAISettings& settings, const _ImageData<float>* mask)
{
    if (image == nullptr || image->pixelCount() == 0)
        refuse(FailureKind::Internal, "expected a picture, found none");
    checkSettings(settings);
    if (mask != nullptr && mask->size() != image->size())
        refuse(FailureKind::UnfittingPictures,
               "expected a mask of " + text(image->size()) + ", found one of " + text(mask->size()));
}

// The total factor for the sides; refuses results that are too large.
int totalScale(_Size<int> size, int passes, int scale)
{
    constexpr std::int64_t kMillion = 1'000'000;
    std::int64_t total = 1;
    for (int i = 0; i < passes; ++i)
        total *= scale;
    const std::int64_t width = size.width * total;
    const std::int64_t height = size.height * total;
    if (width > kMostUpscaledPixels / height || std::max(width, height) > std::numeric_limits<int>::max()) {
        // Rounded up, so that the text never shows an allowed number. The product of the sides could overflow.
        const double millions = std::ceil(static_cast<double>(width) * static_cast<double>(height) / kMillion);
        refuse(FailureKind::UnfittingPictures,
               std::to_string(size.width) + " x " + std::to_string(size.height) + " pixels enlarged " +
                   std::to_string(total) + " times would be " + std::to_string(width) + " x " + std::to_string(height) +
                   ", " + std::to_string(static_cast<std::int64_t>(millions)) + " million pixels, but at most " +
                   std::to_string(kMostUpscaledPixels / kMillion) + " million can be made; " +
                   (passes > 1 ? "take fewer passes or " : "take ") + "a smaller picture");
    }
    return static_cast<int>(total);
}

// The network that the settings store names.
struct ConfiguredNetwork
{
    std::filesystem::path model;
    std::optional<int> scale;
    int overlap = kUsualOverlap;

    static std::optional<ConfiguredNetwork> find()
    {
        constexpr int kUnset = std::numeric_limits<int>::min();
        ConfiguredNetwork network;
        network.model = orvosettings().get<std::string>("Upscale.model", {});
        if (network.model.empty())
            return std::nullopt;
        const int scale = orvosettings().get<int>("Upscale.scale", kUnset);
        if (scale != kUnset)
            network.scale = scale;
        network.overlap = orvosettings().get<int>("Upscale.overlap", kUsualOverlap);
        return network;
    }

    // The scale is set, and not to one that loading would refuse.
    [[nodiscard]] bool hasUsableScale() const { return scale && *scale >= 1 && *scale <= kMostUpscaleScale; }

    [[nodiscard]] std::unique_ptr<details::NetworkUpscaler> load() const
    {
        return std::make_unique<details::NetworkUpscaler>(model, scale, overlap);
    }

    // A changed file counts as another network.
    [[nodiscard]] std::string name() const
    {
        std::error_code error;
        const auto size = std::filesystem::file_size(model, error);
        const auto time = std::filesystem::last_write_time(model, error).time_since_epoch().count();
        return pathText(model) + '|' + std::to_string(size) + '|' + std::to_string(time) + '|' +
               std::to_string(scale.value_or(0)) + '|' + std::to_string(overlap);
    }
};

std::string cacheName(const mlCacheInfo& info, const UpscaleAISettings& settings,
                      const std::optional<ConfiguredNetwork>& network)
{
    return info.key + '|' + text(info.size) + '|' + std::to_string(settings.passes) + '|' +
           std::to_string(settings.denoise) + '|' + std::to_string(settings.crisp) + '|' +
           (network ? network->name() : "built in");
}

std::shared_ptr<Picture> smoothed(const Picture& image, int denoise, float measured)
{
    const float noise = std::max(measured, kLeastNoise);
    auto result = std::make_shared<Picture>(image.size(), image.colorProfile());
    grfx_guided_filter_rgb_fast(image.data(), result->data(), image.width(), image.height(), kSmoothingRadius,
                                kSmoothing[static_cast<std::size_t>(denoise)] * noise * noise);
    return result;
}

// What the built-in filters are selected by.
struct Quality
{
    float noise = 0.0f;
    float sharpness = 0.0f;
};

// One pass; empty on cancel.
std::shared_ptr<Picture> enlarged(const Picture& source, const Quality& quality, details::NetworkUpscaler* network,
                                  const RunControl& run)
{
    const int scale = network != nullptr ? network->scale() : kBuiltInScale;
    auto target =
        std::make_shared<Picture>(_Size<int>(source.width() * scale, source.height() * scale), source.colorProfile());
    if (network != nullptr)
        return network->enlarge(source, *target, run) ? target : nullptr;
    const auto& bank = details::FilterBanks::builtIn().forNoise(quality.noise);
    return details::doubleByFilters(source, bank, quality.sharpness, *target, run) ? target : nullptr;
}

// Steepens the edges of `result`, `total` times the size of `image` and made of `smooth`, which is the same picture or
// a smoothed one. Pure noise ends up no stronger than Catmull-Rom leaves it. False on cancel.
bool crispened(const Picture& image, const Picture& smooth, int total, Picture& result, const RunControl& run)
{
    details::NoiseMap noise(image);
    noise.measure(result, total);
    if (const auto mask = noise.calmingMask())
        if (!details::blendWithCubic(smooth, *mask, total, result, run))
            return false;
    return details::steepenEdges(result, noise, run);
}

// How the time divides into passes and what follows them: by the pixels that each makes.
class WorkShares
{
public:
    WorkShares(const UpscaleAISettings& settings, int scale)
        : area(static_cast<float>(scale) * static_cast<float>(scale)),
          all(made(settings.passes) + (settings.crisp ? kCrispWork * made(settings.passes) : 0.0f))
    {}

    // The share that is done before pass `pass`, from 0.
    [[nodiscard]] float until(int pass) const { return made(pass) / all; }

private:
    // Steepening edges, in times of making the same pixels with the filters; measured.
    static constexpr float kCrispWork = 0.5f;

    // Pixels that so many passes make, in those of the first picture.
    [[nodiscard]] float made(int passes) const
    {
        float pixels = 0.0f;
        for (float size = area; passes > 0; --passes, size *= area)
            pixels += size;
        return pixels;
    }

    float area;
    float all;
};

std::shared_ptr<Picture> upscaled(const std::shared_ptr<const Picture>& image, const UpscaleAISettings& settings,
                                  const _ImageData<float>* mask, const RunControl& run,
                                  const std::optional<ConfiguredNetwork>& configured)
{
    std::unique_ptr<details::NetworkUpscaler> network;
    if (configured)
        network = configured->load();
    const int total = totalScale(image->size(), settings.passes, network ? network->scale() : kBuiltInScale);
    std::shared_ptr<const Picture> source = image;
    if (run.cancelled())
        return nullptr;
    // Measured before smoothing: the remaining noise is not white, and must not count as detail.
    Quality quality;
    quality.noise = details::noiseLevel(*image);
    if (!network)
        quality.sharpness =
            details::pictureSharpness(*image, quality.noise, details::FilterBanks::builtIn().sharpnessModel());
    if (settings.denoise > 0)
        source = smoothed(*image, settings.denoise, quality.noise);
    std::shared_ptr<const Picture> smooth = settings.crisp ? source : nullptr; // needed once more at the end
    std::shared_ptr<Picture> result;
    const WorkShares work(settings, network ? network->scale() : kBuiltInScale);
    for (int pass = 0; pass < settings.passes; ++pass) {
        result = enlarged(*source, quality, network.get(), partOf(run, work.until(pass), work.until(pass + 1)));
        if (!result)
            return nullptr;
        source = result;
        quality = {}; // the enlarged picture is smooth
    }
    source.reset();
    network.reset();
    if (settings.crisp && !crispened(*image, *smooth, total, *result, partOf(run, work.until(settings.passes), 1.0f)))
        return nullptr;
    smooth.reset();
    if (mask != nullptr && !details::blendWithCubic(*image, *mask, total, *result, run))
        return nullptr;
    return run.cancelled() ? nullptr : result;
}

// The result of `body` as an exported call, or `nothing` after a log line if it refuses.
template <typename Result, typename Body>
Result orRefusal(Result nothing, const Body& body)
{
    return details::keepingFailure([&] {
        try {
            return body();
        } catch (const FailureError& error) {
            const bool isOfNetwork = !error.failure().file.empty();
            details::logErrorMessage((isOfNetwork ? "upscaling network " : "Upscaling: ") + describe(error.failure()));
            details::stateFailure(error.failure());
        }
        return nothing;
    });
}

} // namespace

_Size<int> upscaledSize(_Size<int> size, const UpscaleAISettings& settings)
{
    return orRefusal(_Size<int>(), [&] {
        checkSettings(settings);
        if (size.width < 1 || size.height < 1)
            refuse(FailureKind::Internal, "expected a picture, found none");
        int scale = kBuiltInScale;
        if (const auto network = settings.builtIn ? std::nullopt : ConfiguredNetwork::find())
            scale = network->hasUsableScale() ? *network->scale : network->load()->scale();
        const int total = totalScale(size, settings.passes, scale);
        return _Size<int>(size.width * total, size.height * total);
    });
}

std::shared_ptr<Picture> upscaleX(const std::shared_ptr<const Picture>& image, const UpscaleAISettings& settings,
                                  const std::shared_ptr<const _ImageData<float>>& mask, const std::atomic<bool>* cancel,
                                  const mlCacheInfo& cacheInfo)
{
    return upscaleX(image, settings, mask, RunControl(cancel), cacheInfo);
}

std::shared_ptr<Picture> upscaleX(const std::shared_ptr<const Picture>& image, const UpscaleAISettings& settings,
                                  const std::shared_ptr<const _ImageData<float>>& mask, const RunControl& run,
                                  const mlCacheInfo& cacheInfo)
{
    return orRefusal(std::shared_ptr<Picture>(), [&] {
        check(image.get(), settings, mask.get());
        const auto network = settings.builtIn ? std::nullopt : ConfiguredNetwork::find();
        const bool keep = !cacheInfo.key.empty() && cacheInfo.size == image->size() && !mask;
        const std::string name = keep ? cacheName(cacheInfo, settings, network) : std::string();
        if (keep && !run.cancelled())
            if (auto kept = details::UpscaleCache::instance().find(name))
                return kept;
        auto result = upscaled(image, settings, mask.get(), run, network);
        if (run.wasCancelled())
            details::stateFailure(cancelledFailure());
        if (keep && result)
            details::UpscaleCache::instance().keep(name, *result);
        return result;
    });
}

void clearUpscaleCache() { details::UpscaleCache::instance().clear(); }

} // namespace orvo
