/// Settings of a filling by patches.
#pragma once

namespace orvo::details {

/// The defaults measured best (figures in docs/filling.md).
struct PatchFillSettings
{
    int coarsestRounds = 24;     ///< of search and vote at the coarsest level
    int finestRounds = 4;        ///< the same at the finest; the number falls level by level
    int passes = 2;              ///< of search per round
    float textureGain = 7.0f;    ///< weight of the mean gradient relative to colours, in 8-bit steps
    int rimWeight = 6;           ///< of known pixels in patches that meet the hole; painted ones weigh 1
    float agreement = 1.0f;      ///< how much faster than the distance a vote loses weight; 0: equal votes
    float lastAgreement = 16.0f; ///< the same for the last painting
    float depthFalloff = 1.6f;   ///< weight loss of a patch per pixel of distance to known ones; 1: none
    bool evenSeams = true;       ///< even out colours at the rim and where sources meet
    float lineWeight = 6.0f; ///< 8-bit steps per sample that a source beside the lines costs; 0: lines do not matter
    /// Share of the rarity of a source (see Rarity) that it costs far from the target; 0: copies of anything are free.
    float rareWeight = 0.5f;
    int rareLevels = 2; ///< coarsest levels where rarity counts: they decide what goes where
    unsigned seed = 1;
};

} // namespace orvo::details
