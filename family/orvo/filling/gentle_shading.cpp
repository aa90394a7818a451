#include "filling/gentle_shading.hpp"

#include "filling/membrane.hpp"

#include <orvo_core/parallel.hpp>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

namespace orvo::details {
namespace {

// Averages grain away and keeps the shape of clouds.
constexpr double kSigma = 1.5; // in cells
// Of the pixels of a cell: less is none.
constexpr float kLeastKnown = 1e-3f;
// Change per pixel: skies, calm water and shaded walls have less than the first, soft clouds the second.
constexpr float kGentle = 0.4f / 255.0f;
constexpr float kSteep = 0.8f / 255.0f;
// Cells on each side of an edge that are not gentle.
constexpr int kAroundEdges = 1;
// Cells beside the hole whose change is not measured on both sides.
constexpr int kBesideTheHole = 2;
// What is gentler continues into the hole.
constexpr float kContinued = 0.5f;

// How steeply a colour changes: its luma, or half of the channel that changes most. Where a blue cloth meets a brown
// one as dark, the luma stays.
float steepnessOf(const cv::Vec3f& right, const cv::Vec3f& below)
{
    const auto luma = [](const cv::Vec3f& p) { return 0.25f * (p[0] + 2.0f * p[1] + p[2]); };
    float most = std::hypot(luma(right), luma(below));
    for (int channel = 0; channel < 3; ++channel)
        most = std::max(most, 0.5f * std::hypot(right[channel], below[channel]));
    return most;
}

} // namespace

GentleShading::GentleShading(const _ImageData<PixelRGB<float>>& picture, const Hole& hole, const _Rect<int>& window)
    : left(window.x), top(window.y), columns((window.width + kCell - 1) / kCell),
      rows((window.height + kCell - 1) / kCell)
{
    changes.resize(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows));
    cv::Mat_<cv::Vec3f> sums(rows, columns, cv::Vec3f());
    cv::Mat_<float> known(rows, columns, 0.0f);
    forEachRow(rows, [&](int row) {
        for (int y = row * kCell; y < std::min(window.height, (row + 1) * kCell); ++y) {
            const PixelRGB<float>* const in = picture.row(top + y) + left;
            const std::uint8_t* const inHole = hole.row(top + y) + left;
            for (int x = 0; x < window.width; ++x)
                if (inHole[x] == 0 && hole.hasContent(left + x, top + y) &&
                    std::isfinite(in[x].r + in[x].g + in[x].b)) {
                    sums(row, x / kCell) += cv::Vec3f(in[x].r, in[x].g, in[x].b);
                    known(row, x / kCell) += 1.0f;
                }
        }
    });
    cv::GaussianBlur(sums, sums, {}, kSigma);
    cv::GaussianBlur(known, known, {}, kSigma);
    colours.resize(changes.size());
    forEachRow(rows, [&](int row) {
        for (int column = 0; column < columns; ++column) {
            cv::Vec3f& mean = sums(row, column);
            mean /= std::max(known(row, column), kLeastKnown);
            colours[cellAt(column, row)] = {mean[0], mean[1], mean[2]};
        }
    });
    cv::Mat_<float> steepness(rows, columns, 0.0f);
    forEachRow(rows, [&](int row) {
        const int above = std::max(row - 1, 0);
        const int under = std::min(row + 1, rows - 1);
        for (int column = 0; column < columns; ++column) {
            const int before = std::max(column - 1, 0);
            const int after = std::min(column + 1, columns - 1);
            const cv::Vec3f right =
                (sums(row, after) - sums(row, before)) / static_cast<float>(kCell * std::max(1, after - before));
            const cv::Vec3f below =
                (sums(under, column) - sums(above, column)) / static_cast<float>(kCell * std::max(1, under - above));
            Change& change = changes[cellAt(column, row)];
            change.right = {right[0], right[1], right[2]};
            change.below = {below[0], below[1], below[2]};
            steepness(row, column) = steepnessOf(right, below);
        }
    });
    constexpr int kSide = 2 * kAroundEdges + 1;
    cv::dilate(steepness, steepness, cv::Mat::ones(kSide, kSide, CV_8U));
    forEachRow(rows, [&](int row) {
        for (int column = 0; column < columns; ++column)
            changes[cellAt(column, row)].gentleness =
                std::clamp((kSteep - steepness(row, column)) / (kSteep - kGentle), 0.0f, 1.0f);
    });
    continueIntoHole(hole);
}

