// A restoration in an editor: the request for a document, the service's answer in a file, the result.
// restore_editor INPUT OUTPUT

#include <orvo/restoration.hpp>
#include <orvo_extensions/generative_restoration.hpp>
#include <orvo_io/base64.hpp>
#include <orvo_io/base64_image.hpp>
#include <orvo_io/image_writer.hpp>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace {

using Request = orvo::GenRestorationProcessor::Request;

// Stands for the remote service, whose answer an editor saves: the picture with less noise and blur.
void service(const Request& request, const std::filesystem::path& answer)
{
    const auto picture = orvo::convertToImageData(request.image);
    if (!picture)
        throw std::runtime_error("the request cannot be read");
    const auto restored = orvo::restorePicture(*picture, {}, {});
    const auto png = orvo::bytesOfBase64(orvo::imageToBase64(restored, {0, 8}));
    std::ofstream(answer, std::ios::binary)
        .write(reinterpret_cast<const char*>(png->data()), static_cast<std::streamsize>(png->size()));
}

void run(const char* input, const char* output)
{
    orvo::GenRestorationProcessor restoration(input, {}, {});
    orvo::GenRestorationProcessor::RequestRestrictions limits;
    limits.maxSize = {2000, 2000}; // of the service that is asked
    restoration.setRequestRestrictions(limits);
    const Request request = restoration.generateRequest();
    if (request.size == orvo::_Size<int>())
        throw std::runtime_error(std::string(input) + " cannot be opened");

    const std::filesystem::path answer = std::string(output) + ".answer.png";
    service(request, answer);
    const auto restored = restoration.applyResponse(answer);
    std::filesystem::remove(answer);
    if (!restored)
        throw std::runtime_error("the answer is no picture");
    orvo::writeImage(output, *restored, orvo::writeSettingsForPath(output));
    std::printf("%s: request of %d x %d pixels, %zu characters\n", output, request.size.width, request.size.height,
                request.image.size());
}

} // namespace

int main(int count, char** words)
{
    if (count != 3) {
        std::fputs("restore_editor INPUT OUTPUT\n", stderr);
        return 2;
    }
    try {
        run(words[1], words[2]);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "restore_editor: %s\n", error.what());
        return 1;
    }
}
