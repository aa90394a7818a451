#include "color_profile_impl.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <stdexcept>
#include <utility>

namespace orvo {
namespace {

using Impl = ColorProfile::Impl;

// Larger ICC files are not accepted; press profiles have a few megabytes.
constexpr std::size_t kLargestIcc = std::size_t{64} << 20;
constexpr std::size_t kIccHeaderBytes = 128;

struct Chromaticity
{
    double x;
    double y;
};

constexpr Chromaticity kD65 = {0.3127, 0.3290};
constexpr Chromaticity kD50Chromaticity = {0.3457, 0.3585};

struct KnownSpace
{
    const char* name;
    Chromaticity red, green, blue, white;
};

// Spaces found in files of many vendors, each with its own rounding.
constexpr KnownSpace kKnownSpaces[] = {
    {"sRGB", {0.64, 0.33}, {0.30, 0.60}, {0.15, 0.06}, kD65},                         // IEC 61966-2-1
    {"ROMM", {0.7347, 0.2653}, {0.1596, 0.8404}, {0.0366, 0.0001}, kD50Chromaticity}, // ISO 22028-2
    {"P3-D65", {0.680, 0.320}, {0.265, 0.690}, {0.150, 0.060}, kD65},                 // SMPTE EG 432-1
    {"AdobeRGB", {0.64, 0.33}, {0.21, 0.71}, {0.15, 0.06}, kD65},                     // Adobe RGB (1998)
    {"BT2020", {0.708, 0.292}, {0.170, 0.797}, {0.131, 0.046}, kD65},                 // ITU-R BT.2020
};
constexpr const KnownSpace& kSRGBSpace = kKnownSpaces[0];
constexpr const KnownSpace& kRommSpace = kKnownSpaces[1];

// Tolerance between the entries of two files of one space: vendors round the white, its adaptation and the result
// differently.
constexpr double kSameEntry = 5e-4;

Vector3 xyzOf(Chromaticity c) { return {c.x / c.y, 1.0, (1.0 - c.x - c.y) / c.y}; }

// Adapts white to D50 with the Bradford transform (Lam 1985), as the ICC does.
Matrix3 adaptationToD50(const Vector3& white)
{
    constexpr Matrix3 kBradford = {{{0.8951, 0.2664, -0.1614}, {-0.7502, 1.7135, 0.0367}, {0.0389, -0.0685, 1.0296}}};
    const Vector3 from = kBradford * white;
    const Vector3 to = kBradford * kD50;
    return *inverse(kBradford) * diagonal({to[0] / from[0], to[1] / from[1], to[2] / from[2]}) * kBradford;
}

Matrix3 xyzFromLinear(const KnownSpace& space)
{
    const Vector3 r = xyzOf(space.red);
    const Vector3 g = xyzOf(space.green);
    const Vector3 b = xyzOf(space.blue);
    const Matrix3 primaries = {{{r[0], g[0], b[0]}, {r[1], g[1], b[1]}, {r[2], g[2], b[2]}}};
    const Vector3 white = xyzOf(space.white);
    return adaptationToD50(white) * primaries * diagonal(*inverse(primaries) * white);
}

// Makes full red, green and blue add up to exactly D50 if a file misses it only by rounding: neutral must stay neutral.
void normaliseWhite(Matrix3& matrix)
{
    constexpr double kRounding = 5e-3;
    for (std::size_t i = 0; i < 3; ++i) {
        const double sum = matrix[i][0] + matrix[i][1] + matrix[i][2];
        if (std::abs(sum - kD50[i]) > kRounding)
            return;
    }
    for (std::size_t i = 0; i < 3; ++i) {
        const double sum = matrix[i][0] + matrix[i][1] + matrix[i][2];
        for (double& entry : matrix[i])
            entry *= kD50[i] / sum;
    }
}

std::string primariesText(const Matrix3& matrix)
{
    for (const KnownSpace& space : kKnownSpaces) {
        const Matrix3 known = xyzFromLinear(space);
        double worst = 0.0;
        for (std::size_t i = 0; i < 3; ++i)
            for (std::size_t k = 0; k < 3; ++k)
                worst = std::max(worst, std::abs(matrix[i][k] - known[i][k]));
        if (worst <= kSameEntry)
            return space.name;
    }
    constexpr double kUnits = 1000.0;
    std::string text;
    for (const Vector3& row : matrix)
        for (const double entry : row)
            text.append(text.empty() ? "" : ",").append(std::to_string(std::lround(entry * kUnits)));
    return text;
}

// 64-bit FNV-1a hash (Fowler, Noll, Vo).
std::string bytesText(const std::vector<unsigned char>& bytes)
{
    std::uint64_t value = 14695981039346656037u;
    for (const unsigned char byte : bytes)
        value = (value ^ byte) * 1099511628211u;
    char text[64];
    std::snprintf(text, sizeof text, "%zu:%016llx", bytes.size(), static_cast<unsigned long long>(value));
    return text;
}

std::string hashOf(const Impl& impl)
{
    if (impl.kind == Impl::Kind::kTables)
        return "tables " + bytesText(impl.icc);
    std::string text = impl.channels == 1 ? "gray" : "matrix " + primariesText(impl.xyzFromLinear);
    const std::string curve = impl.curves[0].text();
    text.append(" ").append(curve);
    for (const std::size_t i : {1u, 2u})
        if (impl.curves[i].text() != curve)
            text.append(" ").append(std::to_string(i)).append(impl.curves[i].text());
    return text;
}

// The header begins with the size of the whole file.
bool isWhole(std::span<const unsigned char> icc)
{
    if (icc.size() < kIccHeaderBytes || icc.size() > kLargestIcc)
        return false;
    std::size_t announced = 0;
    for (const unsigned char byte : icc.first(4))
        announced = announced << 8 | byte;
    return announced <= icc.size();
}

std::string descriptionOf(cmsHPROFILE profile)
{
    std::array<char, 256> text{};
    const auto size = static_cast<cmsUInt32Number>(text.size() - 1); // keeps a terminating zero
    if (cmsGetProfileInfoASCII(profile, cmsInfoDescription, "en", "US", text.data(), size) == 0)
        return {};
    return text.data();
}

int channelsOf(cmsHPROFILE profile)
{
    switch (cmsGetColorSpace(profile)) {
    case cmsSigGrayData:
        return 1;
    case cmsSigRgbData:
        return 3;
    case cmsSigCmykData:
        return 4;
    default:
        return 0;
    }
}

bool describesDevice(cmsHPROFILE profile)
{
    const cmsProfileClassSignature kind = cmsGetDeviceClass(profile);
    return kind == cmsSigInputClass || kind == cmsSigDisplayClass || kind == cmsSigOutputClass ||
           kind == cmsSigColorSpaceClass;
}

// Tables are more precise than the primaries beside them, so LittleCMS prefers them, and so does this code.
bool hasTables(cmsHPROFILE profile)
{
    constexpr cmsTagSignature kTables[] = {cmsSigAToB0Tag, cmsSigAToB1Tag, cmsSigDToB0Tag, cmsSigDToB1Tag};
    return std::any_of(std::begin(kTables), std::end(kTables),
                       [profile](cmsTagSignature tag) { return cmsIsTag(profile, tag) != 0; });
}

const cmsToneCurve* curveOf(cmsHPROFILE profile, cmsTagSignature tag)
{
    return static_cast<const cmsToneCurve*>(cmsReadTag(profile, tag));
}

double valueOf(const cmsToneCurve* curve, double x)
{
    return static_cast<double>(cmsEvalToneCurveFloat(curve, static_cast<float>(x)));
}

// The light of L*, 0..1 for 0..100 (CIE 1976).
double lightOfLightness(double lightness)
{
    constexpr double kKnee = 8.0;
    constexpr double kSlope = 24389.0 / 27.0;
    const double l = lightness * 100.0;
    return l > kKnee ? std::pow((l + 16.0) / 116.0, 3.0) : l / kSlope;
}

bool readGray(cmsHPROFILE profile, Impl& impl)
{
    const cmsToneCurve* const curve = curveOf(profile, cmsSigGrayTRCTag);
    if (curve == nullptr)
        return false;
    const bool isLightness = cmsGetPCS(profile) == cmsSigLabData;
    const TransferCurve transfer([curve, isLightness](double x) {
        const double value = valueOf(curve, x);
        return isLightness ? lightOfLightness(value) : value;
    });
    impl.curves.assign(3, transfer);
    impl.xyzFromLinear = xyzFromLinear(kSRGBSpace);
    return true;
}

bool readPrimaries(cmsHPROFILE profile, Impl& impl)
{
    constexpr cmsTagSignature kColorants[] = {cmsSigRedColorantTag, cmsSigGreenColorantTag, cmsSigBlueColorantTag};
    constexpr cmsTagSignature kCurves[] = {cmsSigRedTRCTag, cmsSigGreenTRCTag, cmsSigBlueTRCTag};
    for (std::size_t k = 0; k < 3; ++k) {
        const auto* const xyz = static_cast<const cmsCIEXYZ*>(cmsReadTag(profile, kColorants[k]));
        const cmsToneCurve* const curve = curveOf(profile, kCurves[k]);
        if (xyz == nullptr || curve == nullptr)
            return false;
        impl.xyzFromLinear[0][k] = xyz->X;
        impl.xyzFromLinear[1][k] = xyz->Y;
        impl.xyzFromLinear[2][k] = xyz->Z;
        impl.curves.emplace_back([curve](double x) { return valueOf(curve, x); });
    }
    normaliseWhite(impl.xyzFromLinear);
    return true;
}

bool readMatrix(cmsHPROFILE profile, Impl& impl)
{
    if (impl.channels == 4 || hasTables(profile))
        return false;
    try {
        return impl.channels == 1 ? readGray(profile, impl) : readPrimaries(profile, impl);
    } catch (const std::invalid_argument&) {
        return false; // a curve without an inverse: LittleCMS may still handle it
    }
}

bool lcmsReads(cmsHPROFILE profile, int channels)
{
    const LcmsProfile xyz(cmsCreateXYZProfileTHR(lcmsContext()));
    return LcmsTransform(cmsCreateTransformTHR(lcmsContext(), profile, lcmsFormat(channels), xyz.get(), TYPE_XYZ_FLT,
                                               INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOCACHE)) != nullptr;
}

using ToneCurve = std::unique_ptr<cmsToneCurve, LcmsDeleter>;

ToneCurve srgbToneCurve()
{
    // The parametric curve of type 4: (aX + b)^g from d on, cX below.
    constexpr double kParameters[] = {2.4, 1.0 / 1.055, 0.055 / 1.055, 1.0 / 12.92, 0.04045};
    return ToneCurve(cmsBuildParametricToneCurve(lcmsContext(), 4, kParameters));
}

ToneCurve linearToneCurve() { return ToneCurve(cmsBuildGamma(lcmsContext(), 1.0)); }

// Writes primaries that sum to D50 exactly in the file's rounding: neutral then stays neutral for other programs too,
// which use the numbers as they are.
bool writePrimaries(cmsHPROFILE profile, const KnownSpace& space)
{
    constexpr double kUnits = 65536.0;
    const Matrix3 exact = xyzFromLinear(space);
    Matrix3 rounded{};
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t k = 0; k < 3; ++k)
            rounded[i][k] = std::round(exact[i][k] * kUnits) / kUnits;
        auto& largest = *std::max_element(rounded[i].begin(), rounded[i].end());
        largest += kD50[i] - (rounded[i][0] + rounded[i][1] + rounded[i][2]);
    }
    constexpr cmsTagSignature kColorants[] = {cmsSigRedColorantTag, cmsSigGreenColorantTag, cmsSigBlueColorantTag};
    for (std::size_t k = 0; k < 3; ++k) {
        const cmsCIEXYZ colorant = {rounded[0][k], rounded[1][k], rounded[2][k]};
        if (cmsWriteTag(profile, kColorants[k], &colorant) == 0)
            return false;
    }
    return true;
}

