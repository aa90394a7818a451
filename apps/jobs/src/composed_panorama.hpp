/// A panorama by way of the interactive composer: turned, straightened and cropped.
#pragma once

#include "picture_run.hpp"

#include <jobs/pano_job.hpp>
#include <orvo_extensions/panorama.hpp>

#include <memory>
#include <variant>

namespace orvo::jobs {

using AnyPanoSource = std::variant<PanoSource, PanoSourceHDR, PanoSourceVideo>;

/// Whether the request asks for what only the composer does.
[[nodiscard]] bool needsComposer(const PanoJobRequest& request);

/// A panorama over white.
struct ComposedPicture
{
    std::shared_ptr<const _ImageData<PixelRGB<float>>> picture;
    /// Only of a transparent panorama: how much of each pixel is covered. Then partly covered pixels contain no white.
    std::shared_ptr<const _ImageData<float>> coverage;
};

/// Loads, registers, turns the view, finds the crop and draws. Reports Load and Stitch up to `doneFraction`. Throws
/// FailureError; a cancel stops what runs. Sets the places and the focal length of `result` once the pictures are
/// registered.
[[nodiscard]] ComposedPicture composePanorama(PictureRun& run, const PanoJobRequest& request,
                                              const AnyPanoSource& source, double doneFraction, PanoJobResult& result);

} // namespace orvo::jobs
