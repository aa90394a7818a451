#include <orvo_io/base64.hpp>
#include <orvo_io/base64_image.hpp>

#include <nlohmann/json.hpp>
#include <service/messages.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace orvo::service {
namespace {

using Json = nlohmann::json;

constexpr std::string_view kDataUrl = "data:image/png;base64,";
constexpr std::string_view kPngSignature = "\x89PNG\r\n\x1a\n";
constexpr std::size_t kLongestId = 200;       // characters; a UUID has 36
constexpr std::size_t kLongestSentence = 300; // characters of a foreign sentence that are shown

// File names and foreign bytes need not be UTF-8, but JSON must be.
std::string textOf(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

std::string_view withoutSpaceBefore(std::string_view text)
{
    const auto first = text.find_first_not_of(" \t\r\n");
    return first == std::string_view::npos ? std::string_view() : text.substr(first);
}

std::string_view withoutDataUrl(std::string_view text)
{
    return text.starts_with(kDataUrl) ? text.substr(kDataUrl.size()) : text;
}

Json objectOf(std::string_view text, const char* what)
{
    Json json = Json::parse(text, nullptr, /*allow_exceptions=*/false);
    if (!json.is_object())
        throw ProtocolError(std::string("the ") + what + " is no JSON object");
    return json;
}

std::string textMember(const Json& json, const char* name, const char* what)
{
    const auto member = json.find(name);
    if (member == json.end() || !member->is_string())
        throw ProtocolError(std::string("the ") + what + " has no text \"" + name + "\"");
    return member->get<std::string>();
}

std::string idOf(const Json& json, const char* what)
{
    std::string id = textMember(json, "id", what);
    if (id.empty() || id.size() > kLongestId)
        throw ProtocolError(std::string("the \"id\" of the ") + what + " has " + std::to_string(id.size()) +
                            " characters, expected 1 to " + std::to_string(kLongestId));
    return id;
}

std::string sizeText(_Size<int> size) { return std::to_string(size.width) + " x " + std::to_string(size.height); }

_Size<int> checkedSize(const std::string& picture, const char* name)
{
    const _Size<int> size = pngSize(picture);
    if (size == _Size<int>())
        throw ProtocolError(std::string("\"") + name + "\" is no PNG in base64");
    return size;
}

std::string oneLine(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, ' ');
    while (!text.empty() && (text.back() == '.' || text.back() == ' '))
        text.pop_back();
    if (text.size() > kLongestSentence)
        text = text.substr(0, kLongestSentence) + "...";
    return text;
}

std::string pictureOfJson(std::string_view body, const PictureRequest& request)
{
    const Json json = objectOf(body, "answer");
    if (const std::string sentence = sentenceOfError(body); !sentence.empty())
        throw ProtocolError("the service reports: " + sentence);
    if (const std::string id = idOf(json, "answer"); id != request.id)
        throw ProtocolError("this is the answer to another request: expected the id " + request.id + ", found " +
                            oneLine(id));
    return std::string(withoutDataUrl(textMember(json, "image", "answer")));
}

// An answer may have another scale than its request. Its sides are whole numbers, so proportions agree within a pixel.
bool proportionsAgree(_Size<int> answer, _Size<int> request)
{
    const double scale = std::max(static_cast<double>(answer.width) / request.width,
                                  static_cast<double>(answer.height) / request.height);
    return std::abs(answer.width - request.width * scale) <= std::max(1.0, scale) &&
           std::abs(answer.height - request.height * scale) <= std::max(1.0, scale);
}

void checkPicture(const std::string& picture, const PictureRequest& request)
{
    const _Size<int> size = pngSize(picture);
    if (size == _Size<int>())
        throw ProtocolError("the picture of the answer is no PNG");
    const _Size<int> sent = pngSize(request.image);
    if (!proportionsAgree(size, sent))
        throw ProtocolError("the picture of the answer has " + sizeText(size) + " pixels, the request has " +
                            sizeText(sent) + ": these are other proportions");
    if (static_cast<std::int64_t>(size.width) * size.height > kMostDecodedPixels)
        throw ProtocolError("the picture of the answer has " + sizeText(size) + " pixels, at most " +
                            std::to_string(kMostDecodedPixels / 1'000'000) + " million are read");
    if (!convertToImageData(picture))
        throw ProtocolError("the picture of the answer is damaged or cut off");
}

} // namespace

