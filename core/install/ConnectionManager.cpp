#include "install/ConnectionManager.h"

#include "foundation/File.h"
#include "foundation/JSONCoding.h"
#include "foundation/SystemError.h"
#include "install/CodexTrust.h"
#include "install/ConnectionError.h"
#include "install/HookCatalog.h"
#include "install/LineDiff.h"
#include "install/TOMLProbe.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace tidewick {

namespace {

bool isBlank(const std::string& text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; });
}

// "2026-03-01T09-30-00Z": ISO 8601 with the colons a file name cannot carry everywhere.
std::string backupStamp(Date date) {
    return formatDate(date, "%Y-%m-%dT%H-%M-%SZ", TimeZone::utc);
}

// The backups in `directory`: dot entries and the temporaries of writes still under way
// are not backups.
std::vector<std::string> backupNames(const std::string& directory) {
    std::vector<std::string> names = File::listFolder(directory);
    std::erase_if(names, [](const std::string& name) {
        return name.empty() || name[0] == '.' || name.find(".tmp-") != std::string::npos;
    });
    return names;
}

std::set<std::string> minus(const std::set<std::string>& a, const std::set<std::string>& b) {
    std::set<std::string> out;
    std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::inserter(out, out.end()));
    return out;
}

} // namespace

ConnectionManager::ConnectionManager(TidewickPaths paths, std::string home,
                                     std::shared_ptr<const AgentDetector> detector,
                                     std::optional<std::string> bundledHelper, Clock clock)
    : paths_(std::move(paths)), home_(std::move(home)), detector_(std::move(detector)),
      bundledHelper_(std::move(bundledHelper)), clock_(std::move(clock)) {
    loadRecords();
}

std::string ConnectionManager::configPath(AgentKind agent) const {
    return HookConfigEditor::forAgent(agent)->configPath(home_);
}

std::string ConnectionManager::hookCommand(AgentKind agent, const std::string& event) const {
    return HookCatalog::command(paths_.helperPath(), agent, event);
}

ConnectionManager::Reading ConnectionManager::readDocument(const std::string& path) const {
    Reading reading;
    const std::string real = File::resolveLinks(path);
    try {
        reading.text = File::read(real);
    } catch (const SystemError& error) {
        // A file where a folder should be means there is no configuration
        // file yet; writing one will then fail and say why.
        if (error.code() == ENOENT || error.code() == ENOTDIR)
            return reading;
        throw ConnectionError::unreadable(path, "it can't be opened");
    }
    reading.existed = true;
    if (isBlank(reading.text))
        return reading;
    try {
        reading.document = JSONValue::parse(reading.text);
    } catch (const JSONValue::ParseError& error) {
        if (error.message() == "File is not UTF-8")
            throw ConnectionError::unreadable(path, "File is not UTF-8");
        throw ConnectionError::unreadable(path, "it isn't valid JSON \u2014 " + error.message());
    }
    return reading;
}

ConfigChange ConnectionManager::makeChange(AgentKind agent, const std::string& path,
                                           const Reading& reading, const JSONValue& after,
                                           const HookConfigEditor& editor) const {
    ConfigChange change;
    change.agent = agent;
    change.path = path;
    change.fileExisted = reading.existed;
    change.before = reading.text;
    change.after = after.pretty(0) + "\n";
    change.diff = LineDiff::diff(change.before, change.after);
    std::set<std::string> old =
        reading.document ? editor.installedEvents(*reading.document) : std::set<std::string>{};
    std::set<std::string> now = editor.installedEvents(after);
    change.addedEvents = minus(now, old);
    change.removedEvents = minus(old, now);
    if (agent == AgentKind::codex && reading.document)
        change.movedApprovedHooks = CodexTrust::movedApprovedHooks(
            *reading.document, after, codexHooksKeyPath(), codexApprovals());
    return change;
}

std::string ConnectionManager::codexConfigText() const {
    try {
        return File::read(File::join(home_, ".codex/config.toml"));
    } catch (const SystemError&) {
        return {};
    }
}

std::map<std::string, std::string> ConnectionManager::codexApprovals() const {
    return CodexTrust::approvals(codexConfigText());
}

std::string ConnectionManager::codexHooksKeyPath() const {
    // Codex follows the links of its folder, not of the file itself.
    return File::join(File::resolveLinks(File::join(home_, ".codex")), "hooks.json");
}

