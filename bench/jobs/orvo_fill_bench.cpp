// Holes in photographs, filled in several ways:
//   orvo_fill_bench cases LIST DATA FOLDER        writes NAME.png and NAME_mask.png for each hole of LIST (see
//                                                 fill_holes.txt) in the pictures of DATA
//   orvo_fill_bench run METHOD FOLDER [KEY=VALUE...]
//                                                 fills them into NAME_METHOD.png; prints the seconds of each. METHOD
//                                                 is orvo, telea, navier-stokes, or any other name for the patches with
//                                                 settings that differ: KEY is one of PatchFillSettings
//   orvo_fill_bench score METHOD FOLDER           compares NAME_METHOD.png with NAME.png, as Markdown
//   orvo_fill_bench sheet OUT.png FOLDER METHOD... puts the holes of all pictures side by side
#include "bench_pictures.hpp"
#include "filling/hole.hpp"
#include "filling/patch_filler.hpp"

#include <orvo_io/image_writer.hpp>

#include <opencv2/photo.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using orvo::bench::Picture;
using PicturePointer = std::shared_ptr<Picture>;
using Pixel = orvo::PixelRGB<float>;
using Mask = orvo::_ImageData<float>;
using orvo::details::Hole;
using orvo::details::PatchFillSettings;

constexpr const char* kMaskEnding = "_mask.png";

// --- Cases -----------------------------------------------------------------------------------------------------------

struct Case
{
    std::string name;
    PicturePointer picture;
    std::shared_ptr<Mask> mask;
};

using Inside = std::function<bool(double x, double y)>; // in shares of the sides

Inside shapeOf(const std::string& kind, std::istringstream& numbers)
{
    const auto next = [&] {
        double value = 0.0;
        if (!(numbers >> value))
            throw std::runtime_error("a shape lacks a number: " + numbers.str());
        return value;
    };
    const double left = next();
    const double top = next();
    const double right = next();
    const double bottom = next();
    if (kind == "rectangle")
        return [=](double x, double y) { return x >= left && x < right && y >= top && y < bottom; };
    if (kind == "ellipse")
        return [=](double x, double y) {
            const double dx = (2.0 * x - left - right) / (right - left);
            const double dy = (2.0 * y - top - bottom) / (bottom - top);
            return dx * dx + dy * dy < 1.0;
        };
    if (kind == "line") { // from the first point to the second, as wide as the fifth number
        const double half = next() / 2.0;
        return [=](double x, double y) {
            const double dx = right - left;
            const double dy = bottom - top;
            const double along = std::clamp(((x - left) * dx + (y - top) * dy) / (dx * dx + dy * dy), 0.0, 1.0);
            return std::hypot(x - left - along * dx, y - top - along * dy) < half;
        };
    }
    throw std::runtime_error("unknown shape " + kind);
}

PicturePointer atMegapixels(const PicturePointer& picture, double megapixels)
{
    if (megapixels <= 0.0)
        return picture;
    const double scale = std::sqrt(megapixels * 1e6 / static_cast<double>(picture->pixelCount()));
    const auto side = [&](int length) { return std::max(1, static_cast<int>(std::lround(length * scale))); };
    return picture->resize({side(picture->width()), side(picture->height())}, {}, true);
}

// A canvas larger by `share` of its sides on all four; the new border is the hole.
Case expanded(const std::string& name, const Picture& picture, double share)
{
    const int dx = static_cast<int>(std::lround(share * picture.width()));
    const int dy = static_cast<int>(std::lround(share * picture.height()));
    const orvo::_Size<int> size{picture.width() + 2 * dx, picture.height() + 2 * dy};
    Case result{name, std::make_shared<Picture>(size, Pixel{0.5f, 0.5f, 0.5f}, picture.colorProfile()),
                std::make_shared<Mask>(size, 1.0f, nullptr)};
    for (int y = 0; y < picture.height(); ++y)
        std::copy_n(picture.row(y), picture.width(), result.picture->row(y + dy) + dx);
    result.mask->fillRect(0.0f, {dx, dy, picture.width(), picture.height()});
    return result;
}

