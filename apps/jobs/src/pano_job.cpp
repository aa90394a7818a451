#include "bracket_groups.hpp"
#include "checks.hpp"
#include "composed_panorama.hpp"
#include "ghost_reference.hpp"
#include "picture_run.hpp"

#include <jobs/pano_job.hpp>
#include <orvo_common/wide_path.hpp>

#include <algorithm>
#include <string>
#include <utility>

namespace orvo::jobs {
namespace {

// See panoJob().
constexpr JobProgress kCheckStarts{JobStep::Check, 0.0};
constexpr JobProgress kStitchStarts{JobStep::Stitch, 0.02};
constexpr JobProgress kWriteStarts{JobStep::Write, 0.9};

/// Checks the values that do not depend on files.
void checkRequest(const PanoJobRequest& request)
{
    const bool isVideo = !request.video.empty();
    checkFileNames(isVideo ? std::vector{request.video} : request.files, request.output);
    if (isVideo && (!request.files.empty() || request.brackets))
        throw JobRefusal("a panorama is made of files or of a video, not of both");
    if (request.to && *request.to <= request.from.value_or(0))
        throw JobRefusal("the video is to end at frame " + std::to_string(*request.to) + ", before its first frame " +
                         std::to_string(request.from.value_or(0)));
    if (!isVideo && request.files.size() < 2)
        throw JobRefusal("a panorama needs two pictures or more");
    if (request.maxSize < 0 || request.maxSize > kLongestPanoramaSide)
        throw JobRefusal("the largest size is " + std::to_string(request.maxSize) + ", expected 1 to " +
                         std::to_string(kLongestPanoramaSide));
}

/// What is looked at before anything starts; the metadata of the files, none of a video.
std::vector<std::shared_ptr<const ImageMetadata>> checkFiles(PictureRun& run, const PanoJobRequest& request)
{
    run.report(kCheckStarts);
    const bool isVideo = !request.video.empty();
    const std::vector<std::filesystem::path> inputs = isVideo ? std::vector{request.video} : request.files;
    if (isVideo)
        checkIsFile(request.video, "video");
    else
        run.checkFiles(inputs);
    checkOutput(request.output, inputs, request);
    std::vector<std::shared_ptr<const ImageMetadata>> metadata;
    if (!isVideo)
        metadata = run.checkPictures(inputs);
    constexpr int kVideoBits = 8; // frames are decoded to 8 bits
    if (isVideo)
        run.followDepth(kVideoBits);
    else if (!request.brackets) // a merge has more tones than each of its frames
        run.followDepthOf(inputs);
    run.throwIfCancelled();
    return metadata;
}

PanoramaStitchingSettings settingsOf(const PanoJobRequest& request)
{
    PanoramaStitchingSettings settings;
    settings.devignette = request.devignette;
    settings.autoLensCorrection = request.lensCorrection;
    settings.rawChromaticAberration = request.chromaticAberrations;
    settings.warpType = static_cast<std::int32_t>(request.projection);
    return settings;
}

PanoSource sourceOf(const PanoJobRequest& request) { return {request.files, settingsOf(request)}; }

PanoSourceHDR bracketsOf(const PictureRun& run, const PanoJobRequest& request,
                         const std::vector<std::shared_ptr<const ImageMetadata>>& metadata)
{
    PanoSourceHDR source;
    for (auto& bracket : groupBrackets(request.files, request.bracketSize, [&] { return run.isCancelled(); })) {
        std::vector<std::shared_ptr<const ImageMetadata>> ofBracket;
        for (const auto& file : bracket) {
            const auto found = std::find(request.files.begin(), request.files.end(), file);
            ofBracket.push_back(metadata[static_cast<std::size_t>(found - request.files.begin())]);
        }
        checkSizesAgree(bracket, ofBracket);
        source.brackets.push_back(withGhostReferenceFirst(std::move(bracket)));
    }
    source.hdr.ghostRefImageIdx = 0;
    source.settings = settingsOf(request);
    // Panoramas are taken from the hand and of places where people walk.
    source.hdr.alignment = true;
    source.hdr.highlightHue = HighlightHue::Kept;
    source.hdr.ghostReduction = true;
    source.hdr.deghostAmount = DeghostAmount::Medium;
    source.hdr.chromaticAberrations = request.chromaticAberrations;
    source.hdr.lensCorrection = request.lensCorrection;
    return source;
}

PanoSourceVideo videoOf(const PanoJobRequest& request)
{
    // Beyond the last frame of any video; reading ends where there are no more.
    constexpr std::uint64_t kAllFrames = std::uint64_t{1} << 31;
    PanoSourceVideo source;
    source.file = request.video;
    source.settings = settingsOf(request);
    source.start = request.from.value_or(0);
    source.end = request.to.value_or(source.start + kAllFrames);
    for (const PanoVideoFrame& frame : request.frames) {
        source.frames.push_back(frame.number);
        source.rects.push_back(frame.part);
    }
    return source;
}

AnyPanoSource anySourceOf(const PictureRun& run, const PanoJobRequest& request, PanoJobResult& result,
                          const std::vector<std::shared_ptr<const ImageMetadata>>& metadata)
{
    if (!request.video.empty())
        return videoOf(request);
    if (!request.brackets)
        return sourceOf(request);
    PanoSourceHDR source = bracketsOf(run, request, metadata);
    result.brackets = source.brackets.size();
    return source;
}

// The index of the first file that was placed; the number of files if none was.
std::size_t firstPlaced(const PanoJobRequest& request, const std::vector<PanoramaPlace>& places)
{
    const auto isPlaced = [&](const std::filesystem::path& file) {
        return std::any_of(places.begin(), places.end(),
                           [&](const PanoramaPlace& place) { return place.placed && place.path == file; });
    };
    return static_cast<std::size_t>(std::find_if(request.files.begin(), request.files.end(), isPlaced) -
                                    request.files.begin());
}

struct Drawn
{
    std::shared_ptr<Image> image;
    std::shared_ptr<const _ImageData<float>> coverage; // empty: opaque
};

Drawn compose(PictureRun& run, const PanoJobRequest& request, PanoJobResult& result,
              const std::vector<std::shared_ptr<const ImageMetadata>>& inputs)
{
    const auto [picture, coverage] =
        composePanorama(run, request, anySourceOf(run, request, result, inputs), kWriteStarts.fraction, result);
    auto metadata = std::make_shared<ImageMetadata>();
    if (const auto first = firstPlaced(request, result.places); first < inputs.size())
        *metadata = *inputs[first];
    metadata->size = picture->size();
    metadata->isRaw = false;
    metadata->isFinished = true;
    return {CreateOrvoImage(picture, metadata), coverage};
}

Drawn stitch(PictureRun& run, const PanoJobRequest& request, PanoJobResult& result)
{
    run.report(kStitchStarts);
    const StitchedPanorama panorama =
        stitchPanorama(sourceOf(request), {request.projection, request.maxSize, request.transparent},
                       run.progressFrom(kStitchStarts, kWriteStarts.fraction), [&] { return run.isCancelled(); });
    run.throwIfCancelled();
    result.focalLength = static_cast<double>(panorama.focalLength);
    result.places = panorama.places;
    if (!panorama.image)
        throwLastFailure("stitching returned no picture and no reason");
    run.keepWarnings();
    return {panorama.image, panorama.coverage};
}

const char* reasonOfLeavingOut(const PanoJobRequest& request)
{
    return request.brackets ? "left out with its bracket, because it matches no other bracket"
                            : "left out, because it matches no other picture";
}

} // namespace

PanoJobResult panoJob(const PanoJobRequest& request, const JobCallbacks& callbacks)
{
    PanoJobResult result;
    result.output = request.output;
    result.projection = request.projection;
    runPictureJob(request, callbacks, result, [&](PictureRun& run) {
        checkRequest(request);
        ImageWriteSettings settings = writeSettingsFor(request.output, request);
        if (request.transparent && settings.format == ImageFileFormat::Jpeg)
            throw JobRefusal(pathText(request.output) + ": a JPEG has no transparency; PNG, TIFF and EXR have");
        const auto metadata = checkFiles(run, request);
        const Drawn drawn =
            needsComposer(request) ? compose(run, request, result, metadata) : stitch(run, request, result);
        settings.alpha = drawn.coverage;
        if (request.strict)
            for (const PanoramaPlace& place : result.places)
                if (!place.placed)
                    throw FailureError({FailureKind::UnfittingPictures, place.path, reasonOfLeavingOut(request)});
        run.noteLensInVain(request.lensCorrection, request.files);
        run.report(kWriteStarts);
        static_cast<WrittenPicture&>(result) = run.write(*drawn.image, request.output, settings, 1.0);
    });
    if (result.done())
        for (const PanoramaPlace& place : result.places)
            if (!place.placed)
                result.warnings.push_back(pathText(place.path) + ": " + reasonOfLeavingOut(request));
    return result;
}

} // namespace orvo::jobs
