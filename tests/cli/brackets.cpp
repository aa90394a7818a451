#include "brackets.hpp"

#include <scenes/bracket_files.hpp>
#include <scenes/focus_series_files.hpp>
#include <scenes/sphere_view_files.hpp>

#include <fstream>

namespace orvo::test {
namespace {

scenes::Bracket bracketOf(const FrameSettings& settings, const std::vector<double>& evs)
{
    scenes::BracketRecipe recipe;
    recipe.scene.size = {settings.width, settings.height};
    recipe.evs = evs;
    return scenes::Bracket(recipe);
}

std::string bigEndian(std::uint32_t value, int bytes)
{
    std::string text;
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8)
        text += static_cast<char>(value >> shift & 0xffU);
    return text;
}

/// The checksum of PNG chunks: ISO/IEC 15948, annex D.
std::uint32_t crc(const std::string& text)
{
    std::uint32_t value = 0xffffffffU;
    for (const char c : text) {
        value ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit)
            value = (value & 1U) != 0 ? value >> 1U ^ 0xedb88320U : value >> 1U;
    }
    return ~value;
}

std::string pngChunk(const std::string& typeAndData)
{
    constexpr std::size_t kTypeBytes = 4;
    return bigEndian(static_cast<std::uint32_t>(typeAndData.size() - kTypeBytes), 4) + typeAndData +
           bigEndian(crc(typeAndData), 4);
}

} // namespace

std::vector<std::filesystem::path> writeBracket(const std::filesystem::path& folder, const FrameSettings& settings)
{
    const auto shots =
        scenes::writeBracket(bracketOf(settings, {kStepEv, -kStepEv, 0.0}), folder, {.exif = settings.exposureData});
    return {shots[1], shots[2], shots[0]};
}

void writeFrame(const std::filesystem::path& path, const FrameSettings& settings)
{
    const auto written = scenes::writeFrame(bracketOf(settings, {0.0}), 0, path.parent_path(),
                                            {.exif = settings.exposureData, .prefix = "single"});
    std::filesystem::rename(written, path);
}

std::vector<std::filesystem::path> writeFocusSeries(const std::filesystem::path& folder, const FocusSettings& settings)
{
    scenes::FocusSeriesSettings series;
    series.size = {settings.width, settings.height};
    series.frames = settings.frames;
    series.shake = {.shiftX = settings.shake, .shiftY = settings.shake};
    return scenes::writeFocusSeries(scenes::FocusSeries(series), folder, {});
}

std::vector<std::filesystem::path> writeViews(const std::filesystem::path& folder, const ViewSettings& settings)
{
    scenes::SphereView view;
    view.size = {settings.width, settings.height};
    view.focal = settings.width;
    view.noise = 0.004;
    auto views = scenes::rowOfViews(settings.views, kViewStep, 3.0, view, 1.0, 7);
    const scenes::SphereScene scene(settings.scene);
    std::vector<std::filesystem::path> paths;
    for (std::size_t i = 0; i < views.size(); ++i) {
        views[i].ev = 0.1 * static_cast<double>(i);
        paths.push_back(folder / (settings.prefix + "_" + std::to_string(i) + settings.ending));
        scenes::writeSphereView(scene, views[i], paths.back(), {.exif = settings.exif, .noiseSeed = i + 1});
    }
    return paths;
}

std::vector<std::string> names(const std::vector<std::filesystem::path>& paths)
{
    std::vector<std::string> result;
    for (const auto& path : paths)
        result.push_back(path.filename().string());
    return result;
}

void writeText(const std::filesystem::path& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

std::string pngHeader(std::uint32_t width, std::uint32_t height)
{
    using namespace std::string_literals;
    const std::string eightBitRgb = "\x08\x02\x00\x00\x00"s;
    return "\x89PNG\r\n\x1a\n"s + pngChunk("IHDR" + bigEndian(width, 4) + bigEndian(height, 4) + eightBitRgb) +
           pngChunk("IDAT"s + "\x78\x9c\x03\x00\x00\x00\x00\x01"s) + pngChunk("IEND");
}

std::string jpegHeader(std::uint16_t width, std::uint16_t height)
{
    using namespace std::string_literals;
    const std::string threeComponents = "\x03\x01\x11\x00\x02\x11\x00\x03\x11\x00"s;
    const std::string frame = "\x08"s + bigEndian(height, 2) + bigEndian(width, 2) + threeComponents;
    const std::string quantizers = "\x00"s + std::string(64, '\x10');
    const std::string scan = "\x03\x01\x00\x02\x00\x03\x00\x00\x3f\x00"s;
    const auto segment = [](char marker, const std::string& data) {
        return "\xff"s + marker + bigEndian(static_cast<std::uint32_t>(data.size() + 2), 2) + data;
    };
    return "\xff\xd8"s + segment('\xdb', quantizers) + segment('\xc0', frame) + segment('\xda', scan) + "\xff\xd9"s;
}

} // namespace orvo::test
