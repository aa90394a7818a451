// Any bytes as a network for enlarging, as far as our own parser goes: a network that it accepts runs like a program
// and needs as much trust.
#include "fuzz_target.hpp"
#include "networks/onnx_input.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace orvo::details;
    using orvo::fuzz::require;
    const std::span<const unsigned char> model(data, size);
    const std::string damage = graphDamage(model);
    const auto declared = declaredInput(model);
    if (!declared || !damage.empty())
        return 0;
    for (const std::int64_t side : declared->sides)
        require(side >= 0, "a declared side is not negative");
    const auto changed = withInput(model, declared->name, {1, 3, 24, 16});
    const auto again = declaredInput(changed);
    require(again && again->name == declared->name, "the changed network has the same input");
    require(again->sides == std::vector<std::int64_t>{1, 3, 24, 16}, "the changed network has the requested sides");
    require(graphDamage(changed).empty(), "an undamaged network stays undamaged");
    return 0;
}
