#include "json_text.hpp"

#include <utility>
#include <vector>

namespace orvo::cli {
namespace {

using Json = nlohmann::ordered_json;

std::string hexOf(const std::string& bytes)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

bool isUtf8(const Json& text)
{
    try {
        (void)text.dump();
        return true;
    } catch (const Json::type_error&) {
        return false;
    }
}

void addHexOfNames(Json& json)
{
    if (json.is_array())
        for (Json& each : json)
            addHexOfNames(each);
    if (!json.is_object())
        return;
    std::vector<std::pair<std::string, std::string>> added;
    for (auto& [key, value] : json.items()) {
        if (value.is_string() && !isUtf8(value))
            added.emplace_back(key + "_hex", hexOf(value.get<std::string>()));
        addHexOfNames(value);
    }
    for (const auto& [key, hex] : added)
        json[key] = hex;
}

} // namespace

std::string jsonText(Json json)
{
    addHexOfNames(json);
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace orvo::cli
