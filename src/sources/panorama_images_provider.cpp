#include "sources/panorama_images_provider.hpp"

#include "bracket/load_frames.hpp"
#include "frame/image_bridge.hpp"

#include <orvo/lens_correction.hpp>
#include <orvo/raw_development.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_logger/logstream.hpp>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <string>

namespace orvo {
namespace {

struct WhiteBalance
{
    float temperature = 0.0f;
    float tint = 0.0f;
    bool known = false;
};

float exposureOf(const ImageMetadata& metadata)
{
    return std::log2(metadata.isoSpeed / 100.0f) +
           std::log2(metadata.aperture * metadata.aperture / metadata.shutterSeconds) + metadata.exposureOffset;
}

void developForPanorama(std::shared_ptr<_ImageData<PixelRGB<float>>>& image,
                        const std::shared_ptr<const ImageMetadata>& metadata,
                        const std::shared_ptr<AdditionalRawMetadata>& additional, float exposure, bool chromatic)
{
    const RawImageDevelop developer(metadata->temperature, metadata->tint, exposure);
    const float tone = additional ? additional->getAutoDetectedTone() : 0.0f;
    developer.develop(
        image, image, [&image] { return toneThumbnail(*image); }, metadata, tone, 1.0f, {}, false,
        [] { return false; });
    LensCorrectionUnit::applyAndDismissRawCA(image, metadata, additional, chromatic);
}

// Pictures in memory are not raw, and then there is nothing to equalise.
SourceMedians mediansOf(const std::vector<PictureInput>& inputs)
{
    std::vector<std::filesystem::path> files;
    for (const PictureInput& input : inputs) {
        if (input.memory() != nullptr)
            return {};
        files.push_back(input.path());
    }
    return computeSourceMedians(files);
}

} // namespace

SourceMedians computeSourceMedians(const std::vector<std::filesystem::path>& files)
{
    std::vector<float> exposures;
    std::vector<WhiteBalance> balances;
    for (const auto& file : files) {
        const auto metadata = ImageReader::readMetadata(file);
        if (!metadata || !metadata->isRaw)
            return {};
        exposures.push_back(exposureOf(*metadata));
        WhiteBalance balance;
        balance.known = ImageReader::getTemperatureAndTint(balance.temperature, balance.tint, file);
        balances.push_back(balance);
    }
    if (files.empty())
        return {};
    const auto middle = static_cast<std::ptrdiff_t>(files.size() / 2);
    // The two lists are sorted separately: white balance and exposure may come from different files.
    std::nth_element(exposures.begin(), exposures.begin() + middle, exposures.end());
    std::nth_element(balances.begin(), balances.begin() + middle, balances.end(),
                     [](const WhiteBalance& a, const WhiteBalance& b) { return a.temperature < b.temperature; });
    const WhiteBalance& balance = balances[static_cast<std::size_t>(middle)];
    return {exposures[static_cast<std::size_t>(middle)], balance.temperature, balance.tint, balance.known};
}

cv::Mat loadPanoramaFrame(const PictureInput& input, const LensFlags& lensFlags, const SourceMedians& medians)
{
    ImageReadOptions options;
    options.keepsSRGB = true; // the matrix is in sRGB again
    auto frame = loadFrame<FocusStackerFrame>(input, static_cast<int>(ImageReaderOpenFlag::Bracket), {},
                                              lensFlags.autoLensCorrection, options);
    if (!frame.image)
        return {};
    if (hasRawMark(frame)) {
        if (lensFlags.autoLensCorrection)
            frame.image = applyAutoLensCorrection(frame.image, frame.metadata, frame.rawMetadata);
        const auto metadata = frame.metadata->deepCopyDCP();
        if (medians.hasWhiteBalance) {
            metadata->temperature = medians.temperature;
            metadata->tint = medians.tint;
        }
        developForPanorama(frame.image, metadata, frame.rawMetadata, 0.0f, lensFlags.rawChromaticAberration);
    }
    return cvMatThroughWorkingSpace(std::move(frame.image));
}

PanoramaImagesProvider::PanoramaImagesProvider(const PanoSource& source)
    : PanoramaImagesProvider(inputsOf(source.files), source.settings)
{
    reportsOnStandardError = true;
}

PanoramaImagesProvider::PanoramaImagesProvider(std::vector<PictureInput> pictures,
                                               const PanoramaStitchingSettings& settings)
    : PanoramaProvider(settings), inputs(std::move(pictures)), reportsOnStandardError(false)
{
    std::stable_sort(inputs.begin(), inputs.end(),
                     [](const PictureInput& a, const PictureInput& b) { return a.path() < b.path(); });
}

std::vector<cv::Mat> PanoramaImagesProvider::load(std::function<bool()> canceled)
{
    const std::string signature = functionSignature();
    const RunControl run(requiredCancel(std::move(canceled)), progress);
    images.clear();
    images.resize(inputs.size());
    const SourceMedians medians = mediansOf(inputs);
    const float perFile = 1.0f / static_cast<float>(inputs.size());
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        cv::Mat image = loadPanoramaFrame(inputs[i], lensFlags, medians);
        if (image.empty()) {
            if (reportsOnStandardError)
                std::cerr << signature << " Image " << pathText(inputs[i].path()) << " could not be loaded"
                          << std::endl;
            return {};
        }
        images[i] = std::move(image);
        run.report(static_cast<float>(i + 1) * perFile);
        if (run.cancelled())
            return {};
    }
    return images;
}

} // namespace orvo
