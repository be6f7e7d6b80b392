// The record of a session could not be found or read.
#pragma once

#include <stdexcept>

namespace tidewick {

/// Carries the sentence for the user (see TranscriptText).
class TranscriptUnavailable : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace tidewick
