// Renders a focus series of JPEG frames: bench_render_focus FOLDER COUNT WIDTH HEIGHT
#include <scenes/focus_series_files.hpp>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::fputs("usage: bench_render_focus FOLDER COUNT WIDTH HEIGHT\n", stderr);
        return 2;
    }
    try {
        orvo::scenes::FocusSeriesSettings settings;
        settings.frames = std::atoi(argv[2]);
        settings.size = {std::atoi(argv[3]), std::atoi(argv[4])};
        settings.breathing = 0.01;
        settings.drift.shiftX = 1.5;
        settings.noise = orvo::scenes::SensorNoise{};
        std::filesystem::create_directories(argv[1]);
        orvo::scenes::writeFocusSeries(orvo::scenes::FocusSeries(settings), argv[1], {});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_render_focus: %s\n", error.what());
        return 1;
    }
}
