#include "frame/call_frame.hpp"
#include "panorama/panorama_stitcher.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_extensions/panorama.hpp>
#include <orvo_io/image_reader.hpp>

#include <algorithm>
#include <cmath>

namespace orvo {
namespace {

// Shares of the whole job: reading takes as long as registering, and drawing at full size about as long as both.
constexpr float kLoaded = 0.3f;
constexpr float kRegistered = 0.6f;
constexpr float kFound = 0.65f;

// Longest side of the drawing on which the content is looked for.
constexpr int kSearchSide = 1600;

_Size<int> scaledTo(const _Size<int>& size, int longest)
{
    const double factor = std::min(1.0, static_cast<double>(longest) / std::max(size.width, size.height));
    return {std::max(1, static_cast<int>(size.width * factor)), std::max(1, static_cast<int>(size.height * factor))};
}

// The part of the projection that holds the content, counted from the origin of its bounds; empty if there is none.
_Rect<int> contentOf(PanoramaStitcher& stitcher, const std::function<bool()>& cancel)
{
    const cv::Rect bounds = stitcher.projectionBounds();
    const _Rect<int> whole(0, 0, bounds.width, bounds.height);
    const _Size<int> size = scaledTo(whole.size(), kSearchSide);
    const cv::Rect seen = stitcher.makePanorama(whole, size, false, cancel).roi;
    if (seen.empty())
        return {};
    // A pixel of the search more on each side: the content may end within it.
    const double sx = static_cast<double>(bounds.width) / size.width;
    const double sy = static_cast<double>(bounds.height) / size.height;
    const int left = std::max(0, static_cast<int>((seen.x - 1) * sx));
    const int top = std::max(0, static_cast<int>((seen.y - 1) * sy));
    const int right = std::min(bounds.width, static_cast<int>(std::ceil((seen.x + seen.width + 1) * sx)));
    const int bottom = std::min(bounds.height, static_cast<int>(std::ceil((seen.y + seen.height + 1) * sy)));
    return {left, top, right - left, bottom - top};
}

// Any mask but 0 is content: the last pixels that a seam leaves open come with the value 1 of 255.
void layOverWhite(_ImageData<PixelRGB<float>>& picture, const _ImageData<float>& mask)
{
    forEachRow(picture.height(), [&](int y) {
        PixelRGB<float>* const pixels = picture.row(y);
        const float* const shown = mask.row(y);
        for (int x = 0; x < picture.width(); ++x)
            if (!(shown[x] > 0.0f))
                pixels[x] = {1.0f, 1.0f, 1.0f};
    });
}

void tellPlaces(const PanoramaStitcher& stitcher, std::vector<PanoramaPlace>& places)
{
    for (std::size_t i = 0; i < stitcher.usedCameras().size(); ++i) {
        PanoramaPlace& place = places[static_cast<std::size_t>(stitcher.usedIndices()[i])];
        place.placed = true;
        const cv::Mat& r = stitcher.usedCameras()[i].R;
        for (int row = 0; row < 3; ++row)
            for (int column = 0; column < 3; ++column)
                place.rotation[static_cast<std::size_t>(row * 3 + column)] = r.at<float>(row, column);
    }
}

StitchedPanorama stitched(const PanoSource& source, const PanoramaOutput& output,
                          const std::function<void(float)>& progress, const std::function<bool()>& cancelOrNothing)
{
    const auto tell = [&progress](float share) {
        if (progress)
            progress(share);
    };
    const std::function<bool()> cancel = cancelOrNothing ? cancelOrNothing : [] { return false; };
    StitchedPanorama result;
    result.projection = output.projection;
    std::vector<std::filesystem::path> files = source.files;
    std::sort(files.begin(), files.end());
    for (const auto& file : files)
        result.places.push_back({file, false, {}});

    PanoramaStitcher stitcher(source);
    stitcher.setLoadCallback([&](float share) { tell(share * kLoaded); });
    if (!stitcher.loadImages(cancel) || cancel())
        return result;
    tell(kRegistered);
    tellPlaces(stitcher, result.places);
    result.focalLength = stitcher.getWarpedImageScale() / stitcher.getWorkScale();

    stitcher.setWarpType(warpNumberOf(output.projection));
    const _Rect<int> content = contentOf(stitcher, cancel);
    if (content == _Rect<int>() || cancel())
        return result;
    tell(kFound);
    const cv::Size limited = PanoramaStitcher::limitOutputSize(cv::Size(content.width, content.height));
    _Size<int> size(limited.width, limited.height);
    if (output.maxSize > 0)
        size = scaledTo(size, output.maxSize);
    const Panorama drawn = stitcher.makePanorama(content, size, cancel, size);
    if (!drawn.image || !drawn.mask || drawn.roi.empty() || cancel())
        return result;
    layOverWhite(*drawn.image, *drawn.mask);

    const auto first = std::find_if(result.places.begin(), result.places.end(), [](const auto& p) { return p.placed; });
    auto metadata = std::make_shared<ImageMetadata>();
    if (const auto known = ImageReader::readMetadata(first->path))
        *metadata = *known;
    metadata->size = drawn.image->size();
    metadata->isRaw = false;
    metadata->isFinished = true;
    result.image = CreateOrvoImage(drawn.image, metadata);
    tell(1.0f);
    return result;
}

} // namespace

StitchedPanorama stitchPanorama(const PanoSource& source, const PanoramaOutput& output,
                                const std::function<void(float)>& progress, const std::function<bool()>& cancel)
{
    return runInCallFrame("stitchPanorama", [&] { return stitched(source, output, progress, cancel); });
}

} // namespace orvo
