#include "bracket/align_frames.hpp"
#include "bracket/camera_response.hpp"
#include "bracket/frames.hpp"
#include "frame/call_frame.hpp"
#include "frame/performed.hpp"

#include <orvo_common/part_progress.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_extensions/radiance.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/picture_file.hpp>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>

namespace orvo {
namespace {

// Shares of the time of a handheld bracket of JPEGs.
constexpr float kLoaded = 0.3f;
constexpr float kAligned = 0.8f;
constexpr float kResponse = 0.85f;

// The weight of a pixel fades between these shares of full scale, by its brightest channel: steps of the weight would
// show as edges, and the response is least certain there.
constexpr float kFades = 0.9f;
constexpr float kClipped = 0.98f;

// Variances of light in units of full scale. A sensor of 40000 electrons at ISO 100 with a read noise of 4: the order
// of magnitude is right for any camera, and weights need no more.
constexpr float kPhotonVariance = 1.0f / 40000.0f; // of full scale at ISO 100
constexpr float kReadVariance = (4.0f / 40000.0f) * (4.0f / 40000.0f);
constexpr float kCodeDeviation = 0.6f / 255.0f; // of a value of 8 bits: its step, and compression
constexpr float kUsualIso = 100.0f;

[[noreturn]] void refuse(const std::filesystem::path& file, const std::string& sentence)
{
    throw FailureError({FailureKind::UnfittingPictures, file, sentence});
}

// What the merge needs of a frame besides its pixels.
struct Exposure
{
    double factor = 1.0; // of light, 1 for the middle frame
    float gain = 1.0f;   // of the sensor: ISO / 100
    float code = 0.0f;   // deviation of a value
};

std::vector<HDRFrame> loaded(const std::vector<PictureInput>& inputs, const RunControl& run)
{
    std::vector<HDRFrame> frames;
    const ImageReadOptions options{.profile = ColorProfileType::sRGB()};
    for (const PictureInput& input : inputs) {
        const std::filesystem::path& path = input.path();
        run.throwIfCancelled();
        const auto image = ImageReader::instance().open({path, {}, input.memory()}, options,
                                                        ImageReaderOpenFlag::Bracket, nullptr, {}, -1);
        if (!image) {
            details::stateLastFailure({FailureKind::UnreadableFile, path, "the picture cannot be read"});
            return {};
        }
        HDRFrame frame;
        frame.path = path;
        frame.image = image->imageData({}, {}, true);
        frame.metadata = image->metadata();
        if (!frames.empty() && frame.image->size() != frames.front().image->size())
            refuse(path, "this frame has " + std::to_string(frame.image->width()) + " x " +
                             std::to_string(frame.image->height()) + " pixels, the first one " +
                             std::to_string(frames.front().image->width()) + " x " +
                             std::to_string(frames.front().image->height()));
        if (!frames.empty() && hasRawMark(frame) != hasRawMark(frames.front()))
            refuse(path, "raw files and others cannot be merged: their light has no common scale");
        frames.push_back(std::move(frame));
        run.report(kLoaded * static_cast<float>(frames.size()) / static_cast<float>(inputs.size()));
    }
    return frames;
}

std::vector<float> exposuresOf(const std::vector<HDRFrame>& frames, const RadianceSettings& settings)
{
    if (!settings.evs.empty()) {
        if (settings.evs.size() != frames.size())
            throw FailureError({FailureKind::Internal,
                                {},
                                "RadianceSettings.evs has " + std::to_string(settings.evs.size()) + " entries for " +
                                    std::to_string(frames.size()) + " files"});
        return settings.evs;
    }
    std::vector<float> evs;
    for (const HDRFrame& frame : frames) {
        const auto ev = statedExposure(*frame.metadata);
        if (!ev)
            refuse(frame.path, "the file does not state its exposure time, and no EVs were given");
        evs.push_back(*ev);
    }
    return evs;
}

bool isLinear(const HDRFrame& frame)
{
    return hasRawMark(frame) || (frame.metadata->fileProfile && frame.metadata->fileProfile->isLinear());
}

// The reader has encoded the samples of linear files other than raw with the curve of sRGB.
CameraResponse responseOf(const std::vector<HDRFrame>& frames, const std::vector<double>& exposures)
{
    if (hasRawMark(frames.front()))
        return CameraResponse::linear();
    return isLinear(frames.front()) ? CameraResponse::sRGB() : CameraResponse::estimatedFrom(frames, exposures);
}

// The value at which a frame is saturated.
float limitOf(const HDRFrame& frame)
{
    return hasRawMark(frame) ? std::clamp(frame.metadata->linearResponseLimit, 0.5f, 1.0f) : 1.0f;
}

float brightest(const PixelRGB<float>& pixel) { return std::max(pixel.r, std::max(pixel.g, pixel.b)); }

// 1 for values that count fully, 0 for saturated ones, smooth between.
float fadeOf(float share)
{
    const float t = std::clamp((kClipped - share) / (kClipped - kFades), 0.0f, 1.0f);
    return t * t * (3.0f - 2.0f * t);
}

// The frames of a bracket as seen by the merge, from the darkest to the brightest.
class Merge
{
public:
    Merge(const std::vector<HDRFrame>& frames_, const std::vector<Exposure>& exposures_,
          const CameraResponse& response_)
        : frames(frames_), exposures(exposures_), response(response_)
    {
        for (const HDRFrame& frame : frames)
            limits.push_back(limitOf(frame));
    }

