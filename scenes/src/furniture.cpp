#include "glyphs.hpp"
#include "room_painter.hpp"

namespace orvo::scenes {

namespace {

Light woodSurface(const Spot& p, Light colour, bool upright, std::uint32_t seed)
{
    const float along = upright ? p.v : p.u;
    const float across = upright ? p.u : p.v;
    const float fibre = layeredNoise(across * 4.0f, along * 0.5f, 30.0f, p.px * 3.0f, seed, 0.78f, 5);
    const float grain = layeredNoise(p.u, p.v, 110.0f, p.px, seed + 1u, 0.8f, 4);
    return colour * std::max(0.15f, 1.0f + 0.45f * fibre + 0.3f * grain);
}

constexpr int kBoards = 5;       // compartments of the shelf, one above the other
constexpr float kThick = 0.011f; // of its boards

struct Book
{
    float left;
    float right;
    float tall; // share of the compartment
    int number;
};

// Books side by side, with random widths. Finds the one at `u`: the row is divided into spans of equal width, and each
// span into three books at two random cuts.
Book bookAt(float u, int level, std::uint32_t seed)
{
    constexpr float kSpan = 0.062f;
    const int span = cell((u - kShelf.left) / kSpan);
    const float start = kShelf.left + static_cast<float>(span) * kSpan;
    const float first = 0.22f + 0.20f * chance(span, level, seed + 201u);
    const float second = 0.58f + 0.18f * chance(span, level, seed + 203u);
    const float t = (u - start) / kSpan;
    const int which = t < first ? 0 : (t < second ? 1 : 2);
    const float from = which == 0 ? 0.0f : (which == 1 ? first : second);
    const float to = which == 0 ? first : (which == 1 ? second : 1.0f);
    const int number = span * 3 + which;
    return {start + from * kSpan, start + to * kSpan, 0.62f + 0.30f * chance(number, level, seed + 205u), number};
}

// Lettering across a spine: random words, or one that can be read.
float spineInk(const Book& book, int level, const Spot& p, const Box& spine, std::uint32_t seed)
{
    constexpr std::string_view kTitles[] = {"LIGHT",  "ATLAS", "SHADOW", "OPTICS",
                                            "GARDEN", "PRISM", "RIVERS", "COLOUR"};
    const std::string_view title = kTitles[mixBits(book.number, level, seed + 213u) % 8u];
    // a quarter turn: the line runs down the spine
    const Spot turned{p.v, -p.u, p.px};
    const float high = std::min(0.55f * spine.width(), 0.70f * spine.height() / textAspect(title));
    const float middle = -0.5f * (spine.left + spine.right);
    const float start = spine.top + 0.14f * spine.height();
    return textInk(title, {start, middle - 0.5f * high, start + 1.0f, middle + 0.5f * high}, turned);
}

Light paintBook(const Book& book, int level, const Spot& p, const Box& spine, std::uint32_t seed)
{
    constexpr Light kBindings[] = {{0.42f, 0.035f, 0.030f}, {0.030f, 0.12f, 0.36f}, {0.035f, 0.23f, 0.080f},
                                   {0.62f, 0.36f, 0.040f},  {0.55f, 0.50f, 0.40f},  {0.16f, 0.050f, 0.20f},
                                   {0.030f, 0.24f, 0.26f},  {0.60f, 0.17f, 0.030f}, {0.055f, 0.050f, 0.050f}};
    const Light binding = kBindings[mixBits(book.number, level, seed + 207u) % 9u];
    const float cloth = layeredNoise(p.u, p.v, 130.0f, p.px, seed + 209u, 0.85f, 4);
    const float across = (p.u - spine.left) / spine.width();
    const float round = 0.45f + 0.55f * std::sqrt(std::max(0.0f, 1.0f - square(2.0f * across - 1.0f)));
    Light light = binding * (round * std::max(0.2f, 1.0f + 0.45f * cloth));
    const Light gold = mix({0.70f, 0.52f, 0.18f}, {0.75f, 0.72f, 0.66f}, chance(book.number, level, seed + 211u));
    const float down = (p.v - spine.top) / spine.height();
    for (const float band : {0.07f, 0.10f, 0.90f, 0.945f})
        light = mix(light, gold * round, 0.8f * coverage((std::abs(down - band) - 0.006f) * spine.height(), p.px));
    return mix(light, gold * round, 0.9f * spineInk(book, level, p, spine, seed));
}

void paintCompartment(Light& light, const Spot& p, const Box& room, int level, std::uint32_t seed)
{
    // Daylight comes from the right: the left and the lower compartments are the darkest.
    const float depth = limited((p.u - room.left) / room.width());
    const float under = 1.0f - 0.75f * std::exp(-(p.v - room.top) / 0.022f);
    const float lower = std::pow(0.52f, static_cast<float>(level));
    const Light lit = roomLight(p.u, p.v) * ((0.12f + 0.95f * depth) * under * lower);
    light = woodSurface(p, {0.10f, 0.055f, 0.028f}, true, seed + 221u) * lit * 0.35f;

    const Book book = bookAt(p.u, level, seed);
    const bool gap = chance(book.number, level, seed + 215u) < 0.07f;
    const Box spine{book.left, room.bottom - book.tall * room.height(), book.right, room.bottom};
    if (!gap && book.right <= room.right + 0.004f) {
        const float inside = spine.cover(p);
        if (inside > 0.0f)
            light = mix(light, paintBook(book, level, p, spine, seed) * lit * 1.25f, inside);
    }
}

} // namespace

void paintShelf(Light& light, const Spot& p, std::uint32_t seed)
{
    constexpr float kShadow = 0.03f; // reach of its shadow on the wall
    if (!kShelf.near(p, kShadow))
        return;
    const float inside = kShelf.cover(p);
    if (inside <= 0.0f) {
        const float away = std::max(p.u - kShelf.right, kShelf.top - p.v);
        if (p.u < kShelf.left || p.v > kShelf.bottom)
            return;
        light = light * (1.0f - 0.45f * std::exp(-away / 0.010f));
        return;
    }
    Light wood = woodSurface(p, {0.26f, 0.125f, 0.052f}, p.u < kShelf.left + kThick || p.u > kShelf.right - kThick,
                             seed + 223u) *
                 roomLight(p.u, p.v);
    constexpr float kLevel = (kShelf.bottom - kShelf.top - kThick) / kBoards;
    const int level = std::clamp(cell((p.v - kShelf.top - 0.5f * kThick) / kLevel), 0, kBoards - 1);
    const float top = kShelf.top + static_cast<float>(level) * kLevel;
    const Box room{kShelf.left + kThick, top + kThick, kShelf.right - kThick, top + kLevel};
    const float open = room.cover(p);
    if (open > 0.0f) {
        Light content;
        paintCompartment(content, p, room, level, seed);
        wood = mix(wood, content, open);
    }
    light = mix(light, wood, inside);
}

void paintWindowFrame(Light& light, const Spot& p, std::uint32_t seed)
{
    constexpr Box kSill{0.405f, 0.588f, 1.015f, 0.612f};
    if (!kWindow.near(p) && !kSill.near(p, 0.03f))
        return;
    constexpr float kFrame = 0.016f;
    constexpr float kBar = 0.0055f;
    const float outer = kWindow.cover(p);
    if (outer > 0.0f) {
        float bars = 1.0f - kWindow.shrunk(kFrame).cover(p);
        const float third = kWindow.width() / 3.0f;
        for (int i = 1; i < 3; ++i)
            bars = std::max(bars, coverage(std::abs(p.u - kWindow.left - third * static_cast<float>(i)) - kBar, p.px));
        bars = std::max(bars, coverage(std::abs(p.v - 0.275f) - kBar, p.px));
        if (bars > 0.0f) {
            const Light paint = woodSurface(p, {0.55f, 0.53f, 0.48f}, true, seed + 231u);
            light = mix(light, paint * (roomLight(p.u, p.v) * 0.85f), bars * outer);
        }
    }
    const float sill = kSill.cover(p);
    if (sill > 0.0f) {
        const bool face = p.v > kSill.top + 0.008f;
        const Light fallen = roomLight(p.u, p.v) + (face ? Light{} : Light{2.6f, 2.4f, 2.0f});
        light = mix(light, woodSurface(p, {0.60f, 0.57f, 0.50f}, false, seed + 233u) * fallen, sill);
    } else if (p.v > kSill.bottom && p.u > kSill.left && p.u < kSill.right) {
        light = light * (1.0f - 0.6f * std::exp(-(p.v - kSill.bottom) / 0.012f));
    }
}

void paintCurtains(Light& light, const Spot& p, std::uint32_t seed)
{
    constexpr Box kRail{0.325f, 0.052f, 1.085f, 0.062f};
    for (const bool right : {false, true}) {
        const float mirror = right ? 1.415f - p.u : p.u; // symmetric folds on both sides of the window
        constexpr Box kCloth{0.335f, 0.060f, 0.452f, 0.735f};
        const float sway = 0.010f * std::sin(p.v * 7.0f) + 0.020f * square(limited((p.v - 0.1f) / 0.6f));
        const Spot q{mirror + sway, p.v, p.px};
        if (!kCloth.near(q))
            continue;
        const float inside = kCloth.cover(q);
        if (inside <= 0.0f)
            continue;
        const float t = (q.u - kCloth.left) / kCloth.width();
        const float folds = 0.5f + 0.5f * std::sin(38.0f * t + 2.0f * std::sin(3.0f * p.v + (right ? 1.0f : 0.0f)));
        // Light shines through where the cloth hangs in front of the pane.
        const float shine = smooth(0.80f, 1.0f, t) * smooth(0.60f, 0.55f, p.v) * smooth(0.08f, 0.12f, p.v);
        const float weave = layeredNoise(p.u, p.v, 120.0f, p.px, seed + 241u, 0.85f, 4);
        const float motif = valueNoise(q.u * 60.0f, p.v * 60.0f, seed + 243u);
        const Light dye = mix({0.030f, 0.20f, 0.21f}, {0.42f, 0.33f, 0.10f}, 0.75f * smooth(0.45f, 0.62f, motif));
        const Light fallen =
            roomLight(p.u, p.v) * (0.25f + 0.9f * folds) + Light{1.5f, 1.5f, 1.4f} * (shine * (0.4f + folds));
        light = mix(light, dye * std::max(0.2f, 1.0f + 0.35f * weave) * fallen, inside);
    }
    if (kRail.near(p)) {
        const float round = 1.0f - square((p.v - 0.057f) / 0.005f);
        light = mix(light, Light{0.42f, 0.28f, 0.10f} * (0.15f + 0.6f * std::max(0.0f, round)), kRail.cover(p));
    }
}

void paintTable(Light& light, const Spot& p, std::uint32_t seed)
{
    constexpr Box kTop{0.475f, 0.690f, 0.955f, 0.712f};
    constexpr Box kApron{0.495f, 0.712f, 0.935f, 0.742f};
    constexpr Box kLegs[] = {{0.505f, 0.712f, 0.523f, 0.905f}, {0.907f, 0.712f, 0.925f, 0.905f}};
    if (p.v < kTop.top - p.px || p.v > 0.95f || p.u < 0.44f || p.u > 0.99f)
        return;
    const Light fallen = roomLight(p.u, p.v);
    for (const Box& leg : kLegs) {
        const float foot = std::abs(p.u - 0.5f * (leg.left + leg.right));
        if (p.v > 0.88f && foot < 0.06f) // soft shadow around the foot
            light = light * (1.0f - 0.5f * std::exp(-square(foot / 0.022f) - square((p.v - 0.905f) / 0.010f)));
        if (leg.near(p)) {
            const float turned = 0.35f + 0.65f * std::sqrt(std::max(0.0f, 1.0f - square(foot / 0.0095f)));
            light =
                mix(light, woodSurface(p, {0.22f, 0.085f, 0.034f}, true, seed + 251u) * fallen * turned, leg.cover(p));
        }
    }
    if (kApron.near(p))
        light =
            mix(light, woodSurface(p, {0.20f, 0.078f, 0.032f}, false, seed + 253u) * fallen * 0.55f, kApron.cover(p));
    if (kTop.near(p)) {
        const bool edge = p.v > kTop.top + 0.013f;
        const Light wood = woodSurface(p, {0.34f, 0.145f, 0.056f}, false, seed + 255u);
        light = mix(light, wood * (edge ? fallen * 0.6f : fallen + Light{0.5f, 0.5f, 0.45f}), kTop.cover(p));
    }
}

} // namespace orvo::scenes
