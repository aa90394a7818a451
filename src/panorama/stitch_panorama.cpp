#include "frame/call_frame.hpp"
#include "frame/performed.hpp"
#include "panorama/panorama_stitcher.hpp"
#include "panorama/projections.hpp"
#include "panorama/stitched_places.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_core/rgba.hpp>
#include <orvo_extensions/panorama.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_logger/logstream.hpp>

#include <algorithm>
#include <cmath>
#include <utility>

namespace orvo {
namespace {

// The shares of the whole job after which its steps end. Reading and drawing take time for each pixel, registration for
// each picture and pair, since it works on copies of one size.
struct Shares
{
    Shares(std::size_t pictures, double pixels)
    {
        // Measured in seconds on photographs of 0.3 to 20 megapixels, two cores; only the ratios count.
        constexpr double kPerMillion = 1e-6;
        constexpr double kSearch = 0.3;
        const auto count = static_cast<double>(pictures);
        const double reading = 0.09 * pixels * kPerMillion;
        const double registering = 2.0 * count + 0.4 * count * (count - 1.0) / 2.0;
        const double drawing = 0.14 * pixels * kPerMillion + kSearch;
        const double all = (reading + registering + kSearch + drawing) / kDrawn;
        loaded = static_cast<float>(reading / all);
        registered = static_cast<float>((reading + registering) / all);
        found = static_cast<float>((reading + registering + kSearch) / all);
    }

    static constexpr double kDrawn = 0.95; // the rest is the finishing of the picture

