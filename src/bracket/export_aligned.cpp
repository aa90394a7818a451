#include "bracket/load_frames.hpp"

#include <orvo_extensions/focus_stack.hpp>
#include <orvo_image_processing/debug_drawer.hpp>

#include <stdexcept>

namespace orvo {

std::vector<std::shared_ptr<Image>> exportAligned(const std::vector<std::filesystem::path>& paths,
                                                  const BracketSettings::FocusStacking& settings)
{
    std::vector<FocusStackerFrame> frames = loadFrames(paths, settings, ImageReaderOpenFlag::Bracket, areAllRaw(paths));
    std::vector<std::shared_ptr<Image>> images;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        // The parallel loader leaves an empty frame where a file could not be opened.
        if (!frames[i].image)
            throw std::runtime_error("the frame " + paths[i].string() + " could not be loaded");
        writeOnFrame(frames[i].image,
                     "align result, image " + std::to_string(i + 1) + " out of " + std::to_string(frames.size()));
        // The caller gets pixels of its own: those of the frame are the reader's.
        std::shared_ptr<const _ImageData<PixelRGB<float>>> copy = frames[i].image->copy({});
        images.push_back(CreateOrvoImage(copy, frames[i].metadata));
        frames[i].image.reset();
    }
    return images;
}

} // namespace orvo
