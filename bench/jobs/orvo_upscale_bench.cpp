// Reduces photographs to a half or a quarter, enlarges them again in several ways and compares with the originals:
//   orvo_upscale_bench [FOLDER]
// FOLDER contains the project's test pictures; the default is ORVO_TEST_DATA from the environment. Prints the peak
// signal to noise ratio in dB over all channels of sRGB, the structural similarity of luma, and megapixels per second.
//   orvo_upscale_bench [FOLDER] --reductions [--reduced-by NAME]
// The gain in dB over cubic enlarging for pictures that other programs reduced, in 8 bits of sRGB; also for every
// second pixel, and for a JPEG file.
//   orvo_upscale_bench [FOLDER] --sheet PICTURE.png [--reduced-by NAME]
// Parts of the pictures, enlarged twice: truth, Catmull-Rom, ours, ours with crisp edges. NAME is one of the
// reductions; the default is "area".
#include "bench_pictures.hpp"

#include <orvo/upscaling.hpp>
#include <orvo_io/image_writer.hpp>
#include <scenes/halving.hpp>
#include <scenes/metrics.hpp>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using orvo::bench::Picture;
using PicturePointer = std::shared_ptr<Picture>;
using Pixel = orvo::PixelRGB<float>;

// The pictures that scripts/train_upscaler/train.py does not train on (its HELD_OUT).
constexpr const char* kHeldOut[] = {
    "single/faces_cafe/faces_cafe.jpg",        "single/skiers/skiers.jpg",
    "single/lake_horizon/lake_horizon.jpg",    "single/waterfall_orientation6/waterfall_orientation6.jpg",
    "single/p3_vs_srgb/iceland_srgb.jpg",      "brackets/street_tree/street_03.jpg",
    "brackets/canal_boat/grandcanal_mean.jpg", "panorama/weir/weir_2.jpg",
    "panorama/tower_library/IMG_8725.JPG",     "focus/pcb_usb/pcb_004.jpg"};

struct Method
{
    const char* name;
    std::function<PicturePointer(const PicturePointer& small, orvo::_Size<int> size)> run;
};

PicturePointer byOpenCV(const PicturePointer& small, orvo::_Size<int> size, int interpolation)
{
    auto result = std::make_shared<Picture>(size, small->colorProfile());
    const cv::Mat from(small->height(), small->width(), CV_32FC3, small->data());
    cv::Mat to(size.height, size.width, CV_32FC3, result->data());
    cv::resize(from, to, to.size(), 0, 0, interpolation);
    return result;
}

PicturePointer byUs(const PicturePointer& small, orvo::_Size<int> size, bool crisp)
{
    orvo::UpscaleAISettings settings;
    settings.crisp = crisp;
    settings.builtIn = true;
    settings.passes = size.width / small->width() / 2; // 1 for 2 times, 2 for 4 times
    auto result = orvo::upscaleX(small, settings, nullptr, nullptr, {});
    if (!result)
        throw std::runtime_error("upscaleX returned nothing");
    return result;
}

const std::vector<Method> kMethods = {
    {"nearest", [](const auto& small, auto size) { return byOpenCV(small, size, cv::INTER_NEAREST); }},
    {"Catmull-Rom", [](const auto& small, auto size) { return small->resize(size, {}, true); }},
    {"cubic -0.75", [](const auto& small, auto size) { return byOpenCV(small, size, cv::INTER_CUBIC); }},
    {"Lanczos 4", [](const auto& small, auto size) { return byOpenCV(small, size, cv::INTER_LANCZOS4); }},
    {"ours", [](const auto& small, auto size) { return byUs(small, size, false); }},
    {"ours, crisp", [](const auto& small, auto size) { return byUs(small, size, true); }},
};

struct Score
{
    double psnr = 0.0;
    double ssim = 0.0;
    double megapixels = 0.0;
    double seconds = 0.0;
};

// In the working space, with sides that are multiples of four.
PicturePointer load(const std::filesystem::path& path)
{
    const auto image =
        orvo::ImageReader::instance().open({path, {}}, {}, orvo::ImageReaderOpenFlag::Bracket, nullptr, {}, -1);
    if (!image)
        throw std::runtime_error("cannot read " + path.string());
    return image->imageData({}, {}, true)->copy({0, 0, image->width() / 4 * 4, image->height() / 4 * 4});
}

PicturePointer inSRGB(const Picture& picture)
{
    PicturePointer result;
    picture.colorTransform(result, orvo::ColorProfileType::sRGB(), true);
    for (std::size_t i = 0; i < result->pixelCount(); ++i)
        result->data()[i] = orvo::clampValue(result->data()[i]);
    return result;
}

PicturePointer reduced(const Picture& truth, int scale)
{
    return truth.resize({truth.width() / scale, truth.height() / scale}, {}, true);
}