std::string trimmed(const std::string& text)
{
    const auto first = text.find_first_not_of(' ');
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

Case readCase(const std::string& line, const fs::path& data)
{
    std::istringstream fields(line);
    std::string name;
    std::string file;
    std::string megapixels;
    std::string shapes;
    std::getline(fields, name, '|');
    std::getline(fields, file, '|');
    std::getline(fields, megapixels, '|');
    std::getline(fields, shapes);
    const auto whole = orvo::bench::loadInSRGB((data / trimmed(file)).c_str());
    const PicturePointer picture = atMegapixels(whole, std::stod(megapixels));
    std::istringstream words(shapes);
    std::string kind;
    std::vector<Inside> inside;
    while (words >> kind) {
        if (kind == "border") {
            double share = 0.0;
            words >> share;
            return expanded(trimmed(name), *picture, share);
        }
        inside.push_back(shapeOf(kind, words));
    }
    auto mask = std::make_shared<Mask>(picture->size(), 0.0f, nullptr);
    for (int y = 0; y < mask->height(); ++y)
        for (int x = 0; x < mask->width(); ++x)
            for (const Inside& shape : inside)
                if (shape((x + 0.5) / mask->width(), (y + 0.5) / mask->height()))
                    mask->row(y)[x] = 1.0f;
    return {trimmed(name), picture, mask};
}

void write(const fs::path& path, const Picture& picture)
{
    orvo::ImageWriteSettings settings = orvo::writeSettingsForPath(path);
    settings.bits = 8;
    orvo::writeImage(path, picture, settings);
}

void writeCases(const fs::path& list, const fs::path& data, const fs::path& folder)
{
    fs::create_directories(folder);
    std::ifstream lines(list);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.empty() || line.front() == '#')
            continue;
        const Case made = readCase(line, data);
        write(folder / (made.name + ".png"), *made.picture);
        Picture mask(made.mask->size(), orvo::ColorProfileType::sRGB());
        for (std::size_t i = 0; i < mask.pixelCount(); ++i)
            mask.data()[i] = {made.mask->data()[i], made.mask->data()[i], made.mask->data()[i]};
        write(folder / (made.name + kMaskEnding), mask);
    }
}

std::vector<std::string> namesIn(const fs::path& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        const std::string file = entry.path().filename();
        if (file.ends_with(kMaskEnding))
            names.push_back(file.substr(0, file.size() - std::string(kMaskEnding).size()));
    }
    std::sort(names.begin(), names.end());
    return names;
}

Case loadCase(const fs::path& folder, const std::string& name)
{
    Case loaded{name, orvo::bench::loadInSRGB((folder / (name + ".png")).c_str()), nullptr};
    const auto mask = orvo::bench::loadInSRGB((folder / (name + kMaskEnding)).c_str());
    loaded.mask = std::make_shared<Mask>(mask->size(), nullptr);
    for (std::size_t i = 0; i < mask->pixelCount(); ++i)
        loaded.mask->data()[i] = mask->data()[i].g;
    return loaded;
}

// --- Methods ---------------------------------------------------------------------------------------------------------

PicturePointer byOpenCV(const Case& given, int method)
{
    cv::Mat mask;
    cv::Mat(given.mask->height(), given.mask->width(), CV_32FC1, given.mask->data()).convertTo(mask, CV_8U, 255.0);
    cv::Mat picture;
    cv::Mat(given.picture->height(), given.picture->width(), CV_32FC3, given.picture->data())
        .convertTo(picture, CV_8UC3, 255.0);
    constexpr double kRadius = 5.0;
    cv::Mat filled;
    cv::inpaint(picture, mask, filled, kRadius, method);
    auto result = std::make_shared<Picture>(given.picture->size(), given.picture->colorProfile());
    cv::Mat out(result->height(), result->width(), CV_32FC3, result->data());
    filled.convertTo(out, CV_32FC3, 1.0 / 255.0);
    return result;
}

