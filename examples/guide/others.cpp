// others FOLDER: the other operations on the pictures of `orvo demo FOLDER`.
#include <orvo_extensions/orvo_extensions.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <vector>

namespace {

std::vector<std::filesystem::path> filesOf(const std::filesystem::path& folder)
{
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        if (entry.path().extension() == ".jpg")
            files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace

int main(int, char** argv)
{
    const std::filesystem::path folder = argv[1];
    const auto series = filesOf(folder / "focus");
    const auto views = filesOf(folder / "around");

    // [others]
    orvo::FocusStackRequest stacking;
    stacking.pictures = orvo::inputsOf(series);  // in the order of the focus
    stacking.settings.adjust.referenceIndex = 2; // the others are aligned to the third
    stacking.settings.adjust.quality = orvo::AlignmentQuality::Fine;
    const orvo::OperationResult sharp = orvo::perform(stacking);

    orvo::PanoramaRequest stitching;
    stitching.pictures = orvo::inputsOf(views); // in any order
    stitching.output = {orvo::WarpType::Cylindrical, /*maxSize=*/4000};
    const orvo::PanoramaResult wide = orvo::perform(stitching);
    for (const orvo::PanoramaPlace& place : wide.places)
        if (!place.placed)
            std::puts((orvo::pathText(place.path) + " matches no other picture").c_str());

    orvo::UpscaleRequest enlarging;
    enlarging.picture = series.front();
    enlarging.settings.faces = false;
    const orvo::OperationResult large = orvo::perform(enlarging);
    // [others]

    for (const orvo::OperationResult* result : {&sharp, static_cast<const orvo::OperationResult*>(&wide), &large})
        std::printf("%s\n", *result ? "done" : orvo::describe(*result->failure).c_str());
    return sharp && wide && large ? 0 : 1;
}
