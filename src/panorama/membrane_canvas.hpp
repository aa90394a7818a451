/// The canvas of PanoramaMBlender.
#pragma once

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/image_data.hpp>

#include <opencv2/core/mat.hpp>

#include <cstddef>
#include <memory>
#include <vector>

namespace orvo {

/// A picture to add to the canvas.
struct MembranePicture
{
    std::shared_ptr<const _ImageData<PixelRGB<float>>> pixels; ///< 0 .. 1
    const std::vector<bool>& mask;                             ///< row-major bits of the picture: its visible part
    const std::vector<bool>& region;                           ///< the same: where it may grow
    cv::Point corner;                                          ///< on the canvas, which contains the whole picture
};

/// The float colours of all pictures so far, and where there are any.
class MembraneCanvas
{
public:
    explicit MembraneCanvas(_Size<int> size);

    /// Blends `picture` over the canvas. Peak besides the canvas: 33 bytes per pixel of it.
    void add(const MembranePicture& picture);

    /// Creates new matrices: CV_16SC3, blue first, full scale 16383, and CV_8UC1, 255 where there is data.
    void write(cv::Mat& result, cv::Mat& resultMask) const;

private:
    using Bytes = ManagedPlane<unsigned char>;
    using Floats = ManagedPlane<float>;
    using Colours = ManagedPlane<PixelRGB<float>>;

    [[nodiscard]] std::size_t count() const { return pixels->pixelCount(); }
    void findEffective(const MembranePicture& picture, unsigned char* effective) const;
    void findConflict(const MembranePicture& picture, const unsigned char* effective, float* conflict) const;
    void findBoundary(const MembranePicture& picture, const unsigned char* effective, PixelRGB<float>* boundary) const;
    void findHardPixels(const unsigned char* effective, const float* conflict, std::vector<bool>& hardPixels) const;
    void lay(const MembranePicture& picture, const unsigned char* effective, const PixelRGB<float>* membrane,
             const float* alpha);
    template <typename Body>
    static void eachPixel(const MembranePicture& picture, int width, const Body& body);

    std::shared_ptr<_ImageData<PixelRGB<float>>> pixels;
    Bytes covered; ///< 1 where the canvas has data
};

} // namespace orvo
