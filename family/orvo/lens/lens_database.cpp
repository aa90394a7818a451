#include "lens/lens_database.hpp"

#include <lensfun/lensfun.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <mutex>
#include <string>

#if defined(__SANITIZE_ADDRESS__)
#define ORVO_LEAK_CHECKED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ORVO_LEAK_CHECKED
#endif
#endif
#ifdef ORVO_LEAK_CHECKED
#include <sanitizer/lsan_interface.h>
#endif

namespace orvo::details {
namespace {

constexpr float kFarAway = 1000.0f;     // m, for an unknown distance: as good as infinite for any lens
constexpr float kFocalTolerance = 0.1f; // share by which the focal length may be outside the lens's range
constexpr float kStoppedDown = 8.0f;    // f-number if none is known: only mechanical vignetting is left there
constexpr float kMostGain = 8.0f;       // three stops; beyond it the model is outside its measured range

struct FreeList
{
    void operator()(const void* list) const { lf_free(const_cast<void*>(list)); }
};

// The database of the process, read at first use. Queries take the lock too: lensfun compiles its patterns for lens
// names at first use, without locking.
class Database
{
public:
    static Database& instance()
    {
        static Database database;
        return database;
    }

    [[nodiscard]] bool loaded() const { return found; }

    // Camera and lens stay valid for the lifetime of the process.
    [[nodiscard]] const lfCamera* camera(const ImageMetadata& metadata)
    {
        if (metadata.cameraModel.empty())
            return nullptr;
        const char* const maker = metadata.cameraMake.empty() ? nullptr : metadata.cameraMake.c_str();
        const std::lock_guard lock(lookUp);
        const std::unique_ptr<const lfCamera*, FreeList> cameras(
            database.FindCamerasExt(maker, metadata.cameraModel.c_str(), 0));
        return cameras ? *cameras : nullptr;
    }

    [[nodiscard]] const lfLens* lens(const lfCamera& camera, const ImageMetadata& metadata)
    {
        // By lensfun's convention the mount of a camera with a fixed lens begins with a lower-case letter. Such a
        // camera rarely names its lens, and there is only one; any other lens must be named.
        const bool fixed = camera.Mount != nullptr && std::islower(static_cast<unsigned char>(camera.Mount[0])) != 0;
        if (!fixed && metadata.lensModel.empty())
            return nullptr;
        const std::lock_guard lock(lookUp);
        const std::unique_ptr<const lfLens*, FreeList> lenses(
            database.FindLenses(&camera, nullptr, fixed ? nullptr : metadata.lensModel.c_str(), 0));
        if (!lenses)
            return nullptr;
        for (const lfLens* const* candidate = lenses.get(); *candidate != nullptr; ++candidate)
            if (covers(**candidate, metadata.focalLength))
                return *candidate;
        return nullptr;
    }

private:
    Database()
    {
#ifdef ORVO_LEAK_CHECKED
        // lensfun 0.3.3 leaks the names of the folders it searches, once per process.
        const __lsan::ScopedDisabler disabler;
#endif
        found = database.Load() == LF_NO_ERROR;
    }

    static bool covers(const lfLens& lens, float focalLength)
    {
        if (lens.MinFocal <= 0.0f)
            return true;
        const float longest = std::max(lens.MinFocal, lens.MaxFocal);
        return focalLength >= lens.MinFocal * (1.0f - kFocalTolerance) &&
               focalLength <= longest * (1.0f + kFocalTolerance);
    }

    lfDatabase database;
    std::mutex lookUp;
    bool found = false;
};

float known(float value, float otherwise) { return std::isfinite(value) && value > 0.0f ? value : otherwise; }

class LensfunModel final : public LensModel
{
public:
    LensfunModel(const lfLens& lens, float crop, const ImageMetadata& metadata, _Size<int> size)
        : modifier(&lens, crop, size.width, size.height), width(size.width)
    {
        applied = modifier.Initialize(&lens, LF_PF_F32, metadata.focalLength, known(metadata.aperture, kStoppedDown),
                                      known(metadata.subjectDistance, kFarAway), 0.0f, lens.Type,
                                      LF_MODIFY_DISTORTION | LF_MODIFY_VIGNETTING | LF_MODIFY_SCALE, false);
    }

    [[nodiscard]] bool bends() const override { return (applied & LF_MODIFY_DISTORTION) != 0; }
    [[nodiscard]] bool darkens() const override { return (applied & LF_MODIFY_VIGNETTING) != 0; }

    void sourcePlaces(int y, float* places) const override
    {
        modifier.ApplyGeometryDistortion(0.0f, static_cast<float>(y), width, 1, places);
    }

    [[nodiscard]] float gainAt(float x, float y) const override
    {
        alignas(16) float light[4] = {1.0f, 1.0f, 1.0f, 1.0f};
        modifier.ApplyColorModification(light, x, y, 1, 1, LF_CR_1(INTENSITY), sizeof light);
        return std::isfinite(light[0]) ? std::clamp(light[0], 1.0f / kMostGain, kMostGain) : 1.0f;
    }

private:
    lfModifier modifier;
    int width;
    int applied = 0;
};

} // namespace

std::unique_ptr<LensModel> findLensModel(const ImageMetadata& metadata, _Size<int> size)
{
    Database& database = Database::instance();
    if (!database.loaded() || !(known(metadata.focalLength, 0.0f) > 0.0f))
        return nullptr;
    const lfCamera* const camera = database.camera(metadata);
    if (camera == nullptr)
        return nullptr;
    const lfLens* const lens = database.lens(*camera, metadata);
    const float crop = camera->CropFactor > 0.0f ? camera->CropFactor : metadata.cropFactor;
    if (lens == nullptr || !(crop > 0.0f))
        return nullptr;
    auto model = std::make_unique<LensfunModel>(*lens, crop, metadata, size);
    if (!model->bends() && !model->darkens())
        return nullptr;
    return model;
}

} // namespace orvo::details
