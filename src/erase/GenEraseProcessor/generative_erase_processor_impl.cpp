#include "GenEraseProcessor/generative_erase_processor_impl.hpp"

#include "GenProcessorBase/rectangles.hpp"

#include <orvo_common/temporary_directory.hpp>
#include <orvo_image_processing/image_transform.hpp>
#include <orvo_image_processing/kep_tiled_image_data.hpp>

#include <algorithm>

namespace orvo {
namespace {

constexpr std::size_t kMasksInMemory = 3;

} // namespace

GenerativeEraseProcessorImpl::BrushInfo::BrushInfo() : resources(getTemporaryDirectory(), std::string()) {}

void GenerativeEraseProcessorImpl::BrushInfo::storeDrawingState(DrawingState state,
                                                                std::shared_ptr<const Identifier> id)
{
    drawingStates.emplace_back(std::move(state), std::move(id));
    while (drawingStates.size() > kMasksInMemory) {
        const auto& [oldest, itsId] = drawingStates.front();
        const std::string key = itsId->text();
        if (!resources.saves.contains(key))
            resources.saves[key] = resources.saveDrawingState(key, oldest);
        drawingStates.erase(drawingStates.begin());
    }
}

std::optional<DrawingState>
GenerativeEraseProcessorImpl::BrushInfo::findDrawingState(const std::shared_ptr<const Identifier>& id)
{
    const auto found = std::find_if(drawingStates.begin(), drawingStates.end(),
                                    [&](const auto& entry) { return *entry.second == *id; });
    if (found != drawingStates.end()) {
        std::rotate(found, found + 1, drawingStates.end());
        return drawingStates.back().first;
    }
    const std::string key = id->text();
    const auto save = resources.saves.find(key);
    if (save == resources.saves.end())
        return std::nullopt;
    save->second.wait(); // not get(): a mask that could not be written is still in memory
    DrawingState state = resources.loadDrawingState(key);
    storeDrawingState(state, id);
    return state;
}

void GenerativeEraseProcessorImpl::State::archive(ResourceManager& resources)
{
    resourceKeys = {archivePart<TiledMaskImage>(resources, mask),
                    archivePart<_ImageData<float>>(resources, requestParameters.mask),
                    archivePart<KepTiledImageData>(resources, modifiedData)};
}

void GenerativeEraseProcessorImpl::State::release()
{
    mask.reset();
    requestParameters.mask.reset();
    modifiedData.reset();
}

void GenerativeEraseProcessorImpl::State::load(const ResourceManager& resources)
{
    if (!resourceKeys[0].empty())
        mask = resources.loadTiledMaskImage(resourceKeys[0]);
    requestParameters.mask = resourceKeys[1].empty() ? nullptr : resources.loadMask(resourceKeys[1]);
    modifiedData = resourceKeys[2].empty() ? nullptr : resources.loadTiledImageDataSol(resourceKeys[2]);
}

GenerativeEraseProcessorImpl::GenerativeEraseProcessorImpl(std::shared_ptr<Image> source)
    : GenerativeProcessorBaseImpl(std::move(source)), brushInfo(std::make_shared<BrushInfo>()),
      stateIndex(std::make_shared<StateIndex<State>>())
{}

GenerativeEraseProcessorImpl::~GenerativeEraseProcessorImpl() = default;

std::shared_ptr<PostRenderDataI> GenerativeEraseProcessorImpl::postRenderData()
{
    return std::make_shared<PostRenderDataErase>(brushInfo);
}

WorkingImageErase::~WorkingImageErase() = default;

std::shared_ptr<_ImageData<PixelRGB<float>>> WorkingImageErase::imageData(const ResizeParameters& parameters)
{
    return image ? image->developedModifiedImageData(parameters)->copy({}) : nullptr;
}

std::int32_t WorkingImageErase::width() const { return image ? image->width() : 0; }

std::int32_t WorkingImageErase::height() const { return image ? image->height() : 0; }

_Rect<int> WorkingImageErase::rect() const { return image ? image->rect() : _Rect<int>(); }

std::string WorkingImageErase::identifier() const { return image ? image->getGUID() : std::string(); }

PostRenderDataErase::PostRenderDataErase(std::shared_ptr<GenerativeEraseProcessorImpl::BrushInfo> info)
    : brushInfo(std::move(info))
{
    type = kErase;
}

PostRenderDataErase::~PostRenderDataErase() = default;

std::shared_ptr<const MaskImage> PostRenderDataErase::maskToShow(const PreviewContext& context,
                                                                 PostRenderType channel) const
{
    const auto& controller = brushInfo->controller;
    const auto& mask = brushInfo->mask;
    if (!controller) {
        // Clipped like the picture, so that both show the same part.
        return brushInfo->showMask && mask
                   ? mask->maskImage(context.size, intersected(context.roi, {0, 0, mask->width(), mask->height()}))
                   : nullptr;
    }
    if (channel != PostRenderType::Main || !(controller->isStrokeInProgress() || brushInfo->showMask))
        return nullptr;
    const auto size = controller->maskSize();
    const _Rect<int> roi = intersected(context.roi, {0, 0, size.width, size.height});
    const _Rect<float> part(static_cast<float>(roi.x), static_cast<float>(roi.y), static_cast<float>(roi.width),
                            static_cast<float>(roi.height));
    return controller->getMaskPreview(ImageTransformSettings({}, part, context.size, ImageTransformType::Affine,
                                                             AffineTransform(), CropDescription(), 0));
}

} // namespace orvo
