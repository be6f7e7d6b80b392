// The WAV format of the alert sounds: uncompressed 16-bit PCM, mono.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tidewick::WavFile {

/// The bytes of a RIFF/WAVE file holding `samples` as one channel of 16-bit PCM at
/// `sampleRate` samples per second: a 44-byte header, then the samples, little-endian.
[[nodiscard]] std::string encode(const std::vector<std::int16_t>& samples, int sampleRate);

} // namespace tidewick::WavFile
