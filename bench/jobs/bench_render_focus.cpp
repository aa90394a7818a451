// Renders a focus series: bench_render_focus FOLDER COUNT WIDTH HEIGHT [fine]
// Without `fine`: JPEG frames that breathe by one percent in all and drift. With it: 16-bit TIFF frames in the geometry
// of the first one, textured down to the pixel, which breathe by 0.2 percent each. truth.tif is what they show, sharp
// throughout and without noise. inputs.tif has each pixel from the sharpest of the same frames without breathing: its
// sharpness is that of the inputs.
#include <orvo_io/image_writer.hpp>
#include <scenes/focus_series_files.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>

namespace {

using namespace orvo;

// A strong texture: alignment and resampling have to keep what changes from one pixel to the next.
constexpr double kTexture = 0.6;
constexpr double kBreathingPerFrame = 0.002;

scenes::FocusSeriesSettings fineSettings(int frames, _Size<int> size)
{
    scenes::FocusSeriesSettings settings;
    settings.frames = frames;
    settings.size = size;
    settings.breathing = kBreathingPerFrame * (frames - 1);
    settings.texture = kTexture;
    settings.reference = 0;
    settings.noise = scenes::SensorNoise{};
    return settings;
}

// Each pixel from the frame that is the sharpest there, all in the geometry of the reference.
std::shared_ptr<scenes::Picture> sharpestWithoutBreathing(scenes::FocusSeriesSettings settings)
{
    settings.breathing = 0.0;
    const scenes::FocusSeries still(settings);
    const auto sharpest = still.sharpestFrame();
    const auto result = still.frame(still.reference());
    for (int i = 0; i < still.frameCount(); ++i) {
        const auto frame = still.frame(i);
        for (std::size_t p = 0; p < result->pixelCount(); ++p)
            if (sharpest->data()[p] == static_cast<float>(i))
                result->data()[p] = frame->data()[p];
    }
    return result;
}

scenes::FocusSeriesSettings plainSettings(int frames, _Size<int> size)
{
    scenes::FocusSeriesSettings settings;
    settings.frames = frames;
    settings.size = size;
    settings.breathing = 0.01;
    settings.drift.shiftX = 1.5;
    settings.noise = scenes::SensorNoise{};
    return settings;
}

} // namespace

int main(int argc, char** argv)
{
    const bool fine = argc == 6 && std::strcmp(argv[5], "fine") == 0;
    if (argc != 5 && !fine) {
        std::fputs("usage: bench_render_focus FOLDER COUNT WIDTH HEIGHT [fine]\n", stderr);
        return 2;
    }
    try {
        const std::filesystem::path folder = argv[1];
        const int frames = std::atoi(argv[2]);
        const _Size<int> size{std::atoi(argv[3]), std::atoi(argv[4])};
        std::filesystem::create_directories(folder);
        const scenes::FocusSeries series(fine ? fineSettings(frames, size) : plainSettings(frames, size));
        scenes::FocusFileSettings files;
        files.format = fine ? scenes::FocusFileFormat::Tiff16 : scenes::FocusFileFormat::Jpeg;
        scenes::writeFocusSeries(series, folder, files);
        if (fine) {
            writeImage(folder / "truth.tif", *series.truth(), {});
            writeImage(folder / "inputs.tif", *sharpestWithoutBreathing(series.settings()), {});
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_render_focus: %s\n", error.what());
        return 1;
    }
}
