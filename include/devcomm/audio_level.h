#pragma once

#include <devcomm/export.h>

/// What silence and an empty buffer give: below every level that a sound can have.
constexpr double PcmSilenceDb = -200.0;

/// Level of 16-bit PCM samples in decibels: 20 x log10 of the mean absolute sample. Full scale is about 90.3,
/// a mean of one step is 0, and a buffer with less than that is negative.
///
/// @param samples  in the machine's byte order; null counts as empty
/// @param count    samples, of all channels together
/// @return level; PcmSilenceDb when every sample is 0, or count is below 1
///
/// Any thread.
DEVCOMM_API double pcm_level_db(const short* samples, int count);