bool ConnectionManager::codexApprovedOurHooks(const JSONValue& document) const {
    const auto approved = codexApprovals();
    const std::string keyPath = codexHooksKeyPath();
    const std::vector<CodexTrust::Hook> all = CodexTrust::hooks(document);
    return std::all_of(all.begin(), all.end(), [&](const CodexTrust::Hook& hook) {
        return !hook.ours || CodexTrust::isApproved(hook, keyPath, approved);
    });
}

std::optional<std::string> ConnectionManager::codexHooksDisabledReason() const {
    const std::string text = codexConfigText();
    for (const char* key : {"hooks", "codex_hooks"}) {
        if (TOMLProbe::boolValue("features", key, text) == false)
            return std::string("Hooks are turned off in ~/.codex/config.toml ([features] ") + key +
                   " = false). Set it to true.";
    }
    return std::nullopt;
}

ConnectionStatus ConnectionManager::status(AgentKind agent, GateCommands) const {
    auto editor = HookConfigEditor::forAgent(agent);
    ConnectionStatus status;
    status.kind = agent;
    status.configPath = editor->configPath(home_);
    status.evidence = detector_->detect(agent);

    Reading reading;
    try {
        reading = readDocument(status.configPath);
    } catch (const ConnectionError& error) {
        status.state = ConnectionState::unreadable(error.reason());
        return status;
    }
    std::set<std::string> installed =
        reading.document ? editor->installedEvents(*reading.document) : std::set<std::string>{};
    if (installed.empty()) {
        status.state =
            status.evidence ? ConnectionState::disconnected() : ConnectionState::notInstalled();
        return status;
    }
    if (agent == AgentKind::codex) {
        if (auto reason = codexHooksDisabledReason()) {
            status.state = ConnectionState::hooksDisabled(*reason);
            return status;
        }
    }
    if (auto reason = editor->disabledReason(*reading.document)) {
        status.state = ConnectionState::hooksDisabled(*reason);
        return status;
    }

    std::optional<Record> known = record(agent);
    GateCommands gate = known ? known->gateCommands : GateCommands::off;
    std::vector<std::string> missing;
    for (const HookSpec& spec : HookCatalog::specs(agent, gate))
        if (!installed.contains(spec.event))
            missing.push_back(spec.event);
    if (!File::isExecutableFile(paths_.helperPath()))
        missing.push_back("helper");
    if (!missing.empty()) {
        status.state = ConnectionState::needsReconnect(missing);
        return status;
    }
    // Codex skips, without a word, every hook the user has not approved as it stands now.
    if (agent == AgentKind::codex && !codexApprovedOurHooks(*reading.document)) {
        status.state = ConnectionState::awaitingApproval();
        status.notes.push_back(codexApprovalNote);
        return status;
    }
    status.state = ConnectionState::connected();
    return status;
}

std::vector<ConnectionStatus>
ConnectionManager::allStatuses(const std::map<AgentKind, GateCommands>& gate) const {
    std::vector<ConnectionStatus> statuses;
    for (AgentKind agent : allAgentKinds) {
        auto chosen = gate.find(agent);
        statuses.push_back(
            status(agent, chosen == gate.end() ? GateCommands::off : chosen->second));
    }
    return statuses;
}

ConfigChange ConnectionManager::previewConnect(AgentKind agent, GateCommands gate) const {
    auto editor = HookConfigEditor::forAgent(agent);
    const std::string path = editor->configPath(home_);
    if (!detector_->detect(agent) && !File::exists(path))
        throw ConnectionError::notInstalled(agent);
    Reading reading = readDocument(path);
    JSONValue after = editor->install(
        reading.document, HookCatalog::specs(agent, gate),
        [this, agent](const std::string& event) { return hookCommand(agent, event); });
    return makeChange(agent, path, reading, after, *editor);
}

