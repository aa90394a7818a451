#include <jobs/memory_need.hpp>
#include <orvo_core/color_profile.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/picture_file.hpp>

#include <algorithm>
#include <cmath>

namespace orvo::jobs {
namespace {

constexpr double kMiB = 1024.0 * 1024.0;
// Code, libraries, and buffers that do not grow with the pictures.
constexpr double kProgram = 64.0 * kMiB;
// Planes of at most 2 megapixels that registration compares, and what feature detection needs.
constexpr double kRegistration = 200.0 * kMiB;
// Texts and pictures of a request and its answer that hardly grow with the picture.
constexpr double kAnswer = 100.0 * kMiB;
// Bytes of a pixel as three floats.
constexpr double kPixel = 12.0;

struct Pixels
{
    double largest = 0.0; ///< of the largest picture
    double sum = 0.0;     ///< of all pictures
    double held = 0.0;    ///< bytes of all pictures in memory, with LibRaw's planes
    double raw = 0.0;     ///< of these, the bytes of LibRaw
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
            const double raw = metadata->isRaw ? count * kRawPixel : 0.0;
            pixels.raw += raw;
            pixels.held += count * kPixel + raw;
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
    if (pixels.raw > 0.0)
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
    constexpr double kReadLate = 28.0;   // the result, a frame and its mask
    constexpr double kReadAhead = 40.0;  // and the next frame
    constexpr std::size_t kShortest = 4; // frames of which the next is read ahead
    constexpr double kSingle = 30.0;     // with the frame whose highlights are recovered
    constexpr double kRawMerge = 20.0;
    constexpr double kRegistered = 28.0;
    constexpr double kRawRegistered = 60.0; // the rungs of the ladder
    const Pixels pixels = pixelsOf(request.frames);
    const bool isSingle = request.frames.size() == 1;
    if (!isSingle && (request.align || request.deghost))
        return rounded(kProgram + kRegistration + pixels.held +
                       (pixels.raw > 0.0 ? kRawRegistered : kRegistered) * pixels.largest);
    if (pixels.raw > 0.0)
        return rounded(kProgram + pixels.held + kRawMerge * pixels.largest);
    const double readLate = request.frames.size() < kShortest ? kReadLate : kReadAhead;
    return rounded(kProgram + (isSingle ? kSingle : readLate) * pixels.largest);
}

std::uint64_t memoryNeed(const StackJobRequest& request)
{
    constexpr double kStack = 70.0; // the stacker's planes, the picture that is added, and the next one
    constexpr double kDeghosted = 10.0;
    const Pixels pixels = pixelsOf(request.frames);
    return rounded(kProgram + keptBytes(request, pixels) +
                   (kStack + (request.deghost ? kDeghosted : 0.0)) * pixels.largest);
}

std::uint64_t memoryNeed(const PanoJobRequest& request)
{
    // Of all pictures together, of which neighbours overlap by a sixth at least.
    constexpr double kStitch = 16.0;
    constexpr double kResampled = 34.0; // from the sphere, which exists besides
    constexpr double kComposed = 28.0;
    constexpr double kComposedResampled = 40.0;
    constexpr double kDevignetted = 4.0;      // all pictures are warped before they are blended
    constexpr double kFeatures = 12.0 * kMiB; // of each picture, whatever its size
    constexpr double kShared = 100.0 * kMiB;
    const Pixels pixels = pixelsOf(request.files);
    const bool isComposed = request.brackets || request.crop != PanoCrop::None || request.straighten ||
                            request.turnDegrees != 0.0 || request.shift != _Point<float>();
    const bool isSphere = request.projection == WarpType::Spherical;
    const double drawn = isComposed ? (isSphere ? kComposed : kComposedResampled) : (isSphere ? kStitch : kResampled);
    return rounded(kProgram + kShared + kFeatures * static_cast<double>(request.files.size()) +
                   (drawn + (request.devignette ? kDevignetted : 0.0)) * pixels.sum);
}

std::uint64_t memoryNeed(const UpscaleJobRequest& request)
{
    // Of the result.
    constexpr double kEnlarged = 15.0;
    constexpr double kWithFaces = 28.0;
    constexpr double kCrisp = 4.0;
    constexpr double kFaceSearch = 200.0 * kMiB;
    // Of the picture.
    constexpr double kDenoised = 48.0;
    // A network's own scale is known only once it is loaded; most have this one.
    const double scale = std::pow(request.model.empty() ? 2.0 : 4.0, request.passes);
    const Pixels pixels = pixelsOf({request.source});
    const double result = (request.faces ? kWithFaces : kEnlarged) + (request.crisp ? kCrisp : 0.0);
    return rounded(kProgram + (request.faces ? kFaceSearch : 0.0) + pixels.held +
                   (request.denoise > 0 ? kDenoised : 0.0) * pixels.sum + result * scale * scale * pixels.sum);
}

std::uint64_t memoryNeed(const ExpandJobRequest& request)
{
    constexpr double kCanvas = 61.0;
    constexpr double kRequest = 86.0;        // of the part that is sent, with its border
    constexpr double kMostKnown = 8e6;       // pixels of the picture in a request
    constexpr double kExpand = 300.0 * kMiB; // for any size
    const Pixels pixels = pixelsOf({request.source});
    const auto metadata = ImageReader::readMetadata(request.source);
    if (!metadata || pixels.sum == 0.0 || request.crop.has_value() == request.add.has_value())
        return rounded(kProgram); // the job fails before it opens the picture
    const auto rect = expandedCanvas(request, metadata->size);
    const double canvas = static_cast<double>(rect.width) * static_cast<double>(rect.height);
    return rounded(kProgram + kExpand + pixels.raw + kCanvas * canvas +
                   kRequest * canvas * std::min(1.0, kMostKnown / pixels.sum));
}

std::uint64_t memoryNeed(const RestoreJobRequest& request)
{
    // Of the picture, and of what is restored: at most 2700 pixels a side.
    constexpr double kPicture = 88.0;
    constexpr double kRequest = 50.0;
    constexpr double kLargestRequest = 2700.0 * 2700.0;
    const Pixels pixels = pixelsOf({request.source});
    return rounded(kProgram + kAnswer + pixels.raw + kPicture * pixels.sum +
                   kRequest * std::min(pixels.sum, kLargestRequest));
}

} // namespace orvo::jobs
