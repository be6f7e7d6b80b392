#include "presentation/WavFile.h"

namespace tidewick::WavFile {

namespace {

// WAV is little-endian whatever the machine is.
void appendLittleEndian(std::string& out, std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
}

} // namespace

std::string encode(const std::vector<std::int16_t>& samples, int sampleRate) {
    constexpr std::uint32_t channels = 1;
    constexpr std::uint32_t bitsPerSample = 16;
    constexpr std::uint32_t blockAlign = channels * bitsPerSample / 8;
    const auto dataBytes = static_cast<std::uint32_t>(samples.size() * blockAlign);
    std::string out;
    out.reserve(44 + dataBytes);
    out += "RIFF";
    appendLittleEndian(out, 36 + dataBytes, 4);
    out += "WAVE";
    out += "fmt ";
    appendLittleEndian(out, 16, 4); // the size of the format chunk
    appendLittleEndian(out, 1, 2);  // PCM
    appendLittleEndian(out, channels, 2);
    appendLittleEndian(out, static_cast<std::uint32_t>(sampleRate), 4);
    appendLittleEndian(out, static_cast<std::uint32_t>(sampleRate) * blockAlign, 4);
    appendLittleEndian(out, blockAlign, 2);
    appendLittleEndian(out, bitsPerSample, 2);
    out += "data";
    appendLittleEndian(out, dataBytes, 4);
    for (std::int16_t sample : samples)
        appendLittleEndian(out, static_cast<std::uint16_t>(sample), 2);
    return out;
}

} // namespace tidewick::WavFile