    float loaded;
    float registered;
    float found;
    float drawn = static_cast<float>(kDrawn);
};

// Longest side of the drawing used to find the content.
constexpr int kSearchSide = 1600;

// A reduced panorama is drawn with so many pixels for each of its own along a side, and averaged: a remapping takes
// single pixels of the pictures, which shows moire and all of their noise. More than twice as many only up to this size
// of the drawing.
constexpr double kLeastFiner = 2.0;
constexpr double kMostFiner = 8.0;
constexpr double kFinerPixels = 8e6;

// Longest side of the smallest drawing. Smaller panoramas are drawn at this size and scaled down: with too few pixels
// the engine finds none that a picture covers.
constexpr int kSmallestSide = 200;

// The range of a planet, in units of the sphere's radius: 53 degrees above the horizon. The zenith is at infinity.
constexpr double kPlanetReach = 3.0;

// How far resampling mixes the surroundings into the content, in pixels of the sphere: colours by a full pixel, and the
// mask is rounded to the nearest one.
constexpr double kMixedPixels = 1.5;

// The rim of the content that is removed for this reason has at most this depth in pixels of the picture.
constexpr int kWidestRim = 12;

_Size<int> scaledTo(const _Size<int>& size, int longest)
{
    const double factor = std::min(1.0, static_cast<double>(longest) / std::max(size.width, size.height));
    return {std::max(1, static_cast<int>(size.width * factor)), std::max(1, static_cast<int>(size.height * factor))};
}

// The size of the drawing from which a picture of `size` is averaged, at most `whole`.
_Size<int> finerThan(const _Size<int>& size, const _Size<int>& whole)
{
    const double pixels = static_cast<double>(size.width) * size.height;
    const double finer = std::clamp(std::sqrt(kFinerPixels / pixels), kLeastFiner, kMostFiner);
    const double longest = std::max(finer * std::max(size.width, size.height), static_cast<double>(kSmallestSide));
    return scaledTo(whole, static_cast<int>(std::min(longest, static_cast<double>(kLongestPanoramaSide))));
}

// A part of the plane of a projection, relative to the origin of its bounds as in makePanorama(), and its size in
// pixels.
struct PlanePart
{
    _Rect<int> rect;
    _Size<int> size;
};

// The area that may have content: the bounds of the projection. Those of the planet are beside it, so it has its own.
_Rect<int> searchedRect(const PanoramaStitcher& stitcher, WarpType projection, double radius)
{
    const cv::Rect bounds = stitcher.projectionBounds();
    if (projection != WarpType::Stereographic)
        return {0, 0, bounds.width, bounds.height};
    const int reach = static_cast<int>(kPlanetReach * radius);
    return {-reach - bounds.x, -reach - bounds.y, 2 * reach, 2 * reach};
}

// The bounding box of the pixels for which `isContent(x, y)`; empty if there are none.
template <typename IsContent>
_Rect<int> boundsOf(const _Size<int>& size, const IsContent& isContent)
{
    struct Columns
    {
        int first = 0;
        int last = -1;
    };
    std::vector<Columns> rows(static_cast<std::size_t>(size.height));
    forEachRow(size.height, [&](int y) {
        Columns& row = rows[static_cast<std::size_t>(y)];
        while (row.first < size.width && !isContent(row.first, y))
            ++row.first;
        if (row.first == size.width)
            return;
        row.last = size.width - 1;
        while (!isContent(row.last, y))
            --row.last;
    });
    int left = size.width;
    int right = -1;
    int top = -1;
    int bottom = -1;
    for (int y = 0; y < size.height; ++y) {
        const Columns& row = rows[static_cast<std::size_t>(y)];
        if (row.last < 0)
            continue;
        left = std::min(left, row.first);
        right = std::max(right, row.last);
        top = top < 0 ? y : top;
        bottom = y;
    }
    return top < 0 ? _Rect<int>() : _Rect<int>(left, top, right - left + 1, bottom - top + 1);
}

// Whether content seems to continue beyond the range of the projection: it reaches an end of the drawing of the range.
// Columns of a projection with longitude are all around, and the sphere has no ends.
bool reachesAnEnd(const _Rect<int>& seen, const _Size<int>& size, WarpType projection)
{
    constexpr int kNear = 1; // pixels of the search
    const bool isAtSide = seen.x <= kNear || seen.x + seen.width >= size.width - kNear;
    const bool isAtTopOrBottom = seen.y <= kNear || seen.y + seen.height >= size.height - kNear;
    const Projection& range = kProjections[static_cast<std::size_t>(warpNumberOf(projection))];
    if (range.type == WarpType::Spherical)
        return false;
    return isAtTopOrBottom || (isAtSide && !range.hasLongitude);
}

// The part of `searched` that contains the content; empty if there is none. Content that is cut off is a warning.
_Rect<int> contentOf(PanoramaStitcher& stitcher, const _Rect<int>& searched, WarpType projection, const RunControl& run)
{
    const _Size<int> size = scaledTo(searched.size(), kSearchSide);
    const Panorama drawn = stitcher.makePanorama(searched, size, false, [&run] { return run.cancelled(); });
    if (!drawn.mask)
        return {};
    const _Rect<int> seen = boundsOf(drawn.mask->size(), [&](int x, int y) { return drawn.mask->row(y)[x] > 0.0f; });
    if (seen == _Rect<int>())
        return {};
    // One more pixel of the search on each side: the content may end within it.
    const double sx = static_cast<double>(searched.width) / size.width;
    const double sy = static_cast<double>(searched.height) / size.height;
    const int x = drawn.roi.x + seen.x;
    const int y = drawn.roi.y + seen.y;
    if (reachesAnEnd({x, y, seen.width, seen.height}, size, projection))
        details::logWarning("the pictures show more than the range of this projection, and the rest is cut off; the "
                            "spherical one covers everything");
    const int left = std::max(0, static_cast<int>((x - 1) * sx));
    const int top = std::max(0, static_cast<int>((y - 1) * sy));
    const int right = std::min(searched.width, static_cast<int>(std::ceil((x + seen.width + 1) * sx)));
    const int bottom = std::min(searched.height, static_cast<int>(std::ceil((y + seen.height + 1) * sy)));
    return {searched.x + left, searched.y + top, right - left, bottom - top};
}

// Sphere and picture are cut behind the camera. The planet joins the two ends of the sphere along a half line from its
// centre to the left, where the mask has a gap of up to half a pixel of the sphere, while the colours continue.
void closeSeamOfPlanet(_ImageData<float>& mask, double middleColumn, double middleRow)
{
    constexpr int kReach = 4; // pixels; more than half a pixel of the sphere anywhere on the planet
    const int above = static_cast<int>(std::floor(middleRow)) - kReach;
    const int below = static_cast<int>(std::ceil(middleRow)) + kReach;
    if (above < 0 || below >= mask.height())
        return;
    const int end = static_cast<int>(std::clamp(std::ceil(middleColumn), 0.0, static_cast<double>(mask.width())));
    for (int x = 0; x < end; ++x)
        if (mask.row(above)[x] > 0.0f && mask.row(below)[x] > 0.0f)
            for (int y = above + 1; y < below; ++y)
                mask.row(y)[x] = 1.0f;
}

// For each pixel the distance in columns to the nearest one without content in its row, 0 if it has none itself,
// limited to one more than the widest rim. Every mask value except 0 is content: the last pixels that a seam leaves
// open have the value 1 of 255.
void becomeGaps(_ImageData<float>& mask)
{
    constexpr float kFar = kWidestRim + 1;
    forEachRow(mask.height(), [&](int y) {
        float* const row = mask.row(y);
        float gap = 0.0f; // there is no content beside the picture
        for (int x = 0; x < mask.width(); ++x) {
            gap = row[x] > 0.0f ? std::min(kFar, gap + 1.0f) : 0.0f;
            row[x] = gap;
        }
        gap = 0.0f;
        for (int x = mask.width() - 1; x >= 0; --x) {
            gap = std::min(row[x], gap + 1.0f);
            row[x] = gap;
        }
    });
}

// A panorama over white, and what its pictures cover of it if that was requested. Empty if there is no content.
struct Finished
{
    std::shared_ptr<_ImageData<PixelRGB<float>>> picture;
    std::shared_ptr<_ImageData<float>> coverage;
};

// Composes the content over white and crops the picture to it. Where the sphere was resampled, the rim of the content
// is mixed with the black beside it and is removed.
Finished finished(Panorama drawn, const PlanePart& part, const PanoramaOutput& output, const cv::Point& origin,
                  double radius)
{
    const WarpType projection = output.projection;
    const auto& picture = drawn.image;
    auto& gaps = *drawn.mask;
    const double unitsPerColumn = static_cast<double>(part.rect.width) / part.size.width / radius;
    const double unitsPerRow = static_cast<double>(part.rect.height) / part.size.height / radius;
    const double left = (origin.x + part.rect.x) / radius + drawn.roi.x * unitsPerColumn;
    const double top = (origin.y + part.rect.y) / radius + drawn.roi.y * unitsPerRow;
    if (projection == WarpType::Stereographic)
        closeSeamOfPlanet(gaps, -left / unitsPerColumn, -top / unitsPerRow);
    becomeGaps(gaps);
    const auto stretchAt = kProjections[static_cast<std::size_t>(warpNumberOf(projection))].stretch;
    const auto isContent = [&](int x, int y) {
        const double stretch = stretchAt(left + x * unitsPerColumn, top + y * unitsPerRow);
        const int rim = std::min(kWidestRim, static_cast<int>(std::ceil(kMixedPixels * stretch)));
        const auto width = static_cast<float>(rim);
        if (y < rim || y + rim >= gaps.height())
            return false;
        for (int near = y - rim; near <= y + rim; ++near)
            if (gaps.row(near)[x] <= width)
                return false;
        return true;
    };
    std::shared_ptr<_ImageData<float>> coverage;
    if (output.coverage)
        coverage = std::make_shared<MaskImage>(picture->size());
    forEachRow(picture->height(), [&](int y) {
        PixelRGB<float>* const pixels = picture->row(y);
        for (int x = 0; x < picture->width(); ++x) {
            const bool isCovered = isContent(x, y);
            if (!isCovered)
                pixels[x] = {1.0f, 1.0f, 1.0f};
            if (coverage)
                coverage->row(y)[x] = isCovered ? 1.0f : 0.0f;
        }
    });
    const _Rect<int> content = boundsOf(picture->size(), isContent);
    if (content == _Rect<int>())
        return {};
    if (content.size() == picture->size())
        return {picture, coverage};
    // Before the picture is there twice.
    drawn.mask.reset();
    MemoryManager::instance().trim();
    if (coverage)
        coverage = coverage->copy(content);
    return {picture->copy(content), coverage};
}

std::shared_ptr<const ImageMetadata> metadataOf(const PictureInput& input)
{
    return input.memory() != nullptr ? ImageReader::readMetadata(*input.memory())
                                     : ImageReader::readMetadata(input.path());
}

// Of the first placed picture, for a panorama of `size`. `places` are at the indices of the pictures.
std::shared_ptr<const ImageMetadata> metadataOf(const std::vector<PictureInput>& pictures,
                                                const std::vector<PanoramaPlace>& places, const _Size<int>& size)
{
    const auto first = std::find_if(places.begin(), places.end(), [](const auto& place) { return place.placed; });
    auto metadata = std::make_shared<ImageMetadata>();
    if (const auto known = metadataOf(pictures[static_cast<std::size_t>(first - places.begin())]))
        *metadata = *known;
    metadata->size = size;
    metadata->isRaw = false;
    metadata->isFinished = true;
    return metadata;
}

// All content of the registered pictures; empty if cancelled, or if it is outside the projection.
Finished drawnAs(const PanoramaOutput& output, PanoramaStitcher& stitcher, const Shares& shares, const RunControl& run)
{
    stitcher.setWarpType(warpNumberOf(output.projection));
    const double radius = static_cast<double>(stitcher.getWarpedImageScale() / stitcher.getWorkScale());
    const auto follow = [&](float from, float to) {
        stitcher.setWorkCallback([&run, from, to](float share) { run.report(from + (to - from) * share); });
    };
    follow(shares.registered, shares.found);
    const _Rect<int> content =
        contentOf(stitcher, searchedRect(stitcher, output.projection, radius), output.projection, run);
    if (content == _Rect<int>() || run.cancelled())
        return {};
    follow(shares.found, shares.drawn);
    const cv::Size limited = PanoramaStitcher::limitOutputSize(cv::Size(content.width, content.height));
    PlanePart part{content, {limited.width, limited.height}};
    if (output.maxSize > 0)
        part.size = finerThan(scaledTo(part.size, output.maxSize), part.size);
    stitcher.drawOnceMore();
    Panorama drawn = stitcher.makePanorama(
        part.rect, part.size, [&run] { return run.cancelled(); }, part.size);
    if (!drawn.image || !drawn.mask || drawn.roi.empty() || run.cancelled())
        return {};
    Finished result = finished(std::move(drawn), part, output, stitcher.projectionBounds().tl(), radius);
    if (!result.picture || output.maxSize == 0)
        return result;
    const _Size<int> size = scaledTo(result.picture->size(), output.maxSize);
    result.picture = result.picture->resize(size, {}, true);
    if (result.coverage) {
        result.coverage = result.coverage->resize(size, {}, true);
        removeWhite(*result.picture, *result.coverage);
    }
    return result;
}

// OpenCV's remapping counts the pixels of a source with 16 bits. Returns the number of all pixels.
double requireSidesThatCanBeDrawn(const std::vector<PictureInput>& pictures)
{
    double pixels = 0.0;
    constexpr int kLongestSource = 32766; // pixels
    for (const PictureInput& input : pictures) {
        const auto metadata = metadataOf(input);
        if (!metadata)
            continue;
        pixels += static_cast<double>(metadata->size.width) * metadata->size.height;
        if (std::max(metadata->size.width, metadata->size.height) > kLongestSource)
            throw FailureError({FailureKind::UnfittingPictures, input.path(),
                                "the picture has " + std::to_string(metadata->size.width) + " x " +
                                    std::to_string(metadata->size.height) + " pixels, a panorama takes at most " +
                                    std::to_string(kLongestSource) + " a side"});
    }
    return pixels;
}

// Pictures that match at parts that look alike can have no cameras at all; then some of these matches are left out.
bool registerPictures(PanoramaStitcher& stitcher, const RunControl& run)
{
    const auto cancel = [&run] { return run.cancelled(); };
    details::Statements first;
    {
        details::StatementScope scope;
        const bool isRegistered = stitcher.loadImages(cancel);
        first = scope.take();
        if (!isRegistered && stitcher.hasContradictions())
            first.failure.reset(); // what the second try states counts
    }
    details::addStatements(first);
    return stitcher.getStatus() == 1 ||
           (stitcher.hasContradictions() && stitcher.registerWithoutContradictions(cancel));
}

// The pictures of a panorama, and the engine that reads them.
struct StitchingJob
{
    std::vector<PictureInput> pictures;
    PanoramaStitcher stitcher;
};

void stitch(StitchingJob& job, const PanoramaOutput& output, const RunControl& run, StitchedPanorama& result)
{
    result.projection = output.projection;
    if (job.pictures.empty()) {
        details::stateFailure({FailureKind::Internal, {}, "no picture files were given"});
        return;
    }

    std::vector<std::filesystem::path> names;
    for (const PictureInput& input : job.pictures)
        names.push_back(input.path());
    for (const auto& name : names)
        result.places.push_back({name, false, {}});
    const Shares shares(job.pictures.size(), requireSidesThatCanBeDrawn(job.pictures));
    PanoramaStitcher& stitcher = job.stitcher;
    stitcher.setLoadCallback([&](float share) { run.report(share * shares.loaded); });
    stitcher.setWorkCallback(
        [&](float share) { run.report(shares.loaded + (shares.registered - shares.loaded) * share); });
    const bool registered = registerPictures(stitcher, run);
    result.isRead = stitcher.getStatus() != 0;
    if (!registered || run.cancelled())
        return;
    result.places = placesOf(stitcher, names);
    result.focalLength = stitcher.getWarpedImageScale() / stitcher.getWorkScale();
    const Finished drawn = drawnAs(output, stitcher, shares, run);
    if (!drawn.picture) {
        details::stateFailure(
            {FailureKind::UnfittingPictures,
             {},
             "the pictures fit together, but their content is outside the range of this projection; the "
             "spherical one covers everything"});
        return;
    }
    result.image = CreateOrvoImage(drawn.picture, metadataOf(job.pictures, result.places, drawn.picture->size()));
    result.coverage = drawn.coverage;
    run.report(1.0f);
}

} // namespace

StitchedPanorama stitchPanorama(const PanoSource& source, const PanoramaOutput& output,
                                const std::function<void(float)>& progress, const std::function<bool()>& cancel)
{
    // By reference: a copy of the functions could allocate outside the call frame. A step that starts again, such as a
    // drawing on the processor after the device failed, must not go back.
    float reported = 0.0f;
    const RunControl run([&cancel] { return cancel && cancel(); },
                         [&progress, &reported](float share) {
                             reported = std::max(reported, share);
                             if (progress)
                                 progress(reported);
                         });
    return runInCallFrame("stitchPanorama", run, [&] {
        StitchedPanorama result;
        StitchingJob job{inputsOf(source.files), PanoramaStitcher(source)};
        stitch(job, output, run, result);
        return result;
    });
}

PanoramaResult perform(const PanoramaRequest& request)
{
    return details::performed<PanoramaResult>(
        "stitchPanorama", request, [&](const RunControl& run, PanoramaResult& result) {
            StitchedPanorama panorama;
            StitchingJob job{request.pictures, PanoramaStitcher(request.pictures, request.settings)};
            try {
                stitch(job, request.output, run, panorama);
            } catch (...) {
                result.places = std::move(panorama.places);
                throw;
            }
            result.image = std::move(panorama.image);
            result.coverage = std::move(panorama.coverage);
            result.projection = panorama.projection;
            result.focalLength = panorama.focalLength;
            result.places = std::move(panorama.places);
        });
}

} // namespace orvo
