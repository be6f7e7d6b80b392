// The folder of alert sound files ("Sounds" in the application folder): one WAV
// file per sound, written by the synthesiser and rewritten whenever the
// synthesiser's version differs from the one recorded beside them.
#pragma once

#include "presentation/AlertSound.h"

#include <string>

namespace tidewick {

/// The sound files of one folder. Not thread-safe: one writer at a time.
class SoundLibrary {
public:
    /// The sounds in `directory` (TidewickPaths::soundsDirectory()).
    explicit SoundLibrary(std::string directory) : directory_(std::move(directory)) {}

    /// The file of `sound`: "knock.wav" and so on in the directory. Not for AlertSound::none.
    [[nodiscard]] std::string path(AlertSound sound) const;

    /// Makes sure every sound's file is there as this synthesiser makes it. When the file
    /// "version" does not hold SoundSynthesiser::version, or a sound file is missing, all
    /// files are written afresh (atomically, mode 0600, the folder 0700) and the version
    /// last, so that an interrupted write is redone next time. Returns whether it wrote.
    /// Throws SystemError when a file cannot be written.
    bool prepare() const;

    /// The folder of the sound files.
    [[nodiscard]] const std::string& directory() const { return directory_; }

private:
    [[nodiscard]] std::string versionFile() const;
    [[nodiscard]] bool isCurrent() const;

    std::string directory_;
};

} // namespace tidewick
