/// Reading of a command's options, the same for all commands.
#pragma once

#include "command.hpp"
#include "output.hpp"

#include <CLI/CLI.hpp>

#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace orvo::cli {

/// A command's own reader of options: its name in help texts is "orvo NAME".
class Options : public CLI::App
{
public:
    Options(const std::string& command_, const std::string& description)
        : CLI::App(description, "orvo " + command_), command(command_)
    {
        constexpr std::size_t kOptionColumn = 24; // the longest option with its value, and two blanks
        get_formatter()->column_width(kOptionColumn);
        get_formatter()->label("REQUIRED", "");
        get_formatter()->label("Positionals", "Arguments");
        set_help_flag("-h,--help", "print this help");
    }

    /// Reads the arguments into the variables that were bound. Returns the exit code if the command ends here: after
    /// help, or with wrong usage told on standard error.
    std::optional<int> read(int argc, char** argv)
    {
        try {
            parse(arguments(argc, argv));
            return std::nullopt;
        } catch (const CLI::CallForHelp&) {
            say(help());
            return kDone;
        } catch (const CLI::ParseError& error) {
            complain(error.what());
            hintAtHelp(command);
            return kWrongUsage;
        }
    }

private:
    /// As CLI11 wants them, the last one first. It would take "[a,b]" for a list; no value of ours is one, but a file
    /// may have such a name, and "./" before it changes nothing.
    static std::vector<std::string> arguments(int argc, char** argv)
    {
        std::vector<std::string> reversed;
        for (int i = argc - 1; i > 0; --i) {
            const std::string_view text = argv[i];
            const bool bracketed = text.starts_with('[') && text.ends_with(']');
            reversed.push_back((bracketed ? "./" : "") + std::string(text));
        }
        return reversed;
    }

    std::string command;
};

/// Accepts numbers of a range; says nothing in the help, where the option's own text tells it better.
inline CLI::Validator between(double low, double high)
{
    return CLI::Validator(
        [low, high](std::string& text) -> std::string {
            double value = 0.0;
            if (CLI::detail::lexical_cast(text, value) && value >= low && value <= high)
                return {};
            std::ostringstream complaint;
            complaint.precision(9); // no limit is told as a power of ten
            complaint << "expected " << low << " to " << high << ", found " << text;
            return complaint.str();
        },
        "");
}

/// Accepts the names of a table, whose rows begin with them.
template <typename Table>
CLI::Validator oneOf(const Table& table)
{
    return CLI::Validator(
        [&table](std::string& text) -> std::string {
            std::string known;
            for (const auto& row : table) {
                if (text == row.first)
                    return {};
                known += (known.empty() ? "" : ", ") + std::string(row.first);
            }
            return "expected one of " + known + ", found " + text;
        },
        "");
}

} // namespace orvo::cli
