// ghost_reference FRAME...: merges a bracket with moving subjects from its middle frame.
#include <orvo_extensions/orvo_extensions.hpp>

#include <cstdio>

int main(int argc, char** argv)
{
    orvo::HdrRequest request;
    request.pictures.assign(argv + 1, argv + argc);

    // [ghosts]
    request.settings.ghostReduction = true;
    request.settings.deghostAmount = orvo::DeghostAmount::Medium;
    request.settings.ghostRefImageIdx = -1; // no index of a picture: the middle one by exposure
    // [ghosts]
    const orvo::HdrResult result = orvo::perform(request);
    if (!result)
        std::puts(orvo::describe(*result.failure).c_str());
    return result ? 0 : 1;
}
