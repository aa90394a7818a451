/// Loads the frames of a bracket or a focus series.
#pragma once

#include "bracket/frames.hpp"

#include <orvo_extensions/bracket.hpp>
#include <orvo_extensions/hdr.hpp>
#include <orvo_io/image_reader.hpp>

#include <filesystem>
#include <vector>

namespace orvo {

/// One file. A zero `size` is the file's own. `lensCorrection` prepares the lens data of a raw file. A file that
/// cannot be opened gives a frame with nothing in it, a line in the log and the stated failure.
template <typename Frame>
[[nodiscard]] Frame loadFrame(const std::filesystem::path& path, int flags, _Size<int> size, bool lensCorrection);

/// All files, in the order of the paths. With `sequential` (raw files, whose decoder is itself parallel) a file that
/// cannot be opened drops out; otherwise it leaves an empty frame in its place. Empty if cancelled. The frame at the
/// ghost reference index, which counts paths, is marked.
[[nodiscard]] std::vector<HDRFrame> loadFrames(const std::vector<std::filesystem::path>& paths,
                                               const HDRSettings& settings, ImageReaderOpenFlag flags, bool sequential);
/// The same for a focus series, which cannot be cancelled.
[[nodiscard]] std::vector<FocusStackerFrame> loadFrames(const std::vector<std::filesystem::path>& paths,
                                                        const BracketSettings::FocusStacking& settings,
                                                        ImageReaderOpenFlag flags, bool sequential);

/// Whether all paths are raw camera files, which load one after the other.
[[nodiscard]] bool areAllRaw(const std::vector<std::filesystem::path>& paths);

/// Raw development of a focus stacking frame, in place.
void develop(std::shared_ptr<_ImageData<PixelRGB<float>>>& image, const std::shared_ptr<const ImageMetadata>& metadata,
             const std::shared_ptr<AdditionalRawMetadata>& rawMetadata, bool chromatic);

} // namespace orvo
