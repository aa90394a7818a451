#include "upscaling/filter_bank.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>
#include <type_traits>

// The assembler includes the data file from the source tree in the read-only section of the library: as a C++ table a
// quarter of a megabyte would cost the compiler a minute and be unreadable.
// clang-format off
__asm__(".section .rodata\n"
        ".balign 16\n"
        "orvo_upscale_filters:\n"
        ".incbin \"" ORVO_UPSCALE_FILTERS "\"\n"
        "orvo_upscale_filters_end:\n"
        ".byte 0\n"
        ".global orvo_upscale_filters\n"
        ".hidden orvo_upscale_filters\n"
        ".global orvo_upscale_filters_end\n"
        ".hidden orvo_upscale_filters_end\n"
        ".previous\n");
// clang-format on
extern "C" const unsigned char orvo_upscale_filters[];
extern "C" const unsigned char orvo_upscale_filters_end[];

namespace orvo::details {
namespace {

constexpr std::uint32_t kVersion = 2;
constexpr float kCoefficientStep = 1.0f / 8192.0f; // of the 16-bit numbers, as in the script
// A bank is used for noise down to this; below it there is nothing to amplify.
constexpr float kLeastNoise = 0.003f;
constexpr std::size_t kMostNodes = 1 << 16; // far more than the script produces
constexpr std::size_t kMostBanks = 16;

// Takes numbers from the front of the bytes, little-endian like all supported machines.
class Bytes
{
public:
    explicit Bytes(std::span<const unsigned char> all) : rest(all) {}

    template <typename T>
    [[nodiscard]] T take()
    {
        static_assert(std::is_trivially_copyable_v<T>);
        T value;
        std::memcpy(&value, raw(sizeof(T)).data(), sizeof(T));
        return value;
    }

    [[nodiscard]] std::span<const unsigned char> raw(std::size_t count)
    {
        if (rest.size() < count)
            throw std::runtime_error("upscaling filters: expected " + std::to_string(count) + " more bytes, " +
                                     std::to_string(rest.size()) + " are left");
        const auto front = rest.first(count);
        rest = rest.subspan(count);
        return front;
    }

