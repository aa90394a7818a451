#include "checks.hpp"
#include "picture_run.hpp"

#include <jobs/pano_job.hpp>

#include <algorithm>
#include <string>

namespace orvo::jobs {
namespace {

// See panoJob().
constexpr JobProgress kCheckStarts{JobStep::Check, 0.0};
constexpr JobProgress kStitchStarts{JobStep::Stitch, 0.02};
constexpr JobProgress kWriteStarts{JobStep::Write, 0.9};

/// Values of the request that are wrong whatever lies on the disk.
void checkRequest(const PanoJobRequest& request)
{
    checkFileNames(request.files, request.output);
    if (request.files.size() < 2)
        throw JobRefusal("a panorama needs two pictures or more");
    if (request.maxSize < 0 || request.maxSize > kLongestPanoramaSide)
        throw JobRefusal("the largest size is " + std::to_string(request.maxSize) + ", expected 1 to " +
                         std::to_string(kLongestPanoramaSide));
}

void checkFiles(PictureRun& run, const PanoJobRequest& request)
{
    run.report(kCheckStarts);
    run.checkFiles(request.files);
    checkOutput(request.output, request.files);
    (void)run.checkPictures(request.files);
    run.throwIfCancelled();
}

PanoSource sourceOf(const PanoJobRequest& request)
{
    PanoSource source;
    source.files = request.files;
    source.settings.devignette = request.devignette;
    source.settings.autoLensCorrection = request.lensCorrection;
    source.settings.rawChromaticAberration = request.chromaticAberrations;
    source.settings.warpType = static_cast<std::int32_t>(request.projection);
    return source;
}

StitchedPanorama stitch(PictureRun& run, const PanoJobRequest& request)
{
    run.report(kStitchStarts);
    const double room = kWriteStarts.fraction - kStitchStarts.fraction;
    const auto progress = [&](float share) {
        run.report({JobStep::Stitch, kStitchStarts.fraction + room * static_cast<double>(share)});
    };
    auto panorama = stitchPanorama(sourceOf(request), {request.projection, request.maxSize}, progress,
                                   [&] { return run.isCancelled(); });
    run.throwIfCancelled();
    return panorama;
}

} // namespace

PanoJobResult panoJob(const PanoJobRequest& request, const JobCallbacks& callbacks)
{
    PanoJobResult result;
    result.output = request.output;
    result.projection = request.projection;
    runPictureJob(request, callbacks, result, [&](PictureRun& run) {
        checkRequest(request);
        const ImageWriteSettings settings = writeSettingsFor(request.output, request);
        checkFiles(run, request);
        const StitchedPanorama panorama = stitch(run, request);
        result.focalLength = static_cast<double>(panorama.focalLength);
        result.places = panorama.places;
        if (!panorama.image)
            throwLastFailure("the pictures gave no panorama and no reason");
        run.keepWarnings();
        run.report(kWriteStarts);
        static_cast<WrittenPicture&>(result) = run.write(*panorama.image, request.output, settings, 1.0);
    });
    if (result.done())
        for (const PanoramaPlace& place : result.places)
            if (!place.placed)
                result.warnings.push_back(place.path.string() + ": was left out, since it fits none of the others");
    return result;
}

} // namespace orvo::jobs
