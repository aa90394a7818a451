#include "icc_matrix.hpp"

#include <array>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace orvo::io {
namespace {

using Vector3 = std::array<double, 3>;
using Matrix3 = std::array<Vector3, 3>; // rows

Vector3 times(const Matrix3& m, const Vector3& v)
{
    Vector3 out{};
    for (std::size_t i = 0; i < 3; ++i)
        out[i] = m[i][0] * v[0] + m[i][1] * v[1] + m[i][2] * v[2];
    return out;
}

std::optional<Matrix3> inverse(const Matrix3& m)
{
    const auto minor = [&m](std::size_t r, std::size_t c) {
        const std::size_t r1 = (r + 1) % 3, r2 = (r + 2) % 3, c1 = (c + 1) % 3, c2 = (c + 2) % 3;
        return m[r1][c1] * m[r2][c2] - m[r1][c2] * m[r2][c1]; // the cyclic order brings its own sign
    };
    const double determinant = m[0][0] * minor(0, 0) + m[0][1] * minor(0, 1) + m[0][2] * minor(0, 2);
    if (!(std::abs(determinant) > 1e-9))
        return std::nullopt;
    Matrix3 out{};
    for (std::size_t r = 0; r < 3; ++r)
        for (std::size_t c = 0; c < 3; ++c)
            out[r][c] = minor(c, r) / determinant;
    return out;
}

Vector3 xyzOf(double x, double y) { return {x / y, 1.0, (1.0 - x - y) / y}; }

constexpr Vector3 kD50 = {0.9642, 1.0, 0.8249}; // the white of every ICC profile (ICC.1:2010, 7.2.16)
constexpr Matrix3 kBradford = {{{0.8951, 0.2664, -0.1614}, {-0.7502, 1.7135, 0.0367}, {0.0389, -0.0685, 1.0296}}};

// Columns: the XYZ of D50 of the three primaries at full scale.
std::optional<Matrix3> xyzFromLinear(const Chromaticities& c)
{
    for (const double y : {c.redY, c.greenY, c.blueY, c.whiteY})
        if (!(std::abs(y) > 1e-6))
            return std::nullopt;
    const std::array<Vector3, 3> primaries = {xyzOf(c.redX, c.redY), xyzOf(c.greenX, c.greenY),
                                              xyzOf(c.blueX, c.blueY)};
    const Vector3 white = xyzOf(c.whiteX, c.whiteY);
    Matrix3 columns{};
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j)
            columns[i][j] = primaries[j][i];
    const auto inverted = inverse(columns);
    const auto bradfordBack = inverse(kBradford);
    if (!inverted || !bradfordBack)
        return std::nullopt;
    const Vector3 weights = times(*inverted, white);
    const Vector3 coneWhite = times(kBradford, white);
    const Vector3 coneD50 = times(kBradford, kD50);
    Matrix3 out{};
    for (std::size_t j = 0; j < 3; ++j) {
        Vector3 cone = times(kBradford, primaries[j]);
        for (std::size_t i = 0; i < 3; ++i) {
            cone[i] *= coneD50[i] / coneWhite[i];
            if (!std::isfinite(cone[i]))
                return std::nullopt;
        }
        const Vector3 adapted = times(*bradfordBack, cone);
        for (std::size_t i = 0; i < 3; ++i)
            out[i][j] = adapted[i] * weights[j];
    }
    return out;
}

using Bytes = std::vector<unsigned char>;

void put32(Bytes& out, std::uint32_t value)
{
    for (const int shift : {24, 16, 8, 0})
        out.push_back(static_cast<unsigned char>(value >> shift));
}

void putText(Bytes& out, std::string_view text)
{
    for (const char c : text)
        out.push_back(static_cast<unsigned char>(c));
}

void putBytes(Bytes& out, const Bytes& bytes)
{
    for (const unsigned char byte : bytes)
        out.push_back(byte);
}

void putFixed(Bytes& out, double value) // s15Fixed16
{
    put32(out, static_cast<std::uint32_t>(static_cast<std::int32_t>(std::lround(value * 65536.0))));
}

