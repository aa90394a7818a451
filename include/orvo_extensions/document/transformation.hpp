/// Geometric transformations of effects and layers.
#pragma once

#include <orvo_common/export.hpp>

#include <cstdint>
#include <memory>
#include <vector>

namespace orvo {

enum class TransformationType : std::int32_t
{
    Affine = 0,
};

class ORVO_EXPORT Transformation
{
public:
    virtual ~Transformation();
    /// The coefficients; the type defines their order.
    [[nodiscard]] virtual std::vector<float> serialize() const = 0;
    [[nodiscard]] virtual TransformationType getType() const = 0;

protected:
    Transformation() = default;
    Transformation(const Transformation&) = default;
    Transformation& operator=(const Transformation&) = default;
};

/// x' = a x + c y + e, y' = b x + d y + f; initially the identity.
class ORVO_EXPORT AffineTransformation : public Transformation
{
public:
    AffineTransformation();
    AffineTransformation(float a, float b, float c, float d, float e, float f);
    ~AffineTransformation() override;
    AffineTransformation(const AffineTransformation&) = default;
    AffineTransformation& operator=(const AffineTransformation&) = default;

    /// a to f.
    [[nodiscard]] std::vector<float> serialize() const override;
    [[nodiscard]] TransformationType getType() const override;

    float a = 1.0f;
    float b = 0.0f;
    float c = 0.0f;
    float d = 1.0f;
    float e = 0.0f;
    float f = 0.0f;
};

/// In the order of application.
using Transforms = std::vector<std::shared_ptr<const Transformation>>;

} // namespace orvo