PatchFillSettings settingsFrom(const std::vector<std::string>& words)
{
    PatchFillSettings settings;
    const std::map<std::string, std::function<void(double)>> keys = {
#define ORVO_KEY(NAME)                                                                                                 \
    {                                                                                                                  \
#NAME, [&](double v) { settings.NAME = static_cast<decltype(settings.NAME)>(v); }                              \
    }
        ORVO_KEY(pieces),
        ORVO_KEY(pieceShare),
        ORVO_KEY(borderPieceShare),
        ORVO_KEY(shifted.coarsestRounds),
        ORVO_KEY(shifted.finestRounds),
        ORVO_KEY(shifted.reach),
        ORVO_KEY(shifted.coherence),
        ORVO_KEY(peeled.coarsestRounds),
        ORVO_KEY(peeled.finestRounds),
        ORVO_KEY(passes),
        ORVO_KEY(textureGain),
        ORVO_KEY(agreement),
        ORVO_KEY(depthFalloff),
        ORVO_KEY(usageWeight),
        ORVO_KEY(usageLimit),
        ORVO_KEY(seed),
        ORVO_KEY(rimWeight),
        ORVO_KEY(lastAgreement),
        ORVO_KEY(evenSeams),
        ORVO_KEY(planes),
        ORVO_KEY(heightWeight),
        ORVO_KEY(heightReach),
        ORVO_KEY(lineWeight),
        ORVO_KEY(rareWeight),
        ORVO_KEY(rareLevels),
#undef ORVO_KEY
    };
    for (const std::string& word : words) {
        const auto equals = word.find('=');
        const auto key = keys.find(word.substr(0, equals));
        if (equals == std::string::npos || key == keys.end())
            throw std::runtime_error("no such setting: " + word);
        key->second(std::stod(word.substr(equals + 1)));
    }
    return settings;
}

void run(const std::string& method, const fs::path& folder, const std::vector<std::string>& words)
{
    const orvo::details::PatchFiller filler(settingsFrom(words));
    for (const std::string& name : namesIn(folder)) {
        const Case given = loadCase(folder, name);
        const auto start = std::chrono::steady_clock::now();
        const PicturePointer result = method == "telea" ? byOpenCV(given, cv::INPAINT_TELEA)
                                      : method == "navier-stokes"
                                          ? byOpenCV(given, cv::INPAINT_NS)
                                          : filler.fill(*given.picture, *given.mask, orvo::RunControl::none());
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
        write(folder / (name + "_" + method + ".png"), *result);
        std::ofstream(folder / (name + "_" + method + ".seconds")) << seconds.count() << '\n';
    }
}

// --- Scores ----------------------------------------------------------------------------------------------------------

struct Score
{
    double psnr = 0.0;     // of the pixels of the hole
    double gradient = 0.0; // mean gradient of luma between pixels of the hole, as a share of the truth's
    double rim = 0.0;      // the same between pixels of the hole and known ones
    double share = 0.0;    // of the picture that is hole
    double seconds = 0.0;
};

double luma(const Pixel& p) { return 0.2126 * p.r + 0.7152 * p.g + 0.0722 * p.b; }

// Sums of the gradients inside and across the rim of `hole`.
std::pair<double, double> gradients(const Picture& picture, const Hole& hole)
{
    double inside = 0.0;
    double across = 0.0;
    const auto add = [&](int x, int y, int otherX, int otherY) {
        const int marks = hole.row(y)[x] + hole.row(otherY)[otherX];
        const double step = std::abs(luma(picture.row(y)[x]) - luma(picture.row(otherY)[otherX]));
        (marks == 2 ? inside : across) += marks == 0 ? 0.0 : step;
    };
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x) {
            if (x + 1 < picture.width())
                add(x, y, x + 1, y);
            if (y + 1 < picture.height())
                add(x, y, x, y + 1);
        }
    return {inside, across};
}

Score scoreOf(const fs::path& folder, const std::string& name, const std::string& method)
{
    const Case given = loadCase(folder, name);
    const auto result = orvo::bench::loadInSRGB((folder / (name + "_" + method + ".png")).c_str());
    const Hole hole(given.picture->size(), *given.mask);
    double sum = 0.0;
    for (int y = 0; y < result->height(); ++y)
        for (int x = 0; x < result->width(); ++x) {
            if (hole.row(y)[x] == 0)
                continue;
            const Pixel& a = given.picture->row(y)[x];
            const Pixel& b = result->row(y)[x];
            for (const float d : {a.r - b.r, a.g - b.g, a.b - b.b})
                sum += static_cast<double>(d) * d;
        }
    const auto [insideTruth, rimTruth] = gradients(*given.picture, hole);
    const auto [inside, rim] = gradients(*result, hole);
    Score score;
    score.psnr = -10.0 * std::log10(sum / 3.0 / static_cast<double>(hole.pixelCount()));
    score.gradient = inside / insideTruth;
    score.rim = rim / rimTruth;
    score.share = static_cast<double>(hole.pixelCount()) / static_cast<double>(result->pixelCount());
    std::ifstream(folder / (name + "_" + method + ".seconds")) >> score.seconds;
    return score;
}

