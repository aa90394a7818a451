#include "bracket/load_frames.hpp"

#include <orvo/lens_correction.hpp>
#include <orvo/raw_development.hpp>
#include <orvo_common/run_control.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_logger/logstream.hpp>

#include <algorithm>

namespace orvo {
namespace {

template <typename Frame>
std::vector<Frame> loadInOrder(const std::vector<PictureInput>& inputs, int flags, bool lensCorrection,
                               const RunControl& run)
{
    std::vector<Frame> frames;
    for (const PictureInput& input : inputs) {
        if (run.cancelled())
            return {};
        Frame frame = loadFrame<Frame>(input, flags, {}, lensCorrection);
        if (frame.image)
            frames.push_back(std::move(frame));
    }
    return frames;
}

template <typename Frame>
std::vector<Frame> loadInParallel(const std::vector<PictureInput>& inputs, int flags, bool lensCorrection,
                                  const RunControl& run)
{
    std::vector<Frame> frames(inputs.size());
    const auto loadOne = [&](std::size_t i) {
        if (run.cancelled())
            return;
        Frame frame = loadFrame<Frame>(inputs[i], flags, {}, lensCorrection);
        if (frame.image)
            frames[i] = std::move(frame);
    };
    forEachItem(inputs.size(), loadOne);
    if (run.cancelled())
        return {};
    return frames;
}

template <typename Frame>
std::vector<Frame> loadAll(const std::vector<PictureInput>& inputs, ImageReaderOpenFlag flags, bool sequential,
                           bool lensCorrection, int referenceIndex, const RunControl& run)
{
    const int flagBits = static_cast<int>(flags);
    std::vector<Frame> frames = sequential ? loadInOrder<Frame>(inputs, flagBits, lensCorrection, run)
                                           : loadInParallel<Frame>(inputs, flagBits, lensCorrection, run);
    if (run.wasCancelled())
        details::stateFailure(cancelledFailure());
    // The index counts inputs; if files dropped out of a raw series it may exceed the number of frames.
    const bool isInput = referenceIndex >= 0 && static_cast<std::size_t>(referenceIndex) < inputs.size();
    if (isInput && static_cast<std::size_t>(referenceIndex) < frames.size())
        frames[static_cast<std::size_t>(referenceIndex)].isGhostReference = true;
    return frames;
}

} // namespace

template <typename Frame>
Frame loadFrame(const PictureInput& input, int flags, _Size<int> size, bool lensCorrection,
                const ImageReadOptions& options)
{
    const auto& path = input.path();
    const auto image = ImageReader::instance().open(
        {path, {}, input.memory()}, options, static_cast<ImageReaderOpenFlag>(flags), nullptr, std::string(), -1);
    if (!image) {
        LOG(__orvolog() << LogMessageType::Warning << "Can't open image at path: " << wideFromPath(path));
        details::stateLastFailure({FailureKind::UnreadableFile, path, "the picture cannot be read"});
        return {};
    }
    Frame frame;
    frame.image = image->imageData(size, {}, true);
    frame.metadata = image->metadata();
    frame.rawMetadata = image->getAdditionalRawMetadata();
    if (lensCorrection && frame.rawMetadata)
        frame.rawMetadata->prepareLensCorrection();
    frame.path = path;
    return frame;
}

template HDRFrame loadFrame(const PictureInput&, int, _Size<int>, bool, const ImageReadOptions&);
template FocusStackerFrame loadFrame(const PictureInput&, int, _Size<int>, bool, const ImageReadOptions&);

std::vector<HDRFrame> loadInputs(const std::vector<PictureInput>& inputs, const HDRSettings& settings,
                                 ImageReaderOpenFlag flags, bool sequential, const RunControl& run)
{
    return loadAll<HDRFrame>(inputs, flags, sequential, settings.lensCorrection, settings.ghostRefImageIdx, run);
}

std::vector<HDRFrame> loadFrames(const std::vector<std::filesystem::path>& paths, const HDRSettings& settings,
                                 ImageReaderOpenFlag flags, bool sequential)
{
    return loadInputs(inputsOf(paths), settings, flags, sequential, RunControl([&] { return settings.canceled(); }));
}

std::vector<FocusStackerFrame> loadFrames(const std::vector<std::filesystem::path>& paths,
                                          const BracketSettings::FocusStacking& settings, ImageReaderOpenFlag flags,
                                          bool sequential)
{
    return loadAll<FocusStackerFrame>(inputsOf(paths), flags, sequential, settings.rawAutoCorrection.lensCorrection,
                                      settings.ghostReduction.referenceIndex, RunControl());
}

bool areAllRaw(const std::vector<std::filesystem::path>& paths)
{
    return std::all_of(paths.begin(), paths.end(), [](const auto& path) { return isRawImageFile(path); });
}

bool areAllRawFiles(const std::vector<PictureInput>& inputs)
{
    return std::all_of(inputs.begin(), inputs.end(), [](const PictureInput& input) {
        return input.memory() == nullptr && isRawImageFile(input.path());
    });
}

void develop(std::shared_ptr<_ImageData<PixelRGB<float>>>& image, const std::shared_ptr<const ImageMetadata>& metadata,
             const std::shared_ptr<AdditionalRawMetadata>& rawMetadata, bool chromatic)
{
    const RawImageDevelop developer;
    developer.develop(
        image, image, [&image] { return toneThumbnail(*image); }, metadata, rawMetadata->getAutoDetectedTone(), 1.0f,
        {}, false, [] { return false; });
    LensCorrectionUnit::applyAndDismissRawCA(image, metadata, rawMetadata, chromatic);
}

} // namespace orvo
