#include "composed_panorama.hpp"

#include "cut_rim.hpp"

#include <orvo_core/rgba.hpp>
#include <orvo_extensions/failure.hpp>
#include <orvo_extensions/panorama_preview_composer.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <numbers>
#include <optional>
#include <string>
#include <utility>

namespace orvo::jobs {
namespace {

using PicturePointer = std::shared_ptr<const _ImageData<PixelRGB<float>>>;

// Longest side of the drawings in which content, crop and horizon are looked for.
constexpr int kSearchSide = 1600;
constexpr int kCropSide = 2000;
// How far a planet reaches from its middle, in radii of the sphere.
constexpr int kPlanetReach = 3;
// The horizon is looked for so far to each side of the middle of the plane, which reaches to 64 degrees there: it is a
// straight line in it, and there are few panoramas whose whole width the plane can show.
constexpr double kHorizonShare = 0.35; // of the plane's width, to each side; 55 degrees
// Each measurement is of a picture whose tilt the last one has taken out, so that the error gets smaller.
constexpr int kMeasurements = 4;
constexpr double kLevelRadians = 0.0005;

// Shares of the way from the start of loading to the picture.
constexpr double kLoaded = 0.5;
constexpr double kRegistered = 0.7;
constexpr double kStraight = 0.75;
constexpr double kFound = 0.8;
constexpr double kCropped = 0.85;

constexpr std::chrono::milliseconds kPoll{20};

// One answer of the composer's worker; later ones are dropped.
template <typename Value>
class Mailbox
{
public:
    void put(Value value)
    {
        const std::lock_guard lock(mutex);
        if (!answer)
            answer = std::move(value);
        changed.notify_all();
    }
    [[nodiscard]] std::optional<Value> take(std::chrono::milliseconds patience)
    {
        std::unique_lock lock(mutex);
        changed.wait_for(lock, patience, [this] { return answer.has_value(); });
        return std::exchange(answer, std::nullopt);
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::optional<Value> answer;
};

[[noreturn]] void throwUnfitting(const std::string& sentence)
{
    throw FailureError({FailureKind::UnfittingPictures, {}, sentence});
}

CropDescription cropOf(const _Rect<int>& rect)
{
    CropDescription crop;
    crop.rect = rect;
    return crop;
}

// Columns and rows of a mask that hold content; empty if there is none.
_Rect<int> contentOf(const _ImageData<float>& mask)
{
    int left = mask.width();
    int right = -1;
    int top = -1;
    int bottom = -1;
    for (int y = 0; y < mask.height(); ++y)
        for (int x = 0; x < mask.width(); ++x) {
            if (!(mask.row(y)[x] > 0.0f))
                continue;
            left = std::min(left, x);
            right = std::max(right, x);
            top = top < 0 ? y : top;
            bottom = y;
        }
    return top < 0 ? _Rect<int>() : _Rect<int>(left, top, right - left + 1, bottom - top + 1);
}

_Rect<int> intersection(const _Rect<int>& a, const _Rect<int>& b)
{
    const int left = std::max(a.x, b.x);
    const int top = std::max(a.y, b.y);
    const int right = std::min(a.x + a.width, b.x + b.width);
    const int bottom = std::min(a.y + a.height, b.y + b.height);
    return right > left && bottom > top ? _Rect<int>(left, top, right - left, bottom - top) : _Rect<int>();
}

// Whether content seems to continue beyond the range of the projection. Three projections are all around.
bool reachesAnEnd(const _Rect<int>& content, const _Rect<int>& range, WarpType projection)
{
    if (projection == WarpType::Spherical)
        return false;
    const bool isAllAround = projection == WarpType::Cylindrical || projection == WarpType::Mercator;
    const bool isAtSide = content.x <= range.x || content.x + content.width >= range.x + range.width;
    const bool isAtTopOrBottom = content.y <= range.y || content.y + content.height >= range.y + range.height;
    return isAtTopOrBottom || (isAtSide && !isAllAround);
}

// A composer that is used as if it answered at once.
class Session
{
public:
    template <typename Source>
    Session(PictureRun& job, const Source& source, const PanoJobRequest& request, double share)
        : run(job), composer(source), projection(request.projection), wantsCoverage(request.transparent),
          doneFraction(share)
    {
        composer.changeProjectionType(projection);
    }

