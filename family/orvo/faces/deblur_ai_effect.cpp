#include "faces/face_detection.hpp"
#include "faces/face_restoration.hpp"

#include <orvo/deblur_ai_effect.hpp>
#include <orvo_common/part_progress.hpp>
#include <orvo_common/scoped_timer.hpp>
#include <orvo_core/luma.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_logger/logstream.hpp>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

namespace orvo {
namespace {

using Pixel = PixelRGB<float>;
using Picture = _ImageData<Pixel>;

// The ellipse in which a face is changed, in units of its box, which spans brow to chin and ear to ear.
constexpr double kMaskWidth = 0.56;  // half axes: to beyond the ears
constexpr double kMaskHeight = 0.72; // from the hairline to under the chin
constexpr double kFullWithin = 0.7;  // of the half axes: the change fades from there on
constexpr double kContext = 0.12;    // beyond the ellipse, so that the mirrored border of the plane has no influence
constexpr int kLargestPlane = 2048;  // px: limits memory and time of a single huge face
constexpr double kSharpBlur = 0.65;  // px: the blur of a camera's own pixels; needs no correction
constexpr double kClearBlur = 1.0;   // px: fully corrected from here on
constexpr double kWidestBlur = 0.03; // of a face's width: the width of eyelids; a wider blur leaves nothing to restore
constexpr double kNoiseLimit = 0.04; // noise that halves the strength
constexpr float kSkin = 0.5f;        // strength on smooth skin if features are emphasised
constexpr float kSmoothContrast = 0.04f;  // encoded; less is skin,
constexpr float kFeatureContrast = 0.15f; // more is brow, eye, nostril or lip
constexpr double kRangeOfNoise = 5.0;     // times its deviation: the range of noise among some dozens of pixels
constexpr double kEyeReach = 1.3;         // times the radius found, to include lids and lashes
constexpr float kShadowGuard = 0.02f;     // added to luminance before ratios, so that black gains no colour noise
constexpr float kLeastLuminance = -1.0f;  // pixels outside this range count as broken and stay unchanged
constexpr float kMostLuminance = 16.0f;

// Smooth step: 0 below `low`, 1 above `high`.
template <typename T>
T smoothStep(T low, T high, T v)
{
    const T t = std::clamp((v - low) / (high - low), T(0), T(1));
    return t * t * (T(3) - T(2) * t);
}

// Strength of the change of one face at a pixel: 1 inside its ellipse, 0 outside.
float maskOf(const Face& face, int x, int y)
{
    const double u = (x + 0.5 - face.x - 0.5 * face.width) / (kMaskWidth * face.width);
    const double v = (y + 0.5 - face.y - 0.5 * face.height) / (kMaskHeight * face.height);
    return static_cast<float>(1.0 - smoothStep(kFullWithin, 1.0, std::sqrt(u * u + v * v)));
}

cv::Rect extentOf(const Face& face, const Picture& image)
{
    const double halfWidth = (kMaskWidth + kContext) * face.width, halfHeight = (kMaskHeight + kContext) * face.height;
    const double centreX = face.x + 0.5 * face.width, centreY = face.y + 0.5 * face.height;
    const int left = cvFloor(centreX - halfWidth), top = cvFloor(centreY - halfHeight);
    const cv::Rect box(left, top, cvCeil(centreX + halfWidth) - left, cvCeil(centreY + halfHeight) - top);
    return box & cv::Rect(0, 0, image.width(), image.height());
}

// Pixels encoded with the curve of sRGB.
Pixel encoded(const Pixel& p, bool linear)
{
    return linear ? Pixel{srgbCurveFromLinear(p.r), srgbCurveFromLinear(p.g), srgbCurveFromLinear(p.b)} : p;
}

Pixel decoded(const Pixel& p, bool linear)
{
    return linear ? Pixel{linearFromSRGBCurve(p.r), linearFromSRGBCurve(p.g), linearFromSRGBCurve(p.b)} : p;
}

bool usable(const Pixel& p, float luminance)
{
    return std::isfinite(p.r) && std::isfinite(p.g) && std::isfinite(p.b) && luminance > kLeastLuminance &&
           luminance < kMostLuminance;
}

// Luminance of `part`; a broken pixel takes that of the last good one before it in its row.
void readLuminance(const Picture& image, const cv::Rect& part, bool linear, const FacePlane& plane)
{
    forEachRow(part.height, [&](int y) {
        const Pixel* const from = image.row(part.y + y) + part.x;
        float* const to = plane.row(y);
        float last = std::numeric_limits<float>::quiet_NaN();
        int leading = 0; // broken ones at the start of the row
        for (int x = 0; x < part.width; ++x) {
            const float v = luma601(encoded(from[x], linear));
            if (usable(from[x], v))
                last = v;
            else if (std::isnan(last))
                leading = x + 1;
            to[x] = last;
        }
        const float first = leading < part.width ? to[leading] : 0.0f;
        std::fill(to, to + leading, first);
    });
}

// A part of the picture and the scale at which it is processed.
struct Work
{
    cv::Rect part;
    cv::Size size;
    double scale = 1.0; // processed size over picture size

