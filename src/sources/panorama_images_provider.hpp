/// Panorama pictures from single files.
#pragma once

#include "sources/panorama_provider.hpp"

#include <orvo_extensions/picture_input.hpp>

#include <filesystem>
#include <functional>
#include <vector>

namespace orvo {

/// Gives all frames of a raw panorama the same white balance.
struct SourceMedians
{
    float ev = -1000.0f; ///< for information: all frames are developed at exposure 0
    float temperature = 0.0f;
    float tint = 0.0f;
    bool hasWhiteBalance = false;
};

/// Medians over the files' metadata. If any file is not raw there is nothing to equalise: exposure is -1000 and there
/// is no white balance.
[[nodiscard]] SourceMedians computeSourceMedians(const std::vector<std::filesystem::path>& files);

/// Loads one picture as a working matrix; a raw file is developed, with the median white balance if there is one. Empty
/// if it cannot be opened.
[[nodiscard]] cv::Mat loadPanoramaFrame(const PictureInput& input, const LensFlags& lensFlags,
                                        const SourceMedians& medians);

/// The pictures sorted by path. Read one after the other, to limit memory. Peak: all matrices, and one picture of
/// floats.
class PanoramaImagesProvider : public PanoramaProvider
{
public:
    explicit PanoramaImagesProvider(const PanoSource& source);
    /// Any inputs; writes nothing to standard error.
    PanoramaImagesProvider(std::vector<PictureInput> pictures, const PanoramaStitchingSettings& settings);

    /// A file that cannot be read is reported on standard error and gives an empty list. Exceptions reach the caller.
    std::vector<cv::Mat> load(std::function<bool()> canceled);

private:
    std::vector<PictureInput> inputs;
    bool reportsOnStandardError;
};

} // namespace orvo
