#include "bracket/align_frames_streaming.hpp"

#include "bracket/frame_matrix.hpp"
#include "bracket/inscribed_rect.hpp"
#include "bracket/lanczos_warp.hpp"
#include "bracket/place_frames.hpp"

#include <orvo_common/failure.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_logger/logstream.hpp>

#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

#include <algorithm>

namespace orvo {
namespace {

// Half size: correlation averages over all pixels, so the full size would cost four times as much for no more accuracy.
constexpr float kRegistrationScale = 0.5f;
constexpr int kIterations = 100;
constexpr double kSmallestGain = 0.001; // of the correlation coefficient, from one iteration to the next
constexpr double kWhite8 = 255.0;

cv::Mat smallGray(const FocusStackerFrame& frame, int width, int height, float scale)
{
    // A line of one pixel stays one: it cannot be registered, but it can be stacked.
    const cv::Size size(std::max(1, static_cast<int>(static_cast<float>(width) * scale)),
                        std::max(1, static_cast<int>(static_cast<float>(height) * scale)));
    cv::Mat small;
    cv::resize(cvMatFromFrame(frame.image->data(), width, height), small, size, 0, 0, cv::INTER_LINEAR);
    small.convertTo(small, CV_8UC3, kWhite8);
    cv::Mat gray;
    cv::cvtColor(small, gray, cv::COLOR_RGB2GRAY);
    return gray;
}

// The same transform between pictures of `scale` times the size.
cv::Mat atScale(const cv::Mat& transform, float scale)
{
    cv::Mat toScale = cv::Mat::eye(3, 3, CV_32F) * scale;
    toScale.at<float>(2, 2) = 1.0f;
    return toScale * transform * toScale.inv();
}

void warpFrame(FocusStackerFrame& frame, const cv::Mat& referenceFromFrame, int width, int height)
{
    cv::Mat warped;
    cv::warpPerspective(cvMatFromFrame(frame.image->data(), width, height), warped, referenceFromFrame,
                        cv::Size(width, height), cv::INTER_LINEAR, cv::BORDER_REFLECT, cv::Scalar());
    auto image = std::make_shared<_ImageData<PixelRGB<float>>>(_Size<int>(warped.cols, warped.rows),
                                                               frame.image->colorProfile());
    matToFrame(warped, image->data());
    frame.image = std::move(image);
}

_Rect<int> validRectangle(const cv::Mat& referenceFromFrame, int width, int height)
{
    const auto corners = projectedCorners(referenceFromFrame, width, height);
    const cv::Rect2d inner(inscribedRect(corners, static_cast<float>(width), static_cast<float>(height)));
    const cv::Rect2d valid = inner & cv::Rect2d(0, 0, width, height);
    return {static_cast<int>(valid.x), static_cast<int>(valid.y), static_cast<int>(valid.width),
            static_cast<int>(valid.height)};
}

void keepNotAligned(const FocusStackerFrame& frame, const FocusStackerFrame& reference)
{
    details::keepShortfall(
        {FailureKind::UnfittingPictures, frame.path,
         "stays where it is, since it cannot be aligned with " + pathText(reference.path.filename())});
}

// Throws unless the frame can be read as one of the reference's size.
void requireShapeOf(const FocusStackerFrame& reference, const FocusStackerFrame& frame)
{
    if (!frame.image || frame.image->pixelCount() < reference.image->pixelCount())
        throw FailureError(
            {FailureKind::UnfittingPictures, frame.path, "the frame is smaller than the reference frame"});
    if (frame.image->pixelCount() == reference.image->pixelCount() && frame.image->size() != reference.image->size())
        throw FailureError(
            {FailureKind::UnfittingPictures, frame.path, "the frame has another shape than the reference frame"});
}

} // namespace

cv::Mat registerECC(const FocusStackerFrame& reference, const FocusStackerFrame& frame, float scale,
                    const cv::Mat& transform)
{
    const int width = reference.image->width();
    const int height = reference.image->height();
    const cv::Mat referenceGray = smallGray(reference, width, height, scale);
    const cv::Mat frameGray = smallGray(frame, width, height, scale);
    // OpenCV iterates in place, so a registration that fails late leaves what it had reached: a transform that it
    // has itself found to be wrong.
    cv::Mat iterated = atScale(transform, scale);
    try {
        cv::findTransformECC(
            referenceGray, frameGray, iterated, cv::MOTION_HOMOGRAPHY,
            cv::TermCriteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, kIterations, kSmallestGain),
            cv::noArray());
    } catch (...) {
        LOG(__orvolog() << LogMessageType::Error << "findTransformECC error!");
        keepNotAligned(frame, reference);
        return transform.clone();
    }
    return atScale(iterated, 1.0f / scale);
}

void alignFramesStreaming(const std::function<FocusStackerFrame(int)>& getFrame,
                          const std::function<void(int, FocusStackerFrame&, _Rect<int>)>& consume, std::size_t count,
                          std::size_t referenceIndex)
{
    const FocusStackerFrame reference = getFrame(static_cast<int>(referenceIndex));
    const int width = reference.image->width();
    const int height = reference.image->height();
    for (std::size_t k = 0; k < count; ++k) {
        const int index = static_cast<int>(k);
        FocusStackerFrame frame = getFrame(index);
        _Rect<int> valid(0, 0, width, height);
        if (k != referenceIndex) {
            requireShapeOf(reference, frame);
            const cv::Mat frameFromReference =
                registerECC(reference, frame, kRegistrationScale, cv::Mat::eye(3, 3, CV_32F));
            cv::Mat referenceFromFrame;
            cv::Mat(frameFromReference.inv()).convertTo(referenceFromFrame, CV_64F);
            warpFrame(frame, referenceFromFrame, width, height);
            valid = validRectangle(referenceFromFrame, width, height);
        }
        consume(index, frame, valid);
    }
}

void alignFramesFinely(const std::function<FocusStackerFrame(int)>& getFrame,
                       const std::function<void(int, FocusStackerFrame&, _Rect<int>)>& consume, std::size_t count,
                       std::size_t referenceIndex)
{
    const FocusStackerFrame reference = getFrame(static_cast<int>(referenceIndex));
    const _Size<int> size = reference.image->size();
    const auto structure = [&](std::size_t k) {
        const FocusStackerFrame frame = getFrame(static_cast<int>(k));
        if (!frame.image || frame.image->size() != size)
            throw FailureError(
                {FailureKind::UnfittingPictures, frame.path, "the frame has another size than the reference frame"});
        return structureOf(*frame.image);
    };
    const auto places = placeFrames(count, referenceIndex, structure, {}, FrameMovement::Series, RunControl::none());
    for (std::size_t k = 0; k < count; ++k) {
        FocusStackerFrame frame = getFrame(static_cast<int>(k));
        _Rect<int> valid(0, 0, size.width, size.height);
        const cv::Matx33d& map = places[k].frameFromReference;
        if (map != cv::Matx33d::eye()) {
            frame.image = lanczosWarp(*frame.image, map, size);
            valid = validRectangle(cv::Mat(map.inv()), size.width, size.height);
        }
        if (!places[k].found)
            keepNotAligned(frame, reference);
        consume(static_cast<int>(k), frame, valid);
    }
}

} // namespace orvo
