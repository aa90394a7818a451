#include <jobs/default_output.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/image_writer.hpp>

#include <stdexcept>

namespace orvo::jobs {
namespace {

std::filesystem::path endingFor(const std::filesystem::path& input)
{
    try {
        (void)writeSettingsForPath(input);
        return input.extension();
    } catch (const std::invalid_argument&) {
        return isRawImageFile(input) ? ".tif" : ".jpg";
    }
}

} // namespace

std::filesystem::path defaultOutput(const std::filesystem::path& input, const std::string& done)
{
    std::filesystem::path output = input;
    output.replace_filename(input.stem());
    output += "-" + done;
    output += endingFor(input);
    return output;
}

} // namespace orvo::jobs
