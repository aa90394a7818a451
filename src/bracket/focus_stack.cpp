#include "bracket/focus_stack.hpp"

#include "bracket/align_frames_streaming.hpp"
#include "bracket/deghosting.hpp"
#include "bracket/focus_series.hpp"
#include "bracket/place_frames.hpp"

#include <orvo/lens_correction.hpp>
#include <orvo_common/failure.hpp>
#include <orvo_common/wide_path.hpp>

#include <algorithm>
#include <iostream>

namespace orvo {
namespace {

using Picture = _ImageData<PixelRGB<float>>;
using Stacker = grfx::IFocusStacking<PixelRGB<float>>;

void requireSize(_Size<int> expected, const std::filesystem::path& reference, const std::filesystem::path& path,
                 _Size<int> found)
{
    if (expected == found)
        return;
    const auto text = [](_Size<int> size) { return std::to_string(size.width) + " x " + std::to_string(size.height); };
    throw FailureError({FailureKind::UnfittingPictures, path,
                        "all frames must have one size: this one is " + text(found) + " pixels, but " +
                            pathText(reference) + " is " + text(expected)});
}

void requireSizeOf(const FrameOutline& reference, const FocusStackerFrame& frame)
{
    requireSize(reference.size, reference.frame.path, frame.path, frame.image->size());
}

// Adds the frames of a series to its stacker, the reference first.
class Stacking
{
public:
    Stacking(FocusSeries& series_, const BracketSettings::FocusStacking& settings_, int count_, int referenceIndex_,
             const StackerFactory& makeStacker_, const RunControl& run_)
        : series(series_), settings(settings_), count(count_), referenceIndex(referenceIndex_),
          makeStacker(makeStacker_), run(run_), reference(outlineOfReference()),
          valid(0, 0, reference.size.width, reference.size.height)
    {
        if (reference.frame.image)
            deghost(reference.frame, referenceIndex);
    }

    // Once.
    void addAll()
    {
        if (!settings.adjust.enabled)
            addUnaligned();
        else if (settings.adjust.quality == AlignmentQuality::Fine)
            addAlignedFinely();
        else
            addAligned();
    }

    [[nodiscard]] std::shared_ptr<Picture> result() const
    {
        auto merged = std::make_shared<Picture>(reference.size, reference.profile);
        stacker->getResult(merged->data(), reference.size.width, reference.size.height);
        return merged;
    }

    // Without pixels.
    [[nodiscard]] FocusStackerFrame description() const
    {
        FocusStackerFrame described = reference.frame;
        described.image.reset();
        return described;
    }
    // In which all frames are valid.
    [[nodiscard]] const _Rect<int>& validRectangle() const { return valid; }

private:
    FocusSeries& series;
    const BracketSettings::FocusStacking& settings;
    int count;
    int referenceIndex;
    const StackerFactory& makeStacker;
    const RunControl& run;
    FrameOutline reference; // its frame has pixels until they are released, unless they are not needed yet
    _Rect<int> valid;
    std::unique_ptr<Stacker> stacker;

    FrameOutline outlineOfReference()
    {
        if (auto known = series.outline(referenceIndex))
            return std::move(*known);
        if (!settings.adjust.enabled)
            readAheadFrom(0); // together with the reference
        FocusStackerFrame frame = series.frame(referenceIndex);
        const auto image = frame.image;
        return {std::move(frame), image->size(), image->colorProfile()};
    }

    void addUnaligned()
    {
        start();
        releaseReference();
        for (int index = 0; index < count; ++index)
            if (index != referenceIndex)
                add(index, series.frame(index));
    }

    // One frame at a time is registered and added.
    void addAligned()
    {
        start();
        const auto consume = [this](int index, FocusStackerFrame& aligned, const _Rect<int>& rectangle) {
            if (index == referenceIndex)
                return;
            add(index, aligned);
            valid = commonRectangle(valid, rectangle);
        };
        alignFramesStreaming([this](int index) { return sameSizedFrame(index); }, consume,
                             static_cast<std::size_t>(count), static_cast<std::size_t>(referenceIndex));
    }

    // All frames are registered before the first is added, so the stacker is not made earlier.
    void addAlignedFinely()
    {
        series.readAhead(referenceIndex); // for start(), if it is not needed here
        const auto structure = [this](std::size_t index) { return sameSizedStructure(static_cast<int>(index)); };
        const auto places = placeFrames(static_cast<std::size_t>(count), static_cast<std::size_t>(referenceIndex),
                                        structure, {}, FrameMovement::Series, RunControl::none());
        start();
        for (int index = 0; index < count; ++index) {
            if (index == referenceIndex)
                continue;
            FocusStackerFrame frame = sameSizedFrame(index);
            const _Rect<int> rectangle =
                alignToPlace(frame, places[static_cast<std::size_t>(index)], reference.frame.path);
            add(index, frame);
            valid = commonRectangle(valid, rectangle);
        }
    }

    void start()
    {
        const FocusStackerFrame first = reference.frame.image ? reference.frame : series.frame(referenceIndex);
        stacker = makeStacker(reference.size.width, reference.size.height);
        readAheadFrom(0);
        stacker->addFrame(first.image->data(), reference.size.width, reference.size.height, 0);
    }

