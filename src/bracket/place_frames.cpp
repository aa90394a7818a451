#include "bracket/place_frames.hpp"

#include <orvo_logger/logstream.hpp>

#include <utility>

namespace orvo {
namespace {

struct Neighbour
{
    FrameStructure structure;
    cv::Matx33d frameFromReference = cv::Matx33d::eye();
};

} // namespace

std::vector<FineRegistration> placeFrames(std::size_t count, std::size_t reference,
                                          const std::function<FrameStructure(std::size_t)>& structure,
                                          const std::vector<cv::Matx33d>& starts, FrameMovement movement,
                                          const RunControl& run)
{
    std::vector<FineRegistration> places(count);
    places[reference].found = true;
    const FrameStructure ofReference = structure(reference);
    Neighbour last;
    bool hasLast = false;
    const auto place = [&](std::size_t i) {
        FrameStructure own = structure(i);
        std::vector<PlacedStructure> placed{{&ofReference, cv::Matx33d::eye()}};
        if (hasLast)
            placed.push_back({&last.structure, last.frameFromReference});
        const cv::Matx33d start = !starts.empty() ? starts[i] : hasLast ? last.frameFromReference : cv::Matx33d::eye();
        places[i] = registerFinely(placed, own, start, movement);
        if (!places[i].found) {
            LOG(__orvolog() << LogMessageType::Warning << "[Alignment] Frame #" << i << " could not be registered");
            places[i].frameFromReference = starts.empty() ? cv::Matx33d::eye() : starts[i];
            return;
        }
        last = {std::move(own), places[i].frameFromReference};
        hasLast = true;
    };
    for (std::size_t i = reference + 1; i < count && !run.cancelled(); ++i)
        place(i);
    hasLast = false;
    last = {};
    for (std::size_t i = reference; i-- > 0 && !run.cancelled();)
        place(i);
    return run.wasCancelled() ? std::vector<FineRegistration>() : places;
}

} // namespace orvo
