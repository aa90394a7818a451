#include "bracket/frames.hpp"
#include "frame/call_frame.hpp"

#include <orvo/bracket_exposure.hpp>
#include <orvo_extensions/bracket.hpp>
#include <orvo_io/image_reader.hpp>

namespace orvo {
namespace {

// The thumbnail only proves that the file is a picture, so the smallest size is enough.
constexpr int kThumbnailSide = 32;

using PathsAndEVs = std::pair<std::vector<std::filesystem::path>, std::vector<float>>;

PathsAndEVs sortedByExposure(const std::vector<std::filesystem::path>& paths)
{
    std::vector<HDRFrame> frames;
    for (const auto& path : paths) {
        auto metadata = ImageReader::readMetadata(path);
        auto thumbnail = ImageReader::instance().getThumbnailBySide(path, kThumbnailSide, true, nullptr, {});
        if (!thumbnail) {
            details::stateLastFailure({FailureKind::UnreadableFile, path, "cannot create a thumbnail"});
            continue;
        }
        HDRFrame frame;
        frame.path = path;
        frame.image = std::move(thumbnail);
        frame.metadata = std::move(metadata);
        frames.push_back(std::move(frame));
    }
    fillEVsAndSort(frames);
    PathsAndEVs sorted;
    for (const HDRFrame& frame : frames) {
        sorted.first.push_back(frame.path);
        sorted.second.push_back(frame.ev);
    }
    return sorted;
}

} // namespace

PathsAndEVs getSortedPathsAndEVsFromPaths(const std::vector<std::filesystem::path>& paths)
{
    return runInCallFrame("getSortedPathsAndEVsFromPaths", [&] { return sortedByExposure(paths); });
}

} // namespace orvo