    // Returns how many pixels of the row are saturated in all frames.
    std::int64_t row(int y, PixelRGB<float>* to) const
    {
        std::int64_t clipped = 0;
        std::vector<float> fades(frames.size());
        const int width = frames.front().image->width();
        for (int x = 0; x < width; ++x) {
            float sum = 0.0f;
            for (std::size_t i = 0; i < frames.size(); ++i)
                sum += fades[i] = fadeOf(brightest(frames[i].image->row(y)[x]) / limits[i]);
            if (!(sum > 0.0f)) {
                ++clipped;
                fades.front() = 1.0f; // the darkest frame gives a lower bound
            }
            to[x] = {channel(0, x, y, fades), channel(1, x, y, fades), channel(2, x, y, fades)};
        }
        return clipped;
    }

private:
    [[nodiscard]] float valueAt(std::size_t frame, int x, int y, int c) const
    {
        const PixelRGB<float>& pixel = frames[frame].image->row(y)[x];
        return c == 0 ? pixel.r : c == 1 ? pixel.g : pixel.b;
    }

    // Linear values of raw files may exceed 1 in channels that white balance raises.
    [[nodiscard]] float lightOf(float value, int c) const
    {
        return value > 1.0f ? response.light(c, 1.0f) * value : response.light(c, value);
    }

    [[nodiscard]] float channel(int c, int x, int y, const std::vector<float>& fades) const
    {
        // The weights depend on the light, so a mean by exposures, which is right for photon noise, comes first.
        double light = 0.0;
        double exposure = 0.0;
        for (std::size_t i = 0; i < frames.size(); ++i) {
            const auto fade = static_cast<double>(fades[i]);
            light += fade * static_cast<double>(lightOf(valueAt(i, x, y, c), c));
            exposure += fade * exposures[i].factor;
        }
        const double first = std::max(0.0, light / exposure);
        double sum = 0.0;
        double weights = 0.0;
        for (std::size_t i = 0; i < frames.size(); ++i) {
            if (fades[i] == 0.0f)
                continue;
            const Exposure& shot = exposures[i];
            const float value = valueAt(i, x, y, c);
            const auto expected = static_cast<float>(first * shot.factor);
            const float step = shot.code * response.slope(c, value);
            const float variance =
                kReadVariance * shot.gain * shot.gain + kPhotonVariance * shot.gain * expected + step * step;
            const double weight =
                static_cast<double>(fades[i]) * shot.factor * shot.factor / static_cast<double>(variance);
            sum += weight * static_cast<double>(lightOf(value, c)) / shot.factor;
            weights += weight;
        }
        return static_cast<float>(std::max(0.0, sum / weights));
    }

    const std::vector<HDRFrame>& frames;
    const std::vector<Exposure>& exposures;
    const CameraResponse& response;
    std::vector<float> limits;
};

// ISO 12232:2019: a sensor is saturated by 78 / ISO lux seconds, and receives 0.65 L t / N^2 of a luminance L.
float whiteLuminanceOf(const ImageMetadata& metadata)
{
    constexpr float kSaturation = 78.0f / 0.65f;
    return metadata.hasExposure()
               ? kSaturation * metadata.aperture * metadata.aperture / (metadata.shutterSeconds * metadata.isoSpeed)
               : 0.0f;
}

int sampleBitsOf(const PictureInput& input)
{
    if (input.memory() == nullptr)
        return orvo::sampleBitsOf(input.path());
    switch (input.memory()->samples) {
    case MemoryPicture::Samples::UInt8:
        return 8;
    case MemoryPicture::Samples::UInt16:
        return 16;
    case MemoryPicture::Samples::Float32:
        break;
    }
    return 32;
}

RadianceMap merged(const std::vector<PictureInput>& inputs, const RadianceSettings& settings, const RunControl& run)
{
    if (inputs.empty())
        throw FailureError({FailureKind::Internal, {}, "no picture files were given"});
    std::vector<HDRFrame> frames = loaded(inputs, run);
    if (frames.empty())
        return {};
    RadianceMap map;
    map.evs = exposuresOf(frames, settings);
    std::vector<std::size_t> order(frames.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return map.evs[a] < map.evs[b]; });
    const std::size_t middle = order.size() / 2;
    const float base = map.evs[order[middle]];
    for (float& ev : map.evs)
        ev -= base;
    if (frames.size() > 1 && map.evs[order.front()] == map.evs[order.back()])
        refuse(frames[order.front()].path, "all frames have the same exposure, so there is nothing to merge");

