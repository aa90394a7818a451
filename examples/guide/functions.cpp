// functions FRAME...: the function behind a request.
#include <orvo_extensions/orvo_extensions.hpp>

#include <cstdio>
#include <filesystem>
#include <vector>

int main(int argc, char** argv)
{
    const std::vector<std::filesystem::path> paths(argv + 1, argv + argc);

    // [functions]
    orvo::HDRSettings settings;
    settings.cancelFlag = std::make_shared<std::atomic<unsigned char>>(0); // any thread may set it
    const auto onPhase = [](orvo::HDRMergingPhaseName phase) { std::printf("phase %d\n", static_cast<int>(phase)); };

    const auto [merged, middleFrame] = orvo::make_HDR(paths, settings, {}, onPhase);
    if (!merged)
        if (const auto failure = orvo::lastFailure()) // of the last call of this thread
            std::puts(orvo::describe(*failure).c_str());
    // [functions]
    return merged && middleFrame ? 0 : 1;
}
