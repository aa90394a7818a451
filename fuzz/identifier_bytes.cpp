// Any bytes as a serialised identifier.
#include "fuzz_target.hpp"

#include <orvo_core/identifier.hpp>

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using orvo::fuzz::require;
    constexpr std::size_t kTextLength = 36; // the usual form of sixteen bytes
    const std::span<const std::uint8_t> input(data, size);
    const auto identifier = orvo::Identifier::deserialize(input);
    if (!identifier)
        return 0;
    std::vector<unsigned char> again;
    identifier->serialize(again);
    require(std::equal(again.begin(), again.end(), input.begin(), input.end()), "the bytes equal the input");
    const auto twin = orvo::Identifier::deserialize(again);
    require(twin != nullptr && *twin == *identifier && twin->hash() == identifier->hash(), "the round trip is equal");
    require(!orvo::Comparator()(twin, identifier) && !orvo::Comparator()(identifier, twin), "equals have no order");
    require(identifier->text().size() == kTextLength, "the text has 36 characters");
    return 0;
}
