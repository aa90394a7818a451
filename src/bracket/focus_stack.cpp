#include "bracket/focus_stack.hpp"

#include "bracket/align_frames_streaming.hpp"
#include "bracket/deghosting.hpp"
#include "bracket/kept_picture.hpp"
#include "bracket/load_frames.hpp"

#include <orvo/lens_correction.hpp>
#include <orvo_common/failure.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_io/picture_file.hpp>

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

// The frames of a series, each loaded when it is needed. For another use it is kept in the samples of its file, or as
// it is if its samples are no integers; a picture that is quickly read again is not kept.
class Series
{
public:
    Series(const std::vector<PictureInput>& inputs_, const BracketSettings::FocusStacking& settings_,
           const RunControl& run_)
        : inputs(inputs_), settings(settings_), run(run_), slots(inputs_.size()),
          steps(stepsOf(inputs_.size(), settings_))
    {}

    // Fails like frame() if the file cannot be read. The samples of a frame that is registered before the stacker
    // exists are kept for that.
    void check(int index)
    {
        Slot& slot = nextSlot(index);
        if (!isQuick(index)) {
            requireLoaded(load(slot, index), index);
            return;
        }
        const FocusStackerFrame frame = loaded(index, kInFileSpace);
        requireLoaded(frame, index);
        if (settings.adjust.quality == AlignmentQuality::Fine && !hasRawMark(frame))
            keep(slot, frame);
    }

    // Pixels that someone else holds are shared: warping replaces them, deghosting changes them for all. Every step of
    // the work takes its frame here, so that here is the place to cancel it and to report progress. Throws
    // UnreadableFrame.
    FocusStackerFrame frame(int index)
    {
        Slot& slot = nextSlot(index);
        FocusStackerFrame result = slot.frame;
        if (!result.image)
            result.image = slot.lent.lock();
        if (!result.image && slot.kept)
            result.image = slot.kept->inWorkingSpace();
        if (!result.image)
            result = load(slot, index);
        requireLoaded(result, index);
        if (isQuick(index))
            slot.kept.reset();
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
        requireSize(reference.image->size(), reference.path, other);
    }
    // `expected` is that of the reference.
    static void requireSize(_Size<int> expected, const std::filesystem::path& reference, const FocusStackerFrame& other)
    {
        const auto found = other.image->size();
        if (expected == found)
            return;
        const auto text = [](_Size<int> size) {
            return std::to_string(size.width) + " x " + std::to_string(size.height);
        };
        throw FailureError({FailureKind::UnfittingPictures, other.path,
                            "all frames must have one size: this one is " + text(found) + " pixels, but " +
                                pathText(reference) + " is " + text(expected)});
    }

private:
    struct Slot
    {
        FocusStackerFrame frame;           // without pixels unless they cannot be kept in another way
        std::unique_ptr<KeptPicture> kept; // the samples of the file
        std::weak_ptr<Picture> lent;       // pixels that are in use
    };

    static constexpr int kInWorkingSpace = static_cast<int>(ImageReaderOpenFlag::Bracket);
    static constexpr int kInFileSpace = kInWorkingSpace & ~static_cast<int>(ImageReaderOpenFlag::WorkingSpace);

    const std::vector<PictureInput>& inputs;
    const BracketSettings::FocusStacking& settings;
    const RunControl& run;
    std::vector<Slot> slots;
    const std::size_t steps; // how often frames are taken
    std::size_t taken = 0;

    static std::size_t stepsOf(std::size_t count, const BracketSettings::FocusStacking& settings)
    {
        const std::size_t checking = settings.adjust.enabled ? count : 0;
        const std::size_t aligning =
            settings.adjust.enabled && settings.adjust.quality == AlignmentQuality::Fine ? count : 0;
        const std::size_t deghosting = settings.ghostReduction.enabled ? count : 0;
        return checking + aligning + deghosting + count;
    }

    Slot& nextSlot(int index)
    {
        run.throwIfCancelled();
        run.report(std::min(1.0f, static_cast<float>(taken++) / static_cast<float>(steps)));
        if (index < 0 || static_cast<std::size_t>(index) >= slots.size())
            throw FailureError({FailureKind::Internal,
                                {},
                                "frame " + std::to_string(index) + " was requested, but the series has " +
                                    std::to_string(slots.size())});
        return slots[static_cast<std::size_t>(index)];
    }

    static void requireLoaded(const FocusStackerFrame& frame, int index)
    {
        if (!frame.image)
            throw UnreadableFrame{index};
    }

    // Whether reading again costs about as much as keeping. Deghosting takes the ghost reference again and again.
    [[nodiscard]] bool isQuick(int index) const
    {
        const PictureInput& input = inputs[static_cast<std::size_t>(index)];
        return !settings.ghostReduction.enabled && (input.memory() != nullptr || isJpegFile(input.path()));
    }

    [[nodiscard]] FocusStackerFrame loaded(int index, int flags) const
    {
        return loadFrame<FocusStackerFrame>(inputs[static_cast<std::size_t>(index)], flags, {},
                                            settings.rawAutoCorrection.lensCorrection);
    }

