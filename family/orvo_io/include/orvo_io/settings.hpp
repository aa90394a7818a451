/// The family's configuration store.
#pragma once

#include <orvo_common/export.hpp>

#include <filesystem>
#include <memory>
#include <string>

namespace orvo {

/// Values by key ("DebugDrawer.enable": dots part the levels), kept in memory, read from a JSON file on request.
/// Usable from any thread.
class ORVO_EXPORT Settings
{
public:
    Settings();
    ~Settings();
    Settings(const Settings&) = delete;
    Settings& operator=(const Settings&) = delete;

    /// The value under `key`, or `fallback` if there is none or it is of another type. T: bool, int, double,
    /// std::string.
    template <typename T>
    [[nodiscard]] T get(const std::string& key, const T& fallback) const;
    template <typename T>
    void set(const std::string& key, const T& value);
    void remove(const std::string& key);

    /// Adds the values of a JSON file, replacing those of the same key. Throws std::runtime_error that names the file
    /// and what is wrong with it, more than 64 levels within each other among that; nothing is changed then.
    void load(const std::filesystem::path& file);

private:
    struct Store;
    std::unique_ptr<Store> store;
};

/// The store of the process, empty at the start.
[[nodiscard]] ORVO_EXPORT Settings& orvosettings();

} // namespace orvo
