// [merge]
#include <orvo_extensions/orvo_extensions.hpp>

#include <cstdio>

int main(int argc, char** argv)
{
    if (argc < 3)
        return 2; // merge FRAME... RESULT
    orvo::HdrRequest request;
    request.pictures.assign(argv + 1, argv + argc - 1);
    request.settings.alignment = true;

    const orvo::HdrResult result = orvo::perform(request);
    if (!result) {
        std::puts(orvo::describe(*result.failure).c_str());
        return 1;
    }
    const char* const path = argv[argc - 1];
    orvo::ImageWriteSettings file = orvo::writeSettingsForPath(path);
    file.metadata = result.image->metadata();
    orvo::writeImage(path, *result.image->developedOriginalImageData({}), file);
}
// [merge]