ConfigChange ConnectionManager::connect(AgentKind agent, GateCommands gate) {
    installHelperIfNeeded();
    ConfigChange change = previewConnect(agent, gate);
    // Rewriting identical text would only churn the backups.
    if (change.isNoChange()) {
        remember(agent, !change.fileExisted, gate);
        return change;
    }
    if (change.fileExisted)
        change.backup = backUp(agent, change.path, change.before);
    write(change.path, change.after);
    try {
        remember(agent, !change.fileExisted, gate);
    } catch (const ConnectionError& failure) {
        // Half a connection would leave the user told one thing and shown another: the
        // agent's file goes back to what it was, or the sentence says it could not.
        if (std::optional<std::string> undoFailure = undo(change))
            throw ConnectionError::connectNotUndone(agent, change.path, failure, *undoFailure);
        throw ConnectionError::connectUndone(change.path, failure);
    }
    return change;
}

std::optional<std::string> ConnectionManager::undo(const ConfigChange& change) const {
    try {
        if (change.fileExisted) {
            write(change.path, change.before);
        } else {
            const std::string real = File::resolveLinks(change.path);
            if (::unlink(real.c_str()) != 0 && errno != ENOENT)
                return SystemError("unlink", real, errno).reason();
        }
    } catch (const ConnectionError& error) {
        return error.reason();
    }
    // The file is as it was: its backup would only be a copy of it.
    if (change.backup)
        (void)::unlink(change.backup->c_str());
    return std::nullopt;
}

ConfigChange ConnectionManager::previewDisconnect(AgentKind agent) const {
    auto editor = HookConfigEditor::forAgent(agent);
    const std::string path = editor->configPath(home_);
    Reading reading = readDocument(path);
    if (!reading.document) {
        // Nothing of Tidewick's can be in an absent or blank file.
        ConfigChange change;
        change.agent = agent;
        change.path = path;
        change.fileExisted = reading.existed;
        change.before = reading.text;
        change.after = reading.text;
        change.diff = LineDiff::diff(change.before, change.after);
        return change;
    }
    JSONValue after = editor->remove(*reading.document);
    ConfigChange change = makeChange(agent, path, reading, after, *editor);
    std::optional<Record> known = record(agent);
    change.deletesFile = editor->isEmptyShell(after) && known && known->createdFile;
    return change;
}

ConfigChange ConnectionManager::disconnect(AgentKind agent) {
    ConfigChange change = previewDisconnect(agent);
    if (!change.isNoChange()) {
        if (change.fileExisted)
            change.backup = backUp(agent, change.path, change.before);
        if (change.deletesFile) {
            const std::string real = File::resolveLinks(change.path);
            if (::unlink(real.c_str()) != 0 && errno != ENOENT)
                throw ConnectionError::writeFailed(real,
                                                   SystemError("unlink", real, errno).reason());
        } else {
            write(change.path, change.after);
        }
    }
    try {
        forget(agent);
    } catch (const ConnectionError& failure) {
        if (change.isNoChange())
            throw;
        throw ConnectionError::disconnectNotRecorded(agent, change.path, failure);
    }
    return change;
}

void ConnectionManager::installHelperIfNeeded() const {
    if (!bundledHelper_ || !File::isExecutableFile(*bundledHelper_))
        throw ConnectionError::helperMissing();
    std::string helper;
    try {
        helper = File::read(*bundledHelper_);
    } catch (const SystemError&) {
        throw ConnectionError::helperMissing();
    }
    const std::string installed = paths_.helperPath();
    try {
        if (File::isExecutableFile(installed) && File::read(installed) == helper)
            return;
    } catch (const SystemError&) {
        // Unreadable: replace it below.
    }
    try {
        paths_.ensureDirectories();
        File::writeAtomically(installed, helper, 0755);
        if (::chmod(installed.c_str(), 0755) != 0)
            throw SystemError("chmod", installed, errno);
    } catch (const SystemError& error) {
        throw ConnectionError::writeFailed(installed, error.reason());
    }
}

std::string ConnectionManager::backUp(AgentKind agent, const std::string& path,
                                      const std::string& text) const {
    const std::string directory = File::join(paths_.backupsDirectory(), rawValue(agent));
    const std::string stamp = backupStamp(clock_());
    std::string suffix = File::lastComponent(path);
    suffix.insert(suffix.begin(), '-'); // not "-" + name: GCC 12 at -O3 warns falsely about restrict

    std::string target = File::join(directory, stamp + suffix);
    try {
        File::makeDirectories(directory, 0700);
        // Two changes within one second must not overwrite the first backup;
        // ".N" after the stamp still sorts after the plain name.
        for (int n = 1; File::exists(target); ++n)
            target = File::join(directory, stamp + "." + std::to_string(n) + suffix);
        File::writeAtomically(target, text, 0600);
        std::vector<std::string> names = backupNames(directory);
        std::sort(names.begin(), names.end());
        for (size_t i = 0; i + maxBackups < names.size(); ++i) {
            std::string old = File::join(directory, names[i]);
            if (::unlink(old.c_str()) != 0 && errno != ENOENT)
                throw SystemError("unlink", old, errno);
        }
    } catch (const SystemError& error) {
        throw ConnectionError::writeFailed(target, error.reason());
    }
    return target;
}

