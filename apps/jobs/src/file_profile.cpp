#include "file_profile.hpp"

#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace orvo::jobs {
namespace {

// ICC.1:2010, 7.2 and 7.3: a header of 128 bytes, the number of tags, and 12 bytes for each tag, its name first. All
// numbers are big-endian.
constexpr std::size_t kColourSpaceAt = 16;
constexpr std::size_t kTagCountAt = 128;
constexpr std::size_t kTagsAt = 132;
constexpr std::size_t kTagBytes = 12;

bool hasText(const std::vector<unsigned char>& icc, std::size_t at, std::string_view text)
{
    return at + text.size() <= icc.size() && std::memcmp(icc.data() + at, text.data(), text.size()) == 0;
}

bool hasTag(const std::vector<unsigned char>& icc, std::string_view name)
{
    if (icc.size() < kTagsAt)
        return false;
    std::uint32_t count = 0;
    for (std::size_t i = 0; i < sizeof count; ++i)
        count = count << 8U | icc[kTagCountAt + i];
    for (std::size_t tag = 0, at = kTagsAt; tag < count && at + kTagBytes <= icc.size(); ++tag, at += kTagBytes)
        if (hasText(icc, at, name))
            return true;
    return false;
}

bool isRgbMatrixProfile(const std::vector<unsigned char>& icc)
{
    if (!hasText(icc, kColourSpaceAt, "RGB ") || hasTag(icc, "A2B0"))
        return false;
    for (const char* tag : {"rXYZ", "gXYZ", "bXYZ", "rTRC", "gTRC", "bTRC"})
        if (!hasTag(icc, tag))
            return false;
    return true;
}

} // namespace

std::shared_ptr<ColorProfile> profileForResult(const std::shared_ptr<ColorProfile>& own)
{
    return own && !own->isLinear() && isRgbMatrixProfile(own->icc()) ? own : ColorProfileType::sRGB();
}

} // namespace orvo::jobs
