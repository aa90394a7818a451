#include "color_profile_impl.hpp"

#include <orvo_core/chromaticities.hpp>

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

struct KnownSpace
{
    const char* name;
    Chromaticities chromaticities;
};

// Spaces found in files of many vendors, each with its own rounding.
constexpr KnownSpace kKnownSpaces[] = {{"sRGB", kSRGBChromaticities},
                                       {"ROMM", kRommChromaticities},
                                       {"P3-D65", kP3Chromaticities},
                                       {"AdobeRGB", kAdobeChromaticities},
                                       {"BT2020", k2020Chromaticities}};

// Tolerance between the entries of two files of one space: vendors round the white, its adaptation and the result
// differently.
constexpr double kSameEntry = 5e-4;

// White of the profile connection space, D50 (0.9642, 1, 0.8249), in the 1/65536 of ICC files.
Vector3 d50() { return {63190.0 / 65536, 1.0, 54061.0 / 65536}; }

Vector3 xyzOf(double x, double y) { return {x / y, 1.0, (1.0 - x - y) / y}; }

// Adapts white to another one with the Bradford transform (Lam 1985), as the ICC does.
Matrix3 adaptation(const Vector3& white, const Vector3& target)
{
    const Matrix3 bradford{{0.8951, 0.2664, -0.1614}, {-0.7502, 1.7135, 0.0367}, {0.0389, -0.0685, 1.0296}};
    const Vector3 from = bradford * white;
    const Vector3 to = bradford * target;
    return *inverse(bradford) * Vector3(to.cwiseQuotient(from)).asDiagonal() * bradford;
}

// Empty if the primaries span no space, or white or a primary has no light.
std::optional<Matrix3> xyzFromLinear(const Chromaticities& c, const Vector3& target = d50())
{
    constexpr double kLeastY = 1e-6;
    for (const double y : {c.redY, c.greenY, c.blueY, c.whiteY})
        if (!(std::abs(y) > kLeastY))
            return std::nullopt;
    Matrix3 primaries;
    primaries << xyzOf(c.redX, c.redY), xyzOf(c.greenX, c.greenY), xyzOf(c.blueX, c.blueY);
    const auto fromXyz = inverse(primaries);
    if (!fromXyz)
        return std::nullopt;
    const Vector3 white = xyzOf(c.whiteX, c.whiteY);
    const Vector3 weights = *fromXyz * white;
    const Matrix3 matrix = adaptation(white, target) * primaries * weights.asDiagonal();
    return matrix.allFinite() ? std::optional(matrix) : std::nullopt;
}

// Makes full red, green and blue sum to exactly D50 if a file misses it only by rounding: neutral must stay neutral.
void normaliseWhite(Matrix3& matrix)
{
    constexpr double kRounding = 5e-3;
    const Vector3 white = d50();
    const Vector3 sum = matrix.rowwise().sum();
    if ((sum - white).cwiseAbs().maxCoeff() > kRounding)
        return;
    for (int row = 0; row < 3; ++row)
        matrix.row(row) *= white[row] / sum[row];
}

std::string primariesText(const Matrix3& matrix)
{
    for (const KnownSpace& space : kKnownSpaces) {
        const Matrix3 known = *xyzFromLinear(space.chromaticities);
        if ((matrix - known).cwiseAbs().maxCoeff() <= kSameEntry)
            return space.name;
    }
    constexpr double kUnits = 1000.0;
    std::string text;
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 3; ++column)
            text.append(text.empty() ? "" : ",").append(std::to_string(std::lround(matrix(row, column) * kUnits)));
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

// Tables are more precise than the primaries stored with them, so LittleCMS prefers them, and so does this code.
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
    impl.xyzFromLinear = *xyzFromLinear(kSRGBChromaticities);
    return true;
}

