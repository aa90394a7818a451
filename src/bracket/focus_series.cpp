#include "bracket/focus_series.hpp"

#include "bracket/kept_picture.hpp"
#include "bracket/load_frames.hpp"

#include <orvo_common/failure.hpp>
#include <orvo_io/picture_file.hpp>

#include <algorithm>
#include <string>
#include <utility>

namespace orvo {
namespace {

using Picture = _ImageData<PixelRGB<float>>;

constexpr int kInWorkingSpace = static_cast<int>(ImageReaderOpenFlag::Bracket);
constexpr int kInFileSpace = kInWorkingSpace & ~static_cast<int>(ImageReaderOpenFlag::WorkingSpace);

std::size_t stepsOf(std::size_t count, const BracketSettings::FocusStacking& settings)
{
    const std::size_t checking = settings.adjust.enabled ? count : 0;
    const std::size_t aligning =
        settings.adjust.enabled && settings.adjust.quality == AlignmentQuality::Fine ? count : 0;
    const std::size_t deghosting = settings.ghostReduction.enabled ? count : 0;
    return checking + aligning + deghosting + count;
}

// Whether reading again costs about as much as keeping.
bool isQuick(const PictureInput& input) { return input.memory() != nullptr || isJpegFile(input.path()); }

// The samples of a frame in the space of its file; empty if they cannot be kept.
std::unique_ptr<KeptPicture> samplesOf(const FocusStackerFrame& frame)
{
    constexpr int kRgb = 3; // ink and gray are converted in another way
    const auto& fileProfile = frame.metadata->fileProfile;
    if (fileProfile && fileProfile->channelCount() == kRgb)
        return KeptPicture::of(*frame.image);
    return nullptr;
}

} // namespace

struct FocusSeries::Slot
{
    bool isQuick = false;
    FocusStackerFrame frame;           // without pixels unless they cannot be kept in another way
    std::unique_ptr<KeptPicture> kept; // the samples of the file
    std::weak_ptr<Picture> lent;       // pixels that are in use
    std::optional<FrameStructure> structure;
    std::optional<FrameOutline> outline; // of a frame with structure
};

// A frame as a thread has read it.
struct FocusSeries::Loaded
{
    FocusStackerFrame frame;           // after a check without pixels unless they stay
    bool isRead = false;               // the file gave a picture
    bool stays = false;                // the pixels are kept as they are
    std::unique_ptr<KeptPicture> kept; // or in the samples of the file
    std::optional<FrameStructure> structure;
    _Size<int> size;
    std::shared_ptr<ColorProfile> profile;
};

struct FocusSeries::Ahead
{
    int index;
    Purpose purpose;
    MadeAhead<Loaded> loaded;
};

FocusSeries::FocusSeries(const std::vector<PictureInput>& inputs_, const BracketSettings::FocusStacking& settings_,
                         const RunControl& run_)
    : inputs(inputs_), settings(settings_), run(run_), slots(inputs_.size()), steps(stepsOf(inputs_.size(), settings_))
{
    // Deghosting takes the ghost reference again and again.
    for (std::size_t i = 0; i < slots.size(); ++i)
        slots[i].isQuick = !settings.ghostReduction.enabled && isQuick(inputs[i]);
}

FocusSeries::~FocusSeries() = default;

void FocusSeries::check()
{
    const int count = static_cast<int>(slots.size());
    for (int index = 0; index < count; ++index) {
        nextSlot(index);
        // Nothing else is done with a frame here, so this thread reads every other one itself.
        if (!ahead && index + 1 < count)
            startAhead(index + 1, Purpose::Check);
        (void)store(index, loaded(index, Purpose::Check));
    }
}

std::optional<FrameOutline> FocusSeries::outline(int index) const
{
    const bool isOne = index >= 0 && static_cast<std::size_t>(index) < slots.size();
    return isOne ? slots[static_cast<std::size_t>(index)].outline : std::nullopt;
}

std::optional<FrameStructure> FocusSeries::structure(int index)
{
    if (!outline(index))
        return std::nullopt;
    return std::exchange(nextSlot(index).structure, std::nullopt);
}

FocusStackerFrame FocusSeries::frame(int index)
{
    Slot& slot = nextSlot(index);
    FocusStackerFrame result = slot.frame;
    if (!result.image)
        result.image = slot.lent.lock();
    if (!result.image && slot.kept)
        result.image = slot.kept->inWorkingSpace();
    if (!result.image)
        result = store(index, loaded(index, Purpose::Use));
    if (slot.isQuick)
        slot.kept.reset();
    slot.lent = result.image;
    return result;
}

void FocusSeries::readAhead(int index)
{
    if (ahead || index < 0 || static_cast<std::size_t>(index) >= slots.size())
        return;
    const Slot& slot = slots[static_cast<std::size_t>(index)];
    if (!slot.frame.image && !slot.kept && slot.lent.expired())
        startAhead(index, Purpose::Use);
}

FocusSeries::Slot& FocusSeries::nextSlot(int index)
{
    run.throwIfCancelled();
    run.report(std::min(1.0f, static_cast<float>(taken++) / static_cast<float>(steps)));
    if (index < 0 || static_cast<std::size_t>(index) >= slots.size())
        throw FailureError(
            {FailureKind::Internal,
             {},
             "frame " + std::to_string(index) + " was requested, but the series has " + std::to_string(slots.size())});
    return slots[static_cast<std::size_t>(index)];
}

FocusStackerFrame FocusSeries::read(int index, int flags) const
{
    return loadFrame<FocusStackerFrame>(inputs[static_cast<std::size_t>(index)], flags, {},
                                        settings.rawAutoCorrection.lensCorrection);
}

// Of a frame that is registered before the stacker exists: its structure, if that takes less memory than its samples.
bool FocusSeries::keepsStructure(int index) const
{
    if (!slots[static_cast<std::size_t>(index)].isQuick || settings.adjust.quality != AlignmentQuality::Fine)
        return false;
    const PictureInput& input = inputs[static_cast<std::size_t>(index)];
    const MemoryPicture* const memory = input.memory();
    return isStructureReduced(memory != nullptr ? _Size<int>(memory->width, memory->height)
                                                : pictureSizeOf(input.path()));
}

// On any thread.
FocusSeries::Loaded FocusSeries::load(int index, Purpose purpose) const
{
    const bool isQuick = slots[static_cast<std::size_t>(index)].isQuick;
    const bool isUsedAgain = !isQuick && (settings.adjust.enabled || settings.ghostReduction.enabled);
    const bool isChecked = purpose == Purpose::Check;
    const bool hasStructure = isChecked && keepsStructure(index);
    const bool isRegisteredFromSamples =
        isChecked && isQuick && !hasStructure && settings.adjust.quality == AlignmentQuality::Fine;
    const bool isInFileSpace = isUsedAgain || (isChecked && !hasStructure);

    Loaded result;
    FocusStackerFrame& frame = result.frame;
    frame = read(index, isInFileSpace ? kInFileSpace : kInWorkingSpace);
    if (!frame.image)
        return result;
    result.isRead = true;
    if (hasRawMark(frame)) {
        develop(frame.image, frame.metadata, frame.rawMetadata, false);
        markDeveloped(frame);
        result.stays = isUsedAgain;
    } else if (isUsedAgain || isRegisteredFromSamples) {
        result.kept = samplesOf(frame);
        if (result.kept && !isChecked)
            frame.image->convertTo(ColorProfileType::melissaRGB());
        if (!result.kept && isUsedAgain) {
            frame.image.reset();
            frame = read(index, kInWorkingSpace);
            result.isRead = frame.image != nullptr;
            result.stays = true;
        }
    }
    if (hasStructure && frame.image) {
        result.structure = structureOf(*frame.image);
        result.size = frame.image->size();
        result.profile = frame.image->colorProfile();
    }
    if (isChecked && !result.stays)
        frame.image.reset();
    return result;
}

void FocusSeries::startAhead(int index, Purpose purpose)
{
    ahead = std::unique_ptr<Ahead>(
        new Ahead{index, purpose, MadeAhead<Loaded>([this, index, purpose] { return load(index, purpose); })});
}

FocusSeries::Loaded FocusSeries::loaded(int index, Purpose purpose)
{
    if (!ahead || ahead->index != index || ahead->purpose != purpose)
        return load(index, purpose);
    const std::unique_ptr<Ahead> own = std::move(ahead);
    return own->loaded.take();
}

FocusStackerFrame FocusSeries::store(int index, Loaded loaded)
{
    if (!loaded.isRead)
        throw UnreadableFrame{index};
    Slot& slot = slots[static_cast<std::size_t>(index)];
    if (loaded.structure) {
        slot.outline = FrameOutline{loaded.frame, loaded.size, loaded.profile};
        slot.structure = std::move(loaded.structure);
    }
    if (loaded.stays || loaded.kept)
        slot.frame = loaded.frame;
    if (loaded.kept) {
        slot.frame.image.reset();
        slot.kept = std::move(loaded.kept);
    }
    return std::move(loaded.frame);
}

} // namespace orvo
