/// Memory cards with rendered pictures.
#pragma once

#include "support/temporary_folder.hpp"

#include <orvo_io/image_writer.hpp>
#include <scenes/bracket.hpp>
#include <scenes/exif.hpp>
#include <scenes/focus_series.hpp>
#include <scenes/sphere_scene.hpp>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace orvo::test {

using Paths = std::vector<std::filesystem::path>;

/// Writes pictures as one camera does: IMG_0001.jpg and so on, with rising times. Each function returns its pictures.
class Card
{
public:
    struct Settings
    {
        std::string prefix = "IMG_";
        std::string model = "Scene Camera";
        bool exif = true;
        _Size<int> size{480, 320};
    };

    explicit Card(std::filesystem::path folder_) : Card(std::move(folder_), Settings()) {}
    Card(std::filesystem::path folder_, Settings settings_) : folder(std::move(folder_)), settings(std::move(settings_))
    {}

    /// Seconds that pass before the next picture.
    void wait(int seconds) { second += seconds; }

    /// One view in different exposures; `shake`: pixels by which an unsteady hand moves it.
    Paths bracket(const std::vector<double>& evs, std::uint64_t scene = 1, double shake = 0.0)
    {
        scenes::BracketRecipe recipe;
        recipe.scene.size = settings.size;
        recipe.scene.seed = scene;
        recipe.scene.margin = 0.1;
        recipe.evs = evs;
        recipe.camera.noise = scenes::SensorNoise();
        if (shake > 0.0)
            recipe.views = scenes::handShake(
                evs.size(), 0, {.rotationDegrees = 0.5, .shiftX = shake, .shiftY = shake, .zoom = 1.0}, scene);
        const scenes::Bracket frames(recipe);
        Paths paths;
        for (std::size_t i = 0; i < evs.size(); ++i) {
            scenes::ExifValues exif = values();
            exif.exposure = frames.shots()[i].exposure;
            exif.exposureBias = evs[i];
            paths.push_back(shoot(*frames.frame(i).picture, exif));
        }
        return paths;
    }

    /// `distances`: the metadata have them.
    Paths focusSeries(int frames, bool distances, double breathing = 0.0)
    {
        scenes::FocusSeriesSettings series;
        series.size = settings.size;
        series.frames = frames;
        series.breathing = breathing;
        series.shake = {.shiftX = 1.0, .shiftY = 1.0};
        const scenes::FocusSeries all(series);
        Paths paths;
        for (int i = 0; i < frames; ++i) {
            scenes::ExifValues exif = values();
            if (distances)
                exif.subjectDistance = all.focusDistance(i);
            paths.push_back(shoot(*all.frame(i), exif));
        }
        return paths;
    }

    /// Views side by side; each of `evs`: the exposures at a view.
    Paths panorama(int views, double stepDegrees, const std::vector<double>& evs = {0.0}, std::uint64_t scene = 1)
    {
        scenes::SphereView view;
        view.size = settings.size;
        view.focal = settings.size.width;
        view.noise = 0.004;
        Paths paths;
        const scenes::SphereScene world(scene);
        for (scenes::SphereView each : scenes::rowOfViews(views, stepDegrees, 3.0, view, 0.5, 7))
            for (const double ev : evs)
                paths.push_back(shootView(world, each, ev));
        return paths;
    }

    /// A picture of another place than all other scenes.
    std::filesystem::path single(std::uint64_t scene) { return panorama(1, 0.0, {0.0}, 1000 + scene).front(); }

    std::filesystem::path shootView(const scenes::SphereScene& world, scenes::SphereView view, double ev)
    {
        view.ev = ev;
        scenes::ExifValues exif = values();
        exif.exposure = scenes::exposedBy(exif.exposure, ev);
        exif.exposureBias = ev;
        return shoot(*world.see(view, static_cast<std::uint64_t>(number) + 1), exif);
    }

    std::filesystem::path shoot(const scenes::Picture& picture, scenes::ExifValues exif)
    {
        char name[32];
        std::snprintf(name, sizeof name, "%04d.jpg", ++number);
        const auto path = folder / (settings.prefix + name);
        exif.dateTimeOriginal = timeText();
        ++second;
        ImageWriteSettings write = writeSettingsForPath(path);
        write.profile = picture.colorProfile() ? picture.colorProfile() : ColorProfileType::sRGB();
        if (settings.exif)
            write.metadata = scenes::metadataWith(exif, picture.size());
        writeImage(path, picture, write);
        return path;
    }

    [[nodiscard]] scenes::ExifValues values() const
    {
        scenes::ExifValues exif;
        exif.model = settings.model;
        return exif;
    }

private:
    [[nodiscard]] std::string timeText() const
    {
        char text[32];
        std::snprintf(text, sizeof text, "2026:06:21 %02d:%02d:%02d", 10 + second / 3600, second / 60 % 60,
                      second % 60);
        return text;
    }

    std::filesystem::path folder;
    Settings settings;
    int number = 0;
    int second = 0;
};

} // namespace orvo::test
