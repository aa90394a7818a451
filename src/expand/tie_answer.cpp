#include "expand/tie_answer.hpp"

#include "GenProcessorBase/rectangles.hpp"

#include <orvo_extensions/panorama_mblender.hpp>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstdint>
#include <limits>

namespace orvo {
namespace {

using Picture = _ImageData<PixelRGB<float>>;

constexpr int kMargin = 16; // width of the known picture's rim that the answer may change, in pixels
constexpr int kOverlap = 2; // pixels where the two pictures overlap
constexpr double kToWorking = 16383.0;
constexpr double kFromWorking = 6.103701889514923e-05; // 1 / 16383.5

cv::Rect cvRect(const _Rect<int>& rect) { return {rect.x, rect.y, rect.width, rect.height}; }

/// The samples of `picture`, shared. The order of the channels does not matter to the blender.
cv::Mat samplesOf(Picture& picture) { return {picture.height(), picture.width(), CV_32FC3, picture.data()}; }

/// Maps canvas coordinates to those of the answer. The place of a picture far outside of the canvas may exceed the
/// range of an int; it is limited to it.
class AnswerScale
{
public:
    AnswerScale(const _Rect<int>& rect, _Size<int> answer) : from(rect.size()), to(answer) {}
    [[nodiscard]] int across(int x) const { return scaled(x, to.width, from.width); }
    [[nodiscard]] int down(int y) const { return scaled(y, to.height, from.height); }

private:
    static int scaled(int value, int numerator, int denominator)
    {
        constexpr std::int64_t kMost = std::numeric_limits<int>::max();
        return static_cast<int>(std::clamp(std::int64_t{value} * numerator / denominator, -kMost, kMost));
    }

    _Size<int> from;
    _Size<int> to;
};

} // namespace

void tieAnswer(Picture& generated, const GenerativeProcessorBaseImpl::RequestParameters& parameters)
{
    const _Rect<int>& rect = parameters.rect;
    Picture& canvas = *parameters.canvas;
    const AnswerScale scale(rect, generated.size());
    const cv::Size scaledSize(scale.across(canvas.width()), scale.down(canvas.height()));
    const _Rect<int> all(0, 0, scaledSize.width, scaledSize.height);
    const _Rect<int> area(scale.across(rect.x), scale.down(rect.y), generated.width(), generated.height());
    cv::Mat areaMask = cv::Mat::zeros(scaledSize, CV_8UC1);
    areaMask(cvRect(area)) = cv::Scalar(255);

    cv::Mat scaledCanvas;
    samplesOf(canvas).convertTo(scaledCanvas, CV_16SC3, kToWorking);
    cv::resize(scaledCanvas, scaledCanvas, scaledSize, 0.0, 0.0, cv::INTER_LINEAR);
    const _Rect<int>& source = parameters.sourceRect;
    const _Rect<int> known = intersected(
        {scale.across(source.x), scale.down(source.y), scale.across(source.width), scale.down(source.height)}, all);
    // A small known part has no safe core; the answer then counts everywhere.
    const _Rect<int> safe = intersected(inset(known, kMargin), all);
    cv::Mat safeMask = cv::Mat::zeros(scaledSize, CV_8UC1);
    safeMask(cvRect(safe)) = cv::Scalar(255);

    PanoramaMBlender blender;
    const cv::Rect knownRect = cvRect(known);
    blender.feed(scaledCanvas(knownRect), safeMask(knownRect), safeMask(knownRect), knownRect.tl());

    cv::Mat answer;
    samplesOf(generated).convertTo(answer, CV_16SC3, kToWorking);
    cv::Mat newMask = areaMask.clone();
    newMask(cvRect(intersected(inset(inset(known, kMargin), kOverlap), all))) = cv::Scalar(0);
    const cv::Rect areaRect = cvRect(area);
    blender.feed(answer, newMask(areaRect), areaMask(areaRect), areaRect.tl());

    cv::Mat out, outMask;
    blender.blend(out, outMask);
    // The blender's canvas begins where the first of both rectangles does.
    const cv::Point origin = knownRect.empty()
                                 ? areaRect.tl()
                                 : cv::Point(std::min(knownRect.x, areaRect.x), std::min(knownRect.y, areaRect.y));
    cv::Mat tied = samplesOf(generated);
    out(areaRect - origin).convertTo(tied, CV_32FC3, kFromWorking);
}

} // namespace orvo
