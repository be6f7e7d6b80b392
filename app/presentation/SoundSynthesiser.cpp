#include "presentation/SoundSynthesiser.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tidewick::SoundSynthesiser {

namespace {

/// How a note sounds beyond its pitch.
enum class Timbre {
    /// A clear tone with a little octave above it, like a small bell.
    bell,
    /// Odd overtones, which make a low note sound rough and urgent.
    rough,
};

/// One tone: from `start` for `seconds` at `frequency` (all in seconds and hertz).
struct Note {
    double start;
    double seconds;
    double frequency;
    Timbre timbre = Timbre::bell;
};

// The sounds differ in pitch and in rhythm, so that each can be told apart without
// looking: two taps, a rising question, a falling chime, a low rough fall, three pulses.
std::vector<Note> notesOf(AlertSound sound) {
    switch (sound) {
    case AlertSound::none:
        return {};
    case AlertSound::knock: // A5, A5
        return {{0.00, 0.09, 880.0}, {0.15, 0.09, 880.0}};
    case AlertSound::question: // E5, then B5 held
        return {{0.00, 0.12, 659.26}, {0.16, 0.26, 987.77}};
    case AlertSound::chime: // C6, G5, C5
        return {{0.00, 0.12, 1046.50}, {0.13, 0.12, 783.99}, {0.26, 0.26, 523.25}};
    case AlertSound::buzz: // E flat 4, B flat 3
        return {{0.00, 0.16, 311.13, Timbre::rough}, {0.20, 0.22, 233.08, Timbre::rough}};
    case AlertSound::pulse: // A4 three times
        return {{0.00, 0.07, 440.0}, {0.12, 0.07, 440.0}, {0.24, 0.07, 440.0}};
    }
    return {};
}

/// Attack and release of every note: long enough to avoid clicks, short enough to keep
/// a tap a tap.
constexpr double attackSeconds = 0.006;
constexpr double releaseSeconds = 0.015;
/// Silence after the last note, so that players that stop early cut nothing audible.
constexpr double tailSeconds = 0.02;
/// The time in which a note fades to about a third (a struck, not bowed, sound).
constexpr double decaySeconds = 0.18;

/// A raised-cosine ramp from 0 to 1 over `length`: smooth at both ends.
double ramp(double t, double length) {
    if (t >= length)
        return 1.0;
    return 0.5 - 0.5 * std::cos(std::numbers::pi * t / length);
}

double envelope(double t, double seconds) {
    return ramp(t, attackSeconds) * ramp(seconds - t, releaseSeconds) * std::exp(-t / decaySeconds);
}

double waveform(double phase, Timbre timbre) {
    switch (timbre) {
    case Timbre::bell:
        return std::sin(phase) + 0.25 * std::sin(2 * phase);
    case Timbre::rough:
        return std::sin(phase) + 0.35 * std::sin(3 * phase) + 0.2 * std::sin(5 * phase);
    }
    return std::sin(phase);
}

} // namespace

std::vector<std::int16_t> samples(AlertSound sound) {
    const std::vector<Note> notes = notesOf(sound);
    if (notes.empty())
        return {};
    double end = 0;
    for (const Note& note : notes)
        end = std::max(end, note.start + note.seconds);
    std::vector<double> mix(static_cast<std::size_t>(std::ceil((end + tailSeconds) * sampleRate)));
    for (const Note& note : notes) {
        const auto first = static_cast<std::size_t>(std::lround(note.start * sampleRate));
        const auto count = static_cast<std::size_t>(std::lround(note.seconds * sampleRate));
        for (std::size_t i = 0; i <= count && first + i < mix.size(); ++i) {
            const double t = static_cast<double>(i) / sampleRate;
            mix[first + i] += envelope(t, note.seconds) *
                              waveform(2 * std::numbers::pi * note.frequency * t, note.timbre);
        }
    }
    double peak = 0;
    for (double value : mix)
        peak = std::max(peak, std::fabs(value));
    const double scale = peak > 0 ? peakLevel * 32767.0 / peak : 0.0;
    std::vector<std::int16_t> result;
    result.reserve(mix.size());
    for (double value : mix)
        result.push_back(static_cast<std::int16_t>(std::lround(value * scale)));
    return result;
}

} // namespace tidewick::SoundSynthesiser
