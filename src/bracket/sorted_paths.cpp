#include "bracket/frames.hpp"
#include "frame/call_frame.hpp"

#include <orvo/bracket_exposure.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_extensions/bracket.hpp>
#include <orvo_io/image_reader.hpp>

#include <algorithm>

namespace orvo {
namespace {

// The thumbnail only proves that the file is a picture, so the smallest size is enough.
constexpr int kThumbnailSide = 32;

using PathsAndEVs = std::pair<std::vector<std::filesystem::path>, std::vector<float>>;

// Files are read on all cores, but only so many at a time: the reader keeps the coefficients of a progressive file.
constexpr std::size_t kFilesAtOnce = 4;

HDRFrame readFrame(const std::filesystem::path& path)
{
    HDRFrame frame;
    frame.path = path;
    frame.metadata = ImageReader::readMetadata(path);
    frame.image = ImageReader::instance().getThumbnailBySide(path, kThumbnailSide, true, nullptr, {});
    if (!frame.image)
        details::stateLastFailure({FailureKind::UnreadableFile, path, "cannot create a thumbnail"});
    return frame;
}

PathsAndEVs sortedByExposure(const std::vector<std::filesystem::path>& paths)
{
    std::vector<HDRFrame> frames(paths.size());
    for (std::size_t first = 0; first < paths.size(); first += kFilesAtOnce)
        forEachItem(std::min(kFilesAtOnce, paths.size() - first),
                    [&](std::size_t i) { frames[first + i] = readFrame(paths[first + i]); });
    std::erase_if(frames, [](const HDRFrame& frame) { return !frame.image; });
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
