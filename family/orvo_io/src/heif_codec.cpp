// HEIC and AVIF through libheif.
#include "codecs.hpp"

#include <orvo_core/chromaticities.hpp>

#include <libheif/heif.h>
#include <sys/mman.h>

#include <algorithm>
#include <limits>
#include <mutex>
#include <new>

namespace orvo::io {
namespace {

constexpr std::int64_t kLargestFile = std::int64_t{1} << 31;

template <typename T, void (*release)(T*)>
struct Release
{
    void operator()(T* object) const noexcept { release(object); }
};
using Context = std::unique_ptr<heif_context, Release<heif_context, heif_context_free>>;

struct ReleaseHandle
{
    void operator()(const heif_image_handle* handle) const noexcept { heif_image_handle_release(handle); }
};
struct ReleaseImage
{
    void operator()(const heif_image* image) const noexcept { heif_image_release(image); }
};
using Handle = std::unique_ptr<heif_image_handle, ReleaseHandle>;
using Picture = std::unique_ptr<heif_image, ReleaseImage>;

void check(const heif_error& error)
{
    if (error.code == heif_error_Memory_allocation_error && error.subcode != heif_suberror_Security_limit_exceeded)
        throw std::bad_alloc();
    if (error.code != heif_error_Ok)
        throw ReadFailure(std::string("not a readable HEIC or AVIF: ") +
                          (error.message != nullptr ? error.message : ""));
}

Handle pictureOf(heif_context* context, const ReadJob& job)
{
    if (!job.part.empty())
        throw ReadFailure("picture \"" + job.part + "\" was requested, the pictures of this file have no names");
    heif_image_handle* handle = nullptr;
    if (job.index < 0) {
        check(heif_context_get_primary_image_handle(context, &handle));
        return Handle(handle);
    }
    const int count = heif_context_get_number_of_top_level_images(context);
    if (job.index >= count)
        throw ReadFailure("picture " + std::to_string(job.index) + " was requested, the file has " +
                          std::to_string(count));
    std::vector<heif_item_id> ids(static_cast<std::size_t>(count));
    heif_context_get_list_of_top_level_image_IDs(context, ids.data(), count);
    check(heif_context_get_image_handle(context, ids[static_cast<std::size_t>(job.index)], &handle));
    return Handle(handle);
}

EmbeddedMetadata blocksOf(const heif_image_handle* handle)
{
    EmbeddedMetadata blocks;
    const int count = heif_image_handle_get_number_of_metadata_blocks(handle, nullptr);
    std::vector<heif_item_id> ids(static_cast<std::size_t>(std::max(count, 0)));
    heif_image_handle_get_list_of_metadata_block_IDs(handle, nullptr, ids.data(), count);
    for (const heif_item_id id : ids) {
        const std::string type = heif_image_handle_get_metadata_type(handle, id);
        const std::string content = heif_image_handle_get_metadata_content_type(handle, id);
        std::vector<unsigned char> bytes(heif_image_handle_get_metadata_size(handle, id));
        if (bytes.empty() || heif_image_handle_get_metadata(handle, id, bytes.data()).code != heif_error_Ok)
            continue;
        if (type == "Exif" && bytes.size() > 4) {
            // The first four bytes are the offset of the TIFF structure after them.
            const std::size_t skip =
                (static_cast<std::size_t>(bytes[0]) << 24 | static_cast<std::size_t>(bytes[1]) << 16 |
                 static_cast<std::size_t>(bytes[2]) << 8 | bytes[3]) +
                4;
            if (skip < bytes.size())
                blocks.exif.assign(bytes.begin() + static_cast<std::ptrdiff_t>(skip), bytes.end());
        } else if (type == "mime" && content == "application/rdf+xml") {
            blocks.xmp.assign(bytes.begin(), bytes.end());
        }
    }
    return blocks;
}

std::vector<unsigned char> iccOf(const heif_image_handle* handle)
{
    const heif_color_profile_type type = heif_image_handle_get_color_profile_type(handle);
    if (type != heif_color_profile_type_rICC && type != heif_color_profile_type_prof)
        return {};
    std::vector<unsigned char> icc(heif_image_handle_get_raw_color_profile_size(handle));
    if (icc.empty() || heif_image_handle_get_raw_color_profile(handle, icc.data()).code != heif_error_Ok)
        return {};
    return icc;
}

// From the numbers of ITU-T H.273; empty for those of sRGB and unknown ones. The curves of BT.709 and sRGB are treated
// as equal, as in all viewers.
std::shared_ptr<ColorProfile> profileByNumbers(const heif_image_handle* handle)
{
    heif_color_profile_nclx* nclx = nullptr;
    if (heif_image_handle_get_nclx_color_profile(handle, &nclx).code != heif_error_Ok || nclx == nullptr)
        return nullptr;
    const auto primaries = nclx->color_primaries;
    const auto transfer = nclx->transfer_characteristics;
    heif_nclx_color_profile_free(nclx);
    const double gamma = transfer == heif_transfer_characteristic_linear                    ? 1.0
                         : transfer == heif_transfer_characteristic_ITU_R_BT_470_6_System_M ? 2.2
                                                                                            : 0.0;
    const bool p3 = primaries == heif_color_primaries_SMPTE_EG_432_1;
    const bool wide = primaries == heif_color_primaries_ITU_R_BT_2020_2_and_2100_0;
    if (!p3 && !wide && gamma == 0.0)
        return nullptr;
    return profileFromChromaticities(p3 ? kP3Chromaticities : wide ? k2020Chromaticities : kSRGBChromaticities, gamma);
}

// The decoders used by libheif have their own threads. If one of these runs out of memory, the process ends, or waits
// forever for a thread that could not be started. So this allocates the memory for decoding beforehand and frees it
// again: an estimate of planes, their conversion and the stacks. Throws std::bad_alloc.
void requireMemory(int width, int height)
{
    constexpr std::size_t kPerPixel = 24; // bytes: two of a sample, decoded planes, their tiles and the result
    constexpr std::size_t kFixed = std::size_t{96} << 20;
    const std::size_t bytes = kFixed + kPerPixel * static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    // Not with new, which may keep freed memory: threads need address space.
    void* const memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw std::bad_alloc();
    ::munmap(memory, bytes);
}

// One picture at a time, so that the memory found by requireMemory() stays available.
Picture decoded(const heif_image_handle* source, heif_chroma chroma)
{
    static std::mutex oneAtATime;
    const std::lock_guard lock(oneAtATime);
    requireMemory(heif_image_handle_get_width(source), heif_image_handle_get_height(source));
    heif_image* image = nullptr;
    check(heif_decode_image(source, &image, heif_colorspace_RGB, chroma, nullptr));
    return Picture(image);
}

void storeRows(const heif_image* image, SampleLayout& layout, PictureSink& sink)
{
    int stride = 0;
    const std::uint8_t* const plane = heif_image_get_plane_readonly(image, heif_channel_interleaved, &stride);
    if (plane == nullptr || stride < 0 || static_cast<std::size_t>(stride) < layout.rowBytes())
        throw ReadFailure("not a readable HEIC or AVIF: it has no samples");
    for (int y = 0; y < layout.height; ++y)
        sink.put(plane + static_cast<std::size_t>(stride) * static_cast<std::size_t>(y));
}

} // namespace

ReadAnswer readHeif(const SourceFile& file, const ReadJob& job)
{
    const std::vector<unsigned char> bytes = file.readAll(kLargestFile);
    const Context context(heif_context_alloc());
    if (!context)
        throw std::bad_alloc();
    heif_context_set_max_decoding_threads(context.get(), 0); // tiles on this thread
    // The pixel limit is checked below, before decoding; this one guards the tiles.
    heif_context_set_maximum_image_size_limit(context.get(), std::numeric_limits<std::int32_t>::max());
    check(heif_context_read_from_memory_without_copy(context.get(), bytes.data(), bytes.size(), nullptr));
    const Handle handle = pictureOf(context.get(), job);
    // These numbers and the decoded pixels already include the container's rotation and mirroring, so EXIF's
    // orientation must not be applied as well.
    const int width = heif_image_handle_get_width(handle.get());
    const int height = heif_image_handle_get_height(handle.get());
    checkExtent(file, job, width, height, 0);

    ReadAnswer answer;
    answer.facts = readFacts(blocksOf(handle.get()), job.wants(ImageReaderOpenFlag::Embedded), false);
    answer.facts.orientation = 1;
    answer.facts.sampleBits = std::max(8, heif_image_handle_get_luma_bits_per_pixel(handle.get()));
    ReadJob adjusted = job;
    if (!adjusted.assume)
        adjusted.assume = profileByNumbers(handle.get());
    const auto profile = settleProfile(iccOf(handle.get()), 3, adjusted, answer.facts);
    settleRecord({width, height}, job, answer.facts);
    if (job.depth == ReadDepth::Facts)
        return answer;

    // A stored thumbnail is used if it is large enough.
    Handle chosen;
    if (job.depth == ReadDepth::Reduced) {
        heif_item_id id = 0;
        heif_image_handle* small = nullptr;
        if (heif_image_handle_get_list_of_thumbnail_IDs(handle.get(), &id, 1) == 1 &&
            heif_image_handle_get_thumbnail(handle.get(), id, &small).code == heif_error_Ok) {
            chosen.reset(small);
            if (std::max(heif_image_handle_get_width(small), heif_image_handle_get_height(small)) < job.side)
                chosen.reset();
        }
    }
    const heif_image_handle* const source = chosen ? chosen.get() : handle.get();
    const bool alpha = heif_image_handle_has_alpha_channel(source) != 0;
    const int bits = heif_image_handle_get_luma_bits_per_pixel(source);
    const heif_chroma chroma = bits > 8
                                   ? (alpha ? heif_chroma_interleaved_RRGGBBAA_LE : heif_chroma_interleaved_RRGGBB_LE)
                                   : (alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB);
    const Picture image = decoded(source, chroma);
    SampleLayout layout;
    layout.width = heif_image_get_width(image.get(), heif_channel_interleaved);
    layout.height = heif_image_get_height(image.get(), heif_channel_interleaved);
    layout.channels = alpha ? 4 : 3;
    layout.alpha = alpha ? 3 : -1;
    layout.premultiplied = alpha && heif_image_handle_is_premultiplied_alpha(source) != 0;
    if (bits > 8) {
        layout.type = SampleType::UInt16;
        layout.full = static_cast<double>((1 << std::clamp(bits, 9, 16)) - 1);
    }
    checkExtent(file, job, layout.width, layout.height, 0);
    if (!chosen && (layout.width != width || layout.height != height))
        throw ReadFailure("not a readable HEIC or AVIF: it announces " + std::to_string(width) + " x " +
                          std::to_string(height) + " pixels but decodes to " + std::to_string(layout.width) + " x " +
                          std::to_string(layout.height) + " came");
    PictureSink sink = makeSink(layout, job, answer.facts, profile);
    storeRows(image.get(), layout, sink);
    answer.picture = sink.finish();
    return answer;
}

} // namespace orvo::io
