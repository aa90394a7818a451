#include "generative_run.hpp"
#include "restored_detail.hpp"

#include <jobs/restore_job.hpp>
#include <orvo_common/temporary_directory.hpp>
#include <orvo_common/uuid.hpp>
#include <orvo_extensions/generative_restoration.hpp>
#include <orvo_io/base64.hpp>
#include <orvo_io/base64_image.hpp>

#include <cerrno>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>

namespace orvo::jobs {
namespace {

using Picture = _ImageData<PixelRGB<float>>;

// See restoreJob().
constexpr double kRequestStarts = 0.06;
constexpr double kAnswerStarts = 0.12;
constexpr double kApplyStarts = 0.5;
constexpr double kEnlargeStarts = 0.8;
constexpr double kWriteStarts = 0.92;

/// The bytes of a picture in a file of the process, as long as this object lives.
class TemporaryPicture
{
public:
    explicit TemporaryPicture(const std::string& base64) : file(getTemporaryDirectory() / (generateUUID() + ".png"))
    {
        const auto bytes = bytesOfBase64(base64);
        std::ofstream out(file, std::ios::binary);
        if (bytes)
            out.write(reinterpret_cast<const char*>(bytes->data()), static_cast<std::streamsize>(bytes->size()));
        out.close();
        if (out)
            return;
        const int cause = errno;
        remove();
        throw FailureError({kindOfSystemError(cause, FailureKind::Internal), file,
                            "the answer cannot be written: " + std::generic_category().message(cause)});
    }
    ~TemporaryPicture() { remove(); }
    TemporaryPicture(const TemporaryPicture&) = delete;
    TemporaryPicture& operator=(const TemporaryPicture&) = delete;
    [[nodiscard]] const std::filesystem::path& path() const { return file; }

private:
    void remove() const noexcept
    {
        std::error_code ignored;
        std::filesystem::remove(file, ignored);
    }

    std::filesystem::path file;
};

std::string requestedPicture(PictureRun& run, GenRestorationProcessor& restoration, const RestoreJobRequest& request)
{
    run.report({JobStep::Request, kRequestStarts, /*opaque=*/true});
    auto input = restoration.generateRequest();
    if (input.size == _Size<int>())
        throw FailureError({FailureKind::UnreadableFile, request.source, "the picture cannot be read"});
    return std::move(input.image);
}

std::shared_ptr<Picture> answered(GenRestorationProcessor& restoration, const ServiceAnswer& answer,
                                  const RestoreJobRequest& request)
{
    const TemporaryPicture file(answer.picture);
    auto picture = restoration.applyResponse(file.path());
    if (!picture)
        throw FailureError({FailureKind::Internal, request.source, "the answer could not be read"});
    return picture;
}

// The picture with less noise, and nothing else.
std::shared_ptr<Picture> withoutNoise(PictureRun& run, const Picture& picture)
{
    RestorationSettings noiseAlone;
    noiseAlone.blur = 0.0f;
    noiseAlone.contrast = 0.0f;
    noiseAlone.faces = 0.0f;
    const RunControl control(
        [&] { return run.isCancelled(); },
        [&](float done) {
            run.report({JobStep::Apply, kApplyStarts + (kEnlargeStarts - kApplyStarts) * static_cast<double>(done)});
        });
    return restorePicture(picture, noiseAlone, control);
}

// Lets go of each picture as soon as it has been used: they are as large as the source.
std::shared_ptr<const Picture> atFullSize(PictureRun& run, std::shared_ptr<const Picture> answer,
                                          const std::string& sent, std::shared_ptr<const Picture> picture)
{
    run.report({JobStep::Apply, kApplyStarts});
    auto restored = answerInColours(*answer, *convertToImageData(sent), *picture);
    if (restored->size() == picture->size())
        return restored;
    answer.reset();
    auto quiet = withoutNoise(run, *picture);
    picture.reset();
    run.report({JobStep::Apply, kEnlargeStarts, /*opaque=*/true});
    return withFineDetail(std::move(restored), std::move(quiet));
}

void restore(PictureRun& run, const RestoreJobRequest& request, RestoreJobResult& result)
{
    GenerativeRun generative(run, request, result);
    (void)generative.check({});
    GenRestorationProcessor restoration(request.source, {}, {});
    const std::string sent = requestedPicture(run, restoration, request);
    run.throwIfCancelled();
    const auto answer = generative.exchange(service::Tool::Restore, sent, {}, kAnswerStarts, kApplyStarts);
    if (!answer)
        return;
    std::shared_ptr<const Picture> restored = answered(restoration, *answer, request);
    auto source = generative.open();
    const auto metadata = source->metadata();
    if (!request.asIs) {
        auto picture = source->developedOriginalImageData({});
        source.reset();
        restored = atFullSize(run, std::move(restored), sent, std::move(picture));
    }
    run.report({JobStep::Write, kWriteStarts});
    generative.write(restored, metadata, request.asIs ? ColorProfileType::sRGB() : nullptr);
}

} // namespace

RestoreJobResult restoreJob(const RestoreJobRequest& request, const JobCallbacks& callbacks)
{
    RestoreJobResult result;
    result.output = request.output;
    result.source = request.source;
    runPictureJob(request, callbacks, result, [&](PictureRun& run) { restore(run, request, result); });
    return result;
}

} // namespace orvo::jobs
