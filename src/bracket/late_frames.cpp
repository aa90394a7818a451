#include "bracket/late_frames.hpp"

#include "bracket/align_frames.hpp"
#include "bracket/load_frames.hpp"

#include <orvo/bracket_exposure.hpp>
#include <orvo/lens_correction.hpp>
#include <orvo_common/failure.hpp>
#include <orvo_io/image_reader.hpp>

#include <utility>

namespace orvo {
namespace {

HDRFrame readFrame(const PictureInput& input, bool lensCorrection)
{
    return loadFrame<HDRFrame>(input, static_cast<int>(ImageReaderOpenFlag::Bracket), {}, lensCorrection);
}

std::shared_ptr<const ImageMetadata> metadataOf(const PictureInput& input)
{
    details::Statements said;
    std::shared_ptr<const ImageMetadata> metadata;
    {
        details::StatementScope scope;
        const MemoryPicture* const memory = input.memory();
        metadata = memory != nullptr ? ImageReader::readMetadata(*memory) : ImageReader::readMetadata(input.path());
        if (metadata && !metadata->hasExposure()) // measured on a reduced picture, which gives other last digits
            metadata = readFrame(input, false).metadata;
        if (!metadata)
            details::stateLastFailure({FailureKind::UnreadableFile, input.path(), "the picture cannot be read"});
        said = scope.take();
    }
    if (metadata)
        return metadata; // the warnings come again when the pixels are read
    details::addStatements(std::move(said));
    details::throwStatedFailure();
}

struct NumberedFrame : HDRFrame
{
    std::size_t input = 0;
};

} // namespace

LateFrames::LateFrames(const std::vector<PictureInput>& inputs_, const HDRSettings& settings, const RunControl& run)
    : inputs(inputs_), lensCorrection(settings.lensCorrection), chromatic(settings.chromaticAberrations)
{
    std::vector<NumberedFrame> frames(inputs.size());
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        run.throwIfCancelled();
        frames[i].path = inputs[i].path();
        frames[i].metadata = metadataOf(inputs[i]);
        frames[i].input = i;
    }
    fillEVsAndSort(frames);
    for (NumberedFrame& frame : frames) {
        inputOf.push_back(frame.input);
        sorted.push_back(std::move(frame));
        requireFitsFirst(sorted.back().path, sorted.back().metadata->size, size());
    }
}

std::shared_ptr<_ImageData<PixelRGB<float>>> LateFrames::read(std::size_t frame)
{
    if (!ahead || ahead->frame != frame)
        return readNow(frame);
    const std::unique_ptr<Ahead> own = std::move(ahead);
    return own->pixels.take();
}

void LateFrames::readAhead(std::size_t frame)
{
    ahead.reset();
    ahead = std::unique_ptr<Ahead>(new Ahead{frame, MadeAhead<Pixels>([this, frame] { return readNow(frame); })});
}

LateFrames::Pixels LateFrames::readNow(std::size_t frame) const
{
    HDRFrame loaded = readFrame(inputs[inputOf[frame]], lensCorrection);
    if (!loaded.image)
        details::throwStatedFailure();
    if (loaded.image->size() != sorted[frame].metadata->size)
        throw FailureError(
            {FailureKind::UnreadableFile, loaded.path, "the picture has another size than its header states"});
    if (chromatic)
        applyChromaticAbberationsCorrection(loaded.image);
    return std::move(loaded.image);
}

} // namespace orvo