    // The frame is in the space of its file.
    static void keep(Slot& slot, const FocusStackerFrame& frame)
    {
        constexpr int kRgb = 3; // ink and gray are converted in another way
        const auto& fileProfile = frame.metadata->fileProfile;
        if (fileProfile && fileProfile->channelCount() == kRgb)
            slot.kept = KeptPicture::of(*frame.image);
        if (!slot.kept)
            return;
        slot.frame = frame;
        slot.frame.image.reset();
    }

    FocusStackerFrame load(Slot& slot, int index) const
    {
        const bool isUsedAgain = !isQuick(index) && (settings.adjust.enabled || settings.ghostReduction.enabled);
        FocusStackerFrame result = loaded(index, isUsedAgain ? kInFileSpace : kInWorkingSpace);
        if (!result.image)
            return result;
        if (hasRawMark(result)) {
            develop(result.image, result.metadata, result.rawMetadata, false);
            markDeveloped(result);
        } else if (isUsedAgain) {
            keep(slot, result);
            if (slot.kept) {
                result.image->convertTo(ColorProfileType::melissaRGB());
                return result;
            }
            result.image.reset();
            result = loaded(index, kInWorkingSpace);
        }
        if (isUsedAgain)
            slot.frame = result;
        return result;
    }
};

// Adds the frames of a series to its stacker, the reference first.
class Stacking
{
public:
    Stacking(Series& series_, const BracketSettings::FocusStacking& settings_, int count_, int referenceIndex_,
             const StackerFactory& makeStacker_, const RunControl& run_)
        : series(series_), settings(settings_), count(count_), referenceIndex(referenceIndex_),
          makeStacker(makeStacker_), run(run_), reference(series.frame(referenceIndex)), size(reference.image->size()),
          profile(reference.image->colorProfile()), valid(0, 0, size.width, size.height)
    {
        series.deghost(reference, referenceIndex);
    }

    // Once.
    void addAll()
    {
        const auto& adjust = settings.adjust;
        if (!adjust.enabled) {
            start();
            releaseReference();
            for (int index = 0; index < count; ++index)
                if (index != referenceIndex)
                    add(index, series.frame(index));
            return;
        }
        const auto frame = [this](int index) { return sameSizedFrame(index); };
        const auto consume = [this](int index, FocusStackerFrame& aligned, const _Rect<int>& rectangle) {
            if (index == referenceIndex)
                return;
            add(index, aligned);
            valid = commonRectangle(valid, rectangle);
        };
        const auto frames = static_cast<std::size_t>(count);
        const auto first = static_cast<std::size_t>(referenceIndex);
        if (adjust.quality == AlignmentQuality::Fine) {
            // All frames are registered before the first is added, so the stacker is not made earlier.
            alignFramesFinely(frame, consume, frames, first, [this] { start(); });
        } else {
            start();
            alignFramesStreaming(frame, consume, frames, first);
        }
    }

    [[nodiscard]] std::shared_ptr<Picture> result() const
    {
        auto merged = std::make_shared<Picture>(size, profile);
        stacker->getResult(merged->data(), size.width, size.height);
        return merged;
    }

    // Without pixels.
    [[nodiscard]] FocusStackerFrame description() const
    {
        FocusStackerFrame described = reference;
        described.image.reset();
        return described;
    }
    // In which all frames are valid.
    [[nodiscard]] const _Rect<int>& validRectangle() const { return valid; }

private:
    Series& series;
    const BracketSettings::FocusStacking& settings;
    int count;
    int referenceIndex;
    const StackerFactory& makeStacker;
    const RunControl& run;
    FocusStackerFrame reference; // with pixels until they are released
    _Size<int> size;
    std::shared_ptr<ColorProfile> profile;
    _Rect<int> valid;
    std::unique_ptr<Stacker> stacker;

    void start()
    {
        const FocusStackerFrame first = reference.image ? reference : series.frame(referenceIndex);
        stacker = makeStacker(size.width, size.height);
        stacker->addFrame(first.image->data(), size.width, size.height, 0);
    }

    void add(int index, const FocusStackerFrame& frame)
    {
        Series::requireSize(size, reference.path, frame);
        run.throwIfCancelled();
        series.deghost(frame, index);
        stacker->addFrame(frame.image->data(), size.width, size.height, 0);
    }

    // Deghosting changed the pixels that the series lends, which would be lost.
    void releaseReference()
    {
        if (!settings.ghostReduction.enabled)
            reference.image.reset();
    }

    // A frame of another size must fail before it is registered. The reference has pixels only the first time: when it
    // is handed on, they are not used.
    FocusStackerFrame sameSizedFrame(int index)
    {
        if (index == referenceIndex) {
            FocusStackerFrame frame = reference;
            releaseReference();
            return frame;
        }
        FocusStackerFrame frame = series.frame(index);
        Series::requireSize(size, reference.path, frame);
        return frame;
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
    Series series(inputs, settings, run);
    // A file that cannot be read should fail before the frames are registered, which takes the most time.
    if (settings.adjust.enabled)
        for (int index = 0; index < count; ++index)
            series.check(index);

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
