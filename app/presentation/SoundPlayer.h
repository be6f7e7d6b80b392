// Plays the alert sounds through the desktop's own player program (the first
// of pw-play, paplay and aplay on the search path), started in the background
// so that nothing waits for it; rings the terminal bell where none is found
// or the sounds cannot be written.
#pragma once

#include "foundation/Subprocess.h"
#include "presentation/AlertSound.h"
#include "presentation/SoundLibrary.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewick {

/// Not thread-safe: one thread (the interface's loop) plays and reaps.
class SoundPlayer {
public:
    using Bell = std::function<void()>;
    using Reporter = std::function<void(const std::string& sentence)>;

    /// The player programs looked for, in order of preference.
    static constexpr std::string_view programs[] = {"pw-play", "paplay", "aplay"};
    /// Sounds still playing beyond this many are skipped rather than piled up.
    static constexpr std::size_t mostAtOnce = 3;

    /// Plays the sounds of `library`, with the first player found on `searchPath` (a PATH
    /// value); `bell` rings the terminal bell instead. `reporter` hears, once, why the bell
    /// rings although a player was found (the sounds could not be written).
    SoundPlayer(SoundLibrary library, std::string_view searchPath, Bell bell,
                Reporter reporter = {});

    /// The first of `programs` that is an executable file in a folder of `searchPath`,
    /// preferring earlier programs over earlier folders; nothing when there is none.
    [[nodiscard]] static std::optional<std::string> findPlayer(std::string_view searchPath);

    /// The player program in use; nothing when the bell rings instead.
    [[nodiscard]] const std::optional<std::string>& program() const { return program_; }

    /// Starts playing `sound` and returns at once; nothing for AlertSound::none. Writes the
    /// sound files on first use, with or without a player. Rings the bell instead when there is no
    /// player, the files cannot be written or the player cannot be started. Never throws.
    void play(AlertSound sound);

    /// Collects players that have ended, so none is left behind as a zombie. Cheap when
    /// nothing plays; call it now and then (every play does too).
    void reap();

    /// How many players are still running (after reaping).
    [[nodiscard]] std::size_t playing();

private:
    [[nodiscard]] bool soundsReady();

    SoundLibrary library_;
    std::optional<std::string> program_;
    Bell bell_;
    Reporter reporter_;
    /// Whether the sound files are known to be written (true) or to fail (false).
    std::optional<bool> ready_;
    std::vector<Subprocess> running_;
};

} // namespace tidewick
