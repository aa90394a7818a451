/// Enlarges a picture with a network.
#pragma once

#include <orvo_common/run_control.hpp>
#include <orvo_core/image_data.hpp>

#include <filesystem>
#include <memory>
#include <optional>

namespace orvo::details {

/// A super-resolution network in an ONNX file, run by OpenCV on the CPU. It maps 1 x C x H x W values to
/// 1 x C x sH x sW, where C is 3 (red, green, blue) or 1 (luma) and s an integer 1..8, both found by a trial run. Its
/// input is the encoded values of the picture, unchanged, 1.0 full scale: networks learn how edges look under sRGB's
/// curve, and the working space has that curve; so values outside of sRGB's primaries survive. A network of one channel
/// enlarges the luma; the rest is Catmull-Rom. One picture at a time. A model runs like a program and needs as much
/// trust; obvious damage is refused before OpenCV sees it.
class NetworkUpscaler
{
public:
    /// Loads and tries the model. `scale`: the required scale; empty: any. `overlap`: how many samples of the picture
    /// tiles see beyond their own part, 0..kMostOverlap; at least the reach of the network, or seams will show. Throws
    /// FailureError that names the model, what was expected and what was found.
    NetworkUpscaler(const std::filesystem::path& model, std::optional<int> scale, int overlap);
    ~NetworkUpscaler();
    NetworkUpscaler(const NetworkUpscaler&) = delete;
    NetworkUpscaler& operator=(const NetworkUpscaler&) = delete;

    static constexpr int kMostOverlap = 256;

    [[nodiscard]] int scale() const;

    /// Writes the enlarged picture into `target`, which has scale() times the size of `source`. Tiles of one size go
    /// through the network one after the other, with a repeated edge at the border; so the network needs memory for one
    /// tile, whatever the picture. Non-finite output becomes the nearest sample. False if `run`, polled before each
    /// tile, was cancelled. Throws FailureError.
    [[nodiscard]] bool enlarge(const _ImageData<PixelRGB<float>>& source, _ImageData<PixelRGB<float>>& target,
                               const RunControl& run);

private:
    struct State;
    std::unique_ptr<State> state;
};

} // namespace orvo::details
