// Tidewick's alert sounds, made from notes rather than shipped as files: each
// sound is a few short tones with a soft attack and release, so that no sound
// starts or ends with a click.
#pragma once

#include "presentation/AlertSound.h"

#include <cstdint>
#include <vector>

namespace tidewick::SoundSynthesiser {

/// Raised whenever any sound changes, so that files written by an older synthesiser are
/// replaced (SoundLibrary compares it with the one recorded beside the files).
inline constexpr int version = 1;

/// Samples per second of every sound.
inline constexpr int sampleRate = 44100;

/// The highest sample of any sound, about -3 dB below full scale: loud enough to be heard,
/// with room so that nothing clips.
inline constexpr double peakLevel = 0.7;

/// The mono 16-bit samples of `sound` at sampleRate: shorter than 0.6 s, beginning and
/// ending in silence, its highest sample at peakLevel. Empty for AlertSound::none.
[[nodiscard]] std::vector<std::int16_t> samples(AlertSound sound);

} // namespace tidewick::SoundSynthesiser
