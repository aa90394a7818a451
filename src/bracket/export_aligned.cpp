#include "bracket/load_frames.hpp"
#include "frame/call_frame.hpp"

#include <orvo_extensions/focus_stack.hpp>
#include <orvo_image_processing/debug_drawer.hpp>

namespace orvo {
namespace {

std::vector<std::shared_ptr<Image>> labelled(const std::vector<std::filesystem::path>& paths,
                                             const BracketSettings::FocusStacking& settings)
{
    std::vector<FocusStackerFrame> frames = loadFrames(paths, settings, ImageReaderOpenFlag::Bracket, areAllRaw(paths));
    std::vector<std::shared_ptr<Image>> images;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        // The parallel loader leaves an empty frame for a file that could not be opened, and has stated the failure.
        if (!frames[i].image)
            details::throwStatedFailure();
        writeOnFrame(frames[i].image,
                     "align result, image " + std::to_string(i + 1) + " out of " + std::to_string(frames.size()));
        // The caller gets its own pixels: the reader owns those of the frame.
        std::shared_ptr<const _ImageData<PixelRGB<float>>> copy = frames[i].image->copy({});
        images.push_back(CreateOrvoImage(copy, frames[i].metadata));
        frames[i].image.reset();
    }
    return images;
}

} // namespace

std::vector<std::shared_ptr<Image>> exportAligned(const std::vector<std::filesystem::path>& paths,
                                                  const BracketSettings::FocusStacking& settings)
{
    return runInOpenCallFrame([&] { return labelled(paths, settings); });
}

} // namespace orvo
