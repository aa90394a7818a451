// Renders a bracket of JPEG frames from the radiance scene: bench_render FOLDER COUNT WIDTH HEIGHT
#include <scenes/bracket_files.hpp>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::fputs("usage: bench_render FOLDER COUNT WIDTH HEIGHT\n", stderr);
        return 2;
    }
    try {
        const int count = std::atoi(argv[2]);
        orvo::scenes::BracketRecipe recipe;
        recipe.scene.size = {std::atoi(argv[3]), std::atoi(argv[4])};
        recipe.camera.noise = orvo::scenes::SensorNoise{};
        recipe.evs.clear();
        for (int i = 0; i < count; ++i)
            recipe.evs.push_back(-4.0 + 8.0 * i / std::max(count - 1, 1));
        std::filesystem::create_directories(argv[1]);
        orvo::scenes::writeBracket(orvo::scenes::Bracket(recipe), argv[1], {});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_render: %s\n", error.what());
        return 1;
    }
}
