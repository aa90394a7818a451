/// Videos for tests: frames that carry their number, and pans over a picture larger than a frame.
#pragma once

#include "support/temporary_folder.hpp"

#include <scenes/video_file.hpp>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orvo::test {

inline const _Size<int> kNumberedSize{192, 112};

/// A video whose upright frames carry the numbers 0, 1, 2, ...
inline std::filesystem::path writeNumbered(const std::filesystem::path& path, std::size_t frames,
                                           const scenes::VideoFileSettings& settings = {})
{
    const bool isOnItsSide = settings.rotationDegrees % 180 != 0;
    const _Size<int> upright = isOnItsSide ? _Size<int>(kNumberedSize.height, kNumberedSize.width) : kNumberedSize;
    const auto draw = [&](std::size_t index, std::uint8_t* bgr) {
        cv::Mat shown(upright.height, upright.width, CV_8UC3);
        scenes::drawFrameNumber(shown.data, upright, static_cast<std::uint32_t>(index));
        cv::Mat stored(kNumberedSize.height, kNumberedSize.width, CV_8UC3, bgr);
        // The inverse of a player's rotation.
        if (settings.rotationDegrees == 90)
            cv::rotate(shown, stored, cv::ROTATE_90_COUNTERCLOCKWISE);
        else if (settings.rotationDegrees == 180)
            cv::rotate(shown, stored, cv::ROTATE_180);
        else if (settings.rotationDegrees == 270)
            cv::rotate(shown, stored, cv::ROTATE_90_CLOCKWISE);
        else
            shown.copyTo(stored);
        if (settings.mirrored)
            cv::flip(stored, stored, 1);
    };
    scenes::writeVideo(path, kNumberedSize, frames, draw, settings);
    return path;
}

/// The number in an 8-bit or working colour matrix; empty if it is empty or has none.
inline std::optional<std::uint32_t> numberOf(const cv::Mat& frame)
{
    if (frame.empty())
        return std::nullopt;
    cv::Mat bytes;
    frame.convertTo(bytes, CV_8UC3, frame.depth() == CV_16S ? 255.0 / 16383.0 : 1.0);
    return scenes::readFrameNumber(bytes.data, {bytes.cols, bytes.rows});
}

/// A large picture with objects of all sizes, different everywhere.
inline cv::Mat drawnWorld(int width, int height, std::uint64_t seed)
{
    cv::Mat world(height, width, CV_8UC3, cv::Scalar(110, 120, 130));
    cv::RNG random(seed);
    const int things = width * height / 500;
    for (int i = 0; i < things; ++i) {
        const cv::Point middle(random.uniform(0, width), random.uniform(0, height));
        const cv::Scalar colour(random.uniform(0, 256), random.uniform(0, 256), random.uniform(0, 256));
        const cv::Size axes(random.uniform(3, 16), random.uniform(3, 16));
        cv::ellipse(world, middle, axes, random.uniform(0, 180), 0, 360, colour, cv::FILLED, cv::LINE_AA);
    }
    return world;
}

/// A camera over a large picture; `corner` gives the upper left corner of each frame's window.
struct Pan
{
    cv::Mat world;
    cv::Size window;
    std::function<cv::Point(std::size_t frame)> corner;

    [[nodiscard]] cv::Mat view(std::size_t frame) const { return world(cv::Rect(corner(frame), window)); }

    std::filesystem::path write(const std::filesystem::path& path, std::size_t frames,
                                const scenes::VideoFileSettings& settings = {}) const
    {
        const auto draw = [this](std::size_t index, std::uint8_t* bgr) {
            view(index).copyTo(cv::Mat(window.height, window.width, CV_8UC3, bgr));
        };
        scenes::writeVideo(path, {window.width, window.height}, frames, draw, settings);
        return path;
    }

    /// The index of the most similar of `frames` frames for a working colour matrix.
    [[nodiscard]] std::size_t frameShownBy(const cv::Mat& working, std::size_t frames) const
    {
        cv::Mat bytes;
        working.convertTo(bytes, CV_8UC3, 255.0 / 16383.0);
        std::size_t best = 0;
        double least = -1.0;
        for (std::size_t i = 0; i < frames; ++i) {
            const double difference = cv::norm(bytes, view(i), cv::NORM_L1);
            if (least < 0.0 || difference < least) {
                least = difference;
                best = i;
            }
        }
        return best;
    }
};

} // namespace orvo::test
