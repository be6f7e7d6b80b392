#include "presentation/SoundPlayer.h"

#include "foundation/File.h"
#include "foundation/Subprocess.h"
#include "foundation/SystemError.h"

#include <system_error>
#include <thread>

namespace tidewick {

SoundPlayer::SoundPlayer(SoundLibrary library, std::string_view searchPath, Reporter reporter)
    : library_(std::move(library)), program_(findPlayer(searchPath)),
      reporter_(std::move(reporter)) {}

std::optional<std::string> SoundPlayer::findPlayer(std::string_view searchPath) {
    for (std::string_view program : programs) {
        std::size_t start = 0;
        while (start <= searchPath.size()) {
            std::size_t colon = searchPath.find(':', start);
            if (colon == std::string_view::npos)
                colon = searchPath.size();
            const std::string folder(searchPath.substr(start, colon - start));
            start = colon + 1;
            // An empty entry would mean the current folder: never a place to run sounds from.
            if (folder.empty() || folder.front() != '/')
                continue;
            std::string candidate = File::join(folder, program);
            if (File::isExecutableFile(candidate))
                return candidate;
        }
    }
    return std::nullopt;
}

bool SoundPlayer::soundsReady() {
    std::optional<std::string> problem;
    {
        std::lock_guard guard(lock_);
        if (ready_)
            return *ready_;
        try {
            (void)library_.prepare();
            ready_ = true;
        } catch (const SystemError& error) {
            ready_ = false;
            problem = "Tidewick couldn't write its alert sounds in " + library_.directory() + " (" +
                      error.what() + "), so it rings the terminal bell instead.";
        }
    }
    if (problem && reporter_)
        reporter_(*problem);
    return !problem;
}

SoundPlayer::Outcome SoundPlayer::play(AlertSound sound) {
    if (sound == AlertSound::none)
        return Outcome::silent;
    // Written whether or not a player is found, for anyone who wants to hear them.
    const bool ready = soundsReady();
    if (!program_ || !ready)
        return Outcome::bell;
    {
        std::lock_guard guard(running_->lock);
        if (running_->count >= mostAtOnce)
            return Outcome::playing; // a burst: the sounds already playing say it
        ++running_->count;
    }
    std::vector<std::string> arguments = {*program_};
    if (File::lastComponent(*program_) == "aplay")
        arguments.push_back("-q"); // aplay describes every file it plays otherwise
    arguments.push_back(library_.path(sound));
    try {
        Subprocess player =
            Subprocess::start(Subprocess::Command{std::move(arguments)}, "/dev/null", "/dev/null");
        // The player ends within a second; this thread collects it then.
        std::thread([player = std::move(player), running = running_]() mutable {
            try {
                (void)player.wait();
            } catch (const SystemError&) {
                // Collected by someone else: nothing is left to wait for.
            }
            std::lock_guard guard(running->lock);
            --running->count;
        }).detach();
        return Outcome::playing;
    } catch (const std::exception&) {
        // The player did not start (SystemError), or no thread could wait for it
        // (std::system_error): it may play unwaited for, but never blocks.
        std::lock_guard guard(running_->lock);
        --running_->count;
        return Outcome::bell;
    }
}

int SoundPlayer::playing() const {
    std::lock_guard guard(running_->lock);
    return running_->count;
}

} // namespace tidewick
