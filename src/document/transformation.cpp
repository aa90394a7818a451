#include <orvo_extensions/document/transformation.hpp>

namespace orvo {

Transformation::~Transformation() = default;

AffineTransformation::AffineTransformation() = default;

AffineTransformation::AffineTransformation(float xFromX, float yFromX, float xFromY, float yFromY, float shiftX,
                                           float shiftY)
    : a(xFromX), b(yFromX), c(xFromY), d(yFromY), e(shiftX), f(shiftY)
{}

AffineTransformation::~AffineTransformation() = default;

std::vector<float> AffineTransformation::serialize() const { return {a, b, c, d, e, f}; }

TransformationType AffineTransformation::getType() const { return TransformationType::Affine; }

} // namespace orvo
