#include "presentation/SoundLibrary.h"

#include "foundation/File.h"
#include "foundation/SystemError.h"
#include "presentation/SoundSynthesiser.h"
#include "testing/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <numbers>
#include <optional>
#include <unistd.h>

namespace tidewick {
namespace {

/// A WAV file read back independently of the writer: the format fields and the samples.
struct DecodedWav {
    std::uint16_t format = 0, channels = 0, bitsPerSample = 0, blockAlign = 0;
    std::uint32_t sampleRate = 0, byteRate = 0;
    std::vector<double> samples; // -1 .. 1
};

std::uint32_t littleEndian(const std::string& bytes, std::size_t at, int size) {
    std::uint32_t value = 0;
    for (int i = size - 1; i >= 0; --i)
        value = value << 8 | static_cast<unsigned char>(bytes.at(at + static_cast<std::size_t>(i)));
    return value;
}

DecodedWav decode(const std::string& bytes) {
    DecodedWav wav;
    EXPECT_EQ(bytes.substr(0, 4), "RIFF");
    EXPECT_EQ(littleEndian(bytes, 4, 4), bytes.size() - 8);
    EXPECT_EQ(bytes.substr(8, 4), "WAVE");
    // Walk the chunks as any reader would, rather than trusting fixed offsets.
    for (std::size_t at = 12; at + 8 <= bytes.size();) {
        const std::string id = bytes.substr(at, 4);
        const std::uint32_t size = littleEndian(bytes, at + 4, 4);
        const std::size_t body = at + 8;
        if (id == "fmt ") {
            wav.format = static_cast<std::uint16_t>(littleEndian(bytes, body, 2));
            wav.channels = static_cast<std::uint16_t>(littleEndian(bytes, body + 2, 2));
            wav.sampleRate = littleEndian(bytes, body + 4, 4);
            wav.byteRate = littleEndian(bytes, body + 8, 4);
            wav.blockAlign = static_cast<std::uint16_t>(littleEndian(bytes, body + 12, 2));
            wav.bitsPerSample = static_cast<std::uint16_t>(littleEndian(bytes, body + 14, 2));
        } else if (id == "data") {
            EXPECT_EQ(body + size, bytes.size());
            for (std::size_t i = body; i + 1 < body + size; i += 2)
                wav.samples.push_back(static_cast<std::int16_t>(littleEndian(bytes, i, 2)) /
                                      32768.0);
        }
        at = body + size;
    }
    return wav;
}

/// The power of `frequency` in `samples` under a Hann window (Goertzel's algorithm).
double power(const std::vector<double>& samples, double frequency, double rate) {
    const double coefficient = 2 * std::cos(2 * std::numbers::pi * frequency / rate);
    double s1 = 0, s2 = 0;
    const double n = static_cast<double>(samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double window =
            0.5 - 0.5 * std::cos(2 * std::numbers::pi * static_cast<double>(i) / n);
        const double s = samples[i] * window + coefficient * s1 - s2;
        s2 = s1;
        s1 = s;
    }
    return s1 * s1 + s2 * s2 - coefficient * s1 * s2;
}

/// The strongest frequency between 100 Hz and 2.5 kHz: a coarse scan, then a fine one.
double mainFrequency(const std::vector<double>& samples, double rate) {
    auto strongest = [&](double from, double to, double step) {
        double best = from, bestPower = -1;
        for (double f = from; f <= to; f += step)
            if (double p = power(samples, f, rate); p > bestPower) {
                bestPower = p;
                best = f;
            }
        return best;
    };
    const double coarse = strongest(100, 2500, 4);
    return strongest(coarse - 4, coarse + 4, 0.25);
}

struct Note {
    double onset;
    double frequency;
};

/// The notes of `samples`: stretches whose loudness (RMS over 2.5 ms) rises above 2 % of
/// the loudest stretch, with the time each starts and its main frequency.
std::vector<Note> notesIn(const std::vector<double>& samples, double rate) {
    const std::size_t window = static_cast<std::size_t>(rate * 0.0025);
    std::vector<double> loudness;
    for (std::size_t at = 0; at + window <= samples.size(); at += window) {
        double sum = 0;
        for (std::size_t i = at; i < at + window; ++i)
            sum += samples[i] * samples[i];
        loudness.push_back(std::sqrt(sum / static_cast<double>(window)));
    }
    const double loudest = *std::max_element(loudness.begin(), loudness.end());
    std::vector<Note> notes;
    std::optional<std::size_t> start;
    for (std::size_t w = 0; w <= loudness.size(); ++w) {
        const bool sounding = w < loudness.size() && loudness[w] > 0.02 * loudest;
        if (sounding && !start)
            start = w;
        if (!sounding && start) {
            const std::vector<double> note(samples.begin() + static_cast<long>(*start * window),
                                           samples.begin() + static_cast<long>(w * window));
            notes.push_back(
                {static_cast<double>(*start * window) / rate, mainFrequency(note, rate)});
            start.reset();
        }
    }
    return notes;
}

TEST(SoundLibrary, WritesOneDistinctCleanToneFilePerSound) {
    TemporaryDirectory home;
    const SoundLibrary library(File::join(home.path(), "Sounds"));
    EXPECT_TRUE(library.prepare());

    // Pitch and rhythm of each sound: when each note starts, and its pitch.
    const std::map<AlertSound, std::vector<Note>> expected = {
        {AlertSound::knock, {{0.00, 880.0}, {0.15, 880.0}}},
        {AlertSound::question, {{0.00, 659.26}, {0.16, 987.77}}},
        {AlertSound::chime, {{0.00, 1046.5}, {0.13, 783.99}, {0.26, 523.25}}},
        {AlertSound::buzz, {{0.00, 311.13}, {0.20, 233.08}}},
        {AlertSound::pulse, {{0.00, 440.0}, {0.12, 440.0}, {0.24, 440.0}}},
    };
    std::map<AlertSound, std::vector<Note>> heard;
    for (AlertSound sound : allAlertSounds) {
        SCOPED_TRACE(std::string(rawValue(sound)));
        const DecodedWav wav = decode(File::read(library.path(sound)));
        EXPECT_EQ(wav.format, 1); // PCM
        EXPECT_EQ(wav.channels, 1);
        EXPECT_EQ(wav.sampleRate, 44100u);
        EXPECT_EQ(wav.bitsPerSample, 16);
        EXPECT_EQ(wav.blockAlign, 2);
        EXPECT_EQ(wav.byteRate, 88200u);
        ASSERT_FALSE(wav.samples.empty());

        const double seconds = static_cast<double>(wav.samples.size()) / wav.sampleRate;
        EXPECT_GT(seconds, 0.2);
        EXPECT_LT(seconds, 0.6);
        double peak = 0;
        for (double sample : wav.samples)
            peak = std::max(peak, std::fabs(sample));
        EXPECT_GT(peak, 0.5);  // clearly audible...
        EXPECT_LT(peak, 0.95); // ...and far from clipping

        // Fade-in and fade-out, so that nothing clicks: silence at both ends, and the first
        // and last millisecond still quiet.
        EXPECT_EQ(wav.samples.front(), 0);
        EXPECT_EQ(wav.samples.back(), 0);
        double edges = 0;
        for (std::size_t i = 0; i < 44; ++i)
            edges = std::max({edges, std::fabs(wav.samples[i]),
                              std::fabs(wav.samples[wav.samples.size() - 1 - i])});
        EXPECT_LT(edges, 0.1 * peak);

        heard[sound] = notesIn(wav.samples, wav.sampleRate);
        const std::vector<Note>& want = expected.at(sound);
        ASSERT_EQ(heard[sound].size(), want.size());
        for (std::size_t i = 0; i < want.size(); ++i) {
            SCOPED_TRACE("note " + std::to_string(i + 1));
            EXPECT_NEAR(heard[sound][i].onset, want[i].onset, 0.01);
            EXPECT_NEAR(heard[sound][i].frequency, want[i].frequency, want[i].frequency * 0.01);
        }
    }

    // No two sounds share both their number of notes and their first pitch.
    for (AlertSound a : allAlertSounds)
        for (AlertSound b : allAlertSounds)
            if (a < b && heard[a].size() == heard[b].size() && !heard[a].empty()) {
                EXPECT_GT(std::fabs(heard[a][0].frequency - heard[b][0].frequency), 50)
                    << rawValue(a) << " and " << rawValue(b);
            }
}

TEST(SoundLibrary, RewritesTheFilesWhenTheSynthesiserChanged) {
    TemporaryDirectory home;
    const SoundLibrary library(File::join(home.path(), "Sounds"));
    ASSERT_TRUE(library.prepare());
    EXPECT_EQ(File::read(File::join(library.directory(), "version")),
              std::to_string(SoundSynthesiser::version) + "\n");
    const std::string knock = File::read(library.path(AlertSound::knock));
    EXPECT_FALSE(library.prepare()); // all current: nothing written

    // Files of another synthesiser are replaced, and so is a set with one file missing.
    File::writeAtomically(library.path(AlertSound::knock), "old", 0600);
    File::writeAtomically(File::join(library.directory(), "version"), "0\n", 0600);
    EXPECT_TRUE(library.prepare());
    EXPECT_EQ(File::read(library.path(AlertSound::knock)), knock);
    ASSERT_EQ(::unlink(library.path(AlertSound::pulse).c_str()), 0);
    EXPECT_TRUE(library.prepare());
    EXPECT_TRUE(File::exists(library.path(AlertSound::pulse)));

    // A folder that cannot be made is reported as the system call that failed.
    const SoundLibrary blocked(File::join(library.path(AlertSound::knock), "Sounds"));
    EXPECT_THROW((void)blocked.prepare(), SystemError);
}

} // namespace
} // namespace tidewick