    [[nodiscard]] bool empty() const { return rest.empty(); }

private:
    std::span<const unsigned char> rest;
};

void expect(const char* what, std::uint32_t found, std::uint32_t expected)
{
    if (found != expected)
        throw std::runtime_error(std::string("upscaling filters: expected ") + what + " " + std::to_string(expected) +
                                 ", found " + std::to_string(found));
}

void expectWithin(const char* what, std::size_t found, std::size_t most)
{
    if (found < 1 || found > most)
        throw std::runtime_error(std::string("upscaling filters: expected ") + what + " of 1 to " +
                                 std::to_string(most) + ", found " + std::to_string(found));
}

// Reads the nodes. Children come after their parent, which rules out cycles.
void readNodes(Bytes& bytes, FilterBank& bank, std::size_t count, std::size_t leaves)
{
    bank.nodes.resize(count);
    bank.leafOfNode.assign(count, 0);
    std::vector<int> level(count, 0);
    for (std::size_t i = 0; i < count; ++i) {
        const auto feature = bytes.take<std::int32_t>();
        const auto threshold = bytes.take<float>();
        const auto below = bytes.take<std::uint32_t>();
        FilterBank::Node& node = bank.nodes[i];
        if (feature < 0) {
            expectWithin("a leaf", std::size_t{below} + 1, leaves);
            bank.leafOfNode[i] = below;
            node = {0, std::numeric_limits<float>::quiet_NaN(), static_cast<std::uint32_t>(i)};
            bank.depth = std::max(bank.depth, level[i]);
            continue;
        }
        expectWithin("a feature", static_cast<std::size_t>(feature) + 1, kFeatures);
        if (below <= i || std::size_t{below} + 1 >= count)
            throw std::runtime_error("upscaling filters: node " + std::to_string(i) + " of " + std::to_string(count) +
                                     " leads to " + std::to_string(below));
        node = {static_cast<std::uint32_t>(feature), threshold, below};
        level[below] = level[i] + 1;
        level[below + 1] = level[i] + 1;
    }
}

// The file contains the filters of two samples; those of the other two are the same after half a turn.
std::vector<float> readFilters(Bytes& bytes, std::size_t leaves)
{
    constexpr std::size_t kStored = std::size_t{kTaps} * 2;
    std::vector<float> all(leaves * kTaps * kPhases);
    for (std::size_t leaf = 0; leaf < leaves; ++leaf) {
        std::array<std::int16_t, kStored> stored;
        std::memcpy(stored.data(), bytes.raw(sizeof(stored)).data(), sizeof(stored));
        float* const filters = all.data() + leaf * kTaps * kPhases;
        for (std::size_t tap = 0; tap < kTaps; ++tap) {
            const std::size_t opposite = kTaps - 1 - tap;
            filters[kPhases * tap] = static_cast<float>(stored[2 * tap]) * kCoefficientStep;
            filters[kPhases * tap + 1] = static_cast<float>(stored[2 * tap + 1]) * kCoefficientStep;
            filters[kPhases * tap + 2] = static_cast<float>(stored[2 * opposite + 1]) * kCoefficientStep;
            filters[kPhases * tap + 3] = static_cast<float>(stored[2 * opposite]) * kCoefficientStep;
        }
    }
    return all;
}

} // namespace

std::vector<float> FilterBank::filtersFor(float sharpness) const
{
    std::vector<float> result(softFilters.size());
    for (std::size_t i = 0; i < result.size(); ++i)
        result[i] = softFilters[i] + sharpness * (aliasedFilters[i] - softFilters[i]);
    return result;
}

FilterBanks FilterBanks::parse(std::span<const unsigned char> all)
{
    Bytes bytes(all);
    if (std::memcmp(bytes.raw(4).data(), "ORUF", 4) != 0)
        throw std::runtime_error("upscaling filters: the bytes do not begin with ORUF");
    expect("version", bytes.take<std::uint32_t>(), kVersion);
    expect("a number of taps of", bytes.take<std::uint32_t>(), kTaps);
    expect("a number of features of", bytes.take<std::uint32_t>(), kFeatures);
    const auto count = bytes.take<std::uint32_t>();
    expectWithin("a number of sets", count, kMostBanks);
    FilterBanks result;
    for (float& coefficient : result.model) {
        coefficient = bytes.take<float>();
        if (!std::isfinite(coefficient))
            throw std::runtime_error("upscaling filters: a coefficient of the sharpness is not finite");
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        FilterBank bank;
        bank.noise = bytes.take<float>();
        const auto nodes = bytes.take<std::uint32_t>();
        const auto leaves = bytes.take<std::uint32_t>();
        expectWithin("a number of nodes", nodes, kMostNodes);
        expectWithin("a number of leaves", leaves, nodes);
        const bool rises = result.banks.empty() ? bank.noise >= 0.0f : bank.noise > result.banks.back().noise;
        if (!rises || !std::isfinite(bank.noise))
            throw std::runtime_error("upscaling filters: the sets are not in the order of their noise");
        readNodes(bytes, bank, nodes, leaves);
        bank.softFilters = readFilters(bytes, leaves);
        bank.aliasedFilters = readFilters(bytes, leaves);
        result.banks.push_back(std::move(bank));
    }
    if (!bytes.empty())
        throw std::runtime_error("upscaling filters: there are extra bytes after the end");
    return result;
}

const FilterBanks& FilterBanks::builtIn()
{
    static const FilterBanks banks = parse({orvo_upscale_filters, orvo_upscale_filters_end});
    return banks;
}

const FilterBank& FilterBanks::forNoise(float noise) const
{
    const auto distance = [noise](const FilterBank& bank) {
        return std::abs(std::log(std::max(noise, kLeastNoise) / std::max(bank.noise, kLeastNoise)));
    };
    return *std::min_element(banks.begin(), banks.end(),
                             [&](const FilterBank& a, const FilterBank& b) { return distance(a) < distance(b); });
}

} // namespace orvo::details
