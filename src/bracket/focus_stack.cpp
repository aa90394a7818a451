#include "bracket/focus_stack.hpp"

#include "bracket/align_frames_streaming.hpp"
#include "bracket/deghosting.hpp"
#include "bracket/kept_picture.hpp"
#include "bracket/load_frames.hpp"

#include <orvo/lens_correction.hpp>
#include <orvo_common/failure.hpp>
#include <orvo_common/wide_path.hpp>

#include <algorithm>
#include <iostream>

namespace orvo {
namespace {

using Picture = _ImageData<PixelRGB<float>>;
using Stacker = grfx::IFocusStacking<PixelRGB<float>>;

// A file that gives no picture. The reader has stated the failure.
struct UnreadableFrame
{
    int index;
};

// The frames of a series. Each is loaded at its first use; if there will be another, it is kept in the samples of its
// file, or as it is if its samples are no integers.
class Series
{
public:
    Series(const std::vector<PictureInput>& inputs_, const BracketSettings::FocusStacking& settings_,
           const RunControl& run_)
        : inputs(inputs_), settings(settings_), run(run_), slots(inputs_.size()),
          steps(stepsOf(inputs_.size(), settings_))
    {}

    // Pixels that someone else holds are shared: warping replaces them, deghosting changes them for all. Every step of
    // the work takes its frame here, so that here is the place to cancel it and to report progress. Throws
    // UnreadableFrame.
    FocusStackerFrame frame(int index)
    {
        run.throwIfCancelled();
        run.report(std::min(1.0f, static_cast<float>(taken++) / static_cast<float>(steps)));
        if (index < 0 || static_cast<std::size_t>(index) >= slots.size())
            throw FailureError({FailureKind::Internal,
                                {},
                                "frame " + std::to_string(index) + " was requested, but the series has " +
                                    std::to_string(slots.size())});
        Slot& slot = slots[static_cast<std::size_t>(index)];
        FocusStackerFrame result = slot.frame;
        if (!result.image)
            result.image = slot.lent.lock();
        if (!result.image && slot.kept)
            result.image = slot.kept->inWorkingSpace();
        if (!result.image)
            result = load(slot, inputs[static_cast<std::size_t>(index)]);
        if (!result.image)
            throw UnreadableFrame{index};
        slot.lent = result.image;
        return result;
    }

    // Removes from a frame what moved relative to the ghost reference, in place.
    void deghost(const FocusStackerFrame& frame_, int index)
    {
        if (!settings.ghostReduction.enabled || index == settings.ghostReduction.referenceIndex)
            return;
        std::vector<FocusStackerFrame> pair = {frame(settings.ghostReduction.referenceIndex), frame_};
        requireSameSize(pair[0], pair[1]);
        processDeghosting(pair, static_cast<DeghostAmount>(settings.ghostReduction.amount), 0);
    }

    static void requireSameSize(const FocusStackerFrame& reference, const FocusStackerFrame& other)
    {
        const auto expected = reference.image->size();
        const auto found = other.image->size();
        if (expected == found)
            return;
        const auto text = [](_Size<int> size) {
            return std::to_string(size.width) + " x " + std::to_string(size.height);
        };
        throw FailureError({FailureKind::UnfittingPictures, other.path,
                            "all frames must have one size: this one is " + text(found) + " pixels, but " +
                                pathText(reference.path) + " is " + text(expected)});
    }

private:
    struct Slot
    {
        FocusStackerFrame frame;           // without pixels unless they cannot be kept in another way
        std::unique_ptr<KeptPicture> kept; // the samples of the file
        std::weak_ptr<Picture> lent;       // pixels that are in use
    };

    const std::vector<PictureInput>& inputs;
    const BracketSettings::FocusStacking& settings;
    const RunControl& run;
    std::vector<Slot> slots;
    const std::size_t steps; // how often frames are taken
    std::size_t taken = 0;

    static std::size_t stepsOf(std::size_t count, const BracketSettings::FocusStacking& settings)
    {
        const std::size_t loading = settings.adjust.enabled ? count + 1 : 0; // before, and the reference once more
        const std::size_t aligning = !settings.adjust.enabled                            ? 0
                                     : settings.adjust.quality == AlignmentQuality::Fine ? count + 1
                                                                                         : 1;
        const std::size_t deghosting = settings.ghostReduction.enabled ? count : 0;
        return loading + aligning + deghosting + count;
    }

