#include <jobs/memory_need.hpp>
#include <orvo_io/image_reader.hpp>

#include <algorithm>

namespace orvo::jobs {
namespace {

constexpr double kMiB = 1024.0 * 1024.0;
// Code, libraries, and buffers that do not grow with the pictures.
constexpr double kProgram = 64.0 * kMiB;
// Planes of at most 2 megapixels that registration compares.
constexpr double kRegistration = 100.0 * kMiB;
// Bytes of a pixel as three floats.
constexpr double kPixel = 12.0;

struct Pixels
{
    double largest = 0.0; ///< of the largest picture
    double sum = 0.0;     ///< of all pictures
    double held = 0.0;    ///< bytes of all pictures in memory; LibRaw's planes come besides
};

Pixels pixelsOf(const std::vector<std::filesystem::path>& files)
{
    constexpr double kRawPixel = 10.0; // bytes
    Pixels pixels;
    for (const auto& file : files)
        if (const auto metadata = ImageReader::readMetadata(file)) {
            const double count = static_cast<double>(metadata->size.width) * metadata->size.height;
            pixels.largest = std::max(pixels.largest, count);
            pixels.sum += count;
            pixels.held += count * (kPixel + (metadata->isRaw ? kRawPixel : 0.0));
        }
    return pixels;
}

std::uint64_t rounded(double bytes) { return static_cast<std::uint64_t>(bytes); }

} // namespace

// docs/groups.md has the measurements behind the bytes per pixel: besides the frames, of the largest picture.

std::uint64_t memoryNeed(const HdrJobRequest& request)
{
    constexpr double kMerge = 20.0;
    constexpr double kRegistered = 60.0;
    const Pixels pixels = pixelsOf(request.frames);
    if (request.align || request.deghost)
        return rounded(kProgram + kRegistration + pixels.held + kRegistered * pixels.largest);
    return rounded(kProgram + pixels.held + kMerge * pixels.largest);
}

std::uint64_t memoryNeed(const StackJobRequest& request)
{
    constexpr double kStack = 54.0; // the stacker's planes and the picture that is aligned
    constexpr double kDeghosted = 94.0;
    const Pixels pixels = pixelsOf(request.frames);
    return rounded(kProgram + pixels.held + (request.deghost ? kDeghosted : kStack) * pixels.largest);
}

std::uint64_t memoryNeed(const PanoJobRequest& request)
{
    // Of all pictures together.
    constexpr double kStitch = 26.0;
    constexpr double kComposed = 40.0;
    constexpr double kFeatures = 12.0 * kMiB; // of each picture, whatever its size
    const Pixels pixels = pixelsOf(request.files);
    const bool isComposed = request.brackets || request.crop != PanoCrop::None || request.straighten ||
                            request.turnDegrees != 0.0 || request.shift != _Point<float>();
    return rounded(kProgram + kRegistration + kFeatures * static_cast<double>(request.files.size()) +
                   (isComposed ? kComposed : kStitch) * pixels.sum);
}

} // namespace orvo::jobs
