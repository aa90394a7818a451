#include <orvo_image_processing/debug_drawer.hpp>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <sstream>
#include <utility>

namespace orvo {

namespace {

using Picture = _ImageData<PixelRGB<float>>;

constexpr int kLinesPerSide = 40;
constexpr int kSmallestLine = 12;
constexpr int kSmallestLabelLine = 10; // for a label that fits no other way: letters of 6 pixels, small but complete
constexpr const char* kLeftOut = "...";
// A shortened label keeps twice as many characters of its end, which states which one of how many, as of its beginning.
constexpr std::size_t kBeginningShare = 3;
constexpr float kLetter = 0.95f;
constexpr float kRim = 0.05f;
constexpr int kFont = cv::FONT_HERSHEY_SIMPLEX;
constexpr double kLetterShare = 0.6;   // height of a capital relative to the line
constexpr double kBaselineShare = 0.8; // depth of the baseline relative to the line
// Positions beyond this many pixels are outside every picture; keeps integer sums from overflowing.
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

/// Metrics of letters for one line height.
struct Lettering
{
    explicit Lettering(int lineHeight)
        : height(lineHeight),
          scale(cv::getFontScaleFromHeight(kFont, std::max(1, static_cast<int>(lineHeight * kLetterShare)))),
          thickness(std::max(1, lineHeight / 16)), rim(thickness + 2 * std::max(1, lineHeight / 14))
    {}

    [[nodiscard]] cv::Size extentOf(const std::string& text, int& baseline) const
    {
        return cv::getTextSize(text, kFont, scale, rim, &baseline);
    }

    /// From the left of a line's place to the right end of its letters.
    [[nodiscard]] int widthOf(const std::string& line) const
    {
        int baseline = 0;
        return extentOf(printable(line), baseline).width + rim;
    }

    /// From the top of a line's place to the lower end of its letters.
    [[nodiscard]] int reachBelow() const
    {
        int baseline = 0;
        (void)extentOf("g", baseline);
        return static_cast<int>(height * kBaselineShare) + baseline;
    }

    int height;    ///< of a line
    double scale;  ///< in OpenCV's units
    int thickness; ///< of a letter's strokes, in pixels
    int rim;       ///< of the dark strokes under them
};

/// Draws the line as two masks of the line's size, rim and letters, and blends them where they overlap the picture.
void drawLine(Picture& image, const std::string& text, int left, int top, int lineHeight)
{
    const auto [height, scale, thickness, rim] = Lettering(lineHeight);
    // A letter is never narrower than a tenth of a line, so any more letters are outside.
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
    const cv::Point origin(left + rim - x0, top + static_cast<int>(height * kBaselineShare) - y0);
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

/// A label ready to draw.
struct Layout
{
    std::string lines; ///< separated by "\n"
    int lineHeight;
    _Point<int> position;
};

/// Replaces blanks by line breaks where the line would be wider than `width` pixels.
std::string broken(const std::string& line, int width, int lineHeight)
{
    const Lettering lettering(lineHeight);
    std::string result;
    std::string last; // last line of the result
    std::istringstream words(line);
    for (std::string word; words >> word;) {
        const std::string longer = last.empty() ? word : last + ' ' + word;
        if (last.empty() || lettering.widthOf(longer) <= width) {
            last = longer;
            continue;
        }
        result += last + '\n';
        last = word;
    }
    return result + last;
}

/// The label in lines of the given height, if it fits entirely. Its distance to the border is half a line, or less if
/// there is no room.
std::optional<Layout> layoutOf(const Picture& image, const std::string& label, int lineHeight)
{
    const int margin = lineHeight / 2;
    const Lettering lettering(lineHeight);
    for (const int left : {margin, 0}) { // gives up the border before it breaks the line differently
        const int width = image.width() - left;
        Layout layout{broken(label, width, lineHeight), lineHeight, {left, 0}};
        int height = lettering.reachBelow() - lineHeight;
        bool fits = true;
        std::istringstream lines(layout.lines);
        for (std::string line; std::getline(lines, line); height += lineHeight)
            fits = fits && lettering.widthOf(line) <= width;
        if (!fits || height > image.height())
            continue;
        layout.position.y = std::min(margin, image.height() - height);
        return layout;
    }
    return std::nullopt;
}

/// `label` reduced to `kept` characters from both ends.
std::string shortened(const std::string& label, std::size_t kept)
{
    const std::size_t first = kept / kBeginningShare;
    return label.substr(0, first) + kLeftOut + label.substr(label.size() - (kept - first));
}

/// The layout that shows as much of the label as possible, as large as possible: whole if it fits, else without its
/// middle. Empty if there is no room even for the dots.
std::optional<Layout> layoutOf(const Picture& image, const std::string& label)
{
    for (int height = lineHeightOf(image); height >= kSmallestLabelLine; --height)
        if (auto layout = layoutOf(image, label, height))
            return layout;
    std::size_t kept = 0;
    std::size_t tooMany = label.size();
    auto best = layoutOf(image, shortened(label, kept), kSmallestLabelLine);
    while (best && kept + 1 < tooMany) {
        const std::size_t middle = (kept + tooMany) / 2;
        auto layout = layoutOf(image, shortened(label, middle), kSmallestLabelLine);
        (layout ? kept : tooMany) = middle;
        if (layout)
            best = std::move(layout);
    }
    return best;
}

void drawLines(Picture& image, const std::string& text, int left, int top, int lineHeight)
{
    std::istringstream lines(text);
    for (std::string line; top < image.height() && std::getline(lines, line); top += lineHeight)
        if (top > -2 * lineHeight && left < image.width())
            drawLine(image, line, left, top, lineHeight);
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
    drawLines(*image, text, std::clamp(position.x, -kFarAway, kFarAway), std::clamp(position.y, -kFarAway, kFarAway),
              lineHeightOf(*image));
}

void DebugDrawer::draw(std::shared_ptr<Picture>& image, const std::string& text, _Point<float> position)
{
    draw(image, text, _Point<int>(asPixel(position.x), asPixel(position.y)));
}

void writeOnFrame(std::shared_ptr<Picture>& image, const std::string& text)
{
    if (!image || image->pixelCount() == 0)
        return;
    std::istringstream words(text);
    std::string label;
    for (std::string word; words >> word;)
        label += label.empty() ? word : ' ' + word;
    if (const auto layout = layoutOf(*image, label))
        drawLines(*image, layout->lines, layout->position.x, layout->position.y, layout->lineHeight);
}

} // namespace orvo
