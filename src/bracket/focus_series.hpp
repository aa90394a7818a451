/// The frames of a focus series, read as they are needed.
#pragma once

#include "bracket/frame_structure.hpp"
#include "bracket/frames.hpp"

#include <orvo_common/run_control.hpp>
#include <orvo_core/made_ahead.hpp>
#include <orvo_extensions/bracket.hpp>
#include <orvo_extensions/picture_input.hpp>

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

namespace orvo {

/// Thrown for a file that gives no picture. The reader has stated the failure.
struct UnreadableFrame
{
    int index;
};

/// A frame without its pixels, with what is known of them.
struct FrameOutline
{
    FocusStackerFrame frame;
    _Size<int> size;
    std::shared_ptr<ColorProfile> profile;
};

/// Loads each frame when it is needed, and one ahead on another thread. For another use it is kept in the samples of
/// its file, or as it is if its samples are no integers; a picture that is quickly read again is not kept.
///
/// Every step of the work takes its frame here, so that here is the place to cancel it and to report progress. Indices
/// outside of the series, and a cancel, end in FailureError.
class FocusSeries
{
public:
    /// All must outlive this.
    FocusSeries(const std::vector<PictureInput>& inputs, const BracketSettings::FocusStacking& settings,
                const RunControl& run);
    ~FocusSeries();

    /// Reads every file once, two at a time, before the frames are aligned, which takes the most time. Throws
    /// UnreadableFrame for the first that cannot be read. Of what registration needs it keeps the structures of large
    /// frames, and the samples of small ones.
    void check();

    /// A frame whose pixels nobody needs for the time being; empty unless check() has kept its structure.
    [[nodiscard]] std::optional<FrameOutline> outline(int index) const;
    /// The structure that check() has kept, once; empty if there is none.
    [[nodiscard]] std::optional<FrameStructure> structure(int index);

    /// Pixels that someone else holds are shared: warping replaces them, deghosting changes them for all. Throws
    /// UnreadableFrame.
    [[nodiscard]] FocusStackerFrame frame(int index);
    /// Starts to read the file of a frame that frame() will be asked for, unless its pixels are at hand or another one
    /// is being read. Adds the memory of a picture. An index outside of the series is ignored.
    void readAhead(int index);

private:
    struct Slot;
    enum class Purpose
    {
        Check, ///< the pixels themselves are not used
        Use
    };
    struct Loaded;
    struct Ahead;

    Slot& nextSlot(int index);
    [[nodiscard]] FocusStackerFrame read(int index, int flags) const;
    [[nodiscard]] bool keepsStructure(int index) const;
    [[nodiscard]] Loaded load(int index, Purpose purpose) const;
    void startAhead(int index, Purpose purpose);
    [[nodiscard]] Loaded loaded(int index, Purpose purpose);
    [[nodiscard]] FocusStackerFrame store(int index, Loaded loaded);

    const std::vector<PictureInput>& inputs;
    const BracketSettings::FocusStacking& settings;
    const RunControl& run;
    std::vector<Slot> slots;
    const std::size_t steps; // how often frames are taken
    std::size_t taken = 0;
    std::unique_ptr<Ahead> ahead; // last: it uses the other members
};

} // namespace orvo
