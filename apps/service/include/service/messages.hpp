/// What a generative service is sent and what it answers, as text: used by the client and by the server.
///
/// Pictures are PNG in base64. docs/service.md describes the protocol.
#pragma once

#include <orvo_core/geometry.hpp>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace orvo::service {

enum class Tool
{
    Erase,   ///< paint what was behind what the mask marks
    Expand,  ///< paint the border that the mask marks
    Restore, ///< make the whole picture better
};

/// Also the path of the tool on a server, without the slash: "erase", "expand", "restore".
[[nodiscard]] const char* toolName(Tool tool);

/// One request.
struct PictureRequest
{
    Tool tool = Tool::Erase;
    std::string id;         ///< by which the answer is recognised
    std::int32_t width = 0; ///< pixels of `image`
    std::string image;
    std::string mask; ///< gray, of the same size; everything above 0 is to be painted. Empty for Tool::Restore
};

/// What arrived is not what the protocol says. what() is one line without a full stop.
class ProtocolError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The same for the same tool and pictures, different for others: so an answer can be matched with a request that is
/// prepared again.
[[nodiscard]] std::string requestId(Tool tool, std::string_view image, std::string_view mask);

/// The pixels of a PNG in base64, from its first bytes; (0, 0) if it does not begin like one.
[[nodiscard]] _Size<int> pngSize(std::string_view base64);

/// As JSON.
[[nodiscard]] std::string requestText(const PictureRequest& request);
/// Checks that both pictures begin like PNG, that their sizes agree with each other and with the width, and that there
/// is a mask where the tool needs one. Throws ProtocolError.
[[nodiscard]] PictureRequest parsedRequest(Tool tool, std::string_view text);

/// As JSON with the picture as a data URL.
[[nodiscard]] std::string answerText(const std::string& id, std::string_view image);
/// As JSON.
[[nodiscard]] std::string errorText(const std::string& id, const std::string& sentence);

/// The picture of an answer, in base64: of JSON with the members `id` and `image`, of a data URL, or of the bytes of a
/// PNG. It is decoded as a whole, so that it can be relied on. Throws ProtocolError, also if the answer is about
/// another request, or its picture has other proportions than the request's.
[[nodiscard]] std::string pictureOfAnswer(std::string_view body, const PictureRequest& request);

/// The sentence of an errorText(), shortened to one line; empty if the text is none.
[[nodiscard]] std::string sentenceOfError(std::string_view body);

} // namespace orvo::service