Score measure(const Method& method, const PicturePointer& small, const Picture& truth, orvo::_Size<int> size)
{
    const auto start = std::chrono::steady_clock::now();
    const PicturePointer found = method.run(small, size);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    const PicturePointer shown = inSRGB(*found);
    return {orvo::scenes::psnr(*shown, truth), orvo::scenes::ssim(*shown, truth),
            static_cast<double>(found->pixelCount()) / 1e6, time.count()};
}

void printTable(const std::filesystem::path& folder, int scale)
{
    std::printf("\n%d times%40s", scale, "");
    for (const Method& method : kMethods)
        std::printf("%16s", method.name);
    std::printf("\n");
    std::vector<Score> sums(kMethods.size());
    for (const char* const name : kHeldOut) {
        const PicturePointer truth = load(folder / name);
        const PicturePointer small = reduced(*truth, scale);
        const PicturePointer shown = inSRGB(*truth);
        std::printf("%-47s", std::filesystem::path(name).filename().c_str());
        for (std::size_t i = 0; i < kMethods.size(); ++i) {
            const Score score = measure(kMethods[i], small, *shown, truth->size());
            std::printf("   %6.2f %6.4f", score.psnr, score.ssim);
            sums[i].psnr += score.psnr / std::size(kHeldOut);
            sums[i].ssim += score.ssim / std::size(kHeldOut);
            sums[i].megapixels += score.megapixels;
            sums[i].seconds += score.seconds;
        }
        std::printf("\n");
        std::fflush(stdout);
    }
    std::printf("%-47s", "mean");
    for (const Score& sum : sums)
        std::printf("   %6.2f %6.4f", sum.psnr, sum.ssim);
    std::printf("\n%-47s", "megapixels per second");
    for (const Score& sum : sums)
        std::printf("%16.1f", sum.megapixels / sum.seconds);
    std::printf("\n");
}

// `shown`, in sRGB, as another program reduces it, in the working space.
PicturePointer halvedAsFile(const Picture& shown, const orvo::scenes::Halving& halving)
{
    PicturePointer result;
    orvo::scenes::halved(shown, halving)->colorTransform(result, orvo::ColorProfileType::melissaRGB(), true);
    return result;
}

/// A way to make the small file, and what an enlarged picture of it should show.
struct Reduction
{
    std::string name;
    std::function<PicturePointer(const Picture& truth)> small; ///< in the working space
    std::function<PicturePointer(const PicturePointer& truth)> expected = [](const auto& truth) { return truth; };
};

// Every second pixel of every second row, which lie half a pixel of the truth beside the middles of the new ones.
PicturePointer everySecond(const Picture& shown)
{
    auto result =
        std::make_shared<Picture>(orvo::_Size<int>(shown.width() / 2, shown.height() / 2), shown.colorProfile());
    for (int y = 0; y < result->height(); ++y)
        for (int x = 0; x < result->width(); ++x)
            result->row(y)[x] = shown.row(2 * y)[2 * x];
    result->convertTo(orvo::ColorProfileType::melissaRGB());
    return result;
}

// Half a pixel to the right and down.
PicturePointer movedByHalf(const PicturePointer& shown)
{
    auto result = std::make_shared<Picture>(shown->size(), shown->colorProfile());
    const cv::Mat from(shown->height(), shown->width(), CV_32FC3, shown->data());
    cv::Mat to(result->height(), result->width(), CV_32FC3, result->data());
    const cv::Matx23f move(1.0f, 0.0f, 0.5f, 0.0f, 1.0f, 0.5f);
    cv::warpAffine(from, to, move, to.size(), cv::INTER_LANCZOS4, cv::BORDER_REPLICATE);
    return result;
}

constexpr int kJpegQuality = 90;

// Reduced by area and kept as a JPEG file.
PicturePointer asJpeg(const Picture& shown, int quality)
{
    const auto path =
        std::filesystem::temp_directory_path() /
        ("orvo_upscale_bench_" + std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()) + ".jpg");
    auto settings = orvo::writeSettingsForPath(path);
    settings.jpegQuality = quality;
    orvo::writeImage(path, *orvo::scenes::halved(shown, orvo::scenes::halvings().front()), settings);
    const auto image =
        orvo::ImageReader::instance().open({path, {}}, {}, orvo::ImageReaderOpenFlag::Bracket, nullptr, {}, -1);
    std::filesystem::remove(path);
    if (!image)
        throw std::runtime_error("cannot read " + path.string());
    return image->imageData({}, {}, true);
}

std::vector<Reduction> reductions()
{
    std::vector<Reduction> all;
    for (const auto& halving : orvo::scenes::halvings())
        all.push_back({halving.name, [&halving](const Picture& truth) { return halvedAsFile(truth, halving); }});
    all.push_back({"every second", everySecond, movedByHalf});
    all.push_back({"area, JPEG", [](const Picture& truth) { return asJpeg(truth, kJpegQuality); }});
    return all;
}