const char* toolName(Tool tool)
{
    switch (tool) {
    case Tool::Erase:
        return "erase";
    case Tool::Expand:
        return "expand";
    case Tool::Restore:
        return "restore";
    }
    return "";
}

std::string requestId(Tool tool, std::string_view image, std::string_view mask)
{
    // FNV-1a with 64 bits (Fowler, Noll, Vo): it has to tell a user's requests apart, not to withstand an attack.
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (const std::string_view text : {image, mask})
        for (const char c : text)
            hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
    std::array<char, 17> digits{};
    std::snprintf(digits.data(), digits.size(), "%016llx", static_cast<unsigned long long>(hash));
    return std::string(toolName(tool)) + "-" + digits.data();
}

_Size<int> pngSize(std::string_view base64)
{
    // Signature, then the header's length and name, then both sides, big-endian.
    constexpr std::size_t kHeader = 24;
    constexpr std::size_t kWidthAt = 16;
    constexpr std::size_t kHeightAt = 20;
    const auto bytes = bytesOfBase64(base64.substr(0, kHeader / 3 * 4));
    if (!bytes || bytes->size() < kHeader ||
        !std::equal(kPngSignature.begin(), kPngSignature.end(), bytes->begin(),
                    [](char a, unsigned char b) { return static_cast<unsigned char>(a) == b; }))
        return {};
    const auto side = [&](std::size_t at) {
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < sizeof value; ++i)
            value = value << 8U | (*bytes)[at + i];
        return value;
    };
    constexpr std::uint32_t kLongestSide = 0x7fffffff; // as PNG has it
    const std::uint32_t width = side(kWidthAt);
    const std::uint32_t height = side(kHeightAt);
    if (width == 0 || height == 0 || width > kLongestSide || height > kLongestSide)
        return {};
    return {static_cast<int>(width), static_cast<int>(height)};
}

std::string requestText(const PictureRequest& request)
{
    Json json = {{"id", request.id}, {"width", request.width}, {"image", request.image}};
    if (request.tool != Tool::Restore)
        json["mask"] = request.mask;
    return textOf(json);
}

PictureRequest parsedRequest(Tool tool, std::string_view text)
{
    const Json json = objectOf(text, "request");
    PictureRequest request;
    request.tool = tool;
    request.id = idOf(json, "request");
    request.image = withoutDataUrl(textMember(json, "image", "request"));
    const _Size<int> size = checkedSize(request.image, "image");
    request.width = size.width;
    const auto width = json.find("width");
    if (width == json.end() || !width->is_number_integer() || width->get<std::int64_t>() != size.width)
        throw ProtocolError("\"width\" is not " + std::to_string(size.width) + ", the width of \"image\"");
    if (tool == Tool::Restore)
        return request;
    request.mask = withoutDataUrl(textMember(json, "mask", "request"));
    if (const _Size<int> maskSize = checkedSize(request.mask, "mask"); maskSize != size)
        throw ProtocolError("\"mask\" has " + sizeText(maskSize) + " pixels, \"image\" has " + sizeText(size));
    return request;
}

std::string answerText(const std::string& id, std::string_view image)
{
    return textOf({{"id", id}, {"image", std::string(kDataUrl).append(image)}});
}

std::string errorText(const std::string& id, const std::string& sentence)
{
    Json json = {{"error", sentence}};
    if (!id.empty())
        json["id"] = id;
    return textOf(json);
}

std::string pictureOfAnswer(std::string_view body, const PictureRequest& request)
{
    const std::string_view text = withoutSpaceBefore(body);
    std::string picture;
    if (body.starts_with(kPngSignature))
        picture = base64Of({reinterpret_cast<const unsigned char*>(body.data()), body.size()});
    else if (text.starts_with('{'))
        picture = pictureOfJson(text, request);
    else if (text.starts_with(kDataUrl))
        picture = withoutDataUrl(text);
    else
        throw ProtocolError(body.empty() ? "the answer is empty"
                                         : "the answer is neither JSON, a data URL of a PNG nor a PNG");
    checkPicture(picture, request);
    return picture;
}

std::string sentenceOfError(std::string_view body)
{
    const Json json = Json::parse(body, nullptr, /*allow_exceptions=*/false);
    if (!json.is_object())
        return {};
    const auto error = json.find("error");
    return error != json.end() && error->is_string() ? oneLine(error->get<std::string>()) : std::string();
}

} // namespace orvo::service
