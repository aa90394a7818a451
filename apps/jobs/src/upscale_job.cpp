#include "checks.hpp"
#include "picture_run.hpp"

#include <jobs/upscale_job.hpp>
#include <jobs/upscale_network.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_extensions/requests.hpp>

#include <algorithm>
#include <string>

namespace orvo::jobs {
namespace {

// See upscaleJob(). Writing takes a notable share of the time with the filters, and little with a network.
constexpr JobProgress kCheckStarts{JobStep::Check, 0.0};
constexpr JobProgress kUpscaleStarts{JobStep::Upscale, 0.02};
constexpr JobProgress kWriteStarts{JobStep::Write, 0.85};

void checkRange(const std::string& name, int value, int low, int high)
{
    if (value < low || value > high)
        throw JobRefusal(name + " is " + std::to_string(value) + ", expected " + std::to_string(low) + " to " +
                         std::to_string(high));
}

/// Checks the values that do not depend on files.
void checkRequest(const UpscaleJobRequest& request)
{
    constexpr int kMostDenoise = 3;
    checkFileNames({request.source}, request.output);
    checkRange("the number of passes", request.passes, 1, kMostUpscalePasses);
    checkRange("the strength of denoising", request.denoise, 0, kMostDenoise);
    if (request.builtIn && !request.model.empty())
        throw JobRefusal(pathText(request.model) + ": a network was given together with the built-in filters");
}

UpscaleAISettings upscaleSettings(const UpscaleJobRequest& request)
{
    UpscaleAISettings settings;
    settings.passes = request.passes;
    settings.denoise = request.denoise;
    settings.faces = request.faces;
    settings.crisp = request.crisp;
    settings.builtIn = request.builtIn;
    return settings;
}

/// True if even the largest possible result for a picture of `size` can be made and written.
bool fitsForCertain(_Size<int> size, int passes, ImageFileFormat format)
{
    double scale = 1.0;
    for (int pass = 0; pass < passes; ++pass)
        scale *= kMostUpscaleScale;
    return std::max(size.width, size.height) * scale <= longestSideOf(format) &&
           size.width * scale * size.height * scale <= static_cast<double>(kMostUpscaledPixels);
}

/// throwLastFailure() for a call about `source`. Names it even if the failure is about another file, such as the
/// network, or about none.
[[noreturn]] void throwLastFailureOn(const std::filesystem::path& source, const char* otherwise)
{
    Failure failure = lastFailure().value_or(Failure{FailureKind::Internal, {}, otherwise});
    if (failure.file != source)
        failure = {failure.kind, source, describe(failure)};
    throw FailureError(failure);
}

/// Checks that the result can be made and written. Called only where necessary: it may have to load a network.
void checkResult(const UpscaleJobRequest& request, ImageFileFormat format, _Size<int> size)
{
    if (fitsForCertain(size, request.passes, format))
        return;
    const UpscaleNetwork network(request.model);
    const _Size<int> result = upscaledSize(size, upscaleSettings(request));
    if (result == _Size<int>())
        throwLastFailureOn(request.source, "cannot enlarge the picture");
    checkHolds(request.output, format, result);
}

_Size<int> checkFiles(PictureRun& run, const UpscaleJobRequest& request, ImageFileFormat format)
{
    run.report(kCheckStarts);
    run.checkFiles({request.source});
    if (!request.model.empty())
        checkIsFile(request.model, "network");
    checkOutput(request.output, {request.source}, request);
    const auto metadata = run.checkPictures({request.source});
    checkResult(request, format, metadata.front()->size);
    run.followDepthOf({request.source});
    run.throwIfCancelled();
    return metadata.front()->size;
}

std::shared_ptr<Image> upscale(PictureRun& run, const UpscaleJobRequest& request)
{
    run.report(kUpscaleStarts);
    const UpscaleNetwork network(request.model);
    UpscaleRequest upscaling;
    upscaling.picture = request.source;
    upscaling.settings = upscaleSettings(request);
    upscaling.cancel = [&run] { return run.isCancelled(); };
    upscaling.progress = run.progressFrom(kUpscaleStarts, kWriteStarts.fraction);
    auto upscaled = perform(upscaling).image;
    run.throwIfCancelled();
    if (!upscaled)
        throwLastFailureOn(request.source, "cannot enlarge the picture");
    run.keepWarnings();
    return upscaled;
}

} // namespace

UpscaleJobResult upscaleJob(const UpscaleJobRequest& request, const JobCallbacks& callbacks)
{
    UpscaleJobResult result;
    result.output = request.output;
    result.source = request.source;
    runPictureJob(request, callbacks, result, [&](PictureRun& run) {
        checkRequest(request);
        const ImageWriteSettings settings = writeSettingsFor(request.output, request);
        result.sourceSize = checkFiles(run, request, settings.format);
        const std::shared_ptr<Image> upscaled = upscale(run, request);
        run.report(kWriteStarts);
        static_cast<WrittenPicture&>(result) = run.write(*upscaled, request.output, settings, 1.0);
    });
    return result;
}

} // namespace orvo::jobs
