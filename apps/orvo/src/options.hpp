/// Option parsing, shared by all commands.
#pragma once

#include "command.hpp"
#include "nearest.hpp"
#include "output.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <vector>

namespace orvo::cli {

/// Help without CLI11's list of the options that an option needs: the option's own text names them.
class HelpText : public CLI::Formatter
{
public:
    std::string make_option_opts(const CLI::Option* option) const override
    {
        const std::string text = Formatter::make_option_opts(option);
        return text.substr(0, text.find(" " + get_label("Needs") + ":"));
    }
};

/// The option parser of a command; its name in help texts is "orvo NAME".
class Options : public CLI::App
{
public:
    Options(const std::string& command_, const std::string& description)
        : CLI::App(description, "orvo " + command_), command(command_)
    {
        formatter(std::make_shared<HelpText>());
        constexpr std::size_t kOptionColumn = 24; // the longest option with its value, and two blanks
        get_formatter()->column_width(kOptionColumn);
        get_formatter()->label("REQUIRED", "");
        get_formatter()->label("Positionals", "Arguments");
        set_help_flag("-h,--help", "print this help");
    }

    /// Parses the arguments into the bound variables. Returns the exit code if the command ends here: after help, or
    /// after an error message about wrong usage.
    std::optional<int> read(int argc, char** argv)
    {
        try {
            parse(arguments(argc, argv));
            return std::nullopt;
        } catch (const CLI::CallForHelp&) {
            say(help());
            return kDone;
        } catch (const CLI::ParseError& error) {
            const std::string meant = suggestion(argc, argv);
            complain(error.what() + (meant.empty() ? meant : "; did you mean " + meant + "?"));
            hintAtHelp(command);
            return kWrongUsage;
        }
    }

private:
    /// The option nearest to the first one that does not exist; empty if all exist or none is near.
    [[nodiscard]] std::string suggestion(int argc, char** argv) const
    {
        std::vector<std::string> names;
        for (const CLI::Option* const option : get_options())
            for (const std::string& name : option->get_lnames())
                names.push_back("--" + name);
        const std::vector<std::string_view> known(names.begin(), names.end());
        for (int i = 1; i < argc && std::string_view(argv[i]) != "--"; ++i) {
            const std::string_view typed = std::string_view(argv[i]).substr(0, std::string_view(argv[i]).find('='));
            if (typed.starts_with("--") && std::find(known.begin(), known.end(), typed) == known.end())
                return std::string(nearestWord(typed, known));
        }
        return {};
    }

    /// In reverse order, as CLI11 requires. It would parse "[a,b]" as a list; no option takes one, but a file may have
    /// such a name, and a "./" before it changes nothing.
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

/// Accepts numbers of a range, only integers if its limits are integers; adds nothing to the help, since the option's
/// text describes the range.
template <typename Number>
CLI::Validator between(Number low, Number high)
{
    return CLI::Validator(
        [low, high](std::string& text) -> std::string {
            Number value{};
            const char* const end = text.data() + text.size();
            const auto read = std::from_chars(text.data() + (text.starts_with('+') ? 1 : 0), end, value);
            if (read.ec == std::errc() && read.ptr == end && value >= low && value <= high)
                return {};
            std::ostringstream complaint;
            complaint.precision(9); // prints limits without an exponent
            complaint << "expected " << low << " to " << high << ", found " << text;
            if (std::is_integral_v<Number> && read.ptr != end)
                complaint << ", which is not an integer";
            return complaint.str();
        },
        "");
}

/// Accepts the names in the first column of a table.
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
