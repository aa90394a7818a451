/// A picture kept in the samples of its file.
#pragma once

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/image_data.hpp>

#include <cstdint>
#include <memory>
#include <variant>

namespace orvo {

/// Keeps pixels whose samples are all steps of 8 or 16 bits as integers: a quarter or half of the memory, with the same
/// bits when they are read again.
class KeptPicture
{
public:
    using Picture = _ImageData<PixelRGB<float>>;

    /// Empty if the samples are no such steps, or if all pixels are gray: the file then may have one channel, which is
    /// converted differently.
    [[nodiscard]] static std::unique_ptr<KeptPicture> of(const Picture& picture);

    /// The picture, converted to the working space. Peak: the result.
    [[nodiscard]] std::shared_ptr<Picture> inWorkingSpace() const;

private:
    using Bytes = ManagedPlane<std::uint8_t>;
    using Words = ManagedPlane<std::uint16_t>;

    KeptPicture(const Picture& picture, std::variant<Bytes, Words> steps);

    _Size<int> size;
    std::shared_ptr<ColorProfile> profile;
    std::variant<Bytes, Words> samples;
};

} // namespace orvo
