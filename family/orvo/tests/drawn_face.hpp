/// A face drawn by formula, so that the truth is known at any size and blur. Face detectors accept it.
#pragma once

#include "orvo_test_pictures.hpp"

#include <algorithm>
#include <cmath>

namespace test {

/// The position of a face: the middle between its ears and half the distance between them, in px.
struct FacePlace
{
    double x = 0.0;
    double y = 0.0;
    double half = 0.0;
};

class DrawnFace
{
public:
    explicit DrawnFace(FacePlace where) : place(where) {}

    /// Lightness over `behind` at a point in px; edges are one pixel wide.
    [[nodiscard]] double over(double behind, double px, double py) const
    {
        const double u = (px - place.x) / place.half, v = (py - place.y) / place.half;
        if (std::abs(u) > 1.6 || v < -1.9 || v > 1.9)
            return behind;
        double value = behind;
        value = mix(value, 0.58, ellipse(u, v, 0.0, 1.5, 0.52, 0.7));    // neck
        value = mix(value, 0.13, ellipse(u, v, 0.0, -0.35, 1.12, 1.25)); // hair
        value = mix(value, skin(u, v), ellipse(u, v, 0.0, 0.05, 0.93, 1.22) * step(v + 0.88 + 0.25 * u * u));
        for (const double side : {-1.0, 1.0})
            value = eye(value, u - side * 0.40, v + 0.17);
        for (const double side : {-1.0, 1.0})
            value = mix(value, 0.09, ellipse(u, v, side * 0.10, 0.37, 0.055, 0.035)); // nostrils
        value = mix(value, 0.40, ellipse(u, v, 0.0, 0.70, 0.30, 0.085));              // lips
        return mix(value, 0.16, ellipse(u, v, 0.0, 0.69, 0.27, 0.018));
    }

    [[nodiscard]] const FacePlace& where() const { return place; }

private:
    [[nodiscard]] static double mix(double a, double b, double weight) { return a + (b - a) * weight; }
    [[nodiscard]] static double blob(double u, double v, double su, double sv)
    {
        return std::exp(-0.5 * (u * u / (su * su) + v * v / (sv * sv)));
    }
    /// From 0 to 1 over about a pixel; `inside` in units of the face.
    [[nodiscard]] double step(double inside) const { return 1.0 / (1.0 + std::exp(-inside * place.half / 0.25)); }
    [[nodiscard]] double ellipse(double u, double v, double cu, double cv, double au, double av) const
    {
        const double du = (u - cu) / au, dv = (v - cv) / av;
        return step((1.0 - std::sqrt(du * du + dv * dv)) * std::min(au, av));
    }

    [[nodiscard]] static double skin(double u, double v)
    {
        double value = 0.74 - 0.20 * u * u - 0.06 * v * v;
        for (const double side : {-1.0, 1.0}) {
            value -= 0.26 * blob(u - side * 0.40, v + 0.20, 0.20, 0.13); // sockets
            value += 0.06 * blob(u - side * 0.45, v - 0.25, 0.22, 0.18); // cheeks
        }
        value += 0.09 * blob(u, v - 0.05, 0.07, 0.25); // bridge of the nose
        value -= 0.16 * blob(u, v - 0.40, 0.17, 0.05); // under the nose
        value -= 0.10 * blob(u, v - 0.86, 0.22, 0.06); // under the lips
        return value;
    }

    /// `u`, `v` from the middle of the eye.
    [[nodiscard]] double eye(double value, double u, double v) const
    {
        const double arch = 0.25 * u * u;
        value = mix(value, 0.14, ellipse(u, v - arch, 0.0, -0.27, 0.27, 0.055)); // brow
        const double open = ellipse(u, v, 0.0, 0.0, 0.19, 0.085);
        double ball = mix(0.80, 0.22, ellipse(u, v, 0.0, -0.01, 0.095, 0.095));
        ball = mix(ball, 0.04, ellipse(u, v, 0.0, -0.01, 0.045, 0.045));
        ball = mix(ball, 0.95, ellipse(u, v, 0.03, -0.04, 0.018, 0.018));
        value = mix(value, ball, open);
        return mix(value, 0.12, ellipse(u, v - 0.9 * u * u, 0.0, -0.085, 0.20, 0.022)); // lashes
    }

    FacePlace place;
};

} // namespace test
