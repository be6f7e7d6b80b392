// The sessions file: decoding any bytes never misbehaves, and for what decodes, saving,
// loading and saving again writes the same text.
#include "FuzzCheck.h"
#include "sessions/SessionPersistence.h"

using namespace tidewick;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::optional<std::vector<Session>> loaded =
        SessionPersistence::decode(fuzz::text(data, size));
    if (!loaded)
        return 0;
    const std::string saved = SessionPersistence::encode(*loaded);
    const std::optional<std::vector<Session>> reloaded = SessionPersistence::decode(saved);
    fuzz::check(reloaded.has_value(), "a saved file loads");
    fuzz::check(reloaded->size() == loaded->size(), "every session is saved");
    fuzz::check(SessionPersistence::encode(*reloaded) == saved,
                "save, load and save writes the same file");
    return 0;
}