void ConnectionManager::write(const std::string& path, const std::string& text) const {
    const std::string real = File::resolveLinks(path);
    try {
        struct stat info {};
        const bool existed = ::stat(real.c_str(), &info) == 0;
        const mode_t mode = existed ? (info.st_mode & 07777) : 0644;
        File::makeDirectories(File::parent(real), 0700);
        File::writeAtomically(real, text, mode);
        // The user's permissions survive the new inode the rename brought in.
        if (existed && ::chmod(real.c_str(), mode) != 0)
            throw SystemError("chmod", real, errno);
    } catch (const SystemError& error) {
        throw ConnectionError::writeFailed(real, error.reason());
    }
}

std::optional<ConnectionManager::Record> ConnectionManager::record(AgentKind agent) const {
    std::lock_guard guard(lock_);
    auto found = records_.find(std::string(rawValue(agent)));
    if (found == records_.end())
        return std::nullopt;
    return found->second;
}

void ConnectionManager::remember(AgentKind agent, bool createdFile, GateCommands gate) {
    std::lock_guard guard(lock_);
    auto [slot, inserted] = records_.try_emplace(std::string(rawValue(agent)));
    // Reconnecting keeps the first date and who created the file: only that
    // first answer may later let a disconnect delete the file.
    if (inserted) {
        slot->second.connectedAt = clock_();
        slot->second.createdFile = createdFile;
    }
    slot->second.gateCommands = gate;
    saveRecordsLocked();
}

void ConnectionManager::forget(AgentKind agent) {
    std::lock_guard guard(lock_);
    records_.erase(std::string(rawValue(agent)));
    saveRecordsLocked();
}

void ConnectionManager::loadRecords() {
    std::map<std::string, Record> records;
    try {
        const std::string text = File::read(paths_.connectionsFile());
        requireUTF8(text);
        JSONReader in(text);
        // Agents this version does not know, and entries that are not objects, are passed over.
        (void)readObject(in, JSONMember::others([&records](std::string_view key, JSONReader& in) {
                             std::string agent(key);
                             Record record;
                             if (readJSON(in, record) && fromRaw<AgentKind>(agent))
                                 records[agent] = record;
                             return true;
                         }));
        in.finish();
    } catch (const std::exception&) {
        return; // No file yet, or one we cannot trust: start without records.
    }
    std::lock_guard guard(lock_);
    records_ = std::move(records);
}

void ConnectionManager::saveRecordsLocked() const {
    std::string text;
    JSONWriter out(text, JSONWriter::Style::pretty);
    out.beginObject();
    for (const auto& [agent, record] : records_)
        out.member(agent, record);
    out.endObject();
    text += "\n";
    try {
        paths_.ensureDirectories();
        File::writeAtomically(paths_.connectionsFile(), text, 0600);
    } catch (const SystemError& error) {
        throw ConnectionError::writeFailed(paths_.connectionsFile(), error.reason());
    }
}

void writeJSON(JSONWriter& out, const ConnectionManager::Record& record) {
    out.beginObject();
    out.member("connectedAt", record.connectedAt);
    out.member("createdFile", record.createdFile);
    out.member("gateCommands", record.gateCommands == GateCommands::on);
    out.endObject();
}

bool readJSON(JSONReader& in, ConnectionManager::Record& out) {
    bool gated = out.gateCommands == GateCommands::on;
    const bool read = readObject(in, JSONMember::lenient("connectedAt", out.connectedAt),
                                 JSONMember::lenient("createdFile", out.createdFile),
                                 JSONMember::lenient("gateCommands", gated));
    out.gateCommands = gated ? GateCommands::on : GateCommands::off;
    return read;
}

} // namespace tidewick
