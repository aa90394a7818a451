// The example of docs/guide.md, compiled and run unchanged.
#include <orvo_extensions/bracket.hpp>
#include <orvo_extensions/hdr.hpp>
#include <orvo_io/image_writer.hpp>

#include <cstdio>

int main(int argc, char** argv)
{
    const std::vector<std::filesystem::path> paths(argv + 1, argv + argc - 1);
    const std::filesystem::path target = argv[argc - 1];

    orvo::HDRSettings settings;
    settings.alignment = true;
    settings.ghostReduction = true;
    settings.deghostAmount = orvo::DeghostAmount::Medium;

    const auto onPhase = [](orvo::HDRMergingPhaseName phase) { std::printf("phase %d\n", static_cast<int>(phase)); };
    const auto [merged, middleFrame] = orvo::make_HDR(paths, settings, {}, onPhase);
    if (!merged)
        return 1; // orvo::lastFailure() has the reason

    orvo::ImageWriteSettings file = orvo::writeSettingsForPath(target);
    file.metadata = merged->metadata();
    orvo::writeImage(target, *merged->developedOriginalImageData({}), file);
}