    Work(const Face& face, const Picture& image) : part(extentOf(face, image))
    {
        scale = std::min(1.0, static_cast<double>(kLargestPlane) / std::max(part.width, part.height));
        size = {std::max(1, cvRound(scale * part.width)), std::max(1, cvRound(scale * part.height))};
    }
};

struct Measures
{
    double noise = 0.0;
    double blur = 0.0;     // sigma in px of the picture
    double strength = 0.0; // 0..1
};

Measures measure(const cv::Mat& luminance, const Work& work, const Face& face)
{
    Measures result;
    result.noise = measuredNoise(luminance);
    const double blur = measuredBlur(luminance, result.noise);
    const double widest = kWidestBlur * face.width * work.scale;
    const double noisy = result.noise / kNoiseLimit;
    result.strength = smoothStep(kSharpBlur, kClearBlur, blur) / (1.0 + noisy * noisy);
    result.blur = std::min(blur, widest) / work.scale;
    return result;
}

// The share of the change that each pixel gets if features are emphasised: contrast separates them from skin, and the
// positions of the eyes are known.
void weighFeatures(const FacePlane& change, const FacePlane& contrast, double noise, const Work& work, const Face& face)
{
    const float noiseRange = static_cast<float>(kRangeOfNoise * noise);
    forEachRow(change.size().height, [&](int y) {
        float* const to = change.row(y);
        const float* const range = contrast.row(y);
        for (int x = 0; x < change.size().width; ++x) {
            float feature = smoothStep(kSmoothContrast, kFeatureContrast, range[x] - noiseRange);
            for (const FaceDisc& eye : face.eyes) {
                const double dx = (x + 0.5) / work.scale + work.part.x - eye.x;
                const double dy = (y + 0.5) / work.scale + work.part.y - eye.y;
                const double away = std::sqrt(dx * dx + dy * dy) / (kEyeReach * eye.radius);
                feature = std::max(feature, static_cast<float>(1.0 - smoothStep(0.7, 1.0, away)));
            }
            to[x] *= kSkin + (1.0f - kSkin) * feature;
        }
    });
}

// `p`, in encoded values, with `change` added to its luminance by the same gain on all channels.
Pixel raised(const Pixel& p, float change)
{
    const float y = std::max(luma601(p), 0.0f) + kShadowGuard;
    float factor = std::max((y + change) / y, 0.0f);
    // A channel at the end of its range cannot follow; the others then stay too, to keep the hue.
    const float strongest = std::max({p.r, p.g, p.b});
    if (factor > 1.0f && strongest * factor > 1.0f)
        factor = std::max(1.0f, 1.0f / strongest);
    return {p.r * factor, p.g * factor, p.b * factor};
}

class FaceDeblurring
{
public:
    FaceDeblurring(const Picture& source, Picture& target, const std::vector<Face>& all, float strength, bool detail)
        : image(source), result(target), faces(all), amount(strength), features(detail),
          linear(source.colorProfile() != nullptr && source.colorProfile()->isLinear())
    {}

    // Returns the measurements; empty if cancelled.
    std::optional<Measures> run(const Face& face, const RunControl& control)
    {
        const Work work(face, image);
        const cv::Size padded = transformSize(work.size);
        const FacePlane change(padded);
        readWork(work, change);
        const cv::Mat measured = change.mat()(cv::Rect({}, work.size));
        const Measures measures = measure(measured, work, face);
        if (!(measures.strength > 0.0))
            return measures;
        {
            const FacePlane contrast(padded);
            if (!lostDetail(change, contrast, measures.blur * work.scale, measures.noise, control))
                return std::nullopt;
            if (features)
                weighFeatures(change, contrast, measures.noise, work, face);
        }
        const float strength = amount * static_cast<float>(measures.strength);
        if (work.size == work.part.size()) {
            apply(face, work.part, change, strength);
        } else {
            const FacePlane large(work.part.size());
            cv::resize(measured, large.mat(), large.size(), 0.0, 0.0, cv::INTER_LINEAR);
            apply(face, work.part, large, strength);
        }
        return measures;
    }

private:
    // Luminance of the part at the processed size, with its borders mirrored to fill the plane.
    void readWork(const Work& work, const FacePlane& plane) const
    {
        cv::Mat inner = plane.mat()(cv::Rect({}, work.size));
        {
            const FacePlane luminance(work.part.size());
            readLuminance(image, work.part, linear, luminance);
            if (work.size == work.part.size())
                luminance.mat().copyTo(inner);
            else
                cv::resize(luminance.mat(), inner, work.size, 0.0, 0.0, cv::INTER_AREA);
        }
        const cv::Size size = plane.size();
        for (int y = 0; y < size.height; ++y) {
            const float* const from = plane.row(cv::borderInterpolate(y, work.size.height, cv::BORDER_REFLECT));
            float* const to = plane.row(y);
            if (y >= work.size.height)
                std::copy(from, from + work.size.width, to);
            for (int x = work.size.width; x < size.width; ++x)
                to[x] = to[cv::borderInterpolate(x, work.size.width, cv::BORDER_REFLECT)];
        }
    }