void GentleShading::continueIntoHole(const Hole& hole)
{
    const _Rect<int>& box = hole.bounds();
    const int firstColumn = (box.x - left) / kCell - kBesideTheHole;
    const int firstRow = (box.y - top) / kCell - kBesideTheHole;
    const int across = (box.x + box.width - 1 - left) / kCell + kBesideTheHole - firstColumn + 1;
    const int down = (box.y + box.height - 1 - top) / kCell + kBesideTheHole - firstRow + 1;
    // Cells of the hole, and those beside it, whose change is measured from one side only.
    cv::Mat_<std::uint8_t> beside(down + 2, across + 2, std::uint8_t{0});
    for (int y = box.y; y < box.y + box.height; ++y)
        for (int x = box.x; x < box.x + box.width; ++x)
            if (hole.row(y)[x] != 0)
                beside((y - top) / kCell - firstRow + 1, (x - left) / kCell - firstColumn + 1) = 1;
    constexpr int kSide = 2 * kBesideTheHole + 1;
    cv::dilate(beside, beside, cv::Mat::ones(kSide, kSide, CV_8U));
    const auto cell = [&](int x, int y) -> Change* {
        const int column = firstColumn + x;
        const int row = firstRow + y;
        return column < 0 || row < 0 || column >= columns || row >= rows ? nullptr : &changes[cellAt(column, row)];
    };
    const auto kindOf = [&](int x, int y) {
        const Change* const change = cell(x, y);
        if (change == nullptr)
            return Membrane::Pixel::Beyond;
        if (beside(y + 1, x + 1) != 0)
            return Membrane::Pixel::Free;
        return change->gentleness > kContinued ? Membrane::Pixel::Fixed : Membrane::Pixel::Beyond;
    };
    Membrane membrane({across, down}, kindOf);
    for (PixelRGB<float> Change::*const direction : {&Change::right, &Change::below})
        for (float PixelRGB<float>::*const channel : {&PixelRGB<float>::r, &PixelRGB<float>::g, &PixelRGB<float>::b}) {
            membrane.solve([&](int x, int y) {
                float sum = 0.0f;
                for (const auto& [dx, dy] : {std::pair{1, 0}, {-1, 0}, {0, 1}, {0, -1}})
                    if (kindOf(x + dx, y + dy) == Membrane::Pixel::Fixed)
                        sum += (cell(x + dx, y + dy)->*direction).*channel;
                return sum;
            });
            for (int y = 0; y < down; ++y)
                for (int x = 0; x < across; ++x)
                    if (kindOf(x, y) == Membrane::Pixel::Free)
                        (cell(x, y)->*direction).*channel = membrane.value(x, y);
        }
}

PixelRGB<float> GentleShading::colourAt(int x, int y) const
{
    // Positions of pixels between the middles of cells.
    const auto between = [](int pixel, int cells) {
        const float position = (static_cast<float>(pixel) + 0.5f) / static_cast<float>(kCell) - 0.5f;
        return std::clamp(position, 0.0f, static_cast<float>(cells - 1));
    };
    const float atX = between(x - left, columns);
    const float atY = between(y - top, rows);
    const int column = static_cast<int>(atX);
    const int row = static_cast<int>(atY);
    const int nextColumn = std::min(column + 1, columns - 1);
    const int nextRow = std::min(row + 1, rows - 1);
    const float right = atX - static_cast<float>(column);
    const float under = atY - static_cast<float>(row);
    PixelRGB<float> sum;
    const auto add = [&](int c, int r, float weight) {
        const PixelRGB<float>& p = colours[cellAt(c, r)];
        sum.r += weight * p.r;
        sum.g += weight * p.g;
        sum.b += weight * p.b;
    };
    add(column, row, (1.0f - right) * (1.0f - under));
    add(nextColumn, row, right * (1.0f - under));
    add(column, nextRow, (1.0f - right) * under);
    add(nextColumn, nextRow, right * under);
    return sum;
}

} // namespace orvo::details