// For each way of reducing: Catmull-Rom's error, and the gains over it of OpenCV's cubic and of ours.
// `only`: the name of one, or empty.
void printHalvings(const std::filesystem::path& folder, const std::string& only)
{
    std::printf("\n%-18s%14s%14s%8s%8s%8s%8s%18s\n", "reduced by", "Catmull-Rom", "cubic -0.75", "ours", "least",
                "most", "crisp", "ours over cubic");
    bool isKnown = false;
    for (const Reduction& reduction : reductions()) {
        if (!only.empty() && reduction.name != only)
            continue;
        isKnown = true;
        double plain = 0.0;
        double cubic = 0.0;
        double crisp = 0.0;
        std::vector<double> ours;
        for (const char* const name : kHeldOut) {
            const PicturePointer shown = inSRGB(*load(folder / name));
            const PicturePointer small = reduction.small(*shown);
            const PicturePointer truth = reduction.expected(shown);
            const auto score = [&](const PicturePointer& large) { return orvo::scenes::psnr(*inSRGB(*large), *truth); };
            const double reference = score(small->resize(truth->size(), {}, true));
            plain += reference / std::size(kHeldOut);
            cubic += (score(byOpenCV(small, truth->size(), cv::INTER_CUBIC)) - reference) / std::size(kHeldOut);
            crisp += (score(byUs(small, truth->size(), true)) - reference) / std::size(kHeldOut);
            ours.push_back(score(byUs(small, truth->size(), false)) - reference);
        }
        const double mean = std::accumulate(ours.begin(), ours.end(), 0.0) / static_cast<double>(ours.size());
        const auto [least, most] = std::minmax_element(ours.begin(), ours.end());
        std::printf("%-18s%14.2f%+14.2f%+8.2f%+8.2f%+8.2f%+8.2f%+18.2f\n", reduction.name.c_str(), plain, cubic, mean,
                    *least, *most, crisp, mean - std::max(0.0, cubic));
        std::fflush(stdout);
    }
    if (!isKnown)
        throw std::runtime_error("there is no reduction by " + only);
}

constexpr int kPart = 160;   // pixels of the truth in a cell of the sheet
constexpr int kEnlarged = 2; // screen pixels per pixel of it
constexpr int kCell = kPart * kEnlarged;

void paint(Picture& sheet, int column, int row, const Picture& picture)
{
    const int left = (picture.width() - kPart) / 2;
    const int top = (picture.height() - kPart) / 2;
    for (int y = 0; y < kCell; ++y)
        for (int x = 0; x < kCell; ++x)
            sheet.row(row * kCell + y)[column * kCell + x] = picture.row(top + y / kEnlarged)[left + x / kEnlarged];
}

void writeSheet(const std::filesystem::path& folder, const std::filesystem::path& path,
                const orvo::scenes::Halving& halving)
{
    constexpr int kColumns = 4;
    const std::size_t shownMethods[] = {1, 4, 5};
    Picture sheet({kColumns * kCell, static_cast<int>(std::size(kHeldOut)) * kCell},
                  orvo::ColorProfileType::melissaRGB());
    int row = 0;
    for (const char* const name : kHeldOut) {
        const PicturePointer truth = load(folder / name);
        paint(sheet, 0, row, *truth);
        const PicturePointer small = halvedAsFile(*inSRGB(*truth), halving);
        int column = 1;
        for (const std::size_t method : shownMethods)
            paint(sheet, column++, row, *kMethods[method].run(small, truth->size()));
        ++row;
    }
    orvo::writeImage(path, sheet, orvo::writeSettingsForPath(path));
}

} // namespace

int main(int argc, char** argv)
{
    const char* folder = std::getenv("ORVO_TEST_DATA");
    const char* sheet = nullptr;
    std::string reducedBy;
    bool reductions = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--sheet") == 0 && i + 1 < argc)
            sheet = argv[++i];
        else if (std::strcmp(argv[i], "--reduced-by") == 0 && i + 1 < argc)
            reducedBy = argv[++i];
        else if (std::strcmp(argv[i], "--reductions") == 0)
            reductions = true;
        else
            folder = argv[i];
    }
    if (folder == nullptr) {
        std::fputs(
            "usage: orvo_upscale_bench [FOLDER] [--reductions | --sheet PICTURE.png] [--reduced-by NAME]; or set "
            "ORVO_TEST_DATA\n",
            stderr);
        return 2;
    }
    try {
        const auto& all = orvo::scenes::halvings();
        const auto halving = std::find_if(all.begin(), all.end(), [&](const auto& one) {
            return one.name == (reducedBy.empty() ? "area" : reducedBy);
        });
        if (sheet != nullptr && halving == all.end())
            throw std::runtime_error("there is no reduction by " + reducedBy);
        if (sheet != nullptr)
            writeSheet(folder, sheet, *halving);
        else if (reductions)
            printHalvings(folder, reducedBy);
        else
            for (const int scale : {2, 4})
                printTable(folder, scale);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "orvo_upscale_bench: %s\n", error.what());
        return 1;
    }
}
