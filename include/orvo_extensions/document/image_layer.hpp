/// The layer of the picture itself.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_extensions/document/layer.hpp>
#include <orvo_extensions/document/transformation.hpp>

#include <memory>
#include <utility>

namespace orvo {

/// Corrections of a lens, one transformation each.
struct ORVO_EXPORT LensCorrectionData
{
    std::shared_ptr<const Transformation> distortion;
    std::shared_ptr<const Transformation> chromaticAberration;
};

/// Copies share the transformations.
class ORVO_EXPORT ImageLayer : public Layer
{
public:
    explicit ImageLayer(const ProcessConfig& config);
    ~ImageLayer() override;
    ImageLayer(const ImageLayer&);
    ImageLayer& operator=(const ImageLayer&);

    [[nodiscard]] Transforms getFaceSculptOperations() const { return faceSculpt; }
    void setFaceSculptOperations(Transforms operations) { faceSculpt = std::move(operations); }
    /// The lens corrections that are set.
    [[nodiscard]] Transforms getLensCorrectionOperations() const;
    void setLensCorrection(LensCorrectionData data) { lensCorrection = std::move(data); }
    /// True if either half of the lens correction is missing.
    [[nodiscard]] bool emptyLC() const { return !lensCorrection.distortion || !lensCorrection.chromaticAberration; }

private:
    Transforms faceSculpt;
    LensCorrectionData lensCorrection;
};

} // namespace orvo