// Deterministic: the same bytes in every run.
std::vector<unsigned char> writeIcc(const KnownSpace& space, const ToneCurve& curve, const char* description)
{
    const auto xyY = [](Chromaticity c) { return cmsCIExyY{c.x, c.y, 1.0}; };
    const cmsCIExyY white = space.white.x == kD50Chromaticity.x ? *cmsD50_xyY() : xyY(space.white);
    const cmsCIExyYTRIPLE primaries = {xyY(space.red), xyY(space.green), xyY(space.blue)};
    cmsToneCurve* curves[] = {curve.get(), curve.get(), curve.get()};
    const LcmsProfile profile(cmsCreateRGBProfileTHR(lcmsContext(), &white, &primaries, curves));
    const std::unique_ptr<cmsMLU, LcmsDeleter> text(cmsMLUalloc(lcmsContext(), 1));
    cmsUInt32Number size = 0;
    if (!profile || !text || cmsMLUsetASCII(text.get(), "en", "US", description) == 0 ||
        cmsWriteTag(profile.get(), cmsSigProfileDescriptionTag, text.get()) == 0 ||
        !writePrimaries(profile.get(), space) || cmsSaveProfileToMem(profile.get(), nullptr, &size) == 0)
        throw std::runtime_error("ColorProfile: LittleCMS cannot create the profile");
    std::vector<unsigned char> bytes(size);
    if (cmsSaveProfileToMem(profile.get(), bytes.data(), &size) == 0)
        throw std::runtime_error("ColorProfile: LittleCMS cannot write the profile");
    // The header's date: six big-endian numbers of 16 bits, here the first of January 2026 at midnight.
    constexpr std::size_t kDateOffset = 24;
    constexpr std::array<unsigned char, 12> kDate = {2026 >> 8, 2026 & 255, 0, 1, 0, 1};
    std::copy(kDate.begin(), kDate.end(), bytes.begin() + kDateOffset);
    return bytes;
}

