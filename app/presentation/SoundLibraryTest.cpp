#include "presentation/SoundLibrary.h"

#include "foundation/File.h"
#include "testing/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <numbers>
#include <unistd.h>

namespace tidewick {
namespace {

/// The samples of a WAV file (-1 to 1), read back independently of the writer after
/// checking that it is mono 16-bit PCM at 44.1 kHz.
std::vector<double> decode(const std::string& bytes) {
    auto number = [&](std::size_t at, int size) {
        std::uint32_t value = 0;
        for (int i = size - 1; i >= 0; --i)
            value =
                value << 8 | static_cast<unsigned char>(bytes.at(at + static_cast<std::size_t>(i)));
        return value;
    };
    EXPECT_EQ(bytes.substr(0, 4) + bytes.substr(8, 4), "RIFFWAVE");
    EXPECT_EQ(number(4, 4), bytes.size() - 8);
    // "fmt ", 16 bytes of format: PCM, mono, 44100 samples a second, 88200 bytes a second,
    // 2 bytes a sample, 16 bits a sample; then "data" and its size.
    EXPECT_EQ(
        bytes.substr(12, 28),
        std::string("fmt \x10\0\0\0\x01\0\x01\0\x44\xac\0\0\x88\x58\x01\0\x02\0\x10\0data", 28));
    EXPECT_EQ(number(40, 4), bytes.size() - 44);
    std::vector<double> samples;
    for (std::size_t at = 44; at + 1 < bytes.size(); at += 2)
        samples.push_back(static_cast<std::int16_t>(number(at, 2)) / 32768.0);
    return samples;
}

/// The strongest frequency between 100 Hz and 2.5 kHz: Goertzel's algorithm under a Hann
/// window, a coarse scan then a fine one.
double mainFrequency(const std::vector<double>& samples) {
    auto power = [&](double frequency) {
        const double c = 2 * std::cos(2 * std::numbers::pi * frequency / 44100);
        const double n = static_cast<double>(samples.size());
        double s1 = 0, s2 = 0;
        for (std::size_t i = 0; i < samples.size(); ++i) {
            const double window =
                0.5 - 0.5 * std::cos(2 * std::numbers::pi * static_cast<double>(i) / n);
            const double s = samples[i] * window + c * s1 - s2;
            s2 = s1;
            s1 = s;
        }
        return s1 * s1 + s2 * s2 - c * s1 * s2;
    };
    auto strongest = [&](double from, double to, double step) {
        double best = from, bestPower = -1;
        for (double f = from; f <= to; f += step)
            if (const double p = power(f); p > bestPower) {
                best = f;
                bestPower = p;
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

/// The notes: stretches whose loudness (RMS over 2.5 ms) is above 2 % of the loudest one.
std::vector<Note> notesIn(const std::vector<double>& samples) {
    const std::size_t window = 110;
    std::vector<double> loudness;
    for (std::size_t at = 0; at + window <= samples.size(); at += window) {
        double sum = 0;
        for (std::size_t i = at; i < at + window; ++i)
            sum += samples[i] * samples[i];
        loudness.push_back(std::sqrt(sum / window));
    }
    const double loudest = *std::max_element(loudness.begin(), loudness.end());
    std::vector<Note> notes;
    std::optional<std::size_t> start;
    for (std::size_t w = 0; w <= loudness.size(); ++w) {
        const bool sounding = w < loudness.size() && loudness[w] > 0.02 * loudest;
        if (sounding && !start)
            start = w;
        if (!sounding && start) {
            const auto from = samples.begin() + static_cast<long>(*start * window);
            notes.push_back(
                {static_cast<double>(*start * window) / 44100,
                 mainFrequency({from, samples.begin() + static_cast<long>(w * window)})});
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
    for (AlertSound sound : allAlertSounds) {
        SCOPED_TRACE(std::string(rawValue(sound)));
        const std::vector<double> samples = decode(File::read(library.path(sound)));
        const double seconds = static_cast<double>(samples.size()) / 44100;
        ASSERT_GT(seconds, 0.2);
        EXPECT_LT(seconds, 0.6);
        double peak = 0, edges = 0;
        for (std::size_t i = 0; i < samples.size(); ++i) {
            peak = std::max(peak, std::fabs(samples[i]));
            if (i < 44 || i + 44 >= samples.size()) // the first and last millisecond
                edges = std::max(edges, std::fabs(samples[i]));
        }
        EXPECT_GT(peak, 0.5);  // clearly audible...
        EXPECT_LT(peak, 0.95); // ...and far from clipping
        // Faded in and out, so that nothing clicks.
        EXPECT_EQ(samples.front(), 0);
        EXPECT_EQ(samples.back(), 0);
        EXPECT_LT(edges, 0.1 * peak);

        const std::vector<Note> heard = notesIn(samples);
        const std::vector<Note>& want = expected.at(sound);
        ASSERT_EQ(heard.size(), want.size());
        for (std::size_t i = 0; i < want.size(); ++i) {
            SCOPED_TRACE("note " + std::to_string(i + 1));
            EXPECT_NEAR(heard[i].onset, want[i].onset, 0.01);
            EXPECT_NEAR(heard[i].frequency, want[i].frequency, want[i].frequency * 0.01);
        }
    }
}

TEST(SoundLibrary, RewritesTheFilesWhenTheSynthesiserChanged) {
    TemporaryDirectory home;
    const SoundLibrary library(File::join(home.path(), "Sounds"));
    ASSERT_TRUE(library.prepare());
    const std::string version = File::join(library.directory(), "version");
    const std::string knock = File::read(library.path(AlertSound::knock));
    EXPECT_FALSE(library.prepare()); // all current: nothing written

    // Files of another synthesiser are replaced, and so is a set with one file missing.
    File::writeAtomically(library.path(AlertSound::knock), "old", 0600);
    File::writeAtomically(version, "0\n", 0600);
    EXPECT_TRUE(library.prepare());
    EXPECT_EQ(File::read(library.path(AlertSound::knock)), knock);
    ASSERT_EQ(::unlink(library.path(AlertSound::pulse).c_str()), 0);
    EXPECT_TRUE(library.prepare());
    EXPECT_TRUE(File::exists(library.path(AlertSound::pulse)));
}

} // namespace
} // namespace tidewick