    void add(int index, const FocusStackerFrame& frame)
    {
        requireSizeOf(reference, frame);
        run.throwIfCancelled();
        // Not earlier: while a frame is warped there are two pictures already.
        readAheadFrom(index + 1);
        deghost(frame, index);
        stacker->addFrame(frame.image->data(), reference.size.width, reference.size.height, 0);
    }

    // The frame that is added next, of those from `index` on.
    void readAheadFrom(int index) { series.readAhead(index == referenceIndex ? index + 1 : index); }

    // Removes from a frame what moved relative to the ghost reference, in place.
    void deghost(const FocusStackerFrame& frame, int index)
    {
        if (!settings.ghostReduction.enabled || index == settings.ghostReduction.referenceIndex)
            return;
        std::vector<FocusStackerFrame> pair = {series.frame(settings.ghostReduction.referenceIndex), frame};
        requireSize(pair[0].image->size(), pair[0].path, frame.path, frame.image->size());
        processDeghosting(pair, static_cast<DeghostAmount>(settings.ghostReduction.amount), 0);
    }

    // Deghosting changed the pixels that the series lends, which would be lost.
    void releaseReference()
    {
        if (!settings.ghostReduction.enabled)
            reference.frame.image.reset();
    }

    // A frame of another size must fail before it is registered. The reference has pixels only the first time: when it
    // is handed on, they are not used.
    FocusStackerFrame sameSizedFrame(int index)
    {
        if (index == referenceIndex) {
            FocusStackerFrame frame = reference.frame;
            releaseReference();
            return frame;
        }
        FocusStackerFrame frame = series.frame(index);
        requireSizeOf(reference, frame);
        return frame;
    }

    FrameStructure sameSizedStructure(int index)
    {
        if (const auto known = series.outline(index)) {
            requireSize(reference.size, reference.frame.path, known->frame.path, known->size);
            return std::move(*series.structure(index));
        }
        return structureOf(*sameSizedFrame(index).image);
    }
};

// The corrections that single frames get when they are opened are applied once, to the merged picture.
void correctLens(std::shared_ptr<Picture>& result, const std::shared_ptr<ImageMetadata>& metadata,
                 const FocusStackerFrame& reference, const BracketSettings::RawAutoCorrection& corrections)
{
    if (metadata->isRaw) {
        if (corrections.lensCorrection)
            result = applyAutoLensCorrection(result, metadata, reference.rawMetadata);
        LensCorrectionUnit::applyAndDismissRawCA(result, metadata, reference.rawMetadata,
                                                 corrections.chromaticAberrations);
    } else if (corrections.chromaticAberrations) {
        applyChromaticAbberationsCorrection(result);
    }
}

} // namespace

_Rect<int> commonRectangle(const _Rect<int>& a, const _Rect<int>& b)
{
    const int left = std::max(a.x, b.x);
    const int top = std::max(a.y, b.y);
    const int right = std::min(a.x + a.width, b.x + b.width);
    const int bottom = std::min(a.y + a.height, b.y + b.height);
    if (right <= left || bottom <= top)
        return {};
    return {left, top, right - left, bottom - top};
}

namespace {

std::shared_ptr<Image> stackSeries(const std::vector<PictureInput>& inputs,
                                   const BracketSettings::FocusStacking& settings, const StackerFactory& makeStacker,
                                   const RunControl& run)
{
    const int count = static_cast<int>(inputs.size());
    const int referenceIndex = settings.adjust.enabled ? settings.adjust.referenceIndex : count / 2;
    FocusSeries series(inputs, settings, run);
    if (settings.adjust.enabled)
        series.check();

    std::shared_ptr<Picture> result;
    FocusStackerFrame reference;
    _Rect<int> cropRect;
    {
        Stacking stacking(series, settings, count, referenceIndex, makeStacker, run);
        stacking.addAll();
        run.throwIfCancelled();
        result = stacking.result();
        reference = stacking.description();
        cropRect = stacking.validRectangle();
    }

    run.throwIfCancelled();
    auto metadata = std::make_shared<ImageMetadata>(*reference.metadata);
    correctLens(result, metadata, reference, settings.rawAutoCorrection);
    metadata->isRaw = false;
    // Frames with nothing in common give an empty rectangle, which means the whole picture.
    std::shared_ptr<const Picture> cropped = result->resize(cropRect.size(), cropRect, true);
    metadata->size = cropped->size();
    return CreateOrvoImage(cropped, metadata);
}

} // namespace

std::shared_ptr<Image> stackFocusSeries(const std::vector<std::filesystem::path>& paths,
                                        const BracketSettings::FocusStacking& settings,
                                        const StackerFactory& makeStacker, const std::string& caller,
                                        const RunControl& run)
{
    return stackFocusSeries(inputsOf(paths), settings, makeStacker, caller, run);
}

std::shared_ptr<Image> stackFocusSeries(const std::vector<PictureInput>& inputs,
                                        const BracketSettings::FocusStacking& settings,
                                        const StackerFactory& makeStacker, const std::string& caller,
                                        const RunControl& run)
{
    try {
        return stackSeries(inputs, settings, makeStacker, run);
    } catch (const UnreadableFrame& missing) {
        if (!caller.empty())
            std::cerr << caller << " makeFocusStack: Image "
                      << pathText(inputs[static_cast<std::size_t>(missing.index)].path().filename())
                      << " could not be loaded" << std::endl;
        return {};
    }
}

} // namespace orvo
