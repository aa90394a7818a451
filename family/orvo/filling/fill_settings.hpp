/// Settings of a filling by patches.
#pragma once

namespace orvo::details {

/// How a first guess is improved.
struct Refinement
{
    int coarsestRounds = 0; ///< of search and vote at the coarsest level
    int finestRounds = 0;   ///< the same at the finest; the number falls level by level
    /// Pixels around a source that a search tries, except at the rim; 0: the whole level.
    int reach = 0;
    /// Except at the rim: share by which a source found at random must be better than the present one. The least of
    /// many random distances wins against the neighbours' sources too often, and what they do not share is averaged and
    /// loses texture.
    float coherence = 0.0f;
};

/// The defaults measured best (figures in docs/filling.md).
struct PatchFillSettings
{
    /// From the peeled start (peel.hpp) on, which leaves everything to the rounds.
    Refinement peeled = {24, 4, 0, 0.0f};
    /// Holes are put together anew from shifted pieces (shifted_pieces.hpp) as soon as a level is fine enough. Those
    /// are sound as they are: more rounds dissolve them.
    bool pieces = true;
    /// What the source of a piece costs next to its seams. With more, pieces become whatever is common; with less,
    /// other things are copied.
    float pieceShare = 0.6f;
    /// The same for holes at the border of the picture: at the open side no seam keeps copies of people out.
    float borderPieceShare = 8.0f;
    Refinement shifted = {3, 3, 8, 0.6f};
    /// Holes in a plane in strong perspective are filled as if it were seen from above (plane_view.hpp).
    bool planes = true;
    int passes = 2;              ///< of search per round
    float textureGain = 10.0f;   ///< weight of the mean gradient relative to colours, in 8-bit steps
    int rimWeight = 6;           ///< of known pixels in patches that meet the hole; painted ones weigh 1
    float agreement = 1.0f;      ///< how much faster than the distance a vote loses weight; 0: equal votes
    float lastAgreement = 64.0f; ///< the same for the last painting
    float depthFalloff = 1.6f;   ///< weight loss of a patch per pixel of distance to known ones; 1: none
    bool evenSeams = true;       ///< even out colours at the rim and where sources meet
    float lineWeight = 6.0f; ///< 8-bit steps per sample that a source beside the lines costs; 0: lines do not matter
    /// Share of the rarity of a source (see Rarity) that it costs far from the target; 0: copies of anything are free.
    float rareWeight = 0.5f;
    int rareLevels = 2; ///< coarsest levels where rarity counts: they decide what goes where
    /// 8-bit steps per sample that a source at another height costs in a hole at the border of the picture; 0: none.
    float heightWeight = 10.0f;
    float heightReach = 0.2f; ///< share of the height of the known part from which on it costs that
    /// 8-bit steps per sample that a source costs which many targets copy already; 0: none. Without it flat areas
    /// become streaks of one repeated row.
    float usageWeight = 8.0f;
    float usageLimit = 4.0f; ///< copies of a source that cost nothing, relative to an even use of all of them
    unsigned seed = 1;
};

} // namespace orvo::details
