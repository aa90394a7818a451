#include "bracket/align_frames.hpp"

#include "bracket/estimate_pair.hpp"
#include "bracket/frame_matrix.hpp"
#include "bracket/inscribed_rect.hpp"
#include "bracket/lanczos_warp.hpp"
#include "bracket/place_frames.hpp"

#include <orvo_common/failure.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/auto_exposure.hpp>
#include <orvo_logger/logstream.hpp>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace orvo {
namespace {

// Shorter side at which key points are detected: large enough for sub-pixel homographies, small enough to be fast.
constexpr double kDetectionSide = 1024.0;

// An alignment that keeps less than this share of a side has failed, or would crop more than it is worth.
constexpr double kSmallestShare = 0.9;

// White of the 8-bit pictures in which features are detected.
constexpr double kWhite8 = 255.0;

struct FrameInfo
{
    cv::Mat image;  // a view of the frame's pixels
    cv::Mat scaled; // at the detection scale
    std::string name;
    int width = 0;
    int height = 0;
    std::vector<cv::KeyPoint> keypoints;
};

using FrameInfos = std::vector<std::shared_ptr<FrameInfo>>;

FrameInfos describeFrames(const std::vector<HDRFrame>& frames, int width, int height, double scale)
{
    FrameInfos infos(frames.size());
    const auto describe = [&](std::size_t i) {
        auto info = std::make_shared<FrameInfo>();
        info->image = viewOfFrame(frames[i].image->data(), width, height);
        info->name = "frame_" + std::to_string(i);
        info->width = info->image.cols;
        info->height = info->image.rows;
        const cv::Size size(static_cast<int>(scale * width), static_cast<int>(scale * height));
        cv::resize(info->image, info->scaled, size, 0, 0, cv::INTER_LINEAR);
        infos[i] = std::move(info);
    };
    forEachItem(frames.size(), describe);
    return infos;
}

// Two neighbours in 8 bits, the first at the exposure of the second: key points depend on contrast.
void equalizeExposure(const cv::Mat& a, const cv::Mat& b, cv::Mat& a8, cv::Mat& b8)
{
    cv::Mat a2;
    cv::Mat b2;
    cv::cvtColor(a, a2, cv::COLOR_BGR2RGB);
    cv::cvtColor(b, b2, cv::COLOR_BGR2RGB);
    cv::Mat tmp = b2.clone();
    autoExposureAdjustRGB(tmp.ptr<float>(), a2.ptr<float>(), a2.cols, a2.rows);
    cv::cvtColor(a2, tmp, cv::COLOR_BGR2RGB);
    tmp.convertTo(a8, CV_8UC3, kWhite8);
    b.convertTo(b8, CV_8UC3, kWhite8);
}

// Frame i onto frame i - 1.
struct NeighbourMap
{
    cv::Mat homography; // the identity if not found
    bool found = false;
};

NeighbourMap registerNeighbours(FrameInfos& infos, std::size_t i, double scale)
{
    FrameInfo& first = *infos[i - 1];
    FrameInfo& second = *infos[i];
    const bool useScaled = first.scaled.cols > 0;
    cv::Mat a8;
    cv::Mat b8;
    equalizeExposure(useScaled ? first.scaled : first.image, useScaled ? second.scaled : second.image, a8, b8);
    if (first.keypoints.empty())
        first.keypoints = detectKeypoints(a8);
    if (second.keypoints.empty())
        second.keypoints = detectKeypoints(b8);
    if (i == 1 && first.keypoints.empty())
        first.keypoints = second.keypoints;
    NeighbourMap map;
    map.found =
        estimatePair(a8, first.keypoints, b8, second.keypoints, map.homography, scale, first.width, first.height);
    return map;
}

enum class Placing
{
    Missed,  // nothing shows where the frame lies
    Roughly, // by key points alone, although a finer place was looked for
    Done,
};

struct FramePlace
{
    cv::Mat referenceFromFrame;
    Placing placing = Placing::Done;
};

// `neighbours[i - 1]` maps frame i onto frame i - 1.
FramePlace chained(const std::vector<NeighbourMap>& neighbours, std::size_t k, std::size_t reference)
{
    FramePlace place{cv::Mat::eye(3, 3, CV_64F)};
    for (std::size_t j = std::min(k, reference) + 1; j <= std::max(k, reference); ++j) {
        place.referenceFromFrame = place.referenceFromFrame * neighbours[j - 1].homography;
        if (!neighbours[j - 1].found)
            place.placing = Placing::Missed;
    }
    if (k < reference)
        place.referenceFromFrame = cv::Mat(place.referenceFromFrame.inv());
    return place;
}

// Makes the places exact to a small fraction of a pixel; false if cancelled.
bool refinePlaces(const std::vector<HDRFrame>& frames, std::size_t reference, const RunControl& run,
                  std::vector<FramePlace>& places)
{
    std::vector<cv::Matx33d> starts;
    for (const FramePlace& place : places)
        starts.push_back(cv::Matx33d(place.referenceFromFrame).inv());
    const auto structure = [&](std::size_t k) {
        if (frames[k].image->size() != frames[0].image->size())
            throw FailureError({FailureKind::UnfittingPictures, frames[k].path,
                                "the frame has another size than the first of its bracket"});
        return structureOf(*frames[k].image);
    };
    const auto refined = placeFrames(frames.size(), reference, structure, starts, FrameMovement::Hand, run);
    for (std::size_t k = 0; k < refined.size(); ++k) {
        places[k].referenceFromFrame = cv::Mat(refined[k].frameFromReference.inv());
        if (refined[k].found)
            places[k].placing = Placing::Done;
        else if (places[k].placing == Placing::Done)
            places[k].placing = Placing::Roughly;
    }
    return !refined.empty();
}

// Rungs of a ladder may be of one file.
void keepShortfalls(const std::vector<HDRFrame>& frames, std::size_t reference, const std::vector<FramePlace>& places,
                    bool abandoned)
{
    const std::string name = pathText(frames[reference].path.filename());
    for (std::size_t k = 0; k < frames.size(); ++k) {
        if (k == reference || frames[k].path == frames[reference].path)
            continue;
        if (abandoned)
            details::keepShortfall({FailureKind::UnfittingPictures, frames[k].path,
                                    "stays where it is, since too little would remain that all frames show"});
        else if (places[k].placing == Placing::Missed)
            details::keepShortfall({FailureKind::UnfittingPictures, frames[k].path,
                                    "stays where it is, since it cannot be aligned with " + name});
        else if (places[k].placing == Placing::Roughly)
            details::keepShortfall({FailureKind::UnfittingPictures, frames[k].path,
                                    "is aligned only roughly with " + name + ", since they differ too much"});
    }
}

cv::Rect2d commonRectangle(const FrameInfos& infos, const std::vector<FramePlace>& places, bool crop)
{
    cv::Rect2d common(0, 0, infos[0]->image.cols, infos[0]->image.rows);
    for (std::size_t k = 0; k < infos.size(); ++k) {
        const auto corners = projectedCorners(places[k].referenceFromFrame, infos[k]->width, infos[k]->height);
        if (crop)
            common &= cv::Rect2d(
                inscribedRect(corners, static_cast<float>(infos[k]->width), static_cast<float>(infos[k]->height)));
        else
            common |= cv::Rect2d(cv::boundingRect(corners));
    }
    return common;
}

bool isUsable(const cv::Rect2d& common, int width, int height)
{
    return common.x >= 0 && common.y >= 0 && common.width <= width && common.height <= height &&
           common.width >= kSmallestShare * width && common.height >= kSmallestShare * height;
}

std::shared_ptr<_ImageData<PixelRGB<float>>> warped(const FrameInfo& info, const cv::Mat& transform, cv::Size size,
                                                    const std::shared_ptr<ColorProfile>& profile)
{
    auto result = std::make_shared<_ImageData<PixelRGB<float>>>(_Size<int>(size.width, size.height), profile);
    cv::Mat target = viewOfFrame(result->data(), size.width, size.height); // of the requested size: written in place
    cv::warpPerspective(info.image.getUMat(cv::ACCESS_READ), target, transform, size, cv::INTER_NEAREST,
                        cv::BORDER_CONSTANT, cv::Scalar());
    return result;
}

} // namespace

