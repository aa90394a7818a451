#include "demo_sheet.hpp"

#include "run_job.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/image_writer.hpp>

#include <algorithm>
#include <memory>

namespace orvo::jobs {
namespace {

using Picture = _ImageData<PixelRGB<float>>;

constexpr int kGap = 6;      // white pixels between the pictures
constexpr int kQuality = 70; // a sheet has about 50 KB

std::shared_ptr<const Picture> opened(const std::filesystem::path& path)
{
    constexpr auto kDeveloped =
        static_cast<ImageReaderOpenFlag>(static_cast<std::int32_t>(ImageReaderOpenFlag::Upright) |
                                         static_cast<std::int32_t>(ImageReaderOpenFlag::WorkingSpace));
    const auto image =
        ImageReader::instance().open({path, {}}, {.profile = ColorProfileType::sRGB()}, kDeveloped, nullptr, {}, -1);
    if (!image)
        throwLastFailure("the picture cannot be read");
    return image->imageData({}, {}, true);
}

std::shared_ptr<const Picture> fitted(const Picture& picture, int width)
{
    const int height = std::max(1, picture.height() * width / picture.width());
    return picture.resize({width, height}, {}, true);
}

// The middle of a picture as it is when `wholeWidth` pixels wide, in `width` columns and two thirds as many rows.
std::shared_ptr<const Picture> detailOf(const Picture& picture, int wholeWidth, int width)
{
    const auto whole = fitted(picture, wholeWidth);
    const _Size<int> size(std::min(width, whole->width()), std::min(width * 2 / 3, whole->height()));
    return whole->copy(
        {(whole->width() - size.width) / 2, (whole->height() - size.height) / 2, size.width, size.height});
}

void paste(const Picture& picture, Picture& sheet, int left, int top)
{
    for (int y = 0; y < std::min(picture.height(), sheet.height() - top); ++y)
        std::copy_n(picture.row(y), std::min(picture.width(), sheet.width() - left), sheet.row(top + y) + left);
}

std::vector<std::filesystem::path> chosen(const std::vector<std::filesystem::path>& frames)
{
    if (frames.size() <= kSheetFrames)
        return frames;
    std::vector<std::filesystem::path> some;
    for (std::size_t i = 0; i < kSheetFrames; ++i)
        some.push_back(frames[i * (frames.size() - 1) / (kSheetFrames - 1)]);
    return some;
}

} // namespace

void writeDemoSheet(const std::vector<std::filesystem::path>& frames, const std::filesystem::path& result,
                    SheetPart part, const std::filesystem::path& sheet)
{
    const std::vector<std::filesystem::path> shown = chosen(frames);
    const bool isRow = shown.size() > 1;
    const int columns = isRow ? static_cast<int>(shown.size()) : 2;
    const int column = (kSheetWidth - kGap * (columns - 1)) / columns;
    std::shared_ptr<const Picture> made = opened(result);
    std::vector<std::shared_ptr<const Picture>> small;
    int height = 0;
    for (const auto& frame : shown) {
        const auto picture = opened(frame);
        small.push_back(part == SheetPart::Detail ? detailOf(*picture, made->width(), column)
                                                  : fitted(*picture, column));
        height = std::max(height, small.back()->height());
    }
    made = part == SheetPart::Detail ? detailOf(*made, made->width(), column)
                                     : fitted(*made, isRow ? kSheetWidth : column);
    const int total = isRow ? height + kGap + made->height() : std::max(height, made->height());
    Picture page({kSheetWidth, total}, ColorProfileType::sRGB());
    for (int y = 0; y < total; ++y)
        std::fill_n(page.row(y), kSheetWidth, PixelRGB<float>{1.0f, 1.0f, 1.0f});
    for (std::size_t i = 0; i < small.size(); ++i)
        paste(*small[i], page, static_cast<int>(i) * (column + kGap), 0);
    paste(*made, page, isRow ? 0 : column + kGap, isRow ? height + kGap : 0);
    ImageWriteSettings settings = writeSettingsForPath(sheet);
    settings.jpegQuality = kQuality;
    writeImage(sheet, page, settings);
}

} // namespace orvo::jobs
