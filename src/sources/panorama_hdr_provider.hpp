/// Panorama pictures from exposure brackets.
#pragma once

#include "sources/panorama_provider.hpp"

#include <orvo_extensions/hdr.hpp>

#include <filesystem>
#include <functional>
#include <vector>

namespace orvo {

/// One merged picture per bracket, in order of the smallest paths of the brackets. Peak: all matrices, and the peak of
/// make_HDR().
class PanoramaHDRProvider : public PanoramaProvider
{
public:
    explicit PanoramaHDRProvider(const PanoSourceHDR& source);

    /// A bracket that cannot be merged gives an empty list; make_HDR() has logged the reason.
    std::vector<cv::Mat> load(std::function<bool()> canceled);

    /// Stops a running merge, or allows the next one, through the cancel flag of the settings. From any thread.
    void cancelLoad(bool cancel);

private:
    std::vector<std::vector<std::filesystem::path>> brackets;
    HDRSettings hdr;
};

} // namespace orvo
