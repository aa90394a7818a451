/// The frames of a bracket, read one after the other as the blend needs them.
#pragma once

#include "bracket/frames.hpp"

#include <orvo_common/run_control.hpp>
#include <orvo_core/made_ahead.hpp>
#include <orvo_extensions/hdr.hpp>
#include <orvo_extensions/picture_input.hpp>

#include <cstddef>
#include <memory>
#include <vector>

namespace orvo {

/// A bracket whose pixels stay in its files until they are needed. Not for raw files.
class LateFrames
{
public:
    /// Reads the metadata of the inputs, which must outlive this. The pixels of a file without exposure data are read
    /// too, since their brightness stands for it, and are not kept. A picture that cannot be read, or a cancel, ends in
    /// FailureError, like frames that are smaller than the first by exposure.
    LateFrames(const std::vector<PictureInput>& inputs, const HDRSettings& settings, const RunControl& run);

    /// Without pixels, sorted by rising ev.
    [[nodiscard]] const std::vector<HDRFrame>& frames() const { return sorted; }
    /// That of the first frame.
    [[nodiscard]] _Size<int> size() const { return sorted.front().metadata->size; }

    /// The pixels of a frame, with chromatic aberration corrected if so set. Peak: the picture. Throws FailureError.
    /// Several threads may call it while no frame is read ahead.
    [[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>> read(std::size_t frame);
    /// Starts to read the pixels of a frame that read() will be asked for, on another thread. A frame that is being
    /// read already is dropped.
    void readAhead(std::size_t frame);

private:
    using Pixels = std::shared_ptr<_ImageData<PixelRGB<float>>>;
    struct Ahead
    {
        std::size_t frame;
        MadeAhead<Pixels> pixels;
    };

    [[nodiscard]] Pixels readNow(std::size_t frame) const;

    const std::vector<PictureInput>& inputs;
    std::vector<HDRFrame> sorted;
    std::vector<std::size_t> inputOf; // of each sorted frame
    bool lensCorrection;
    bool chromatic;
    std::unique_ptr<Ahead> ahead; // last: it uses the other members
};

} // namespace orvo
