#include "program.hpp"

#include "command.hpp"
#include "nearest.hpp"
#include "output.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <exception>
#include <string>
#include <string_view>

namespace orvo::cli {
namespace {

constexpr std::array kCommands = {
    Command{"hdr", "merge an exposure bracket into one picture", runHdr},
    Command{"stack", "merge a focus series into one picture that is sharp throughout", runStack},
    Command{"pano", "stitch pictures taken from one point into a panorama", runPano},
    Command{"upscale", "enlarge pictures 2 to 16 times", runUpscale},
    Command{"restore", "reduce noise and blur in pictures", runRestore},
    Command{"erase", "erase objects marked with boxes, brush strokes or masks", runErase},
    Command{"fill", "fill the area that a mask marks, and change no other pixel", runFill},
    Command{"expand", "add a border that continues the picture", runExpand},
    Command{"frames", "list frames by exposure, or sort a memory card into groups", runFrames},
    Command{"label", "write copies of frames with their numbers in the picture", runLabel},
    Command{"serve", "answer requests of erase, expand and restore over HTTP, for tests", runServe},
    Command{"demo", "create example pictures and run the other commands on them", runDemo},
};

std::string mainHelp()
{
    std::string text = "orvo merges, stacks, stitches, enlarges and repairs photographs.\n"
                       "\n"
                       "Usage: orvo COMMAND [OPTIONS] ...\n"
                       "\n"
                       "Commands:\n";
    constexpr std::size_t kNameColumn = 9;
    for (const Command& command : kCommands) {
        const std::string name = command.name;
        text += "  " + name + std::string(kNameColumn - name.size(), ' ') + command.summary + "\n";
    }
    return text + "\n"
                  "Options:\n"
                  "  -h,--help    print this help; 'orvo help COMMAND' explains a command\n"
                  "  --version    print the version\n"
                  "\n"
                  "Examples:\n"
                  "  Three handheld pictures with moving people:\n"
                  "    orvo hdr dark.jpg middle.jpg bright.jpg -o merged.jpg --align --deghost medium\n"
                  "  Pictures of one subject at different focus distances:\n"
                  "    orvo stack near.jpg middle.jpg far.jpg -o sharp.jpg\n"
                  "  Try the program without your own pictures:\n"
                  "    orvo demo /tmp/orvo-demo\n";
}

int unknownCommand(const std::string& typed)
{
    std::array<std::string_view, kCommands.size()> names;
    std::transform(kCommands.begin(), kCommands.end(), names.begin(), [](const Command& c) { return c.name; });
    std::string lower = typed;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    const std::string_view meant = nearestWord(lower, names);
    complain("there is no command '" + typed + "'" +
             (meant.empty() ? std::string() : "; did you mean '" + std::string(meant) + "'?"));
    hintAtHelp("");
    return kWrongUsage;
}

int help(std::string word)
{
    if (word.empty()) {
        say(mainHelp());
        return kDone;
    }
    for (const Command& command : kCommands)
        if (word == command.name) {
            std::string option = "--help";
            std::array arguments{word.data(), option.data(), static_cast<char*>(nullptr)};
            return command.run(2, arguments.data());
        }
    return unknownCommand(word);
}

int run(int argc, char** argv)
{
    if (argc < 2) {
        complain("no command was given");
        hintAtHelp("");
        return kWrongUsage;
    }
    const std::string word = argv[1];
    if (word == "--help" || word == "-h") {
        say(mainHelp());
        return kDone;
    }
    if (word == "--version") {
        say("orvo " ORVO_VERSION "\n");
        return kDone;
    }
    for (const Command& command : kCommands)
        if (word == command.name)
            return command.run(argc - 1, argv + 1);
    if (word == "help")
        return help(argc > 2 ? argv[2] : "");
    return unknownCommand(word);
}

} // namespace

int reportOutcome(const jobs::JobResult& result, const char* command)
{
    if (result.done())
        return kDone;
    complain(result.message);
    switch (result.outcome) {
    case jobs::JobOutcome::Refused:
        hintAtHelp(command);
        return kWrongUsage;
    case jobs::JobOutcome::Cancelled:
        return kCancelled;
    default:
        return kFailed;
    }
}

int runProgram(int argc, char** argv)
{
    try {
        return finishOutput(run(argc, argv));
    } catch (const std::exception& error) {
        complain(error.what());
        return kFailed;
    }
}

} // namespace orvo::cli
