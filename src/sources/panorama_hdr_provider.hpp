/// Panorama pictures from exposure brackets.
#pragma once

#include "sources/panorama_provider.hpp"

#include <orvo_extensions/hdr.hpp>

#include <filesystem>
#include <functional>
#include <vector>

namespace orvo {

/// One merged picture for each bracket, the brackets in order of their smallest paths. Peak: all matrices, and what
/// make_HDR() holds.
class PanoramaHDRProvider : public PanoramaProvider
{
public:
    explicit PanoramaHDRProvider(const PanoSourceHDR& source);

    /// A bracket that cannot be merged gives an empty list; make_HDR() has logged why.
    std::vector<cv::Mat> load(std::function<bool()> canceled);

    /// Stops a merge that runs, or lets the next one run, through the cancel flag of the settings. From any thread.
    void cancelLoad(bool cancel);

private:
    std::vector<std::vector<std::filesystem::path>> brackets;
    HDRSettings hdr;
};

} // namespace orvo
