// Series of the developers' pictures in one folder.
#include <orvo_extensions/picture_groups.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace orvo::test {
namespace {

using Kind = PictureGroupKind;
using Paths = std::vector<std::filesystem::path>;

Paths filesIn(const std::filesystem::path& folder)
{
    Paths files;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        if (entry.is_regular_file())
            files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

void expectSorted(const std::vector<std::pair<std::string, Kind>>& series)
{
    const char* const data = std::getenv("ORVO_TEST_DATA");
    if (data == nullptr)
        GTEST_SKIP() << "ORVO_TEST_DATA is not set";
    Paths all;
    std::vector<std::pair<Kind, Paths>> expected;
    for (const auto& [name, kind] : series) {
        const Paths files = filesIn(std::filesystem::path(data) / name);
        all.insert(all.end(), files.begin(), files.end());
        expected.emplace_back(kind, files);
    }
    std::vector<std::pair<Kind, Paths>> found;
    for (PictureGroup group : groupPictures(all).groups) {
        std::sort(group.paths.begin(), group.paths.end()); // cameras count otherwise
        found.emplace_back(group.kind, group.paths);
    }
    EXPECT_EQ(found, expected);
}

TEST(RealCards, WithExif)
{
    expectSorted({{"brackets/window_player", Kind::Bracket},
                  {"focus/pcb_usb", Kind::FocusSeries},
                  {"panorama/deck_360", Kind::Panorama},
                  {"brackets/arch_night", Kind::Bracket},
                  {"panorama/tower_library", Kind::Panorama},
                  {"focus/pcb_switch", Kind::FocusSeries},
                  {"brackets/building_iso", Kind::Bracket},
                  {"panorama/ledge_vertical", Kind::Panorama},
                  {"brackets/yard_night_orientation8", Kind::Bracket}});
}

TEST(RealCards, WithoutExif)
{
    expectSorted({{"brackets/canal_boat", Kind::Bracket},
                  {"panorama/weir", Kind::Panorama},
                  {"brackets/knight_handheld", Kind::Bracket},
                  {"panorama/map_grid", Kind::Panorama},
                  {"focus/bottle_street", Kind::FocusSeries},
                  {"brackets/sunset_rocks", Kind::Bracket},
                  {"panorama/roof_exposure", Kind::Panorama},
                  {"brackets/temple_handheld", Kind::Bracket},
                  {"brackets/church_film", Kind::Bracket}});
}

} // namespace
} // namespace orvo::test
