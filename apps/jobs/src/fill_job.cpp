#include "checks.hpp"
#include "picture_run.hpp"

#include <jobs/fill_job.hpp>
#include <orvo/filling.hpp>
#include <orvo_io/image_reader.hpp>

#include <memory>
#include <vector>

namespace orvo::jobs {
namespace {

// See fillJob().
constexpr JobProgress kCheckStarts{JobStep::Check, 0.0};
constexpr JobProgress kLoadStarts{JobStep::Load, 0.02};
constexpr double kFillStarts = 0.1;
constexpr JobProgress kWriteStarts{JobStep::Write, 0.9};

std::shared_ptr<Image> opened(PictureRun& run, const std::filesystem::path& path)
{
    constexpr auto kAsItStands =
        static_cast<ImageReaderOpenFlag>(static_cast<std::int32_t>(ImageReaderOpenFlag::Upright) |
                                         static_cast<std::int32_t>(ImageReaderOpenFlag::Embedded) |
                                         static_cast<std::int32_t>(ImageReaderOpenFlag::Complete));
    auto image = ImageReader::instance().open({path, {}}, {}, kAsItStands, nullptr, {}, -1);
    if (!image)
        throwLastFailure("the picture cannot be read");
    run.keepWarnings();
    run.throwIfCancelled();
    return image;
}

std::shared_ptr<MaskImage> openedMask(PictureRun& run, const std::filesystem::path& path)
{
    const auto pixels = opened(run, path)->imageData({}, {}, true);
    auto mask = std::make_shared<MaskImage>(pixels->size());
    forEachRow(mask->height(), [&](int y) {
        for (int x = 0; x < mask->width(); ++x) {
            const PixelRGB<float>& p = pixels->row(y)[x];
            mask->row(y)[x] = (p.r + p.g + p.b) / 3.0f;
        }
    });
    return mask;
}

void checkFiles(PictureRun& run, const FillJobRequest& request, ImageFileFormat format)
{
    run.report(kCheckStarts);
    const std::vector inputs{request.source, request.mask};
    run.checkFiles(inputs);
    if (!request.model.empty())
        checkIsFile(request.model, "network");
    checkOutput(request.output, inputs, request);
    checkHolds(request.output, format, run.checkPictures(inputs).front()->size);
    run.followDepthOf({request.source});
    run.throwIfCancelled();
}

std::shared_ptr<Image> fill(PictureRun& run, const FillJobRequest& request)
{
    run.report(kLoadStarts);
    const auto image = opened(run, request.source);
    auto pixels = image->imageData({}, {}, true);
    if (pixels->colorProfile() && pixels->colorProfile()->isLinear())
        pixels->convertTo(ColorProfileType::melissaRGB()); // steps of linear light are not even to the eye
    const auto mask = openedMask(run, request.mask);
    run.report({JobStep::Fill, kFillStarts, /*opaque=*/!request.model.empty()});
    const auto filler = request.model.empty() ? patchFiller() : networkFiller(request.model);
    const RunControl control([&] { return run.isCancelled(); },
                             run.progressFrom({JobStep::Fill, kFillStarts}, kWriteStarts.fraction));
    try {
        return CreateOrvoImage(filler->fill(*pixels, *mask, control), image->metadata());
    } catch (const FailureError& error) { // a filler knows of no files; a mask that marks everything is what is left
        if (error.failure().kind != FailureKind::UnfittingPictures)
            throw;
        throw FailureError({FailureKind::UnfittingPictures, request.mask, error.failure().sentence});
    }
}

} // namespace

FillJobResult fillJob(const FillJobRequest& request, const JobCallbacks& callbacks)
{
    FillJobResult result;
    result.output = request.output;
    result.source = request.source;
    result.mask = request.mask;
    runPictureJob(request, callbacks, result, [&](PictureRun& run) {
        checkFileNames({request.source, request.mask}, request.output);
        const ImageWriteSettings settings = writeSettingsFor(request.output, request);
        checkFiles(run, request, settings.format);
        const std::shared_ptr<Image> filled = fill(run, request);
        run.report(kWriteStarts);
        static_cast<WrittenPicture&>(result) = run.write(*filled, request.output, settings, 1.0);
    });
    return result;
}

} // namespace orvo::jobs
