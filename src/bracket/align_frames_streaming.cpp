#include "bracket/align_frames_streaming.hpp"

#include "bracket/correlation_registration.hpp"
#include "bracket/frame_matrix.hpp"
#include "bracket/inscribed_rect.hpp"
#include "bracket/lanczos_warp.hpp"

#include <orvo_common/failure.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_logger/logstream.hpp>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <utility>

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
    cv::resize(viewOfFrame(frame.image->data(), width, height), small, size, 0, 0, cv::INTER_LINEAR);
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
    auto image = std::make_shared<_ImageData<PixelRGB<float>>>(_Size<int>(width, height), frame.image->colorProfile());
    cv::Mat target = viewOfFrame(image->data(), width, height); // of the requested size: written in place
    cv::warpPerspective(viewOfFrame(frame.image->data(), width, height), target, referenceFromFrame,
                        cv::Size(width, height), cv::INTER_LINEAR, cv::BORDER_REFLECT, cv::Scalar());
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

void keepNotAligned(const FocusStackerFrame& frame, const std::filesystem::path& reference)
{
    details::keepShortfall({FailureKind::UnfittingPictures, frame.path,
                            "stays where it is, since it cannot be aligned with " + pathText(reference.filename())});
}

// Throws unless the frame can be read as one of the reference's size.
void requireShapeOf(_Size<int> reference, const FocusStackerFrame& frame)
{
    const auto pixels = static_cast<std::size_t>(reference.width) * static_cast<std::size_t>(reference.height);
    if (!frame.image || frame.image->pixelCount() < pixels)
        throw FailureError(
            {FailureKind::UnfittingPictures, frame.path, "the frame is smaller than the reference frame"});
    if (frame.image->pixelCount() == pixels && frame.image->size() != reference)
        throw FailureError(
            {FailureKind::UnfittingPictures, frame.path, "the frame has another shape than the reference frame"});
}

// What frames are registered against: the gray picture is made once.
struct ECCReference
{
    ECCReference(const FocusStackerFrame& frame, float scale_)
        : path(frame.path), size(frame.image->size()), scale(scale_),
          gray(smallGray(frame, size.width, size.height, scale))
    {}

    std::filesystem::path path;
    _Size<int> size;
    float scale;
    CorrelationReference gray;
};

// A registration that fails late leaves what it had reached: a transform that it has itself found to be wrong.
cv::Mat registerAgainst(const ECCReference& reference, const FocusStackerFrame& frame, const cv::Mat& transform)
{
    const cv::Mat frameGray = smallGray(frame, reference.size.width, reference.size.height, reference.scale);
    cv::Mat iterated = atScale(transform, reference.scale);
    try {
        if (reference.gray.align(frameGray, {kIterations, kSmallestGain}, iterated))
            return atScale(iterated, 1.0f / reference.scale);
    } catch (const cv::Exception&) { // a picture that OpenCV cannot work on, such as a line
    }
    LOG(__orvolog() << LogMessageType::Error << "findTransformECC error!");
    keepNotAligned(frame, reference.path);
    return transform.clone();
}

} // namespace

cv::Mat registerECC(const FocusStackerFrame& reference, const FocusStackerFrame& frame, float scale,
                    const cv::Mat& transform)
{
    return registerAgainst(ECCReference(reference, scale), frame, transform);
}

void alignFramesStreaming(const std::function<FocusStackerFrame(int)>& getFrame,
                          const std::function<void(int, FocusStackerFrame&, _Rect<int>)>& consume, std::size_t count,
                          std::size_t referenceIndex)
{
    const ECCReference reference(getFrame(static_cast<int>(referenceIndex)), kRegistrationScale);
    const int width = reference.size.width;
    const int height = reference.size.height;
    for (std::size_t k = 0; k < count; ++k) {
        const int index = static_cast<int>(k);
        FocusStackerFrame frame = getFrame(index);
        _Rect<int> valid(0, 0, width, height);
        if (k != referenceIndex) {
            requireShapeOf(reference.size, frame);
            const cv::Mat frameFromReference = registerAgainst(reference, frame, cv::Mat::eye(3, 3, CV_32F));
            cv::Mat referenceFromFrame;
            cv::Mat(frameFromReference.inv()).convertTo(referenceFromFrame, CV_64F);
            warpFrame(frame, referenceFromFrame, width, height);
            valid = validRectangle(referenceFromFrame, width, height);
        }
        consume(index, frame, valid);
    }
}

_Rect<int> alignToPlace(FocusStackerFrame& frame, const FineRegistration& place, const std::filesystem::path& reference)
{
    const _Size<int> size = frame.image->size();
    _Rect<int> valid(0, 0, size.width, size.height);
    const cv::Matx33d& map = place.frameFromReference;
    if (map != cv::Matx33d::eye()) {
        frame.image = lanczosWarp(*frame.image, map, size);
        valid = validRectangle(cv::Mat(map.inv()), size.width, size.height);
    }
    if (!place.found)
        keepNotAligned(frame, reference);
    return valid;
}

} // namespace orvo
