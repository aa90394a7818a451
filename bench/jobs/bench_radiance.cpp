// Radiance from rendered JPEG brackets with a filmic response, against the light of the scene: bench_radiance FOLDER
// One line for each method: the largest difference of the medians of stops, over those with many pixels, the number of
// these stops, and the root mean square error of a pixel, all as factors in percent.
#include <orvo_extensions/radiance.hpp>
#include <orvo_io/image_reader.hpp>
#include <scenes/bracket_files.hpp>

#include <opencv2/core.hpp>
#include <opencv2/photo.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <stdexcept>
#include <vector>

namespace {

using Picture = orvo::_ImageData<orvo::PixelRGB<float>>;
using LightAt = std::function<double(int x, int y)>; // green of the result

// The light that the bracket can record: below the saturation of its darkest frame, above the noise of its brightest.
constexpr double kMost = 45.0;
constexpr double kLeast = 1.0 / 1024.0;

// Green: the channel of most of the luminance. The scale of a method is free, so that of the middle is taken out.
void print(const char* name, const Picture& truth, const LightAt& found)
{
    std::map<int, std::vector<double>> errors;
    std::vector<double> all;
    std::size_t pixels = 0;
    for (int y = 0; y < truth.height(); ++y)
        for (int x = 0; x < truth.width(); ++x) {
            const auto expected = static_cast<double>(truth.row(y)[x].g);
            const double seen = found(x, y);
            if (expected < kLeast || expected > kMost)
                continue;
            ++pixels;
            if (!(seen > 0.0))
                continue;
            errors[static_cast<int>(std::floor(std::log2(expected)))].push_back(std::log2(seen / expected));
            all.push_back(std::log2(seen / expected));
        }
    const auto median = [](std::vector<double>& values) {
        const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
        std::nth_element(values.begin(), middle, values.end());
        return *middle;
    };
    constexpr std::size_t kMany = 500;
    double least = 1e9;
    double most = -1e9;
    int stops = 0;
    for (auto& [stop, values] : errors)
        if (values.size() >= kMany) {
            least = std::min(least, median(values));
            most = std::max(most, median(values));
            ++stops;
        }
    const double scale = median(all);
    double sum = 0.0;
    for (const double error : all)
        sum += (error - scale) * (error - scale);
    const auto percent = [](double logarithm) { return 100.0 * (std::exp2(logarithm) - 1.0); };
    std::printf("%s: %.1f %% over %d stops, rms %.1f %%, no value at %zu pixels\n", name, percent(most - least), stops,
                percent(std::sqrt(sum / static_cast<double>(all.size()))), pixels - all.size());
}

void compare(const std::filesystem::path& folder)
{
    orvo::scenes::BracketRecipe recipe;
    recipe.scene.size = {1200, 800};
    recipe.evs = {-6.0, -4.0, -2.0, 0.0, 2.0, 4.0};
    recipe.camera.noise = orvo::scenes::SensorNoise{};
    recipe.camera.response = orvo::scenes::ResponseCurve::Filmic;
    const orvo::scenes::Bracket bracket(recipe);
    const auto paths = orvo::scenes::writeBracket(bracket, folder, {});
    const auto truth = bracket.radiance(0, true);

    const auto map = orvo::mergeRadiance(paths, {}, {}, {});
    if (!map.image)
        throw std::runtime_error("no radiance");
    const auto ours = map.image->developedOriginalImageData({});
    print("orvo", *truth, [&](int x, int y) { return static_cast<double>(ours->row(y)[x].g); });

    std::vector<cv::Mat> frames;
    std::vector<float> times;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const auto image =
            orvo::ImageReader::instance().open({paths[i], {}}, {.profile = orvo::ColorProfileType::sRGB()},
                                               orvo::ImageReaderOpenFlag::Bracket, nullptr, {}, -1);
        const auto pixels = image->imageData({}, {}, true);
        cv::Mat floats(pixels->height(), pixels->width(), CV_32FC3, pixels->data());
        cv::Mat bytes;
        floats.convertTo(bytes, CV_8UC3, 255.0);
        frames.push_back(bytes);
        times.push_back(static_cast<float>(recipe.base.shutterSeconds * std::exp2(recipe.evs[i])));
    }
    const auto show = [&](const char* name, const cv::Mat& found) {
        print(name, *truth, [&](int x, int y) { return static_cast<double>(found.at<cv::Vec3f>(y, x)[1]); });
    };
    cv::Mat response;
    cv::Mat light;
    cv::createCalibrateDebevec()->process(frames, response, times);
    cv::createMergeDebevec()->process(frames, light, times, response);
    show("OpenCV Debevec", light);
    cv::createCalibrateRobertson()->process(frames, response, times);
    cv::createMergeRobertson()->process(frames, light, times, response);
    show("OpenCV Robertson", light);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fputs("usage: bench_radiance FOLDER\n", stderr);
        return 2;
    }
    try {
        std::filesystem::create_directories(argv[1]);
        compare(argv[1]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_radiance: %s\n", error.what());
        return 1;
    }
}
