/// The family's configuration store.
#pragma once

#include <orvo_common/export.hpp>

#include <filesystem>
#include <memory>
#include <string>

namespace orvo {

/// Values by key ("DebugDrawer.enable": dots separate the levels), kept in memory, read from a JSON file on request.
/// Can be used from any thread.
class ORVO_EXPORT Settings
{
public:
    Settings();
    ~Settings();
    Settings(const Settings&) = delete;
    Settings& operator=(const Settings&) = delete;

    /// The value of `key`, or `fallback` if it is missing or has another type. T: bool, int, double,
    /// std::string.
    template <typename T>
    [[nodiscard]] T get(const std::string& key, const T& fallback) const;
    template <typename T>
    void set(const std::string& key, const T& value);
    void remove(const std::string& key);

    /// Adds the values of a JSON file and replaces those with the same key. Throws std::runtime_error that names the
    /// file and the error (nesting deeper than 64 levels is one); the store is then unchanged.
    void load(const std::filesystem::path& file);

private:
    struct Store;
    std::unique_ptr<Store> store;
};

/// The store of the process, initially empty.
[[nodiscard]] ORVO_EXPORT Settings& orvosettings();

} // namespace orvo
