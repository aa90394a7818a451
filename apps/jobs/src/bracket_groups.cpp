#include "bracket_groups.hpp"

#include <jobs/job.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_extensions/failure.hpp>
#include <orvo_io/capture_time.hpp>

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace orvo::jobs {
namespace {

using Paths = std::vector<std::filesystem::path>;

// Exposures closer than this are one: cameras round their times to thirds of a stop.
constexpr double kSameExposureEv = 0.2;

struct Frame
{
    std::filesystem::path path;
    double ev = 0.0;
    std::optional<double> seconds;
};

[[noreturn]] void refuse(const std::string& text) { throw JobRefusal(text); }

std::vector<Frame> framesOf(const Paths& files, const std::vector<std::shared_ptr<const ImageMetadata>>& metadata)
{
    std::vector<Frame> frames;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const ImageMetadata& record = *metadata[i];
        if (!record.hasExposure())
            refuse(pathText(files[i]) + ": has no exposure data, so brackets cannot be separated; --bracket-size sets "
                                        "how many frames each has");
        const auto light =
            static_cast<double>(record.shutterSeconds * record.isoSpeed / (record.aperture * record.aperture));
        frames.push_back({files[i], std::log2(light), readCaptureTime(files[i])});
    }
    const bool areTimed = std::all_of(frames.begin(), frames.end(), [](const Frame& f) { return f.seconds; });
    if (areTimed)
        std::stable_sort(frames.begin(), frames.end(),
                         [](const Frame& a, const Frame& b) { return *a.seconds < *b.seconds; });
    return frames;
}

std::vector<Paths> byExposure(const std::vector<Frame>& frames)
{
    std::vector<Paths> brackets;
    std::vector<double> taken;
    for (const Frame& frame : frames) {
        const bool isRepeated = std::any_of(taken.begin(), taken.end(),
                                            [&](double ev) { return std::abs(ev - frame.ev) < kSameExposureEv; });
        if (brackets.empty() || isRepeated) {
            brackets.emplace_back();
            taken.clear();
        }
        brackets.back().push_back(frame.path);
        taken.push_back(frame.ev);
    }
    return brackets;
}

std::string frameCount(std::size_t count) { return std::to_string(count) + (count == 1 ? " frame" : " frames"); }

void checkSizes(const std::vector<Paths>& brackets)
{
    std::map<std::size_t, int> counts;
    for (const Paths& bracket : brackets)
        ++counts[bracket.size()];
    const std::size_t usual = std::max_element(counts.begin(), counts.end(), [](const auto& a, const auto& b) {
                                  return a.second < b.second || (a.second == b.second && a.first < b.first);
                              })->first;
    if (usual == 1 && counts.size() == 1)
        refuse("all files have the same exposure, so that there are no brackets; --bracket-size sets how many frames "
               "each has");
    for (const Paths& bracket : brackets)
        if (bracket.size() != usual)
            throw FailureError(
                {FailureKind::UnfittingPictures, bracket.front(),
                 "its bracket has " + frameCount(bracket.size()) + ", the others have " + frameCount(usual)});
}

std::vector<Paths> bySize(const Paths& files, std::size_t size)
{
    if (files.size() % size != 0)
        refuse(std::to_string(files.size()) + " files make no brackets of " + frameCount(size) + "; one is incomplete");
    std::vector<Paths> brackets;
    for (std::size_t i = 0; i < files.size(); i += size) {
        const auto first = files.begin() + static_cast<std::ptrdiff_t>(i);
        brackets.emplace_back(first, first + static_cast<std::ptrdiff_t>(size));
    }
    return brackets;
}

} // namespace

std::vector<Paths> groupBrackets(const Paths& files, const std::vector<std::shared_ptr<const ImageMetadata>>& metadata,
                                 int size)
{
    std::vector<Paths> brackets;
    if (size > 0) {
        brackets = bySize(files, static_cast<std::size_t>(size));
    } else {
        brackets = byExposure(framesOf(files, metadata));
        checkSizes(brackets);
    }
    if (brackets.size() < 2)
        refuse("a panorama needs two brackets or more");
    return brackets;
}

} // namespace orvo::jobs
