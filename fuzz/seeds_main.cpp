// Writes the seeds of all fuzz targets: FOLDER/TARGET/NAME.
#include "onnx_writer.hpp"
#include "seeds.hpp"
#include "test_files.hpp"

#include <orvo_core/identifier.hpp>
#include <orvo_io/base64_image.hpp>

#include <cstdio>
#include <random>
#include <stdexcept>

namespace {

using Bytes = orvo::test::Bytes;
namespace onnx = test::onnx;

void put(const std::filesystem::path& file, const Bytes& bytes)
{
    orvo::test::writeBytes(file, bytes);
    if (!std::filesystem::exists(file) || std::filesystem::file_size(file) != bytes.size())
        throw std::runtime_error("cannot write " + file.string());
}

void put(const std::filesystem::path& file, const std::string& text) { put(file, Bytes(text.begin(), text.end())); }

void writeSettingsSeeds(const std::filesystem::path& folder)
{
    put(folder / "levels.json", R"({"Upscale": {"scale": 2, "model": "a.onnx"}, "DebugDrawer": {"enable": true}})");
    put(folder / "flat.json", R"({"Upscale.scale": 1.5e3, "a.b": [1, {"c": null}], "a": "\u00e4\ud83d\ude00"})");
    put(folder / "numbers.json", R"({"a": -2147483649, "a.b": 18446744073709551615, "Upscale.scale": -0.0})");
    // More levels than the reader accepts, and a list as deep as it accepts.
    std::string levels;
    for (int level = 0; level < 80; ++level)
        levels += R"({"a":)";
    put(folder / "deep_levels.json", levels + '1' + std::string(80, '}'));
    put(folder / "deep_list.json", R"({"a":)" + std::string(60, '[') + std::string(60, ']') + '}');
}

void writeIdentifierSeeds(const std::filesystem::path& folder)
{
    orvo::UUIdentifier::Bytes value{};
    for (std::size_t i = 0; i < value.size(); ++i)
        value[i] = static_cast<unsigned char>(17 * i);
    Bytes bytes;
    orvo::UUIdentifier(value).serialize(bytes);
    put(folder / "uuid", bytes);
    put(folder / "empty", Bytes());
}

void writeNetworkSeeds(const std::filesystem::path& folder)
{
    const std::vector<float> blur(9, 1.0f / 9.0f);
    put(folder / "identity.onnx", onnx::identity(3));
    put(folder / "enlarge.onnx", onnx::convolveAndEnlarge(1, blur, 3, 2));
    put(folder / "fixed.onnx", onnx::convolveAndEnlarge(3, blur, 3, 2, {24, 16}));
}

// PNG of several kinds, as they are and as text; answers have two bytes of arguments in front.
void writeAnswerSeeds(const std::filesystem::path& pictures, const std::filesystem::path& erased,
                      const std::filesystem::path& expanded, const std::filesystem::path& restored)
{
    const orvo::test::TemporaryFolder scratch;
    const auto file = [&](const char* name) { return scratch / name; };
    orvo::test::makePng(file("gray"), 4, 3, Bytes(12, 90), {.colorType = 0});
    orvo::test::makePng(file("palette"), 3, 2, {0, 1, 0, 1, 0, 1}, {.colorType = 3, .palette = {255, 0, 0, 0, 255, 0}});
    orvo::test::makePng(file("alpha"), 2, 2, Bytes(16, 120), {.colorType = 6});
    orvo::test::makePng(file("deep"), 2, 2, Bytes(24, 60), {.bits = 16});
    orvo::test::makePng(file("interlaced"), 9, 9, Bytes(243, 33), {.interlaced = true});
    for (const char* const name : {"gray", "palette", "alpha", "deep", "interlaced"})
        for (const auto& folder : {pictures, restored})
            put(folder / name, orvo::test::readBytes(file(name)));
    const std::string text = orvo::imageToBase64(orvo::test::gradient(24, 18), {0, 8});
    put(pictures / "text", text);
    for (const auto& answers : {erased, expanded}) {
        put(answers / "same", "\x60\x60" + text);
        put(answers / "half", "\x20\x18" + text);
        put(answers / "unknown", std::string("\x02\x02") + text);
    }
}

// Arguments of each command, an empty line, and a file.
void writeCommandSeeds(const std::filesystem::path& folder)
{
    const orvo::test::TemporaryFolder scratch;
    Bytes samples; // of the size of the picture beside it, so that they make a bracket
    for (unsigned i = 0; i < 32 * 24 * 3; ++i)
        samples.push_back(static_cast<unsigned char>(40 + (i / 9 + i / 480) % 2 * 100 + i % 7));
    orvo::test::makePng(scratch / "in", 32, 24, samples, {});
    const Bytes png = orvo::test::readBytes(scratch / "in");
    const auto add = [&](const char* name, const std::string& arguments, const std::string& file) {
        put(folder / name, arguments + '\n' + file);
    };
    const std::string picture(png.begin(), png.end());
    add("help", "hdr\n--help\n", "");
    add("version", "--version\n", "");
    add("mistyped", "stac\n", "");
    add("hdr", "hdr\ngood.png\nin\n-o\nout.tif\n--bits\n16\n--align\n--deghost\n2\n--details\n0.5\n", picture);
    add("hdr_single", "hdr\nin\n-o\nout.jpg\n--quality\n80\n--white-balance\n1\n--json\n", picture);
    add("stack", "stack\ngood.png\nmask.png\nin\n-o\nout.png\n--reference\n2\n--chromatic\n", picture);
    add("label", "label\nin\ngood.png\n-o\nlabels\n--format\npng\n--quiet\n", picture);
    add("upscale", "upscale\nin\n-o\nout.exr\n--bits\n32\n--passes\n2\n--denoise\n1\n--crisp\n--no-faces\n", picture);
    add("network", "upscale\ngood.png\n-o\nout.png\n--model\nin\n--log\nlog.txt\n",
        onnx::convolveAndEnlarge(3, std::vector<float>(9, 1.0f / 9.0f), 3, 2));
    add("fill", "fill\ngood.png\n--mask\nmask.png\n-o\nout.png\n--threads\n2\n", picture);
    add("fill_network", "fill\ngood.png\n--mask\nmask.png\n-o\nout.png\n--model\nin\n", "no network");
    add("erase", "erase\nin\n--box\n1,1,3,2\n--stroke\n2,2,3;5,5,2\n-o\nout.png\n", picture);
    add("erase_request", "erase\ngood.png\n--mask\nmask.png\n--request-only\nrequest.json\n", picture);
    add("erase_response", "erase\ngood.png\n--box\n1,1,9,9\n--response\nin\n-o\nout.png\n", R"({"image": "AAAA"})");
    add("expand", "expand\nin\n--add\n4,10%,0,3\n-o\nout.png\n", picture);
    add("expand_crop", "expand\nin\n--crop\n-2,-3,20,10\n-o\nout.png\n", picture);
    add("restore", "restore\nin\n-o\nout.png\n--as-is\n", picture);
    add("pano", "pano\ngood.png\nin\n-o\nout.png\n--projection\nplanet\n--max-size\n50\n--devignette\n", picture);
    add("pano_video", "pano\n--video\nin\n--from\n1\n--to\n9\n--frame\n2:1,1,3,3\n-o\nout.jpg\n", "no video");
    add("pano_crop", "pano\ngood.png\nin\n--shift\n0.1,-0.2\n--turn\n9\n--straighten\n--crop\nauto\n-o\nout.png\n",
        picture);
    add("frames", "frames\ngood.png\nin\nmask.png\n--json\n", picture);
}

// Targets that parse arguments from their input take any bytes; these are long enough for all arguments.
void writeArgumentSeeds(const std::filesystem::path& folder, std::size_t length)
{
    for (unsigned seed = 1; seed <= 8; ++seed) {
        std::mt19937 random(seed);
        // Some seeds omit the largest values, which mean special cases.
        const unsigned range = seed % 2 == 0 ? 256 : 200;
        Bytes bytes(length);
        for (unsigned char& byte : bytes)
            byte = static_cast<unsigned char>(random() % range);
        put(folder / ("bytes" + std::to_string(seed)), bytes);
    }
}

} // namespace

// Called by the leak sanitizer: libx265 keeps memory of its encoders.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:libx265"; }

int main(int count, char** words)
{
    if (count != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", words[0]);
        return 2;
    }
    const std::filesystem::path root = words[1];
    try {
        const auto folder = [&](const char* target) {
            std::filesystem::create_directories(root / target);
            return root / target;
        };
        orvo::fuzz::writePictureSeeds(folder("picture_file"));
        writeSettingsSeeds(folder("settings_file"));
        writeIdentifierSeeds(folder("identifier_bytes"));
        writeNetworkSeeds(folder("network_file"));
        writeAnswerSeeds(folder("base64_picture"), folder("erase_answer"), folder("expand_answer"),
                         folder("restoration_answer"));
        writeCommandSeeds(folder("command_line"));
        writeArgumentSeeds(folder("panorama_masks"), 600);
        writeArgumentSeeds(folder("feature_matches"), 800);
        writeArgumentSeeds(folder("focus_series"), 4000);
        writeArgumentSeeds(folder("fill_picture"), 4000);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