    FocusStackerFrame loaded(const PictureInput& input, int flags) const
    {
        return loadFrame<FocusStackerFrame>(input, flags, {}, settings.rawAutoCorrection.lensCorrection);
    }

    FocusStackerFrame load(Slot& slot, const PictureInput& input) const
    {
        constexpr int kInWorkingSpace = static_cast<int>(ImageReaderOpenFlag::Bracket);
        constexpr int kInFileSpace = kInWorkingSpace & ~static_cast<int>(ImageReaderOpenFlag::WorkingSpace);
        const bool isUsedAgain = settings.adjust.enabled || settings.ghostReduction.enabled;
        FocusStackerFrame result = loaded(input, isUsedAgain ? kInFileSpace : kInWorkingSpace);
        if (!result.image)
            return result;
        if (hasRawMark(result)) {
            develop(result.image, result.metadata, result.rawMetadata, false);
            markDeveloped(result);
        } else if (isUsedAgain) {
            constexpr int kRgb = 3; // ink and gray are converted in another way
            const auto& fileProfile = result.metadata->fileProfile;
            if (fileProfile && fileProfile->channelCount() == kRgb)
                slot.kept = KeptPicture::of(*result.image);
            if (slot.kept) {
                slot.frame = result;
                slot.frame.image.reset();
                result.image->convertTo(ColorProfileType::melissaRGB());
                return result;
            }
            result.image.reset();
            result = loaded(input, kInWorkingSpace);
        }
        if (isUsedAgain)
            slot.frame = result;
        return result;
    }
};

// Passes the stacker every frame except the reference, which it has. Returns the rectangle in which all are valid.
_Rect<int> addOtherFrames(Stacker& stacker, Series& series, const FocusStackerFrame& reference, int referenceIndex,
                          int count, const BracketSettings::Adjust& adjust, const RunControl& run)
{
    const int width = reference.image->width();
    const int height = reference.image->height();
    const auto add = [&](int index, const FocusStackerFrame& frame) {
        Series::requireSameSize(reference, frame);
        run.throwIfCancelled();
        series.deghost(frame, index);
        stacker.addFrame(frame.image->data(), width, height, 0);
    };
    _Rect<int> cropRect(0, 0, width, height);
    if (!adjust.enabled) {
        for (int index = 0; index < count; ++index)
            if (index != referenceIndex)
                add(index, series.frame(index));
        return cropRect;
    }
    // A frame of another size must fail before it is registered.
    const auto sameSizedFrame = [&](int index) {
        FocusStackerFrame frame = series.frame(index);
        Series::requireSameSize(reference, frame);
        return frame;
    };
    const auto consume = [&](int index, FocusStackerFrame& frame, const _Rect<int>& valid) {
        if (index == referenceIndex)
            return;
        add(index, frame);
        cropRect = commonRectangle(cropRect, valid);
    };
    const auto align = adjust.quality == AlignmentQuality::Fine ? alignFramesFinely : alignFramesStreaming;
    align(sameSizedFrame, consume, static_cast<std::size_t>(count), static_cast<std::size_t>(referenceIndex));
    return cropRect;
}

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
    Series series(inputs, settings, run);
    // A file that cannot be read should fail before the frames are registered, which takes the most time.
    if (settings.adjust.enabled)
        for (int index = 0; index < count; ++index)
            static_cast<void>(series.frame(index));

    const FocusStackerFrame reference = series.frame(referenceIndex);
    const int width = reference.image->width();
    const int height = reference.image->height();
    std::shared_ptr<Picture> result;
    _Rect<int> cropRect;
    {
        const auto stacker = makeStacker(width, height);
        series.deghost(reference, referenceIndex);
        stacker->addFrame(reference.image->data(), width, height, 0);
        cropRect = addOtherFrames(*stacker, series, reference, referenceIndex, count, settings.adjust, run);
        run.throwIfCancelled();
        result = std::make_shared<Picture>(_Size<int>(width, height), reference.image->colorProfile());
        stacker->getResult(result->data(), width, height);
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
