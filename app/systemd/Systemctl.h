// `systemctl --user`, behind an interface so that tests can stand in for the
// user's service manager.
#pragma once

#include <string>
#include <vector>

namespace tidewick {

class Systemctl {
public:
    /// How one call ended.
    struct Result {
        /// The exit status; 127 when systemctl could not be run at all.
        int status = 0;
        std::string out;
        std::string err;
    };

    virtual ~Systemctl() = default;

    /// Runs `systemctl --user arguments...` to its end. Never throws.
    [[nodiscard]] virtual Result run(const std::vector<std::string>& arguments) = 0;
};

/// The system's systemctl, found in PATH (else /usr/bin, /bin), run with this process's
/// environment (XDG_RUNTIME_DIR leads it to the user's manager), two minutes at most.
class SystemSystemctl final : public Systemctl {
public:
    [[nodiscard]] Result run(const std::vector<std::string>& arguments) override;
};

} // namespace tidewick
