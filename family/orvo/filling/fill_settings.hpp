/// What a filling by patches weighs and how long it searches.
#pragma once

namespace orvo::details {

/// The defaults are what measured best (docs/filling.md holds the figures).
struct PatchFillSettings
{
    int coarsestRounds = 24;     ///< of search and vote at the coarsest level
    int finestRounds = 4;        ///< and at the finest; between them the number falls level by level
    int passes = 2;              ///< of search in a round
    float textureGain = 7.0f;    ///< how much the mean gradient around counts beside colours, in steps of 8 bits
    int rimWeight = 6;           ///< of known pixels in patches that meet the hole, painted ones count 1
    float agreement = 1.0f;      ///< how much faster than the distance a vote loses its weight; 0: all count the same
    float lastAgreement = 16.0f; ///< the same for the last painting
    float depthFalloff = 1.6f;   ///< by how much a patch counts less for each pixel farther from what is known; 1: none
    bool evenSeams = true;       ///< even out colours where sources meet, and at the rim
    unsigned seed = 1;
};

} // namespace orvo::details
