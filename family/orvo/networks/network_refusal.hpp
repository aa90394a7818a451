/// What is wrong with a network that OpenCV rejects, in words for those who chose the file.
#pragma once

#include <exception>
#include <string>

namespace orvo::details {

/// For an exception that OpenCV threw: "a layer Foo that OpenCV 4.7.0 cannot run", or "a network that ..." where its
/// text does not name the layer. That text, which names lines of OpenCV's sources, becomes a log line of level
/// Diagnostic.
[[nodiscard]] std::string refusalOf(const std::exception& error);

} // namespace orvo::details
