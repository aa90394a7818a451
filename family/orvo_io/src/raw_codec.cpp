// Camera raw files through LibRaw.
#include "codecs.hpp"
#include "dng_tags.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_core/planckian_locus.hpp>

#include <libraw/libraw.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace orvo::io {
namespace {

constexpr float kSixteenBits = 65535.0f;

std::unique_ptr<LibRaw> openRaw(const std::filesystem::path& path)
{
    auto raw = std::make_unique<LibRaw>(LIBRAW_OPIONS_NO_DATAERR_CALLBACK | LIBRAW_OPIONS_NO_MEMERR_CALLBACK);
    const int result = raw->open_file(path.c_str());
    if (result != LIBRAW_SUCCESS)
        throw ReadFailure(std::string("not a readable raw file: ") + libraw_strerror(result));
    return raw;
}

void check(int result, const char* step)
{
    if (result == LIBRAW_UNSUFFICIENT_MEMORY)
        throw std::bad_alloc();
    if (result == LIBRAW_CANCELLED_BY_CALLBACK)
        throw FailureError(cancelledFailure());
    if (result != LIBRAW_SUCCESS)
        throw ReadFailure(std::string("not a readable raw file: ") + step + ": " + libraw_strerror(result));
}

int exifOrientation(int flip)
{
    // LibRaw's flip has one bit each for mirroring, turning upside down and transposing.
    static constexpr std::array<int, 8> kOrientations = {1, 2, 4, 3, 5, 8, 6, 7};
    return flip >= 0 && flip < 8 ? kOrientations[static_cast<std::size_t>(flip)] : 1;
}

// Fills in LibRaw's values beyond or instead of EXIF.
void fillRecord(LibRaw& raw, ImageMetadata& record)
{
    const auto& other = raw.imgdata.other;
    const auto take = [](float& target, float value) {
        if (!(target > 0.0f) && std::isfinite(value) && value > 0.0f)
            target = value;
    };
    record.isRaw = true;
    take(record.isoSpeed, other.iso_speed);
    take(record.shutterSeconds, other.shutter);
    take(record.aperture, other.aperture);
    take(record.focalLength, other.focal_len);
    if (record.cameraMake.empty())
        record.cameraMake = raw.imgdata.idata.make;
    if (record.cameraModel.empty())
        record.cameraModel = raw.imgdata.idata.model;
    if (record.lensModel.empty())
        record.lensModel = raw.imgdata.lens.Lens;
    const auto& levels = raw.imgdata.color.dng_levels;
    constexpr float kMostBaseline = 10.0f; // EV; LibRaw's -999 means none
    if (std::isfinite(levels.baseline_exposure) && std::abs(levels.baseline_exposure) <= kMostBaseline)
        record.baselineExposure = levels.baseline_exposure;
    if (levels.LinearResponseLimit > 0.0f && levels.LinearResponseLimit <= 1.0f)
        record.linearResponseLimit = levels.LinearResponseLimit;
    record.exposureOffset = record.baselineExposure;
}

using Square = std::array<std::array<double, 3>, 3>;

Square squareOf(const float (&rows)[4][3])
{
    Square out{};
    for (std::size_t r = 0; r < 3; ++r)
        for (std::size_t c = 0; c < 3; ++c)
            out[r][c] = static_cast<double>(rows[r][c]);
    return out;
}

// Colour temperature and tint of the camera's white balance: the chromaticity of its neutral through the camera's
// matrix; McCamy 1992 for the temperature. The tint is the distance from the Planckian locus (Krystek 1985 for its
// position in CIE 1960 u, v), in units of 1/3000, positive towards magenta.
void fillWhiteBalance(const LibRaw& raw, ImageMetadata& record)
{
    const auto& color = raw.imgdata.color;
    if (raw.imgdata.idata.colors != 3)
        return;
    // The camera's response to white.
    std::array<double, 3> neutral{};
    for (std::size_t i = 0; i < 3; ++i) {
        if (!(color.cam_mul[i] > 0.0f))
            return;
        neutral[i] = static_cast<double>(color.cam_mul[1]) / static_cast<double>(color.cam_mul[i]);
    }
    // The matrix from XYZ to the camera: LibRaw's own, else the one of the file nearest to daylight.
    const auto determinant = [](const Square& a) {
        return a[0][0] * (a[1][1] * a[2][2] - a[1][2] * a[2][1]) - a[0][1] * (a[1][0] * a[2][2] - a[1][2] * a[2][0]) +
               a[0][2] * (a[1][0] * a[2][1] - a[1][1] * a[2][0]);
    };
    Square matrix = squareOf(color.cam_xyz);
    for (const int set : {1, 0})
        if (!(std::abs(determinant(matrix)) > 1e-6))
            matrix = squareOf(color.dng_color[set].colormatrix);
    // matrix * xyz = neutral, by Cramer's rule.
    const double whole = determinant(matrix);
    if (!(std::abs(whole) > 1e-6))
        return;
    std::array<double, 3> xyz{};
    for (std::size_t c = 0; c < 3; ++c) {
        auto replaced = matrix;
        for (std::size_t r = 0; r < 3; ++r)
            replaced[r][c] = neutral[r];
        xyz[c] = determinant(replaced) / whole;
    }
    const double sum = xyz[0] + xyz[1] + xyz[2];
    if (!(sum > 0.0) || !(xyz[1] > 0.0))
        return;
    const double x = xyz[0] / sum;
    const double y = xyz[1] / sum;
    const double n = (x - 0.3320) / (0.1858 - y);
    const double kelvin = 449.0 * n * n * n + 3525.0 * n * n + 6823.3 * n + 5520.33;
    if (!(kelvin > 1000.0 && kelvin < 50000.0))
        return;
    const auto [u0, v0] = planckianLocus(kelvin);
    const double scale = -2.0 * x + 12.0 * y + 3.0;
    const double du = 4.0 * x / scale - u0;
    const double dv = 6.0 * y / scale - v0;
    constexpr double kTintUnit = 3000.0;
    constexpr double kLargestTint = 150.0; // beyond, the pixels were balanced before: no usable white balance
    const double tint = (dv < 0.0 ? 1.0 : -1.0) * std::hypot(du, dv) * kTintUnit;
    if (std::abs(tint) > kLargestTint)
        return;
    record.temperature = static_cast<float>(kelvin);
    record.tint = static_cast<float>(tint);
    record.cameraTemperature = record.temperature;
    record.cameraTint = record.tint;
}

using Multipliers = std::array<float, 4>;

// For a channel that clips in the sensor only a lower limit is known. It is raised to the brightest of the others,
// fading in from kClippingBegins of its range on, so that a pixel clipped in all channels is neutral and unclipped
// values stay the same.
void raiseClipped(std::array<float, 3>& camera, const std::array<float, 3>& saturation)
{
    constexpr float kClippingBegins = 0.92f;
    constexpr float kClippingEnds = 0.99f;
    const float brightest = std::max({camera[0], camera[1], camera[2]});
    for (std::size_t c = 0; c < 3; ++c) {
        const float share = camera[c] / saturation[c];
        const float t = std::clamp((share - kClippingBegins) / (kClippingEnds - kClippingBegins), 0.0f, 1.0f);
        camera[c] += t * t * (3.0f - 2.0f * t) * std::max(0.0f, brightest - camera[c]);
    }
}

// EV that a camera's own rendering adds to linear light besides its baseline. The speed that cameras are set by leaves
// half a stop above the white of a scene (ISO 12232: 18 percent gray at 12.7 percent of saturation), and the rendering
// shows 18 percent. It does not depend on what a frame shows, so that neighbours of a panorama and the frames of a
// focus series look alike.
constexpr float kCameraRendering = 0.5f;

int onProgress(void* job, enum LibRaw_progress, int, int)
{
    return static_cast<const ReadJob*>(job)->run->cancelled() ? 1 : 0;
}

void setParameters(LibRaw& raw, const ReadJob& job, bool undeveloped)
{
    auto& parameters = raw.imgdata.params;
    parameters.use_camera_wb = 1;
    parameters.output_bps = 16;
    parameters.user_flip = 0; // rows are rotated when stored
    parameters.user_qual = 3; // adaptive homogeneity-directed (Hirakawa, Parks 2005)
    parameters.half_size = job.depth == ReadDepth::Reduced ? 1 : 0;
    // Otherwise the brightest sample of each picture becomes its white, and the frames of a series lose their common
    // scale.
    parameters.adjust_maximum_thr = 0.0f;
    if (undeveloped) {
        parameters.output_color = 0; // camera space: the matrix is applied here, in floats, without clipping
        parameters.gamm[0] = parameters.gamm[1] = 1.0;
        parameters.no_auto_bright = 1;
        parameters.highlight = 1; // no clipping
    } else {
        parameters.output_color = 1;
        parameters.gamm[0] = 1.0 / 2.4;
        parameters.gamm[1] = 12.92;
    }
    raw.set_progress_handler(onProgress, const_cast<ReadJob*>(&job));
}

// Converts linear camera rows to linear light with sRGB's primaries and passes them to the sink.
std::shared_ptr<RGBPicture> storeUndeveloped(LibRaw& raw, const ReadJob& job, const BlockFacts& facts)
{
    const auto& data = raw.imgdata;
    const int width = data.sizes.iwidth;
    const int height = data.sizes.iheight;
    const int colors = std::clamp(data.idata.colors, 1, 4);
    // With highlights kept, the channel with the largest multiplier is at full scale when its sensor saturates, and the
    // others are below. Rescales so that the channel with the smallest multiplier reaches 1.
    Multipliers multipliers{};
    for (std::size_t c = 0; c < 4; ++c)
        multipliers[c] = data.color.pre_mul[c] > 0.0f ? data.color.pre_mul[c] : 1.0f;
    const float least = *std::min_element(multipliers.begin(), multipliers.begin() + colors);
    const float most = *std::max_element(multipliers.begin(), multipliers.begin() + colors);
    const float scale = most / least / kSixteenBits;
    std::array<float, 3> saturation{};
    for (std::size_t c = 0; c < 3; ++c)
        saturation[c] = multipliers[c] / least;

    SampleLayout layout;
    layout.width = width;
    layout.height = height;
    layout.channels = layout.colors = colors == 1 ? 1 : 3;
    layout.type = SampleType::Float32;
    layout.full = 1.0;
    PictureSink sink = makeSink(layout, job, facts, ColorProfileType::linearSRGB());
    const auto& matrix = data.color.rgb_cam;
    const auto convertRow = [&](int y, float* out) {
        const ushort(*const in)[4] = data.image + static_cast<std::ptrdiff_t>(y) * width;
        for (int x = 0; x < width; ++x) {
            if (colors == 1) {
                out[x] = static_cast<float>(in[x][0]) * scale;
            } else if (colors == 3) {
                std::array<float, 3> camera = {static_cast<float>(in[x][0]) * scale,
                                               static_cast<float>(in[x][1]) * scale,
                                               static_cast<float>(in[x][2]) * scale};
                raiseClipped(camera, saturation);
                for (int r = 0; r < 3; ++r)
                    out[3 * x + r] = matrix[r][0] * camera[0] + matrix[r][1] * camera[1] + matrix[r][2] * camera[2];
            } else {
                for (int r = 0; r < 3; ++r) {
                    float sum = 0.0f;
                    for (int c = 0; c < 4; ++c)
                        sum += matrix[r][c] * static_cast<float>(in[x][c]) * scale;
                    out[3 * x + r] = sum;
                }
            }
        }
    };
    while (sink.rowsDone() < height) {
        const int first = sink.rowsDone();
        int rows = height;
        unsigned char* const memory = sink.nextRows(rows);
        tbb::this_task_arena::isolate([&] {
            forEachRow(rows, [&](int y) {
                convertRow(first + y,
                           reinterpret_cast<float*>(memory + layout.rowBytes() * static_cast<std::size_t>(y)));
            });
        });
        sink.commit(rows);
    }
    return sink.finish();
}

struct ReleaseMemory
{
    void operator()(libraw_processed_image_t* image) const noexcept { LibRaw::dcraw_clear_mem(image); }
};
using MemoryImage = std::unique_ptr<libraw_processed_image_t, ReleaseMemory>;

std::shared_ptr<RGBPicture> storeDeveloped(LibRaw& raw, const ReadJob& job, const BlockFacts& facts)
{
    int result = LIBRAW_SUCCESS;
    const MemoryImage image(raw.dcraw_make_mem_image(&result));
    check(result, "developing");
    if (!image || image->type != LIBRAW_IMAGE_BITMAP || image->bits != 16 || (image->colors != 1 && image->colors != 3))
        throw ReadFailure("not a readable raw file: LibRaw returned an unexpected picture");
    SampleLayout layout;
    layout.width = image->width;
    layout.height = image->height;
    layout.channels = layout.colors = image->colors;
    layout.type = SampleType::UInt16;
    layout.full = 65535.0;
    PictureSink sink = makeSink(layout, job, facts, ColorProfileType::sRGB());
    for (int y = 0; y < layout.height; ++y)
        sink.put(image->data + layout.rowBytes() * static_cast<std::size_t>(y));
    return sink.finish();
}

void readPreview(LibRaw& raw, BlockFacts& facts)
{
    if (raw.unpack_thumb() != LIBRAW_SUCCESS)
        return;
    const auto& thumbnail = raw.imgdata.thumbnail;
    if (thumbnail.tformat == LIBRAW_THUMBNAIL_JPEG && thumbnail.thumb != nullptr && thumbnail.tlength > 0)
        facts.preview.assign(thumbnail.thumb, thumbnail.thumb + thumbnail.tlength);
}

} // namespace

