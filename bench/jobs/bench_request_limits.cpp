// Requests of the generative tools for pictures of 1, 8 and 50 megapixels and aspects of 1:10 to 10:1:
// bench_request_limits PHOTOGRAPH. Prints a Markdown table: the size of each request, its characters, and how many
// encodings were needed to find it. Ends with 1 if one exceeds a limit.
#include "bench_pictures.hpp"

#include <orvo_core/parallel.hpp>

#include <GenEraseProcessor/erase_request.hpp>
#include <GenProcessorBase/fit_to_limits.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace {

using orvo::_Size;
using orvo::bench::Picture;
using Mask = orvo::_ImageData<float>;
using Pixel = orvo::PixelRGB<float>;
using PicturePointer = std::shared_ptr<const Picture>;

// What a tool sends; see docs/service.md.
struct Limits
{
    const char* tool;
    bool withMask;
    double pixels; // of the picture alone
    int side;      // of the picture
    std::int32_t characters;
    float aspect; // negative: any
};

constexpr int kAnySide = 1 << 30;
constexpr Limits kLimits[] = {{"erase", true, 4e6, kAnySide, 9000000, 2.45f},
                              {"expand", false, 8e6, kAnySide, 9000000, 2.45f},
                              {"restore", false, 1e12, 2700, 7340032, -1.0f}};

// A candidate that counts how often it is encoded.
struct Counted
{
    PicturePointer image;
    std::shared_ptr<const Mask> mask; // empty: none is sent
    std::size_t characters = 0;
    int* encodings;

    Counted(PicturePointer picture, std::shared_ptr<const Mask> itsMask, int* count)
        : image(std::move(picture)), mask(std::move(itsMask)), encodings(count)
    {
        ++*encodings;
        characters = orvo::imageToBase64(image, {0, 8}).size() + (mask ? orvo::imageToBase64(mask, {0, 8}).size() : 0);
    }
    [[nodiscard]] std::shared_ptr<const Counted> resized(_Size<int> size) const
    {
        return std::make_shared<const Counted>(image->resize(size, {}, true),
                                               mask ? mask->resize(size, {}, true) : nullptr, encodings);
    }
};

std::shared_ptr<Picture> drawn(_Size<int> size, const std::function<Pixel(int, int)>& colour)
{
    auto picture = std::make_shared<Picture>(size, orvo::ColorProfileType::sRGB());
    orvo::forEachRow(size.height, [&](int y) {
        for (int x = 0; x < size.width; ++x)
            picture->row(y)[x] = colour(x, y);
    });
    return picture;
}

// White noise: nothing compresses it.
Pixel noiseAt(int x, int y)
{
    std::uint64_t z = static_cast<std::uint64_t>(static_cast<std::uint32_t>(y)) << 32 | static_cast<std::uint32_t>(x);
    z = (z + 0x9E3779B97F4A7C15ull) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 29)) * 0x94D049BB133111EBull;
    z ^= z >> 32;
    const auto part = [z](int shift) { return static_cast<float>(z >> shift & 0xFFFF) / 65535.0f; };
    return {part(0), part(16), part(32)};
}

// The whole picture is to be painted but for a frame, as under a broad brush.
std::shared_ptr<const Mask> maskOf(_Size<int> size)
{
    auto mask = std::make_shared<orvo::MaskImage>(size, 0.0f);
    mask->fillRect(1.0f, {size.width / 4, size.height / 4, size.width / 2, size.height / 2});
    return mask;
}

// The size at which the search begins.
_Size<int> firstSize(_Size<int> size, const Limits& limits)
{
    const double pixels = static_cast<double>(size.width) * size.height;
    const double scale =
        std::min({1.0, std::sqrt(limits.pixels / pixels), static_cast<double>(limits.side) / size.width,
                  static_cast<double>(limits.side) / size.height});
    return {std::max(1, static_cast<int>(size.width * scale)), std::max(1, static_cast<int>(size.height * scale))};
}

bool keepsTo(const Limits& limits, _Size<int> size, std::size_t characters)
{
    const auto width = static_cast<float>(size.width);
    const auto height = static_cast<float>(size.height);
    return static_cast<double>(size.width) * size.height <= limits.pixels && size.width <= limits.side &&
           size.height <= limits.side && characters <= static_cast<std::size_t>(limits.characters) &&
           (limits.aspect < 1.0f || (width <= limits.aspect * height && height <= limits.aspect * width));
}

// One line of the table; whether the request keeps to the limits.
bool tryRequest(const Limits& limits, const char* kind, const PicturePointer& picture, double megapixels)
{
    int encodings = 0;
    const _Size<int> given = picture->size();
    const _Size<int> first = firstSize(given, limits);
    const auto start = std::make_shared<const Counted>(first == given ? picture : picture->resize(first, {}, true),
                                                       limits.withMask ? maskOf(first) : nullptr, &encodings);
    const auto fitted = orvo::fitToLimits<Counted>(start, limits.characters, limits.aspect,
                                                   [](const Counted& c) { return c.characters; });
    const _Size<int> size = fitted->image->size();
    const bool kept = keepsTo(limits, size, fitted->characters);
    std::printf("| %s | %s | %.0f | %d x %d | %d x %d | %zu | %d |%s\n", limits.tool, kind, megapixels, given.width,
                given.height, size.width, size.height, fitted->characters, encodings, kept ? "" : " exceeds a limit");
    std::fflush(stdout);
    return kept;
}

bool tryAll(const char* photograph)
{
    const PicturePointer photo = orvo::bench::loadInSRGB(photograph);
    std::puts(
        "| tool | picture | megapixels | its size | request | characters | encodings |\n|---|---|---|---|---|---|---|");
    bool kept = true;
    for (const double megapixels : {1.0, 8.0, 50.0})
        for (const double aspect : {0.1, 0.667, 2.45, 10.0}) {
            const _Size<int> size(static_cast<int>(std::lround(std::sqrt(megapixels * 1e6 * aspect))),
                                  static_cast<int>(std::lround(std::sqrt(megapixels * 1e6 / aspect))));
            const auto gradient = [size](int x, int y) {
                const float across = static_cast<float>(x) / static_cast<float>(size.width);
                const float down = static_cast<float>(y) / static_cast<float>(size.height);
                return Pixel{across, down, 0.5f * (across + down)};
            };
            const std::pair<const char*, std::function<PicturePointer()>> kinds[] = {
                {"noise", [&] { return drawn(size, noiseAt); }},
                {"gradient", [&] { return drawn(size, gradient); }},
                {"photograph", [&] { return photo->resize(size, {}, true); }}};
            for (const auto& [kind, make] : kinds) {
                const PicturePointer picture = make();
                for (const Limits& limits : kLimits)
                    kept = tryRequest(limits, kind, picture, megapixels) && kept;
            }
        }
    return kept;
}

} // namespace

int main(int argc, char** argv)
try {
    if (argc != 2) {
        std::fputs("usage: bench_request_limits PHOTOGRAPH\n", stderr);
        return 2;
    }
    return tryAll(argv[1]) ? 0 : 1;
} catch (const std::exception& error) {
    std::fprintf(stderr, "bench_request_limits: %s\n", error.what());
    return 1;
}
