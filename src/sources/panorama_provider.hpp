/// What the sources of panorama pictures share.
#pragma once

#include <orvo_common/run_control.hpp>
#include <orvo_extensions/panorama.hpp>

#include <opencv2/core/mat.hpp>

#include <functional>
#include <utility>
#include <vector>

namespace orvo {

/// Which corrections the lens of a picture gets.
struct LensFlags
{
    bool autoLensCorrection = false;
    bool rawChromaticAberration = false;
    bool devignette = false; ///< the stitcher's work
};

/// A provider's own `load(canceled)` gives one CV_16SC3 matrix for each input, or none if it failed or was stopped; it
/// may be called several times, by one thread at a time. The matrices share their pixels with the provider's.
class PanoramaProvider
{
public:
    /// Gets 0 to 1 while load() runs. To be called before. May be empty.
    void setLoadCallback(std::function<void(float)> callback)
    {
        progress = callback ? std::move(callback) : [](float) {};
    }
    /// What the last load() has read, also where it then stopped.
    [[nodiscard]] const std::vector<cv::Mat>& getImages() const { return images; }
    /// Lets go of them; who else holds the matrices keeps them.
    void dropImages() { images.clear(); }

protected:
    explicit PanoramaProvider(const PanoramaStitchingSettings& settings)
        : lensFlags{settings.autoLensCorrection, settings.rawChromaticAberration, settings.devignette}
    {}

    /// The argument of load(), which must be callable: throws std::bad_function_call.
    static std::function<bool()> requiredCancel(std::function<bool()> canceled)
    {
        if (!canceled)
            throw std::bad_function_call();
        return canceled;
    }

    LensFlags lensFlags;
    std::function<void(float)> progress = [](float) {};
    std::vector<cv::Mat> images;
};

} // namespace orvo
