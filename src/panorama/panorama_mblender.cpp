#include "frame/image_bridge.hpp"
#include "panorama/bit_plane.hpp"
#include "panorama/membrane_canvas.hpp"

#include <orvo_extensions/panorama_mblender.hpp>

#include <opencv2/core.hpp>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

namespace orvo {

namespace {

/// One bit per pixel of a picture of `size`.
std::vector<bool> bitsOf(const cv::Mat& mask, cv::Size size)
{
    const auto columns = static_cast<std::size_t>(size.width);
    std::vector<bool> bits(columns * static_cast<std::size_t>(size.height));
    setBits(bits, [&](std::size_t i) {
        const auto y = static_cast<int>(i / columns);
        const auto x = static_cast<int>(i % columns);
        return y < mask.rows && x < mask.cols && mask.at<unsigned char>(y, x) != 0;
    });
    return bits;
}

/// The bounding box of all pictures; empty pictures are ignored.
cv::Rect placeOfAll(const std::vector<cv::Mat>& images, const std::vector<cv::Point>& corners)
{
    constexpr std::int64_t kFar = std::numeric_limits<std::int64_t>::max();
    std::int64_t left = kFar, top = kFar, right = -kFar, bottom = -kFar;
    for (std::size_t i = 0; i < images.size(); ++i) {
        if (images[i].empty())
            continue;
        left = std::min<std::int64_t>(left, corners[i].x);
        top = std::min<std::int64_t>(top, corners[i].y);
        right = std::max(right, std::int64_t{corners[i].x} + images[i].cols);
        bottom = std::max(bottom, std::int64_t{corners[i].y} + images[i].rows);
    }
    if (right < left)
        return {};
    constexpr std::int64_t kMost = std::numeric_limits<int>::max();
    if (right - left > kMost || bottom - top > kMost)
        throw std::length_error("the pictures lie too far apart for one canvas: " + std::to_string(right - left) +
                                " x " + std::to_string(bottom - top) + " pixels");
    return {static_cast<int>(left), static_cast<int>(top), static_cast<int>(right - left),
            static_cast<int>(bottom - top)};
}

} // namespace

PanoramaMBlender::PanoramaMBlender() = default;
PanoramaMBlender::PanoramaMBlender(const PanoramaMBlender&) = default;
PanoramaMBlender::PanoramaMBlender(PanoramaMBlender&&) noexcept = default;
PanoramaMBlender& PanoramaMBlender::operator=(const PanoramaMBlender&) = default;
PanoramaMBlender& PanoramaMBlender::operator=(PanoramaMBlender&&) noexcept = default;
PanoramaMBlender::~PanoramaMBlender() = default;

void PanoramaMBlender::feed(const cv::Mat& image, const cv::Mat& mask, const cv::Mat& region, cv::Point corner)
{
    CV_CheckTypeEQ(image.type(), CV_16SC3, "a picture to blend");
    CV_CheckTypeEQ(mask.type(), CV_8UC1, "the mask of a picture to blend");
    CV_CheckTypeEQ(region.type(), CV_8UC1, "the region of a picture to blend");
    std::vector<bool> maskBits = bitsOf(mask, image.size());
    std::vector<bool> regionBits = bitsOf(region, image.size());
    // Room in all four lists first, so that a lack of memory adds to none of them.
    images.reserve(images.size() + 1);
    masks.reserve(masks.size() + 1);
    regions.reserve(regions.size() + 1);
    corners.reserve(corners.size() + 1);
    images.push_back(image);
    masks.push_back(std::move(maskBits));
    regions.push_back(std::move(regionBits));
    corners.push_back(corner);
}

void PanoramaMBlender::blend(cv::Mat& result, cv::Mat& resultMask)
{
    if (images.empty())
        return;
    const cv::Rect all = placeOfAll(images, corners);
    MembraneCanvas canvas({all.width, all.height});
    for (std::size_t i = 0; i < images.size(); ++i)
        if (!images[i].empty())
            canvas.add({imageDataFromCVMat(images[i]), masks[i], regions[i], corners[i] - all.tl()});
    canvas.write(result, resultMask);
}

} // namespace orvo
