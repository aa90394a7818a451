#include <orvo_common/wide_path.hpp>
#include <orvo_io/settings.hpp>

#include <nlohmann/json.hpp>

#include <fstream>
#include <iterator>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <type_traits>

namespace orvo {

using nlohmann::json;

struct Settings::Store
{
    mutable std::shared_mutex mutex;
    json values = json::object(); // flat: the keys with their dots
};

namespace {

// Nesting of arrays and objects. The deepest key of the family has two levels; each level costs stack when values are
// copied, and a file of nothing but brackets would overflow it.
constexpr int kMostLevels = 64;

// Levels of a file become dots in a key. An array is stored under its own key; no type here reads it.
void flatten(const json& level, const std::string& prefix, json& out)
{
    for (const auto& [name, value] : level.items()) {
        const std::string key = prefix.empty() ? name : prefix + '.' + name;
        if (value.is_object())
            flatten(value, key, out);
        else
            out[key] = value;
    }
}

template <typename T>
bool holds(const json& value)
{
    if constexpr (std::is_same_v<T, bool>)
        return value.is_boolean();
    else if constexpr (std::is_same_v<T, int>)
        // An integer that does not fit counts as another type.
        return value.is_number_integer() && value == json(value.get<int>());
    else if constexpr (std::is_same_v<T, double>)
        return value.is_number();
    else
        return value.is_string();
}

} // namespace

Settings::Settings() : store(std::make_unique<Store>()) {}
Settings::~Settings() = default;

template <typename T>
T Settings::get(const std::string& key, const T& fallback) const
{
    const std::shared_lock lock(store->mutex);
    const auto found = store->values.find(key);
    return found != store->values.end() && holds<T>(*found) ? found->get<T>() : fallback;
}

template <typename T>
void Settings::set(const std::string& key, const T& value)
{
    const std::unique_lock lock(store->mutex);
    store->values[key] = value;
}

void Settings::remove(const std::string& key)
{
    const std::unique_lock lock(store->mutex);
    store->values.erase(key);
}

void Settings::load(const std::filesystem::path& file)
{
    const auto refuse = [&](const std::string& text) {
        throw std::runtime_error("Settings::load: " + pathText(file) + ": " + text);
    };
    // Opening a folder succeeds; reading it fails.
    if (!std::filesystem::is_regular_file(file))
        refuse("expected a file, found nothing or something else");
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
        refuse("cannot be opened");
    const std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    json read;
    const auto checkDepth = [&](int around, json::parse_event_t event, const json&) {
        const bool opens = event == json::parse_event_t::object_start || event == json::parse_event_t::array_start;
        if (opens && around >= kMostLevels)
            refuse("expected at most " + std::to_string(kMostLevels) + " levels, found more");
        return true;
    };
    try {
        read = json::parse(text, checkDepth);
    } catch (const json::exception& error) {
        refuse(error.what());
    }
    if (!read.is_object())
        refuse("expected an object, found " + std::string(read.type_name()));
    json flat = json::object();
    flatten(read, {}, flat);
    const std::unique_lock lock(store->mutex);
    store->values.update(flat);
}

#define ORVO_INSTANTIATE(T)                                                                                            \
    template ORVO_EXPORT T Settings::get<T>(const std::string&, const T&) const;                                       \
    template ORVO_EXPORT void Settings::set<T>(const std::string&, const T&)
ORVO_INSTANTIATE(bool);
ORVO_INSTANTIATE(int);
ORVO_INSTANTIATE(double);
ORVO_INSTANTIATE(std::string);
#undef ORVO_INSTANTIATE

Settings& orvosettings()
{
    static Settings settings;
    return settings;
}

} // namespace orvo
