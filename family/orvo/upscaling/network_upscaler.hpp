/// Enlarging a picture by a network.
#pragma once

#include <orvo_core/image_data.hpp>

#include <atomic>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>

namespace orvo::details {

/// What is wrong with a model; the text names its file, what was expected and what was found.
class NetworkFailure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// A super-resolution network in a file of ONNX, run by OpenCV on the processor. It takes 1 x C x H x W values and
/// gives 1 x C x sH x sW, C being 3 (red, green, blue) or 1 (luma), s a whole number 1..8; which, a trial run tells. It
/// sees the encoded values of the picture as they stand, 1.0 full scale: networks learn what sRGB's curve makes of
/// edges, and the working space has that curve; so values outside of sRGB's primaries survive. A network of one channel
/// enlarges the luma; the rest is Catmull-Rom. One picture at a time. A model is run like a program and must be trusted
/// like one; what is plainly damaged is refused before OpenCV sees it.
class NetworkUpscaler
{
public:
    /// Loads and tries the model. `scale`: what it must enlarge by; empty: whatever it does. `overlap`: how many
    /// samples of the picture tiles see beyond their own part, 0..kMostOverlap; at least the reach of the network, or
    /// seams will show. Throws NetworkFailure.
    NetworkUpscaler(const std::filesystem::path& model, std::optional<int> scale, int overlap);
    ~NetworkUpscaler();
    NetworkUpscaler(const NetworkUpscaler&) = delete;
    NetworkUpscaler& operator=(const NetworkUpscaler&) = delete;

    static constexpr int kMostOverlap = 256;

    [[nodiscard]] int scale() const;

    /// Writes the enlarged picture into `target`, which has scale() times the size of `source`. Tiles of one size go
    /// through the network one after the other, those at the border see the edge repeated; so memory is the network's
    /// for one tile, whatever the picture. What the network gives that is no finite number becomes the nearest sample.
    /// False if `cancel`, read before each tile, was set. Throws NetworkFailure.
    [[nodiscard]] bool enlarge(const _ImageData<PixelRGB<float>>& source, _ImageData<PixelRGB<float>>& target,
                               const std::atomic<bool>* cancel);

private:
    struct State;
    std::unique_ptr<State> state;
};

} // namespace orvo::details
