#include "expand/generative_expand_impl.hpp"

#include <orvo_common/uuid.hpp>

#include <stdexcept>
#include <utility>

namespace orvo {

void GenerativeExpandImpl::State::archive(ResourceManager& resources)
{
    using Picture = _ImageData<PixelRGB<float>>;
    resourceKeys = {archivePart<Picture>(resources, picture),
                    archivePart<_ImageData<float>>(resources, requestParameters.mask),
                    archivePart<Picture>(resources, requestParameters.canvas)};
}

void GenerativeExpandImpl::State::release()
{
    picture.reset();
    requestParameters.mask.reset();
    requestParameters.canvas.reset();
}

void GenerativeExpandImpl::State::load(const ResourceManager& resources)
{
    picture = resourceKeys[0].empty() ? nullptr : resources.checkAndLoadImageData(resourceKeys[0], true);
    requestParameters.mask = resourceKeys[1].empty() ? nullptr : resources.loadMask(resourceKeys[1]);
    requestParameters.canvas =
        resourceKeys[2].empty() ? nullptr : resources.checkAndLoadImageData(resourceKeys[2], true);
    if (!picture)
        throw std::runtime_error("the picture of a stored state is lost");
}

void WorkingImageExpand::set(std::shared_ptr<_ImageData<PixelRGB<float>>> newImage)
{
    image = std::move(newImage);
    id = generateUUID();
}

WorkingImageExpand::~WorkingImageExpand() = default;

std::shared_ptr<_ImageData<PixelRGB<float>>> WorkingImageExpand::imageData(const ResizeParameters& parameters)
{
    return image ? image->resize(parameters.size, parameters.rect, true) : nullptr;
}

std::int32_t WorkingImageExpand::width() const { return image ? image->width() : 0; }

std::int32_t WorkingImageExpand::height() const { return image ? image->height() : 0; }

_Rect<int> WorkingImageExpand::rect() const { return image ? _Rect<int>(0, 0, width(), height()) : _Rect<int>(); }

std::string WorkingImageExpand::identifier() const { return id; }

} // namespace orvo
