// The alert sounds Tidewick makes itself: one for each kind of alert, each
// with its own pitch and rhythm, named by how they sound so that settings can
// give any kind any of them.
#pragma once

#include "foundation/EnumTable.h"

#include <array>

namespace tidewick {

/// One synthesised sound, or none. Raw values equal the case names.
enum class AlertSound {
    /// No sound at all.
    none,
    /// Two quick taps at one pitch: a permission request.
    knock,
    /// Two notes rising, the second held: an agent waits for a reply.
    question,
    /// Three notes falling: a turn is over.
    chime,
    /// Two low notes falling, rough: something went wrong.
    buzz,
    /// Three even, quick pulses: a usage limit was reached.
    pulse,
};

template <> struct RawValues<AlertSound> {
    static constexpr EnumTable<AlertSound, 6> table{{{
        {AlertSound::none, "none"},
        {AlertSound::knock, "knock"},
        {AlertSound::question, "question"},
        {AlertSound::chime, "chime"},
        {AlertSound::buzz, "buzz"},
        {AlertSound::pulse, "pulse"},
    }}};
};

/// Every sound that is one (all but none), in declaration order.
inline constexpr std::array<AlertSound, 5> allAlertSounds = {
    AlertSound::knock, AlertSound::question, AlertSound::chime, AlertSound::buzz,
    AlertSound::pulse};

} // namespace tidewick
