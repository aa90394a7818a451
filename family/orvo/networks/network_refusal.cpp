#include "networks/network_refusal.hpp"

#include <orvo_logger/logstream.hpp>

#include <opencv2/core/version.hpp>

#include <algorithm>
#include <cctype>
#include <string_view>

namespace orvo::details {
namespace {

// The operation in "Node [Operation@domain]:(name) parse error: ..."; empty if the text has none.
std::string layerNamedIn(const std::string& text)
{
    constexpr std::string_view kBefore = "Node [";
    const std::size_t at = text.find(kBefore);
    if (at == std::string::npos)
        return {};
    const std::size_t first = at + kBefore.size();
    const std::size_t last = text.find('@', first);
    const std::string name = text.substr(first, last == std::string::npos ? 0 : last - first);
    const bool isName = std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) != 0; });
    return isName ? name : std::string();
}

} // namespace

std::string refusalOf(const std::exception& error)
{
    LOG(__orvolog() << LogMessageType::Diagnostic << "OpenCV rejects a network: " << error.what());
    const std::string layer = layerNamedIn(error.what());
    return (layer.empty() ? "a network" : "a layer " + layer) + " that OpenCV " CV_VERSION " cannot run";
}

} // namespace orvo::details
