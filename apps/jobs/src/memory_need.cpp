#include <jobs/memory_need.hpp>
#include <orvo_core/color_profile.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/picture_file.hpp>

#include <algorithm>

namespace orvo::jobs {
namespace {

constexpr double kMiB = 1024.0 * 1024.0;
// Code, libraries, and buffers that do not grow with the pictures.
constexpr double kProgram = 64.0 * kMiB;
// Planes of at most 2 megapixels that registration compares, and what feature detection needs.
constexpr double kRegistration = 200.0 * kMiB;
// Bytes of a pixel as three floats.
constexpr double kPixel = 12.0;

struct Pixels
{
    double largest = 0.0; ///< of the largest picture
    double sum = 0.0;     ///< of all pictures
    double held = 0.0;    ///< bytes of all pictures in memory; LibRaw's planes come besides
    bool anyRaw = false;
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
            pixels.anyRaw = pixels.anyRaw || metadata->isRaw;
        }
    return pixels;
}

// Bytes of the frames of a focus series that are kept for another use: the samples of the file if they have 8 bits and
// three colours, else floats.
double keptBytes(const StackJobRequest& request, const Pixels& pixels)
{
    constexpr double kKeptPixel = 3.0;
    constexpr int kKeptBits = 8;
    if (!request.align && !request.deghost)
        return 0.0;
    if (pixels.anyRaw)
        return pixels.held;
    double bytes = 0.0;
    for (const auto& file : request.frames)
        if (const auto metadata = ImageReader::readMetadata(file); metadata && (request.deghost || !isJpegFile(file))) {
            const bool inColour = !metadata->fileProfile || metadata->fileProfile->channelCount() == 3;
            const double pixel = inColour && sampleBitsOf(file) == kKeptBits ? kKeptPixel : kPixel;
            bytes += pixel * static_cast<double>(metadata->size.width) * metadata->size.height;
        }
    return bytes;
}

std::uint64_t rounded(double bytes) { return static_cast<std::uint64_t>(bytes); }

} // namespace

// docs/groups.md has the measurements behind the bytes per pixel: besides the frames, of the largest picture.

std::uint64_t memoryNeed(const HdrJobRequest& request)
{
    constexpr double kReadLate = 28.0; // the result, a frame and its mask
    constexpr double kSingle = 30.0;   // with the frame whose highlights are recovered
    constexpr double kRawMerge = 20.0;
    constexpr double kRegistered = 28.0;
    constexpr double kRawRegistered = 60.0; // the rungs of the ladder
    const Pixels pixels = pixelsOf(request.frames);
    const bool isSingle = request.frames.size() == 1;
    if (!isSingle && (request.align || request.deghost))
        return rounded(kProgram + kRegistration + pixels.held +
                       (pixels.anyRaw ? kRawRegistered : kRegistered) * pixels.largest);
    if (pixels.anyRaw)
        return rounded(kProgram + pixels.held + kRawMerge * pixels.largest);
    return rounded(kProgram + (isSingle ? kSingle : kReadLate) * pixels.largest);
}

std::uint64_t memoryNeed(const StackJobRequest& request)
{
    constexpr double kStack = 58.0; // the stacker's planes, and the picture that is aligned
    constexpr double kFastStack = 70.0;
    constexpr double kDeghosted = 18.0;
    const Pixels pixels = pixelsOf(request.frames);
    const double stack = request.align && request.fast ? kFastStack : kStack;
    return rounded(kProgram + keptBytes(request, pixels) +
                   (stack + (request.deghost ? kDeghosted : 0.0)) * pixels.largest);
}

std::uint64_t memoryNeed(const PanoJobRequest& request)
{
    // Of all pictures together.
    constexpr double kStitch = 26.0;
    constexpr double kComposed = 40.0;
    constexpr double kFeatures = 12.0 * kMiB; // of each picture, whatever its size
    constexpr double kShared = 100.0 * kMiB;
    const Pixels pixels = pixelsOf(request.files);
    const bool isComposed = request.brackets || request.crop != PanoCrop::None || request.straighten ||
                            request.turnDegrees != 0.0 || request.shift != _Point<float>();
    return rounded(kProgram + kShared + kFeatures * static_cast<double>(request.files.size()) +
                   (isComposed ? kComposed : kStitch) * pixels.sum);
}

} // namespace orvo::jobs
