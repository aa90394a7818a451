#include "generative_run.hpp"
#include "mask_strokes.hpp"

#include <jobs/erase_job.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_extensions/generative_erase.hpp>
#include <orvo_io/base64_image.hpp>
#include <orvo_io/image_reader.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>

namespace orvo::jobs {
namespace {

using Picture = _ImageData<PixelRGB<float>>;

// See eraseJob().
constexpr double kLoadStarts = 0.02;
constexpr double kRequestStarts = 0.06;
constexpr double kAnswerStarts = 0.12;
constexpr double kApplyStarts = 0.85;
constexpr double kWriteStarts = 0.92;

constexpr float kHard = 0.0f;
constexpr float kOpaque = 1.0f;
constexpr float kMarked = 0.5f; // a middle gray

void checkMarks(const EraseJobRequest& request)
{
    if (request.masks.empty() && request.boxes.empty() && request.strokes.empty())
        throw JobRefusal("nothing is marked: a mask, a box or a stroke is needed");
    for (const _Rect<int>& box : request.boxes)
        if (box.width < 1 || box.height < 1)
            throw JobRefusal("a box has " + std::to_string(box.width) + " x " + std::to_string(box.height) +
                             " pixels, each side needs at least 1");
    for (const auto& stroke : request.strokes)
        for (const BrushPoint& point : stroke)
            if (!(point.radius > 0.0f) || !std::isfinite(point.radius) || !std::isfinite(point.x) ||
                !std::isfinite(point.y))
                throw JobRefusal("a point of a stroke has the radius " + std::to_string(point.radius) +
                                 ", expected more than 0");
}

void addBox(const MarkedPixels& marked, const _Rect<int>& box)
{
    const auto limited = [](std::int64_t value, int most) {
        return static_cast<int>(std::clamp<std::int64_t>(value, 0, most));
    };
    const int width = marked.size().width;
    const int height = marked.size().height;
    const int left = limited(box.x, width);
    const int right = limited(std::int64_t{box.x} + box.width, width);
    const int bottom = limited(std::int64_t{box.y} + box.height, height);
    for (int y = limited(box.y, height); y < bottom; ++y)
        std::fill(marked.row(y) + left, marked.row(y) + right, static_cast<unsigned char>(1));
}

// A mask of another size is laid over the picture and taken at the nearest sample.
void addMask(PictureRun& run, const MarkedPixels& marked, const std::filesystem::path& path)
{
    constexpr auto kAsItStands =
        static_cast<ImageReaderOpenFlag>(static_cast<std::int32_t>(ImageReaderOpenFlag::Upright) |
                                         static_cast<std::int32_t>(ImageReaderOpenFlag::Complete));
    const auto image = ImageReader::instance().open({path, {}}, {}, kAsItStands, nullptr, {}, -1);
    if (!image)
        throwLastFailure("the mask cannot be read");
    run.keepWarnings();
    const auto mask = image->imageData({}, {}, true);
    const int width = marked.size().width;
    const int height = marked.size().height;
    forEachRow(height, [&](int y) {
        const PixelRGB<float>* const source =
            mask->row(static_cast<int>((2 * std::int64_t{y} + 1) * mask->height() / (2 * std::int64_t{height})));
        for (int x = 0; x < width; ++x) {
            const auto& p =
                source[static_cast<int>((2 * std::int64_t{x} + 1) * mask->width() / (2 * std::int64_t{width}))];
            if ((p.r + p.g + p.b) / 3.0f >= kMarked)
                marked.row(y)[x] = 1;
        }
    });
}

void draw(GenerativeEraseProcessor& erase, const std::vector<BrushPoint>& points)
{
    erase.startStroke({}, {});
    for (const BrushPoint& point : points)
        erase.stroke({point.x, point.y}, std::make_shared<RoundBrushSettings>(point.radius, kHard, kOpaque));
    erase.finishStroke({}, {});
}

void drawMarks(PictureRun& run, GenerativeEraseProcessor& erase, const EraseJobRequest& request)
{
    erase.beginDrawing();
    if (!request.masks.empty() || !request.boxes.empty()) {
        const MarkedPixels marked(erase.getCanvasSize());
        for (const _Rect<int>& box : request.boxes)
            addBox(marked, box);
        for (const auto& path : request.masks)
            addMask(run, marked, path);
        for (const MaskStroke& stroke : strokesOf(marked)) {
            erase.startStroke({}, {});
            erase.strokePoints(stroke.points, std::make_shared<RoundBrushSettings>(stroke.radius, kHard, kOpaque));
            erase.finishStroke({}, {});
        }
    }
    for (const auto& stroke : request.strokes)
        draw(erase, stroke);
    erase.finishDrawing();
}

GenerativeProcessorBase::RequestInput requestOf(PictureRun& run, GenerativeEraseProcessor& erase,
                                                const EraseJobRequest& request)
{
    run.report({JobStep::Request, kRequestStarts, /*opaque=*/true});
    drawMarks(run, erase, request);
    auto input = answerOf<GenerativeProcessorBase::RequestInput>(
        [&](auto callback) { erase.generateRequest("erase", {}, std::move(callback)); });
    if (!input.valid)
        throw FailureError({FailureKind::UnfittingPictures, request.source,
                            "nothing of the picture is marked, which has " +
                                std::to_string(erase.getCanvasSize().width) + " x " +
                                std::to_string(erase.getCanvasSize().height) + " pixels"});
    return input;
}

bool isSame(const Picture& a, const Picture& b)
{
    return a.size() == b.size() && std::equal(a.data(), a.data() + a.pixelCount(), b.data());
}

// The processor reports a failure of its work on the picture to the log alone. A picture without any change is one,
// unless the answer is what was sent, as it is for a picture of one colour.
bool wasPutIn(const Picture& before, const Picture& after, const ServiceAnswer& answer, const std::string& sent)
{
    if (!isSame(before, after))
        return true;
    const auto answered = convertToImageData(answer.picture);
    const auto asked = convertToImageData(sent);
    return answered && asked && (answered->size() != asked->size() || isSame(*answered, *asked));
}

std::shared_ptr<const Picture> applied(PictureRun& run, GenerativeEraseProcessor& erase, const ServiceAnswer& answer,
                                       const EraseJobRequest& request, const Picture& before, const std::string& sent)
{
    run.report({JobStep::Apply, kApplyStarts, /*opaque=*/true});
    erase.applyGeneratedResponse(asDataUrl(answer.picture), answer.sent);
    const auto rendered =
        answerOf<RenderedData>([&](auto callback) { erase.generateDataForExport(std::move(callback)); });
    if (!rendered.image || !wasPutIn(before, *rendered.image, answer, sent))
        throw FailureError({FailureKind::Internal, request.source, "the answer could not be put into the picture"});
    return rendered.image;
}

void erasePicture(PictureRun& run, const EraseJobRequest& request, EraseJobResult& result)
{
    checkMarks(request);
    GenerativeRun generative(run, request, result);
    generative.check(request.masks);
    run.report({JobStep::Load, kLoadStarts});
    const auto source = generative.open();
    run.throwIfCancelled();
    const auto pixels = source->developedOriginalImageData({});
    GenerativeEraseProcessor erase(pixels);
    auto input = requestOf(run, erase, request);
    run.throwIfCancelled();
    const auto answer =
        generative.exchange(service::Tool::Erase, input.image, std::move(input.mask), kAnswerStarts, kApplyStarts);
    if (!answer)
        return;
    const auto erased = applied(run, erase, *answer, request, *pixels, input.image);
    run.report({JobStep::Write, kWriteStarts});
    generative.write(erased, source->metadata());
}

} // namespace

EraseJobResult eraseJob(const EraseJobRequest& request, const JobCallbacks& callbacks)
{
    EraseJobResult result;
    result.output = request.output;
    result.source = request.source;
    runPictureJob(request, callbacks, result, [&](PictureRun& run) { erasePicture(run, request, result); });
    return result;
}

} // namespace orvo::jobs
