/// Panorama pictures from a video.
#pragma once

#include "sources/panorama_provider.hpp"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <vector>

namespace orvo {

/// The key frames of an interval of the video, followed by the frames that the user added by hand. Decodes once, until
/// the interval changes. Peak: all matrices, and one 8-bit picture for each key frame.
class PanoramaVideoProvider : public PanoramaProvider
{
public:
    explicit PanoramaVideoProvider(const PanoSourceVideo& source);

    /// A failure is logged and gives an empty list.
    std::vector<cv::Mat> load(std::function<bool()> canceled);

    void setInterval(std::uint64_t start, std::uint64_t end);
    /// Replaces the frames that were added by hand. They are read in ascending order; a frame that cannot be read is
    /// dropped with its rectangle. Exceptions reach the caller.
    void setCompositionFrames(const std::vector<std::uint64_t>& frames, const std::vector<_Rect<int>>& rects);

    /// The frames added by hand that could be read, and their rectangles, in the order of the last images.
    [[nodiscard]] const std::vector<std::uint64_t>& getCompositionFrames() const { return compositionFrames; }
    [[nodiscard]] const std::vector<_Rect<int>>& getCompositionRects() const { return compositionRects; }

private:
    std::filesystem::path file;
    std::uint64_t start;
    std::uint64_t end;
    std::vector<std::uint64_t> compositionFrames;
    std::vector<_Rect<int>> compositionRects;
    std::uint64_t keyFrameCount = 0;
    bool needsLoad = true;

    [[nodiscard]] bool selectAll(const RunControl& run);
    void applyCompositionFrames();
};

} // namespace orvo