std::shared_ptr<ColorProfile> makeProfile(const KnownSpace& space, const ToneCurve& curve, const char* description)
{
    // Read back from its own bytes, so that a file that contains them is exactly the same space.
    auto profile = ColorProfile::fromIcc(writeIcc(space, curve, description));
    if (!profile)
        throw std::runtime_error("ColorProfile: LittleCMS cannot read its own profile");
    return profile;
}

} // namespace

cmsContext lcmsContext()
{
    // Never deleted: static profiles may outlive any other static object.
    static const cmsContext context = [] {
        const cmsContext made = cmsCreateContext(nullptr, nullptr);
        cmsSetLogErrorHandlerTHR(made, [](cmsContext, cmsUInt32Number, const char*) {});
        return made;
    }();
    return context;
}

LcmsProfile openLcmsProfile(const std::vector<unsigned char>& icc)
{
    return LcmsProfile(cmsOpenProfileFromMemTHR(lcmsContext(), icc.data(), static_cast<cmsUInt32Number>(icc.size())));
}

ColorProfile::ColorProfile(std::unique_ptr<Impl> implementation_) : implementation(std::move(implementation_)) {}

ColorProfile::~ColorProfile() = default;

std::shared_ptr<ColorProfile> ColorProfile::fromIcc(std::span<const unsigned char> icc)
{
    if (!isWhole(icc))
        return nullptr;
    auto impl = std::make_unique<Impl>();
    impl->icc.assign(icc.begin(), icc.end());
    const LcmsProfile profile = openLcmsProfile(impl->icc);
    if (!profile || !describesDevice(profile.get()))
        return nullptr;
    impl->channels = channelsOf(profile.get());
    if (impl->channels == 0)
        return nullptr;
    impl->description = descriptionOf(profile.get());
    impl->kind = Impl::Kind::kMatrix;
    if (readMatrix(profile.get(), *impl)) {
        if (!inverse(impl->xyzFromLinear))
            return nullptr; // degenerate primaries
    } else {
        impl->kind = Impl::Kind::kTables;
        impl->curves.clear();
        if (!lcmsReads(profile.get(), impl->channels))
            return nullptr;
    }
    impl->hash = hashOf(*impl);
    return std::make_shared<ColorProfile>(std::move(impl));
}

