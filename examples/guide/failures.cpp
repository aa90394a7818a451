// failures FRAME...: merges frames of which the last does not exist, and shows what there is to say.
#include <orvo_extensions/orvo_extensions.hpp>

#include <cstdio>

int main(int argc, char** argv)
{
    orvo::HdrRequest request;
    request.pictures.assign(argv + 1, argv + argc);
    int lines = 0;
    const auto show = [&](const std::string& line) {
        ++lines;
        std::puts(line.c_str());
    };

    // [failures]
    const orvo::HdrResult result = orvo::perform(request);
    if (!result && result.failure->kind == orvo::FailureKind::UnreadableFile)
        show("choose another file than " + orvo::pathText(result.failure->file));
    else if (!result)
        show(orvo::describe(*result.failure)); // "b.jpg: the picture cannot be read"
    for (const orvo::Failure& shortfall : result.shortfalls)
        show(orvo::describe(shortfall)); // a frame that could not be aligned
    for (const std::string& warning : result.warnings)
        show(warning);
    // [failures]
    return lines > 0 ? 0 : 1;
}