void printScores(const std::string& method, const fs::path& folder)
{
    std::printf("| %s | hole %% | PSNR dB | gradient | rim | seconds |\n|---|---|---|---|---|---|\n", method.c_str());
    Score mean;
    const auto names = namesIn(folder);
    for (const std::string& name : names) {
        const Score s = scoreOf(folder, name, method);
        std::printf("| %s | %.1f | %.2f | %.2f | %.2f | %.2f |\n", name.c_str(), 100.0 * s.share, s.psnr, s.gradient,
                    s.rim, s.seconds);
        const auto count = static_cast<double>(names.size());
        mean.psnr += s.psnr / count;
        mean.gradient += s.gradient / count;
        mean.rim += s.rim / count;
        mean.share += s.share / count;
        mean.seconds += s.seconds / count;
    }
    std::printf("| mean | %.1f | %.2f | %.3f | %.3f | %.2f |\n", 100.0 * mean.share, mean.psnr, mean.gradient, mean.rim,
                mean.seconds);
}

// --- Sheet -----------------------------------------------------------------------------------------------------------

constexpr int kTileSide = 480;

// The surroundings of the hole, at full size if they fit, else reduced.
PicturePointer tileOf(const Picture& picture, const Hole& hole)
{
    const auto& box = hole.bounds();
    constexpr int kAround = 60;
    const int side = std::max({box.width + 2 * kAround, box.height + 2 * kAround, kTileSide});
    const auto place = [&](int begin, int length, int whole) {
        return std::clamp(begin + length / 2 - side / 2, 0, std::max(0, whole - side));
    };
    const orvo::_Rect<int> part{place(box.x, box.width, picture.width()), place(box.y, box.height, picture.height()),
                                std::min(side, picture.width()), std::min(side, picture.height())};
    const double scale = std::min(1.0, static_cast<double>(kTileSide) / std::max(part.width, part.height));
    return picture.resize({static_cast<int>(part.width * scale), static_cast<int>(part.height * scale)}, part, true);
}

void writeSheet(const fs::path& output, const fs::path& folder, const std::vector<std::string>& methods)
{
    constexpr int kGap = 6;
    const auto names = namesIn(folder);
    const int columns = static_cast<int>(methods.size()) + 1;
    Picture sheet({columns * (kTileSide + kGap), static_cast<int>(names.size()) * (kTileSide + kGap)}, Pixel{1, 1, 1},
                  orvo::ColorProfileType::sRGB());
    for (int row = 0; row < static_cast<int>(names.size()); ++row) {
        const std::string& name = names[static_cast<std::size_t>(row)];
        const Case given = loadCase(folder, name);
        const Hole hole(given.picture->size(), *given.mask);
        for (int column = 0; column < columns; ++column) {
            PicturePointer picture = given.picture;
            if (column > 0)
                picture = orvo::bench::loadInSRGB(
                    (folder / (name + "_" + methods[static_cast<std::size_t>(column - 1)] + ".png")).c_str());
            const PicturePointer tile = tileOf(*picture, hole);
            for (int y = 0; y < tile->height(); ++y)
                std::copy_n(tile->row(y), tile->width(),
                            sheet.row(row * (kTileSide + kGap) + y) + column * (kTileSide + kGap));
        }
    }
    write(output, sheet);
}

int usage()
{
    std::fprintf(stderr, "usage: orvo_fill_bench cases LIST DATA FOLDER | run METHOD FOLDER [KEY=VALUE...] | "
                         "score METHOD FOLDER | sheet OUT.png FOLDER METHOD...\n");
    return 2;
}

} // namespace

int main(int count, char** words)
{
    const std::vector<std::string> arguments(words + 1, words + count);
    if (arguments.size() < 3)
        return usage();
    const std::vector<std::string> rest(arguments.begin() + 3, arguments.end());
    try {
        if (arguments[0] == "cases" && arguments.size() == 4)
            writeCases(arguments[1], arguments[2], arguments[3]);
        else if (arguments[0] == "run")
            run(arguments[1], arguments[2], rest);
        else if (arguments[0] == "score" && arguments.size() == 3)
            printScores(arguments[1], arguments[2]);
        else if (arguments[0] == "sheet" && arguments.size() > 3)
            writeSheet(arguments[1], arguments[2], rest);
        else
            return usage();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "orvo_fill_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