    /// Whatever ends the session, nobody waits for what still runs.
    ~Session() { composer.cancelAll(); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Why there is no panorama; empty if the pictures fit together.
    [[nodiscard]] std::optional<Failure> load()
    {
        const auto loaded = std::make_shared<std::atomic<float>>(0.0f);
        struct Loaded
        {
            std::optional<Failure> failure;
            std::vector<std::string> warnings;
        };
        const auto mail = std::make_shared<Mailbox<Loaded>>();
        composer.setLoadCallback([loaded](float share) { *loaded = share; });
        composer.setWorkCallback([done = work](float share) { *done = share; });
        follow(kLoaded, kRegistered);
        // Failure and warnings are those of the worker's thread.
        composer.loadWithCompletion([mail](bool fits, _Rect<int>) {
            const Failure unknown{FailureKind::Internal, {}, "the pictures gave no panorama and no reason"};
            mail->put({fits ? std::nullopt : std::optional(lastFailure().value_or(unknown)), lastWarnings()});
        });
        const Loaded answer = await(*mail, [&] {
            const float share = *loaded;
            if (share < 1.0f)
                report(JobStep::Load, kLoaded * static_cast<double>(share));
            else
                reportWork(); // registering
        });
        run.keepWarnings(answer.warnings);
        return answer.failure;
    }

    /// By fractions of the canvas.
    void shift(_Point<float> by)
    {
        enterProjection();
        isTurned = true;
        composer.startFastRender();
        composer.setShiftVector(by);
        composer.finishFastRender();
    }
    /// Turns the picture clockwise, about the ray that looks straight ahead.
    void roll(double radians)
    {
        composer.changeProjectionType(WarpType::Spherical); // its canvas has that ray in the middle
        enterProjection();
        turn(-radians);
        composer.changeProjectionType(projection);
    }
    void straighten();

    /// Reports each step and share once, however often it is called.
    void report(JobStep step, double share)
    {
        if (lastReport && *lastReport == std::pair(step, share))
            return;
        lastReport = {step, share};
        run.report({step, doneFraction * share});
    }
    [[nodiscard]] std::vector<PanoramaPlace> places() const { return composer.getPlaces(); }
    /// In pixels of the pictures: the radius of the sphere.
    [[nodiscard]] double focalLength();
    /// All that the projection holds, in pixels of its canvas; empty if that is nothing.
    [[nodiscard]] _Rect<int> findContent();
    [[nodiscard]] ComposedPicture whole(const _Rect<int>& content);
    [[nodiscard]] ComposedPicture inscribed(const _Rect<int>& content);

private:
    /// What the worker does from now on takes these shares.
    void follow(double begin, double end)
    {
        *work = 0.0f;
        stage = {begin, end};
    }

    /// Never less than before: a stage may consist of several drawings.
    void reportWork()
    {
        const double share = stage.first + (stage.second - stage.first) * static_cast<double>(*work);
        if (!lastReport || lastReport->first != JobStep::Stitch || share > lastReport->second)
            report(JobStep::Stitch, share);
    }

    template <typename Value>
    Value await(Mailbox<Value>& mail)
    {
        return await(mail, [this] { reportWork(); });
    }

    template <typename Value>
    Value await(Mailbox<Value>& mail, const std::function<void()>& meanwhile)
    {
        for (;;) {
            if (auto answer = mail.take(kPoll)) {
                run.throwIfCancelled();
                return std::move(*answer);
            }
            meanwhile();
            if (run.isCancelled()) {
                composer.cancelAll();
                run.throwIfCancelled();
            }
        }
    }

    struct Answer
    {
        RenderedData data;
        std::optional<Failure> failure;
    };

    /// A part of the canvas within `side` pixels; empty if there is nothing in it. Throws what the drawing failed from.
    [[nodiscard]] RenderedData view(const _Rect<int>& part, int side)
    {
        const auto mail = std::make_shared<Mailbox<Answer>>();
        composer.setCallback([mail](RenderedData data) { mail->put({std::move(data), {}}); });
        composer.setFailureCallback([mail](Failure failure) { mail->put({{}, std::move(failure)}); });
        composer.setContext({scaleSizeToMax(part.size(), side), part});
        // A view of nothing is not answered; what follows it on the worker always is.
        composer.finalize({}, [mail](const RenderedData&) { mail->put({}); });
        Answer answer = await(*mail);
        composer.setCallback({});
        if (answer.failure)
            throw FailureError(*answer.failure);
        return std::move(answer.data);
    }

    /// The last drawing of the session. Throws what it failed from: gray is never a result.
    [[nodiscard]] RenderedData finalized(const PanoramaPreviewComposer::CropInfo& info)
    {
        const auto mail = std::make_shared<Mailbox<Answer>>();
        composer.finalizeAndRelease(info, [mail](RenderedData data) { mail->put({std::move(data), lastFailure()}); });
        Answer answer = await(*mail);
        if (answer.data.isPlaceholder)
            throw FailureError(
                answer.failure.value_or(Failure{FailureKind::Internal, {}, "the panorama could not be drawn"}));
        return std::move(answer.data);
    }

    [[nodiscard]] _Rect<int> searched() const
    {
        const _Size<int> canvas = composer.getCanvasSize();
        if (composer.getProjectionType() != WarpType::Stereographic)
            return {0, 0, canvas.width, canvas.height};
        // The canvas lies beside the planet, whose middle is half its height above it.
        const int reach = kPlanetReach * canvas.height / 2;
        return {canvas.width / 2 - reach, -canvas.height / 2 - reach, 2 * reach, 2 * reach};
    }

    [[nodiscard]] ComposedPicture asItIs(const RenderedData& drawn) const
    {
        return {drawn.image, wantsCoverage ? drawn.mask : nullptr};
    }
    [[nodiscard]] _Rect<int> contentIn(const _Rect<int>& part);

    /// Whether drawing resamples the sphere. Without a turned view the sphere itself is drawn as it is.
    [[nodiscard]] bool isResampled() const { return isTurned || projection != WarpType::Spherical; }
    [[nodiscard]] int rimOf(const _Rect<int>& content);
    // The canvas of a turn is that of the last drawing, and there may have been none.
    void enterProjection()
    {
        const auto mail = std::make_shared<Mailbox<bool>>();
        composer.finalize({}, [mail](const RenderedData&) { mail->put(true); });
        (void)await(*mail);
    }
    // Turns the picture counter-clockwise.
    void turn(double radians)
    {
        isTurned = true;
        composer.startFastRender();
        composer.setRotation(static_cast<float>(radians));
        composer.finishFastRender();
    }

    PictureRun& run;
    PanoramaPreviewComposer composer;
    WarpType projection;
    bool wantsCoverage;
    double doneFraction;
    bool isTurned = false;
    std::optional<std::pair<JobStep, double>> lastReport;
    std::pair<double, double> stage{0.0, 0.0};
    std::shared_ptr<std::atomic<float>> work = std::make_shared<std::atomic<float>>(0.0f); ///< by the worker
};

_Rect<int> Session::contentIn(const _Rect<int>& part)
{
    const RenderedData data = view(part, kSearchSide);
    if (!data.mask)
        return {};
    const _Rect<int> seen = contentOf(*data.mask);
    if (seen == _Rect<int>())
        return {};
    // A pixel of the view more on each side: the content may end within it.
    const double sx = static_cast<double>(part.width) / data.mask->width();
    const double sy = static_cast<double>(part.height) / data.mask->height();
    const int left = static_cast<int>((seen.x - 1) * sx);
    const int top = static_cast<int>((seen.y - 1) * sy);
    const int right = static_cast<int>(std::ceil((seen.x + seen.width + 1) * sx));
    const int bottom = static_cast<int>(std::ceil((seen.y + seen.height + 1) * sy));
    return intersection({part.x + left, part.y + top, right - left, bottom - top}, part);
}

_Rect<int> Session::findContent()
{
    follow(kStraight, kFound);
    const _Rect<int> range = searched();
    const _Rect<int> content = contentIn(range);
    if (content != _Rect<int>() && reachesAnEnd(content, range, projection))
        run.keepWarnings({"the pictures show more than the range of this projection, and the rest is cut off; the "
                          "spherical one covers everything"});
    follow(kFound, 1.0);
    return content;
}

void Session::straighten()
{
    follow(kRegistered, kStraight);
    composer.changeProjectionType(WarpType::Plane);
    for (int i = 0; i < kMeasurements; ++i) {
        const _Size<int> canvas = composer.getCanvasSize();
        const int half = static_cast<int>(canvas.width * kHorizonShare);
        const _Rect<int> middle(canvas.width / 2 - half, 0, 2 * half, canvas.height);
        const _Rect<int> content = contentIn(middle);
        const RenderedData data = content == _Rect<int>() ? RenderedData() : view(content, kCropSide);
        if (!data.image)
            break;
        const _Rect<int> full = intersection(inscribedRectOfMask(*withoutSlits(*data.mask)),
                                             {0, 0, data.mask->width(), data.mask->height()});
        if (full == _Rect<int>())
            break;
        const auto angle = static_cast<double>(composer.getHorizonAngle(data.image->copy(full)));
        if (std::abs(angle) < kLevelRadians)
            break;
        turn(angle); // about the middle of the view of the content
    }
    composer.changeProjectionType(projection);
}

double Session::focalLength()
{
    composer.changeProjectionType(WarpType::Spherical);
    const int circumference = composer.getCanvasSize().width;
    composer.changeProjectionType(projection);
    return circumference / (2.0 * std::numbers::pi);
}

// How deep the black beside the content is mixed into it, in pixels: a pixel of the sphere for the colours and half of
// one for the mask, times the largest stretch of the projection (the derivative of its formula) within the content.
int Session::rimOf(const _Rect<int>& content)
{
    constexpr double kMixedPixels = 1.5;
    constexpr double kWidestRim = 12.0;
    const double radius = focalLength();
    const _Size<int> canvas = composer.getCanvasSize();
    const double middleX = canvas.width / 2.0;
    const double middleY = projection == WarpType::Stereographic ? -canvas.height / 2.0 : canvas.height / 2.0;
    const auto farthest = [radius](int first, int length, double middle) {
        return std::max(std::abs(first - middle), std::abs(first + length - middle)) / radius;
    };
    const double u = farthest(content.x, content.width, middleX);
    const double v = farthest(content.y, content.height, middleY);
    double stretch = 1.0;
    switch (projection) {
    case WarpType::Plane:
        stretch = 1.0 + u * u + v * v;
        break;
    case WarpType::Cylindrical:
        stretch = 1.0 + v * v;
        break;
    case WarpType::Spherical:
        break;
    case WarpType::Fisheye:
        stretch = 1.0 + (u * u + v * v) / 4.0;
        break;
    case WarpType::Stereographic:
        stretch = std::max(1.0, (1.0 + u * u + v * v) / 2.0);
        break;
    case WarpType::Mercator:
        stretch = std::cosh(v);
        break;
    }
    return static_cast<int>(std::min(kWidestRim, std::ceil(kMixedPixels * stretch)));
}

ComposedPicture Session::whole(const _Rect<int>& content)
{
    const RenderedData drawn = finalized({{}, {{}, content}, {}});
    if (!isResampled() || !drawn.mask)
        return asItIs(drawn);
    // A full turn fills the canvas but for the last columns, which resampling cannot reach.
    constexpr int kUnreached = 2;
    const bool isFullTurn = drawn.image->width() + kUnreached >= composer.getCanvasSize().width;
    ComposedPicture cut;
    cut.picture = withoutRim(*drawn.image, *drawn.mask, rimOf(content),
                             isFullTurn ? Beside::OtherSide : Beside::Nothing, wantsCoverage ? &cut.coverage : nullptr);
    if (!cut.picture)
        throwUnfitting("the panorama is too small or too ragged: all of it is within a few pixels of its rim");
    return cut;
}

ComposedPicture Session::inscribed(const _Rect<int>& content)
{
    follow(kFound, kCropped);
    const RenderedData data = view(content, kCropSide);
    follow(kCropped, 1.0);
    if (!data.mask)
        throw FailureError({FailureKind::Internal, {}, "the panorama could not be drawn"});
    // A pixel of this view may be covered in part only, and the outermost pixels of a reprojection are mixed with
    // black.
    constexpr int kRim = 2;
    // Without the foot of a little planet, which a camera on a tripod rarely shows, only a strip beside it would be
    // left.
    const auto covered = withoutSlits(*data.mask);
    _Rect<int> rect = fullRectOfMask(projection == WarpType::Stereographic ? *withoutHoles(*covered) : *covered);
    rect = {rect.x + kRim, rect.y + kRim, rect.width - 2 * kRim, rect.height - 2 * kRim};
    if (rect.width < 1 || rect.height < 1)
        throwUnfitting("the panorama is too small or too ragged for a rectangle to be cut out of it");
    const RenderedData drawn = finalized({cropOf(rect), {data.mask->size(), content}, {}});
    if (!isResampled() || !drawn.mask)
        return asItIs(drawn);
    // A hole within the rectangle that the view does not show has a rim, too.
    ComposedPicture cut;
    cut.picture = withoutRim(*drawn.image, *drawn.mask, rimOf(content), Beside::MoreOfContent,
                             wantsCoverage ? &cut.coverage : nullptr);
    return cut.picture ? cut : asItIs(drawn);
}

ComposedPicture composed(Session& session, const PanoJobRequest& request, PanoJobResult& result)
{
    auto failure = session.load();
    result.places = session.places();
    if (failure) {
        if (failure->kind == FailureKind::UnfittingPictures && !request.video.empty())
            failure = {failure->kind, request.video, "shows fewer than two views that fit together"};
        throw FailureError(*failure);
    }
    result.focalLength = session.focalLength();
    if (request.shift != _Point<float>())
        session.shift(request.shift);
    if (request.turnDegrees != 0.0)
        session.roll(request.turnDegrees * std::numbers::pi / 180.0);
    if (request.straighten)
        session.straighten();
    const _Rect<int> content = session.findContent();
    if (content == _Rect<int>())
        throwUnfitting(
            "the pictures fit together, but what they show lies outside of this projection; the spherical one "
            "holds everything");
    ComposedPicture drawn = request.crop == PanoCrop::Auto ? session.inscribed(content) : session.whole(content);
    if (request.crop != PanoCrop::Rectangle)
        return drawn;
    const _Rect<int>& rect = request.cropRect;
    const _Size<int> size = drawn.picture->size();
    if (intersection(rect, {0, 0, size.width, size.height}) != rect)
        throwUnfitting("the crop does not lie inside the panorama of " + std::to_string(size.width) + " x " +
                       std::to_string(size.height) + " pixels");
    return {drawn.picture->copy(rect), drawn.coverage ? drawn.coverage->copy(rect) : nullptr};
}

} // namespace

bool needsComposer(const PanoJobRequest& request)
{
    return request.brackets || !request.video.empty() || request.crop != PanoCrop::None || request.straighten ||
           request.turnDegrees != 0.0 || request.shift != _Point<float>();
}

ComposedPicture composePanorama(PictureRun& run, const PanoJobRequest& request, const AnyPanoSource& source,
                                double doneFraction, PanoJobResult& result)
{
    ComposedPicture drawn = std::visit(
        [&](const auto& pictures) {
            Session session(run, pictures, request, doneFraction);
            return composed(session, request, result);
        },
        source);
    const _Size<int> size = drawn.picture->size();
    if (request.maxSize > 0 && std::max(size.width, size.height) > request.maxSize) {
        const _Size<int> reduced = scaleSizeToMax(size, request.maxSize);
        drawn.picture = drawn.picture->resize(reduced, {}, true);
        if (drawn.coverage)
            drawn.coverage = drawn.coverage->resize(reduced, {}, true);
    }
    if (drawn.coverage) {
        auto plain = drawn.picture->copy({});
        removeWhite(*plain, *drawn.coverage);
        drawn.picture = plain;
    }
    return drawn;
}

} // namespace orvo::jobs
