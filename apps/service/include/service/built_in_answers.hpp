/// Answers requests in the process: holes and borders by orvo::patchFiller(), restoration by orvo::restorePicture().
#pragma once

#include <orvo_common/run_control.hpp>

#include <service/messages.hpp>

#include <string>

namespace orvo::service {

/// The picture of the answer, a PNG of 8 bits in base64: the same text for the same request, for any number of threads.
/// A mask that marks nothing gives the picture back. Throws FailureError: Cancelled; UnfittingPictures if the pictures
/// cannot be decoded or everything is marked. Throws std::bad_alloc. Blocks; any thread.
[[nodiscard]] std::string builtInAnswer(const PictureRequest& request, const RunControl& control);

} // namespace orvo::service
