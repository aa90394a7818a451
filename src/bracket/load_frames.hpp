/// Loads the frames of a bracket or a focus series.
#pragma once

#include "bracket/frames.hpp"

#include <orvo_common/run_control.hpp>
#include <orvo_extensions/bracket.hpp>
#include <orvo_extensions/hdr.hpp>
#include <orvo_extensions/picture_input.hpp>
#include <orvo_io/image_reader.hpp>

#include <filesystem>
#include <vector>

namespace orvo {

/// Loads one picture. A zero `size` means its own. `lensCorrection` prepares the lens data of a raw file. A picture
/// that cannot be read gives an empty frame, a line in the log and a stated failure.
template <typename Frame>
[[nodiscard]] Frame loadFrame(const PictureInput& input, int flags, _Size<int> size, bool lensCorrection,
                              const ImageReadOptions& options = {});

/// Loads all pictures, in the given order. With `sequential` (raw files, whose decoder is itself parallel) one that
/// cannot be read is dropped; otherwise it leaves an empty frame. Empty if cancelled. Marks the frame at the ghost
/// reference index, which counts inputs.
[[nodiscard]] std::vector<HDRFrame> loadInputs(const std::vector<PictureInput>& inputs, const HDRSettings& settings,
                                               ImageReaderOpenFlag flags, bool sequential, const RunControl& run);

/// The same for files, cancelled by the flag of the settings.
[[nodiscard]] std::vector<HDRFrame> loadFrames(const std::vector<std::filesystem::path>& paths,
                                               const HDRSettings& settings, ImageReaderOpenFlag flags, bool sequential);
/// The same for a focus series, which cannot be cancelled.
[[nodiscard]] std::vector<FocusStackerFrame> loadFrames(const std::vector<std::filesystem::path>& paths,
                                                        const BracketSettings::FocusStacking& settings,
                                                        ImageReaderOpenFlag flags, bool sequential);

/// True if all paths are raw camera files, which load one after the other.
[[nodiscard]] bool areAllRaw(const std::vector<std::filesystem::path>& paths);
/// The same for inputs; a picture in memory is never raw.
[[nodiscard]] bool areAllRawFiles(const std::vector<PictureInput>& inputs);

/// Raw development of a focus stacking frame, in place.
void develop(std::shared_ptr<_ImageData<PixelRGB<float>>>& image, const std::shared_ptr<const ImageMetadata>& metadata,
             const std::shared_ptr<AdditionalRawMetadata>& rawMetadata, bool chromatic);

} // namespace orvo
