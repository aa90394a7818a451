#include <orvo_image_processing/debug_drawer.hpp>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <sstream>

namespace orvo {

namespace {

using Picture = _ImageData<PixelRGB<float>>;

constexpr int kLinesPerSide = 40;
constexpr int kSmallestLine = 12;
constexpr float kLetter = 0.95f;
constexpr float kRim = 0.05f;
constexpr int kFont = cv::FONT_HERSHEY_SIMPLEX;
constexpr double kLetterShare = 0.6; // height of a capital in heights of a line
// Positions beyond this many pixels are outside every picture; keeps sums of integers from overflowing.
constexpr int kFarAway = 1 << 24;

std::string printable(const std::string& line)
{
    std::string result;
    for (const char c : line)
        result += c >= ' ' && c <= '~' ? c : '?';
    return result;
}

void mix(PixelRGB<float>& pixel, float value, std::uint8_t share)
{
    const float m = static_cast<float>(share) * (1.0f / 255);
    pixel.r += (value - pixel.r) * m;
    pixel.g += (value - pixel.g) * m;
    pixel.b += (value - pixel.b) * m;
}

/// How letters are drawn in lines of a height.
struct Lettering
{
    explicit Lettering(int lineHeight)
        : scale(cv::getFontScaleFromHeight(kFont, std::max(1, static_cast<int>(lineHeight * kLetterShare)))),
          thickness(std::max(1, lineHeight / 16)), rim(thickness + 2 * std::max(1, lineHeight / 14))
    {}

    [[nodiscard]] cv::Size extentOf(const std::string& text, int& baseline) const
    {
        return cv::getTextSize(text, kFont, scale, rim, &baseline);
    }

    double scale;  ///< as OpenCV counts it
    int thickness; ///< of a letter's strokes, pixels
    int rim;       ///< of the dark strokes under them
};

/// The line is drawn as two masks of its own size, rim and letters, and mixed in where they meet the picture.
void drawLine(Picture& image, const std::string& text, int left, int top, int lineHeight)
{
    const auto [scale, thickness, rim] = Lettering(lineHeight);
    // A letter is never narrower than a tenth of a line: more letters than this lie outside for certain.
    const auto most = static_cast<std::size_t>(10 * (image.width() + std::max(0, -left)) / lineHeight + 10);
    const std::string shown = printable(text.substr(0, std::min(text.size(), most)));
    int baseline = 0;
    const cv::Size extent = Lettering(lineHeight).extentOf(shown, baseline);
    const int x0 = std::max(0, left);
    const int x1 = std::min(image.width(), left + extent.width + 2 * rim);
    const int y0 = std::max(0, top);
    const int y1 = std::min(image.height(), top + lineHeight + baseline);
    if (x0 >= x1 || y0 >= y1)
        return;
    cv::Mat dark(y1 - y0, x1 - x0, CV_8UC1, cv::Scalar(0));
    cv::Mat light = dark.clone();
    const cv::Point origin(left + rim - x0, top + static_cast<int>(lineHeight * 0.8) - y0);
    cv::putText(dark, shown, origin, kFont, scale, cv::Scalar(255), rim, cv::LINE_AA);
    cv::putText(light, shown, origin, kFont, scale, cv::Scalar(255), thickness, cv::LINE_AA);
    for (int y = y0; y < y1; ++y) {
        const auto* const rimRow = dark.ptr<std::uint8_t>(y - y0);
        const auto* const letterRow = light.ptr<std::uint8_t>(y - y0);
        PixelRGB<float>* const row = image.row(y);
        for (int x = x0; x < x1; ++x) {
            mix(row[x], kRim, rimRow[x - x0]);
            mix(row[x], kLetter, letterRow[x - x0]);
        }
    }
}

int lineHeightOf(const Picture& image)
{
    return std::max(kSmallestLine, std::min(image.width(), image.height()) / kLinesPerSide);
}

/// Puts line breaks for blanks where the line would be wider than `width` pixels.
std::string broken(const std::string& line, int width, int lineHeight)
{
    const Lettering lettering(lineHeight);
    const auto fits = [&](const std::string& text) {
        int baseline = 0;
        return lettering.extentOf(printable(text), baseline).width + lettering.rim <= width;
    };
    std::string result;
    std::string last; // line of the result
    std::istringstream words(line);
    for (std::string word; words >> word;) {
        const std::string longer = last.empty() ? word : last + ' ' + word;
        if (last.empty() || fits(longer)) {
            last = longer;
            continue;
        }
        result += last + '\n';
        last = word;
    }
    return result + last;
}

int asPixel(float position)
{
    const auto limit = static_cast<float>(kFarAway);
    return std::isnan(position) ? 0 : static_cast<int>(std::lround(std::clamp(position, -limit, limit)));
}

} // namespace

void DebugDrawer::draw(std::shared_ptr<Picture>& image, const std::string& text, _Point<int> position)
{
    if (!image || image->pixelCount() == 0)
        return;
    const int height = lineHeightOf(*image);
    const int left = std::clamp(position.x, -kFarAway, kFarAway);
    int top = std::clamp(position.y, -kFarAway, kFarAway);
    std::istringstream lines(text);
    for (std::string line; top < image->height() && std::getline(lines, line); top += height)
        if (top > -2 * height && left < image->width())
            drawLine(*image, line, left, top, height);
}

void DebugDrawer::draw(std::shared_ptr<Picture>& image, const std::string& text, _Point<float> position)
{
    draw(image, text, _Point<int>(asPixel(position.x), asPixel(position.y)));
}

void writeOnFrame(std::shared_ptr<Picture>& image, const std::string& text)
{
    if (!image || image->pixelCount() == 0)
        return;
    const int height = lineHeightOf(*image);
    const int margin = height / 2;
    DebugDrawer::draw(image, broken(text, image->width() - margin, height), _Point<int>(margin, margin));
}

} // namespace orvo
