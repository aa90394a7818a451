// Memory of orvo pano for large pictures. Each test has its own process, since the peak of a process never decreases.
#include "program.hpp"
#include "support/temporary_folder.hpp"

#include <jobs/memory_need.hpp>
#include <orvo_core/color_profile.hpp>
#include <orvo_io/image_writer.hpp>
#include <scenes/sphere_scene.hpp>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>

namespace orvo::test {
namespace {

constexpr int kPictures = 12;
constexpr int kEnlarged = 4; // features are larger than that
constexpr _Size<int> kSmall{1000, 750};
constexpr double kMegapixels = kPictures * 1e-6 * kSmall.width * kSmall.height * kEnlarged * kEnlarged;

// A row of pictures of 12 megapixels, all around but for a gap. Drawn small and enlarged, which takes a tenth of the
// time.
std::vector<std::string> writeLargeViews(const std::filesystem::path& folder)
{
    scenes::SphereView view;
    view.size = {kSmall.width, kSmall.height};
    view.focal = kSmall.width;
    const scenes::SphereScene scene;
    std::vector<std::string> names;
    for (const scenes::SphereView& each : scenes::rowOfViews(kPictures, 27.0, 3.0, view, 1.0, 7)) {
        names.push_back("view" + std::to_string(10 + names.size()) + ".jpg");
        ImageWriteSettings write = writeSettingsForPath(names.back());
        write.profile = ColorProfileType::sRGB();
        const _Size<int> large{kEnlarged * kSmall.width, kEnlarged * kSmall.height};
        writeImage(folder / names.back(), *scene.see(each, 1)->resize(large, {}, true), write);
    }
    return names;
}

} // namespace

TEST(PanoMemory, TwelvePicturesOfTwelveMegapixels)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer needs much more memory than the program";
#endif
    const TemporaryFolder folder;
    std::vector<std::string> arguments{"pano", "-o", "out.jpg", "--json"};
    for (const std::string& name : writeLargeViews(folder.path()))
        arguments.push_back(name);
    const Finished run = runOrvo(arguments, {.workingFolder = folder.path()});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const auto report = nlohmann::json::parse(run.out);
    for (const auto& file : report.at("files"))
        EXPECT_TRUE(file.at("placed")) << file.at("path");

    const double planes = report.at("peak_memory_bytes").at("planes").get<double>() * 1e-6;
    const double process = report.at("peak_memory_bytes").at("process").get<double>() * 1e-6;
    const double drawn =
        1e-6 * report.at("size").at("width").get<double>() * report.at("size").at("height").get<double>();
    std::cout << "peak of the manager's planes " << planes << " MB, of the process " << process << " MB, for "
              << kMegapixels << " megapixels in and " << drawn << " out\n";
    EXPECT_NEAR(static_cast<double>(run.peakMemoryKiB) * 1024e-6, process, 0.02 * process)
        << "as reported by the system";

    // The manager: the pictures with 6 bytes a pixel, the bands of the whole canvas, of which only blended parts take
    // memory, and those of one picture.
    EXPECT_LT(planes, 1.05 * (6.0 * kMegapixels + 14.0 * drawn + 15.0 * kMegapixels / kPictures));
    // The process: the pictures that are not blended yet with what is blended, or the result in floats with what it is
    // made from.
    constexpr double kProgram = 400.0; // code, stacks, codecs, and what was freed and not returned
    EXPECT_LT(process, kProgram + std::max(8.0 * kMegapixels, 19.0 * drawn));

    jobs::PanoJobRequest request;
    for (const auto& file : report.at("files"))
        request.files.push_back(folder.path() / file.at("path").get<std::string>());
    const double need = 1e-6 * static_cast<double>(jobs::memoryNeed(request));
    EXPECT_GT(need, process) << "the estimate of a batch";
    EXPECT_LT(need, 1.8 * process); // pictures that overlap less need more
}

} // namespace orvo::test