bool readPrimaries(cmsHPROFILE profile, Impl& impl)
{
    constexpr cmsTagSignature kColorants[] = {cmsSigRedColorantTag, cmsSigGreenColorantTag, cmsSigBlueColorantTag};
    constexpr cmsTagSignature kCurves[] = {cmsSigRedTRCTag, cmsSigGreenTRCTag, cmsSigBlueTRCTag};
    const cmsToneCurve* last = nullptr;
    for (int k = 0; k < 3; ++k) {
        const auto* const xyz = static_cast<const cmsCIEXYZ*>(cmsReadTag(profile, kColorants[k]));
        const cmsToneCurve* const curve = curveOf(profile, kCurves[k]);
        if (xyz == nullptr || curve == nullptr)
            return false;
        impl.xyzFromLinear.col(k) = Vector3(xyz->X, xyz->Y, xyz->Z);
        if (curve == last) // the channels of most profiles share one
            impl.curves.push_back(impl.curves.back());
        else
            impl.curves.emplace_back([curve](double x) { return valueOf(curve, x); });
        last = curve;
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

// Rounds the primaries so that they sum to D50 exactly in the file's rounding: neutral then stays neutral for other
// programs too, which use the numbers unchanged.
Matrix3 roundedToD50(const Matrix3& exact)
{
    constexpr double kUnits = 65536.0;
    const Vector3 white = d50();
    Matrix3 rounded;
    for (int i = 0; i < 3; ++i) {
        for (int k = 0; k < 3; ++k)
            rounded(i, k) = std::round(exact(i, k) * kUnits) / kUnits;
        int largest = 0;
        rounded.row(i).maxCoeff(&largest);
        rounded(i, largest) += white[i] - (rounded(i, 0) + rounded(i, 1) + rounded(i, 2));
    }
    return rounded;
}

bool writePrimaries(cmsHPROFILE profile, const Matrix3& xyzFromLinear)
{
    constexpr cmsTagSignature kColorants[] = {cmsSigRedColorantTag, cmsSigGreenColorantTag, cmsSigBlueColorantTag};
    for (int k = 0; k < 3; ++k) {
        const cmsCIEXYZ colorant = {xyzFromLinear(0, k), xyzFromLinear(1, k), xyzFromLinear(2, k)};
        if (cmsWriteTag(profile, kColorants[k], &colorant) == 0)
            return false;
    }
    return true;
}

// Deterministic: the same bytes in every run. Empty if LittleCMS rejects the primaries.
std::vector<unsigned char> writeIcc(const Chromaticities& c, const Matrix3& xyzFromLinear, const ToneCurve& curve,
                                    const char* description)
{
    const auto xyY = [](double x, double y) { return cmsCIExyY{x, y, 1.0}; };
    const cmsCIExyY white = c.whiteX == kRommChromaticities.whiteX ? *cmsD50_xyY() : xyY(c.whiteX, c.whiteY);
    const cmsCIExyYTRIPLE primaries = {xyY(c.redX, c.redY), xyY(c.greenX, c.greenY), xyY(c.blueX, c.blueY)};
    cmsToneCurve* curves[] = {curve.get(), curve.get(), curve.get()};
    const LcmsProfile profile(cmsCreateRGBProfileTHR(lcmsContext(), &white, &primaries, curves));
    if (!profile)
        return {};
    const std::unique_ptr<cmsMLU, LcmsDeleter> text(cmsMLUalloc(lcmsContext(), 1));
    cmsUInt32Number size = 0;
    if (!text || cmsMLUsetASCII(text.get(), "en", "US", description) == 0 ||
        cmsWriteTag(profile.get(), cmsSigProfileDescriptionTag, text.get()) == 0 ||
        !writePrimaries(profile.get(), xyzFromLinear) || cmsSaveProfileToMem(profile.get(), nullptr, &size) == 0)
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

std::shared_ptr<ColorProfile> makeProfile(const Chromaticities& chromaticities, const ToneCurve& curve,
                                          const char* description)
{
    // Read back from its own bytes, so that a file that contains them is exactly the same space.
    const Matrix3 matrix = roundedToD50(*xyzFromLinear(chromaticities));
    auto profile = ColorProfile::fromIcc(writeIcc(chromaticities, matrix, curve, description));
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

std::shared_ptr<ColorProfile> profileFromChromaticities(const Chromaticities& chromaticities, double gamma)
{
    constexpr double kLargest = 16.0; // far beyond any real primary; larger values do not fit the numbers of ICC files
    // White to the decimals that the ICC prints; entries are rounded to the units of the file after that.
    const auto matrix = xyzFromLinear(chromaticities, {0.9642, 1.0, 0.8249});
    if (!matrix || !(gamma >= 0.0) || gamma > kLargest || !(matrix->cwiseAbs().maxCoeff() < kLargest))
        return nullptr;
    const ToneCurve curve = gamma > 0.0 ? ToneCurve(cmsBuildGamma(lcmsContext(), gamma)) : srgbToneCurve();
    return ColorProfile::fromIcc(writeIcc(chromaticities, *matrix, curve, "RGB by chromaticities"));
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
    static const auto profile = makeProfile(kSRGBChromaticities, srgbToneCurve(), "sRGB");
    return profile;
}

std::shared_ptr<ColorProfile> ColorProfileType::melissaRGB()
{
    static const auto profile = makeProfile(kRommChromaticities, srgbToneCurve(), "Melissa RGB");
    return profile;
}

std::shared_ptr<ColorProfile> ColorProfileType::linearMelissaRGB()
{
    static const auto profile = makeProfile(kRommChromaticities, linearToneCurve(), "Linear Melissa RGB");
    return profile;
}

std::shared_ptr<ColorProfile> ColorProfileType::linearSRGB()
{
    static const auto profile = makeProfile(kSRGBChromaticities, linearToneCurve(), "Linear sRGB");
    return profile;
}

std::shared_ptr<ColorProfile> adobeRGB()
{
    static const auto profile = profileFromChromaticities(kAdobeChromaticities, kAdobeGamma);
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
