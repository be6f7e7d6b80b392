// Plays the alert sounds through the desktop's own player program (the first
// of pw-play, paplay and aplay on the search path), started in the background
// so that nothing waits for it; says when none can be played, so that the
// terminal bell rings instead.
#pragma once

#include "presentation/AlertSound.h"
#include "presentation/SoundLibrary.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace tidewick {

/// Thread-safe: alerts may come from any thread.
class SoundPlayer {
public:
    using Reporter = std::function<void(const std::string& sentence)>;

    /// The player programs looked for, in order of preference.
    static constexpr std::string_view programs[] = {"pw-play", "paplay", "aplay"};
    /// Sounds still playing beyond this many are skipped rather than piled up.
    static constexpr int mostAtOnce = 3;

    /// What play() did.
    enum class Outcome {
        /// Nothing was asked for (AlertSound::none).
        silent,
        /// The sound plays, or was skipped in a burst while others play.
        playing,
        /// No sound can play (no player, unwritable files, a player that did not start):
        /// the terminal bell should ring instead.
        bell,
    };

    /// Plays the sounds of `library`, with the first player found on `searchPath` (a PATH
    /// value). `reporter` hears, once, why no sound plays although a player was found (the
    /// sounds could not be written), on the thread that plays.
    SoundPlayer(SoundLibrary library, std::string_view searchPath, Reporter reporter = {});
    /// Leaves sounds that still play to end by themselves (a fraction of a second).
    ~SoundPlayer() = default;
    SoundPlayer(const SoundPlayer&) = delete;
    SoundPlayer& operator=(const SoundPlayer&) = delete;

    /// The first of `programs` that is an executable file in a folder of `searchPath`,
    /// preferring earlier programs over earlier folders; nothing when there is none.
    [[nodiscard]] static std::optional<std::string> findPlayer(std::string_view searchPath);

    /// The player program in use; nothing when there is none.
    [[nodiscard]] const std::optional<std::string>& program() const { return program_; }

    /// Starts playing `sound` and returns at once. Writes the sound files on first use,
    /// with or without a player. A thread of its own waits for each player, so none is left
    /// behind as a zombie. Never throws.
    [[nodiscard]] Outcome play(AlertSound sound);

    /// How many players are still running.
    [[nodiscard]] int playing() const;

private:
    /// What the waiting threads share with the player, which may be gone before them.
    struct Running {
        mutable std::mutex lock;
        int count = 0;
    };

    [[nodiscard]] bool soundsReady();

    SoundLibrary library_;
    const std::optional<std::string> program_;
    Reporter reporter_;
    std::mutex lock_;
    /// Whether the sound files are known to be written (true) or to fail (false).
    std::optional<bool> ready_;
    std::shared_ptr<Running> running_ = std::make_shared<Running>();
};

} // namespace tidewick