Bytes xyzTag(const Vector3& xyz)
{
    Bytes out;
    putText(out, "XYZ ");
    put32(out, 0);
    for (const double v : xyz)
        putFixed(out, v);
    return out;
}

Bytes curveTag(double gamma)
{
    Bytes out;
    putText(out, "para");
    put32(out, 0);
    if (gamma > 0.0) {
        put32(out, 0); // Y = X^g
        putFixed(out, gamma);
        return out;
    }
    put32(out, 3u << 16); // Y = (aX + b)^g from d on, cX below
    for (const double v : {2.4, 1.0 / 1.055, 0.055 / 1.055, 1.0 / 12.92, 0.04045})
        putFixed(out, v);
    return out;
}

Bytes textTag(std::string_view text)
{
    Bytes out;
    putText(out, "mluc");
    put32(out, 0);
    put32(out, 1);  // one language
    put32(out, 12); // bytes of its record
    putText(out, "enUS");
    put32(out, static_cast<std::uint32_t>(2 * text.size()));
    put32(out, 28);
    for (const char c : text) {
        out.push_back(0);
        out.push_back(static_cast<unsigned char>(c));
    }
    out.resize((out.size() + 3) / 4 * 4);
    return out;
}

Bytes iccFile(const Matrix3& matrix, double gamma)
{
    struct Tag
    {
        std::string_view name;
        Bytes data;
    };
    const auto column = [&](std::size_t j) { return xyzTag({matrix[0][j], matrix[1][j], matrix[2][j]}); };
    const std::array<Tag, 9> tags = {Tag{"desc", textTag("RGB by chromaticities")},
                                     Tag{"cprt", textTag("none")},
                                     Tag{"wtpt", xyzTag(kD50)},
                                     Tag{"rXYZ", column(0)},
                                     Tag{"gXYZ", column(1)},
                                     Tag{"bXYZ", column(2)},
                                     Tag{"rTRC", curveTag(gamma)},
                                     Tag{"gTRC", curveTag(gamma)},
                                     Tag{"bTRC", curveTag(gamma)}};
    constexpr std::uint32_t kHeader = 128;
    Bytes table;
    Bytes data;
    put32(table, static_cast<std::uint32_t>(tags.size()));
    const auto dataBegin = static_cast<std::uint32_t>(kHeader + 4 + 12 * tags.size());
    for (const Tag& tag : tags) {
        putText(table, tag.name);
        put32(table, dataBegin + static_cast<std::uint32_t>(data.size()));
        put32(table, static_cast<std::uint32_t>(tag.data.size()));
        putBytes(data, tag.data);
    }
    Bytes out;
    put32(out, static_cast<std::uint32_t>(kHeader + table.size() + data.size()));
    put32(out, 0);
    put32(out, 0x04300000); // version 4.3
    putText(out, "mntrRGB XYZ ");
    for (const int part : {2026, 1, 1, 0, 0, 0}) {
        out.push_back(static_cast<unsigned char>(part >> 8));
        out.push_back(static_cast<unsigned char>(part));
    }
    putText(out, "acsp");
    out.resize(68); // platform, flags, maker, attributes, intent: none
    for (const double v : kD50)
        putFixed(out, v);
    out.resize(kHeader);
    putBytes(out, table);
    putBytes(out, data);
    return out;
}

} // namespace

std::shared_ptr<ColorProfile> profileFromChromaticities(const Chromaticities& chromaticities, double gamma)
{
    constexpr double kLargest = 16.0; // far beyond any real primary; what is larger does not fit the ICC's numbers
    const auto matrix = xyzFromLinear(chromaticities);
    if (!matrix || !(gamma >= 0.0) || gamma > kLargest)
        return nullptr;
    for (const Vector3& row : *matrix)
        for (const double v : row)
            if (!(std::abs(v) < kLargest))
                return nullptr;
    return ColorProfile::fromIcc(iccFile(*matrix, gamma));
}

std::shared_ptr<ColorProfile> adobeProfile()
{
    static const std::shared_ptr<ColorProfile> shared = profileFromChromaticities(kAdobeChromaticities, kAdobeGamma);
    return shared;
}

} // namespace orvo::io
