// Compares two pictures of one size: bench_difference A B
// Prints the mean CIEDE2000 (Sharma, Wu, Dalal, Color Research and Application 30(1), 2005) and the percentage of
// pixels that differ by more than 2, separated by a tab. A difference of 2 is visible side by side.
#include "bench_pictures.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>

namespace {

using orvo::PixelRGB;
using orvo::bench::loadInSRGB;

constexpr double kVisible = 2.0;
constexpr double kPi = 3.14159265358979323846;
constexpr double kWhite[3] = {0.95047, 1.0, 1.08883}; // D65

struct Lab
{
    double l, a, b;
};

double linear(float encoded)
{
    const auto v = static_cast<double>(std::clamp(encoded, 0.0f, 1.0f));
    return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}

Lab labOf(const PixelRGB<float>& p)
{
    const double r = linear(p.r);
    const double g = linear(p.g);
    const double b = linear(p.b);
    const auto f = [](double t) { return t > 216.0 / 24389.0 ? std::cbrt(t) : t * (841.0 / 108.0) + 4.0 / 29.0; };
    const double x = f((0.4124564 * r + 0.3575761 * g + 0.1804375 * b) / kWhite[0]);
    const double y = f((0.2126729 * r + 0.7151522 * g + 0.0721750 * b) / kWhite[1]);
    const double z = f((0.0193339 * r + 0.1191920 * g + 0.9503041 * b) / kWhite[2]);
    return {116.0 * y - 16.0, 500.0 * (x - y), 200.0 * (y - z)};
}

double radians(double degrees) { return degrees * kPi / 180.0; }

double hueDegrees(double a, double b)
{
    const double hue = std::atan2(b, a) * 180.0 / kPi;
    return hue < 0.0 ? hue + 360.0 : hue;
}

// The saturation of a high chroma: the square root of c^7 / (c^7 + 25^7).
double saturation(double chroma)
{
    const double seventh = std::pow(chroma, 7.0);
    return std::sqrt(seventh / (seventh + 6103515625.0));
}

double ciede2000(const Lab& p, const Lab& q)
{
    const double stretch = 1.5 - 0.5 * saturation((std::hypot(p.a, p.b) + std::hypot(q.a, q.b)) / 2.0);
    const double c1 = std::hypot(p.a * stretch, p.b);
    const double c2 = std::hypot(q.a * stretch, q.b);
    const double h1 = c1 > 0.0 ? hueDegrees(p.a * stretch, p.b) : 0.0;
    const double h2 = c2 > 0.0 ? hueDegrees(q.a * stretch, q.b) : 0.0;
    double turn = 0.0;
    double hue = h1 + h2;
    if (c1 * c2 > 0.0) {
        turn = h2 - h1;
        turn += turn > 180.0 ? -360.0 : (turn < -180.0 ? 360.0 : 0.0);
        if (std::abs(h1 - h2) > 180.0)
            hue += hue < 360.0 ? 360.0 : -360.0;
        hue /= 2.0;
    }
    const double light = (p.l + q.l) / 2.0;
    const double chroma = (c1 + c2) / 2.0;
    const double weight = 1.0 - 0.17 * std::cos(radians(hue - 30.0)) + 0.24 * std::cos(radians(2.0 * hue)) +
                          0.32 * std::cos(radians(3.0 * hue + 6.0)) - 0.20 * std::cos(radians(4.0 * hue - 63.0));
    const double offLight = (light - 50.0) * (light - 50.0);
    const double dl = (q.l - p.l) / (1.0 + 0.015 * offLight / std::sqrt(20.0 + offLight));
    const double dc = (c2 - c1) / (1.0 + 0.045 * chroma);
    const double dh = 2.0 * std::sqrt(c1 * c2) * std::sin(radians(turn) / 2.0) / (1.0 + 0.015 * chroma * weight);
    const double blue = (hue - 275.0) / 25.0;
    const double rotation = -std::sin(radians(60.0 * std::exp(-blue * blue))) * 2.0 * saturation(chroma);
    return std::sqrt(std::max(0.0, dl * dl + dc * dc + dh * dh + rotation * dc * dh));
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fputs("usage: bench_difference PICTURE PICTURE\n", stderr);
        return 2;
    }
    try {
        const auto first = loadInSRGB(argv[1]);
        const auto second = loadInSRGB(argv[2]);
        if (first->size() != second->size() || first->pixelCount() == 0)
            throw std::runtime_error("the pictures differ in size or are empty");
        double sum = 0.0;
        std::size_t visible = 0;
        for (std::size_t i = 0; i < first->pixelCount(); ++i) {
            const double difference = ciede2000(labOf(first->data()[i]), labOf(second->data()[i]));
            sum += difference;
            visible += difference > kVisible ? 1 : 0;
        }
        const auto count = static_cast<double>(first->pixelCount());
        std::printf("%.3f\t%.2f\n", sum / count, 100.0 * static_cast<double>(visible) / count);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_difference: %s\n", error.what());
        return 1;
    }
}
