#include <orvo_extensions/hdr.hpp>

namespace orvo {

HDRSettingsLL::HDRSettingsLL() = default;
HDRSettingsLL::HDRSettingsLL(const HDRSettingsLL&) = default;
HDRSettingsLL& HDRSettingsLL::operator=(const HDRSettingsLL&) = default;

HDRSettings::HDRSettings() = default;
HDRSettings::HDRSettings(const HDRSettings&) = default;
HDRSettings::HDRSettings(HDRSettings&&) noexcept = default;
HDRSettings& HDRSettings::operator=(const HDRSettings&) = default;
HDRSettings& HDRSettings::operator=(HDRSettings&&) noexcept = default;
HDRSettings::~HDRSettings() = default;

bool HDRSettings::canceled() const { return cancelFlag && cancelFlag->load(std::memory_order_relaxed) != 0; }

} // namespace orvo