    std::vector<HDRFrame> sorted;
    std::vector<Exposure> exposures;
    for (const std::size_t index : order) {
        HDRFrame& frame = frames[index];
        frame.ev = map.evs[index];
        const bool isCoarse = !isLinear(frame) && sampleBitsOf(inputs[index]) <= 8;
        exposures.push_back({std::exp2(static_cast<double>(frame.ev)),
                             frame.metadata->isoSpeed > 0.0f ? frame.metadata->isoSpeed / kUsualIso : 1.0f,
                             isCoarse ? kCodeDeviation : 0.0f});
        sorted.push_back(std::move(frame));
    }
    if (settings.alignment && sorted.size() > 1)
        alignFrames(sorted, static_cast<int>(middle), true, settings.alignmentQuality, run);
    run.throwIfCancelled();
    run.report(kAligned);
    std::vector<double> factors;
    for (const Exposure& exposure : exposures)
        factors.push_back(exposure.factor);
    const CameraResponse response = responseOf(sorted, factors);
    run.report(kResponse);
    run.throwIfCancelled();

    const bool isRaw = hasRawMark(sorted[middle]);
    const _Size<int> size = sorted[middle].image->size();
    auto picture = std::make_shared<_ImageData<PixelRGB<float>>>(size, isRaw ? ColorProfileType::linearMelissaRGB()
                                                                             : ColorProfileType::linearSRGB());
    const Merge merge(sorted, exposures, response);
    std::vector<std::int64_t> clipped(static_cast<std::size_t>(size.height));
    const RunControl drawing = partOf(run, kResponse, 1.0f);
    LoopProgress progress(drawing, size.height);
    forEachRow(size.height, [&](int y) {
        clipped[static_cast<std::size_t>(y)] = merge.row(y, picture->row(y));
        progress.pieceDone();
    });
    run.throwIfCancelled();
    map.clipped = static_cast<double>(std::accumulate(clipped.begin(), clipped.end(), std::int64_t{0})) /
                  static_cast<double>(picture->pixelCount());
    auto metadata = std::make_shared<ImageMetadata>(*sorted[middle].metadata);
    map.whiteLuminance = whiteLuminanceOf(*metadata);
    metadata->size = size;
    metadata->isRaw = false;
    metadata->isFinished = true;
    map.image = CreateOrvoImage(picture, metadata);
    return map;
}

} // namespace

std::optional<float> statedExposure(const ImageMetadata& metadata)
{
    if (!(metadata.shutterSeconds > 0.0f))
        return std::nullopt;
    const float iso = metadata.isoSpeed > 0.0f ? metadata.isoSpeed / kUsualIso : 1.0f;
    const float aperture = metadata.aperture > 0.0f ? metadata.aperture : 1.0f;
    return std::log2(metadata.shutterSeconds * iso / (aperture * aperture));
}

RadianceMap mergeRadiance(const std::vector<std::filesystem::path>& paths, const RadianceSettings& settings,
                          const std::function<bool()>& cancel, const std::function<void(float)>& progress)
{
    const RunControl run([&cancel] { return cancel && cancel(); },
                         [&progress](float share) {
                             if (progress)
                                 progress(share);
                         });
    return runInCallFrame("mergeRadiance", run, [&] { return merged(inputsOf(paths), settings, run); });
}

RadianceResult perform(const RadianceRequest& request)
{
    return details::performed<RadianceResult>("mergeRadiance", request,
                                              [&](const RunControl& run, RadianceResult& result) {
                                                  RadianceMap map = merged(request.pictures, request.settings, run);
                                                  result.image = std::move(map.image);
                                                  result.whiteLuminance = map.whiteLuminance;
                                                  result.evs = std::move(map.evs);
                                                  result.clipped = map.clipped;
                                              });
}

} // namespace orvo
