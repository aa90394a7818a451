/// A person who walks through the scene.
#pragma once

#include <orvo_core/geometry.hpp>
#include <orvo_core/pixel.hpp>

namespace orvo::scenes {

/// The position of the walker in one frame.
struct SubjectPlacement
{
    double x = 0.0;      ///< scene pixels, the middle of the body
    double y = 0.0;      ///< scene pixels, the ground under the feet
    double height = 0.0; ///< scene pixels from the feet to the crown, above 0
    double stride = 0.0; ///< radians, the phase of the step: 0 legs together, pi/2 furthest apart
};

/// The walker's contribution at one point: light = mix(background, light, coverage).
struct SubjectSample
{
    PixelRGB<float> light; ///< linear, primaries of sRGB, as RadianceScene; valid where coverage > 0
    float coverage = 0.0f; ///< 0..1; between 0 and 1 only in an edge of 1.5 scene pixels
};

/// A person in a chequered shirt, at any point of the scene. Analytic: exact at any sub-pixel position.
[[nodiscard]] SubjectSample sampleSubject(const SubjectPlacement& placement, double x, double y);

/// Scene pixels outside which the coverage is 0.
[[nodiscard]] _Rect<double> subjectBounds(const SubjectPlacement& placement);

} // namespace orvo::scenes
