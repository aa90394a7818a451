/// Panorama pictures from single files.
#pragma once

#include "sources/panorama_provider.hpp"

#include <filesystem>
#include <functional>
#include <vector>

namespace orvo {

/// What keeps all frames of a raw panorama on one white balance.
struct SourceMedians
{
    float ev = -1000.0f; ///< told for completeness: all frames are developed at exposure 0
    float temperature = 0.0f;
    float tint = 0.0f;
    bool hasWhiteBalance = false;
};

/// Medians over the files by their metadata. As soon as one of them is not raw there is nothing to keep together:
/// exposure is -1000 and there is no white balance.
[[nodiscard]] SourceMedians computeSourceMedians(const std::vector<std::filesystem::path>& files);

/// One file as a working matrix; a raw file is developed, with the medians' white balance if they have one. Empty if it
/// cannot be opened.
[[nodiscard]] cv::Mat loadPanoramaFrame(const std::filesystem::path& path, const LensFlags& lensFlags,
                                        const SourceMedians& medians);

/// The files in order of their paths, whatever order they were given in. Read one after the other: memory is the limit.
/// Peak: all matrices, and one picture of floats.
class PanoramaImagesProvider : public PanoramaProvider
{
public:
    explicit PanoramaImagesProvider(const PanoSource& source);

    /// A file that cannot be read is told on standard error and gives an empty list. Exceptions pass.
    std::vector<cv::Mat> load(std::function<bool()> canceled);

private:
    std::vector<std::filesystem::path> files;
};

} // namespace orvo