    void apply(const Face& face, const cv::Rect& part, const FacePlane& change, float strength)
    {
        // Overlapping ellipses of neighbours share the pixel, so that none is sharpened twice.
        std::vector<const Face*> near;
        for (const Face& other : faces)
            if ((extentOf(other, image) & part).area() > 0)
                near.push_back(&other);
        forEachRow(part.height, [&](int y) {
            const Pixel* const from = image.row(part.y + y) + part.x;
            Pixel* const to = result.row(part.y + y) + part.x;
            for (int x = 0; x < part.width; ++x) {
                const float mask = maskOf(face, part.x + x, part.y + y);
                if (!(mask > 0.0f) || !usable(from[x], luma601(encoded(from[x], linear))))
                    continue;
                float all = 0.0f;
                for (const Face* const other : near)
                    all += maskOf(*other, part.x + x, part.y + y);
                const float added = strength * mask * (mask / all) * change.row(y)[x];
                if (added != 0.0f)
                    to[x] = decoded(raised(encoded(to[x], linear), added), linear);
            }
        });
    }

    const Picture& image;
    Picture& result;
    const std::vector<Face>& faces;
    float amount;
    bool features;
    bool linear;
};

void logMeasures(const std::string& id, const std::vector<Measures>& faces)
{
    std::string text = "deblurFaces " + id + ": faces " + std::to_string(faces.size());
    for (const Measures& face : faces) {
        char piece[96];
        std::snprintf(piece, sizeof piece, "; blur %.2f px, noise %.4f, strength %.2f", face.blur, face.noise,
                      face.strength);
        text += piece;
    }
    logstream line = __orvolog();
    line << LogMessageType::Diagnostic << text;
    LOG(line);
}

// A new picture, or what `unchanged` returns if there is nothing to sharpen. Empty on cancel.
template <typename Unchanged>
std::shared_ptr<Picture> sharpened(const std::string& id, const std::shared_ptr<const Picture>& image, float amount,
                                   bool profiles, bool features, const RunControl& control, const Unchanged& unchanged)
{
    if (!image)
        throw std::invalid_argument("deblurFaces: no picture");
    if (control.cancelled())
        return {};
    const ScopedTimer timer("deblurFaces", 0);
    const float limited = amount > 0.0f ? std::min(amount, 1.0f) : 0.0f; // NaN gives 0
    if (limited <= 0.0f)
        return unchanged();
    constexpr float kFacesFound = 0.8f; // share of the time of a picture with a face or two
    const std::vector<Face> faces = findFaces(*image, profiles, partOf(control, 0.0f, kFacesFound));
    if (control.wasCancelled() || control.cancelled())
        return {};
    control.report(kFacesFound);
    std::shared_ptr<Picture> result = faces.empty() ? unchanged() : image->copy({});
    FaceDeblurring deblurring(*image, *result, faces, limited, features);
    std::vector<Measures> measures;
    for (const Face& face : faces) {
        if (control.cancelled())
            return {};
        const std::optional<Measures> measured = deblurring.run(face, control);
        if (!measured)
            return {};
        measures.push_back(*measured);
        control.report(kFacesFound +
                       (1.0f - kFacesFound) * static_cast<float>(measures.size()) / static_cast<float>(faces.size()));
    }
    logMeasures(id, measures);
    return result;
}

} // namespace

std::shared_ptr<Picture> DeblurAIEffect::withDeblurredFaces(const std::string& id, std::shared_ptr<Picture> image,
                                                            float amount, bool profiles, bool features,
                                                            const RunControl& run)
{
    return sharpened(id, image, amount, profiles, features, run, [&image] { return std::move(image); });
}

std::shared_ptr<Picture> DeblurAIEffect::deblurFaces(const std::string& id, const std::shared_ptr<const Picture>& image,
                                                     float amount, bool profiles, bool features,
                                                     const std::atomic<bool>* cancel)
{
    return deblurFaces(id, image, amount, profiles, features, RunControl(cancel));
}

std::shared_ptr<Picture> DeblurAIEffect::deblurFaces(const std::string& id, const std::shared_ptr<const Picture>& image,
                                                     float amount, bool profiles, bool features, const RunControl& run)
{
    return sharpened(id, image, amount, profiles, features, run, [&image] { return image->copy({}); });
}

} // namespace orvo