const std::string& ColorProfile::hash() const { return implementation->hash; }

bool ColorProfile::operator==(const ColorProfile& other) const { return hash() == other.hash(); }

const std::vector<unsigned char>& ColorProfile::icc() const { return implementation->icc; }

int ColorProfile::channelCount() const { return implementation->channels; }

bool ColorProfile::isLinear() const
{
    const auto& curves = implementation->curves;
    return !curves.empty() && std::all_of(curves.begin(), curves.end(), [](const TransferCurve& curve) {
        return curve.kind() == TransferCurve::Kind::kLinear;
    });
}

const std::string& ColorProfile::description() const { return implementation->description; }

std::shared_ptr<ColorProfile> ColorProfileType::sRGB()
{
    static const auto profile = makeProfile(kSRGBSpace, srgbToneCurve(), "sRGB");
    return profile;
}

std::shared_ptr<ColorProfile> ColorProfileType::melissaRGB()
{
    static const auto profile = makeProfile(kRommSpace, srgbToneCurve(), "Melissa RGB");
    return profile;
}

std::shared_ptr<ColorProfile> ColorProfileType::linearMelissaRGB()
{
    static const auto profile = makeProfile(kRommSpace, linearToneCurve(), "Linear Melissa RGB");
    return profile;
}

std::shared_ptr<ColorProfile> ColorProfileType::linearSRGB()
{
    static const auto profile = makeProfile(kSRGBSpace, linearToneCurve(), "Linear sRGB");
    return profile;
}

std::shared_ptr<ColorProfile> ColorProfileType::None()
{
    static const auto profile = [] {
        auto impl = std::make_unique<Impl>();
        impl->hash = "none";
        impl->description = "None";
        return std::make_shared<ColorProfile>(std::move(impl));
    }();
    return profile;
}

} // namespace orvo
