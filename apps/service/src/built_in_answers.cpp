#include <orvo/filling.hpp>
#include <orvo/restoration.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_io/base64_image.hpp>

#include <service/built_in_answers.hpp>

#include <memory>

namespace orvo::service {
namespace {

using Picture = _ImageData<PixelRGB<float>>;

constexpr Base64EncodeParameters kEightBits{0, 8}; // as requests have

std::shared_ptr<Picture> decoded(const std::string& text, const char* name)
{
    auto picture = convertToImageData(text);
    if (!picture)
        throw FailureError({FailureKind::UnfittingPictures, {}, std::string("\"") + name + "\" cannot be decoded"});
    return picture;
}

// Whatever is marked at all: masks of requests may have soft rims, and what is soft is blended later.
std::shared_ptr<MaskImage> hardMask(const Picture& gray)
{
    auto mask = std::make_shared<MaskImage>(gray.size());
    forEachRow(gray.height(), [&](int y) {
        for (int x = 0; x < gray.width(); ++x)
            mask->row(y)[x] = gray.row(y)[x].r > 0.0f ? 1.0f : 0.0f;
    });
    return mask;
}

} // namespace

std::string builtInAnswer(const PictureRequest& request, const RunControl& control)
{
    const auto picture = decoded(request.image, "image");
    if (request.tool == Tool::Restore)
        return imageToBase64(restorePicture(*picture, {}, control), kEightBits);
    const auto mask = hardMask(*decoded(request.mask, "mask"));
    return imageToBase64(patchFiller()->fill(*picture, *mask, control), kEightBits);
}

} // namespace orvo::service
