/// Shared by the sources of panorama pictures.
#pragma once

#include <orvo_common/run_control.hpp>
#include <orvo_extensions/panorama.hpp>

#include <opencv2/core/mat.hpp>

#include <functional>
#include <utility>
#include <vector>

namespace orvo {

/// Lens corrections of a picture.
struct LensFlags
{
    bool autoLensCorrection = false;
    bool rawChromaticAberration = false;
    bool devignette = false; ///< done by the stitcher
};

/// A provider's `load(canceled)` returns one CV_16SC3 matrix per input, or none if it failed or was cancelled; it may
/// be called several times, by one thread at a time. The matrices share their pixels with the provider's.
class PanoramaProvider
{
public:
    /// Receives 0 to 1 while load() runs. Set it before; may be empty.
    void setLoadCallback(std::function<void(float)> callback)
    {
        progress = callback ? std::move(callback) : [](float) {};
    }
    /// The matrices of the last load(), also if it was stopped.
    [[nodiscard]] const std::vector<cv::Mat>& getImages() const { return images; }
    /// Frees them; other holders of the matrices keep them.
    void dropImages() { images.clear(); }

protected:
    explicit PanoramaProvider(const PanoramaStitchingSettings& settings)
        : lensFlags{settings.autoLensCorrection, settings.rawChromaticAberration, settings.devignette}
    {}

    /// The argument of load(); throws std::bad_function_call if it is not callable.
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