void requireFitsFirst(const std::filesystem::path& path, _Size<int> size, _Size<int> sizeOfFirst)
{
    const auto pixels = [](_Size<int> of) { return std::int64_t{of.width} * of.height; };
    if (pixels(size) < pixels(sizeOfFirst))
        throw FailureError(
            {FailureKind::UnfittingPictures, path, "the frame is smaller than the first of its bracket"});
    if (pixels(size) == pixels(sizeOfFirst) && size != sizeOfFirst)
        throw FailureError(
            {FailureKind::UnfittingPictures, path, "the frame has another shape than the first of its bracket"});
}

void requireSizeOfFirst(const std::vector<HDRFrame>& frames)
{
    for (const HDRFrame& frame : frames)
        requireFitsFirst(frame.path, frame.image ? frame.image->size() : _Size<int>(), frames[0].image->size());
}

void alignFrames(std::vector<HDRFrame>& frames, int referenceIndex, bool crop, AlignmentQuality quality,
                 const RunControl& run)
{
    requireSizeOfFirst(frames);
    const int width = frames[0].image->width();
    const int height = frames[0].image->height();
    const double scale = std::min(1.0, kDetectionSide / std::min(width, height));
    LOG(__orvolog() << "[Alignment] Alignment scale: " << scale);
    FrameInfos infos = describeFrames(frames, width, height, scale);

    std::vector<NeighbourMap> neighbours;
    for (std::size_t i = 1; i < infos.size(); ++i)
        neighbours.push_back(registerNeighbours(infos, i, scale));
    const auto reference = static_cast<std::size_t>(referenceIndex);
    std::vector<FramePlace> places;
    for (std::size_t k = 0; k < infos.size(); ++k)
        places.push_back(chained(neighbours, k, reference));

    if (quality == AlignmentQuality::Fine && !refinePlaces(frames, reference, run, places))
        return;

    cv::Rect2d common = commonRectangle(infos, places, crop);
    const bool failed = !isUsable(common, width, height);
    keepShortfalls(frames, reference, places, failed);
    if (failed)
        common = cv::Rect2d(0, 0, width, height);
    const cv::Size size(static_cast<int>(std::ceil(common.width)), static_cast<int>(std::ceil(common.height)));
    const cv::Mat shift = (cv::Mat_<double>(3, 3) << 1, 0, -common.x, 0, 1, -common.y, 0, 0, 1);
    for (std::size_t k = 0; k < frames.size(); ++k) {
        const auto& profile = frames[k].image->colorProfile();
        if (failed) {
            LOG(__orvolog() << "[Alignment] Failed to align frame #" << k);
            auto kept = std::make_shared<_ImageData<PixelRGB<float>>>(_Size<int>(width, height), profile);
            matToFrame(infos[k]->image, kept->data());
            frames[k].image = std::move(kept);
        } else if (quality == AlignmentQuality::Fine) {
            const cv::Matx33d targetFromFrame(cv::Mat(shift * places[k].referenceFromFrame));
            frames[k].image = lanczosWarp(*frames[k].image, targetFromFrame.inv(), {size.width, size.height});
        } else {
            frames[k].image = warped(*infos[k], shift * places[k].referenceFromFrame, size, profile);
        }
    }
}

} // namespace orvo
