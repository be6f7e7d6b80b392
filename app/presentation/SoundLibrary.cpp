#include "presentation/SoundLibrary.h"

#include "foundation/File.h"
#include "foundation/SystemError.h"
#include "foundation/Text.h"
#include "presentation/SoundSynthesiser.h"
#include "presentation/WavFile.h"

namespace tidewick {

std::string SoundLibrary::path(AlertSound sound) const {
    return File::join(directory_, std::string(rawValue(sound)) + ".wav");
}

std::string SoundLibrary::versionFile() const {
    return File::join(directory_, "version");
}

bool SoundLibrary::isCurrent() const {
    try {
        if (Text::trimmed(File::read(versionFile())) != std::to_string(SoundSynthesiser::version))
            return false;
    } catch (const SystemError&) {
        return false; // no version yet, or unreadable: write everything
    }
    for (AlertSound sound : allAlertSounds)
        if (!File::exists(path(sound)))
            return false;
    return true;
}

bool SoundLibrary::prepare() const {
    if (isCurrent())
        return false;
    File::makeDirectories(directory_, 0700);
    for (AlertSound sound : allAlertSounds)
        File::writeAtomically(
            path(sound),
            WavFile::encode(SoundSynthesiser::samples(sound), SoundSynthesiser::sampleRate), 0600);
    File::writeAtomically(versionFile(), std::to_string(SoundSynthesiser::version) + "\n", 0600);
    return true;
}

} // namespace tidewick