bool librawKnows(const std::filesystem::path& path)
{
    if (path.empty())
        return false;
    try {
        const auto raw = openRaw(path);
        const auto& data = raw->imgdata;
        // LibRaw also opens TIFF files with finished pixels if they name a camera. Those have three samples per pixel
        // and are not DNG.
        const bool finished = data.idata.dng_version == 0 && data.idata.filters == 0 && data.idata.colors == 3 &&
                              data.idata.is_foveon == 0;
        return data.idata.raw_count > 0 && !finished;
    } catch (const std::exception&) {
        return false;
    }
}

ReadAnswer readRaw(const SourceFile& file, const ReadJob& job)
{
    refuseParts(job);
    if (file.path().empty())
        throw ReadFailure("raw pictures can only be read from files");
    const auto raw = openRaw(file.path());
    const auto& sizes = raw->imgdata.sizes;
    checkExtent(file, job, sizes.raw_width, sizes.raw_height, 0);
    checkExtent(file, job, sizes.iwidth, sizes.iheight, 0);
    if (raw->imgdata.idata.dng_version != 0)
        checkDngTags(file, {sizes.raw_width, sizes.raw_height});

    ReadAnswer answer;
    answer.facts = readFactsOfFile(file.path(), job.wants(ImageReaderOpenFlag::Embedded));
    answer.facts.orientation = exifOrientation(sizes.flip);
    const bool undeveloped = job.wants(ImageReaderOpenFlag::Undeveloped);
    answer.facts.sampleBits = 16; // what LibRaw returns; sensors have 10 to 16
    ImageMetadata& record = answer.facts.record;
    fillRecord(*raw, record);
    fillWhiteBalance(*raw, record);
    if (job.depth == ReadDepth::Full && !undeveloped) {
        record.isRaw = false;
        record.isDeveloped = true;
    }
    record.fileProfile =
        undeveloped || job.depth == ReadDepth::Facts ? ColorProfileType::linearMelissaRGB() : ColorProfileType::sRGB();
    settleRecord({sizes.iwidth, sizes.iheight}, job, answer.facts);
    if (job.wantPreview)
        readPreview(*raw, answer.facts);
    if (job.depth == ReadDepth::Facts)
        return answer;

    setParameters(*raw, job, undeveloped);
    check(raw->unpack(), "unpacking");
    if (raw->error_count() > 0)
        noteDamage("the picture is truncated or damaged: LibRaw found " + std::to_string(raw->error_count()) +
                       " places without data",
                   job, answer);
    check(raw->dcraw_process(), "interpolating");
    if (undeveloped) {
        ReadJob linear = job;
        linear.target = ColorProfileType::linearMelissaRGB();
        linear.flags = static_cast<ImageReaderOpenFlag>(static_cast<std::int32_t>(job.flags) |
                                                        static_cast<std::int32_t>(ImageReaderOpenFlag::WorkingSpace));
        answer.picture = storeUndeveloped(*raw, linear, answer.facts);
        answer.raw = std::make_shared<AdditionalRawMetadataSync>(kCameraRendering);
    } else {
        answer.picture = storeDeveloped(*raw, job, answer.facts);
    }
    return answer;
}

} // namespace orvo::io
