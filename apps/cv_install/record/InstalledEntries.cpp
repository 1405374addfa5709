#include "record/InstalledEntries.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>

#include "installation/TreeCheck.h"

namespace {

namespace fs = std::filesystem;

// The answers that are paths of commands.
constexpr AnswerId commandAnswers[] = {AnswerId::QsubCommand, AnswerId::QdelCommand,
                                       AnswerId::QsigCommand, AnswerId::SbatchCommand,
                                       AnswerId::ScancelCommand};

Problem UnreadableInstallation(const std::string& path, int error) {
    return {ExitStatus::SystemCallFailed,
            QStringLiteral("cannot read \"%1\": %2")
                .arg(QString::fromStdString(path), QString::fromUtf8(std::strerror(error))),
            QStringLiteral("Make sure that no other process uses it, then run the setup again."),
            Changes::Kept};
}

std::string Join(const std::string& directory, const std::string& name) {
    return directory.empty() || name.empty() ? directory + name : directory + '/' + name;
}

void Add(const std::string& path, State state, bool isOfSetup, Manifest& manifest) {
    if (!isOfSetup)
        state.digest.clear();
    manifest.entries.push_back({path, std::move(state)});
}

// Sorts, and adds the directories above the others.
void Complete(std::vector<ManifestEntry>& entries) {
    std::set<std::string> listed;
    for (const ManifestEntry& entry : entries)
        listed.insert(entry.path);
    for (size_t i = 0; i < entries.size(); ++i) {
        for (fs::path above = fs::path(entries[i].path); above.has_relative_path();) {
            above = above.parent_path();
            if (!listed.insert(above.string()).second)
                continue;
            State state;
            state.kind = State::Kind::Directory;
            entries.push_back({above.string(), state, false});
        }
    }
    std::ranges::sort(entries, {}, &ManifestEntry::path);
}

Failure ReadAccount(const InstalledSetup& setup, AccountFacts& account) {
    const passwd* user = getpwnam(setup.serviceUser.toUtf8().constData());
    if (user == nullptr)
        return UnreadableInstallation("/etc/passwd", ENOENT);
    account.user = user->pw_name;
    account.home = user->pw_dir;
    account.shell = user->pw_shell;
    account.uid = user->pw_uid;
    account.primaryGid = user->pw_gid;
    const group* found = getgrnam(setup.serviceGroup.toUtf8().constData());
    if (found == nullptr)
        return UnreadableInstallation("/etc/group", ENOENT);
    account.group = found->gr_name;
    account.gid = found->gr_gid;
    for (char** member = found->gr_mem; *member != nullptr; ++member)
        account.members.emplace_back(*member);
    return {};
}

// As the setup will write it, with a content that it cannot contain itself.
State StateOfManifest() {
    State state;
    state.kind = State::Kind::File;
    state.mode = Find(Item::Manifest).rootMode;
    state.owner = geteuid();
    state.group = getegid();
    return state;
}

void AddCommands(Manifest& manifest) {
    for (const AnswerId id : commandAnswers) {
        const QString command = manifest.answers.Text(id);
        if (command.startsWith(u'/') && IsExecutable(command))
            manifest.commands.push_back(command.toStdString());
    }
}

}  // namespace

bool IsListed(const Entry& entry) {
    constexpr unsigned notPermanent = DuringMerge | WithFileLocksOnly;
    const std::string record = Find(Item::Record).path;
    const std::string path = entry.path;
    return (IsStaged(entry) || path == record || path.starts_with(record + '/')) &&
           entry.kind != Kind::Group && entry.kind != Kind::User &&
           entry.kind != Kind::EarlierService && (entry.conditions & notPermanent) == 0;
}

bool IsExecutable(const QString& command) {
    return !command.contains(u'/') || access(command.toUtf8().constData(), X_OK) == 0;
}

InstalledEntries::InstalledEntries(InstalledSetup setup, std::optional<Manifest> previous)
    : m_setup(std::move(setup)),
      m_previous(std::move(previous)),
      m_packed(m_setup.packed != nullptr ? m_setup.packed : &m_readPages) {
    if (m_setup.packed == nullptr)
        m_readPages.Read(m_setup.productDir, m_setup.conditions);
    const std::string installDir = m_setup.installDir.toStdString();
    for (const Entry& entry : Entries()) {
        if (entry.check == Check::Archive && Applies(entry, m_setup.conditions) &&
            !IsReplaced(entry, m_setup.formerPages) &&
            access(PathOf(entry, installDir).c_str(), F_OK) == 0)
            m_keptPages.insert(&entry);
    }
}

Failure InstalledEntries::OpenBase(Base& base, Manifest& manifest) const {
    const std::string installDir = m_setup.installDir.toStdString();
    if (IsRoots()) {
        if (Failure failure = OpenInstallDirectory(base.tree))
            return failure;
    } else {
        base.tree = Descriptor(open(installDir.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
    std::error_code error;
    const std::string real = fs::canonical(installDir, error).string();
    if (!base.tree || error)
        return UnreadableInstallation(installDir, error ? error.value() : ENOENT);
    manifest.top = IsRoots() ? "/" : real;
    manifest.tree = IsRoots() ? real.substr(1) : "";
    return {};
}

Failure InstalledEntries::AddInTree(const std::string& path, Reading reading, bool isOfSetup,
                                    const Base& base, Manifest& manifest) const {
    const std::optional<State> state =
        ReadStateAt(base.tree.Number(), path, isOfSetup ? reading : Reading::Nothing);
    if (!state)
        return UnreadableInstallation(m_setup.installDir.toStdString() + '/' + path, errno);
    // Others can remove it at any moment.
    if (state->kind != State::Kind::Missing && state->kind != State::Kind::Special)
        Add(Join(manifest.tree, path), *state, isOfSetup, manifest);
    return {};
}

// The directories are those of root. A manifest has no links above an entry.
Failure InstalledEntries::AddOutside(const Entry& entry, Manifest& manifest) const {
    const fs::path path = entry.path;
    std::error_code error;
    const fs::path parent = fs::canonical(path.parent_path(), error);
    if (error == std::errc::no_such_file_or_directory)
        return {};
    const Descriptor directory(error ? -1 : open(parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const std::optional<State> state =
        directory ? ReadState(directory.Number(), path.filename(), Reading::AllFiles)
                  : std::nullopt;
    if (!state)
        return UnreadableInstallation(path, error ? error.value() : errno);
    const bool isReplacedLater = entry.item == Item::Manifest;
    if (isReplacedLater || state->kind != State::Kind::Missing)
        Add((parent / path.filename()).string().substr(1),
            isReplacedLater ? StateOfManifest() : *state, entry.content == Content::Setup,
            manifest);
    return {};
}

// Otherwise an edited page would count as one of the setup.
bool InstalledEntries::TakeKeptPages(const Entry& entry, const Base& base,
                                     Manifest& manifest) const {
    const std::string directory = m_previous ? Join(m_previous->tree, entry.path) : "";
    bool isTaken = false;
    for (const ManifestEntry& before :
         m_previous ? m_previous->entries : std::vector<ManifestEntry>()) {
        if (!before.path.starts_with(directory + '/'))
            continue;
        const std::string path = Join(entry.path, before.path.substr(directory.size() + 1));
        State state = before.state;
        const std::optional<State> live = ReadStateAt(base.tree.Number(), path, Reading::Nothing);
        if (live && live->kind == state.kind) {
            state.owner = live->owner;
            state.group = live->group;
        }
        Add(Join(manifest.tree, path), state, true, manifest);
        isTaken = true;
    }
    return isTaken;
}

Failure InstalledEntries::AddPages(const Entry& entry, const Base& base, Manifest& manifest) const {
    if (m_keptPages.contains(&entry) && TakeKeptPages(entry, base, manifest))
        return {};
    std::map<std::string, const QByteArray*> texts;  // null for a directory
    for (const PackedPages::Page& page : m_packed->PagesOf(entry)) {
        for (fs::path path = page.path; path.string() != entry.path && path.has_relative_path();
             path = path.parent_path())
            texts.emplace(path.string(), nullptr);
        texts[page.path] = &page.text;
    }
    for (const auto& [path, text] : texts) {
        const size_t count = manifest.entries.size();
        if (Failure failure = AddInTree(path, Reading::Nothing, true, base, manifest))
            return failure;
        if (text == nullptr || manifest.entries.size() == count)
            continue;
        // An edited page would count as one of the setup.
        State& state = manifest.entries.back().state;
        if (state.kind == State::Kind::File) {
            state.digest = DigestOfPage(*text).toStdString();
            state.size = text->size();
        }
    }
    return {};
}

Failure InstalledEntries::AddRow(const Entry& entry, const Base& base, Manifest& manifest) const {
    if (!IsInTree(entry))
        return AddOutside(entry, manifest);
    const Reading reading = IsRoots() ? Reading::PublicFiles : Reading::AllFiles;
    Failure failure =
        AddInTree(entry.path, reading, entry.content == Content::Setup, base, manifest);
    if (!failure && entry.check == Check::Archive)
        failure = AddPages(entry, base, manifest);
    return failure;
}

Failure InstalledEntries::Read(Manifest& manifest) const {
    Base base;
    if (Failure failure = OpenBase(base, manifest))
        return failure;
    std::error_code error;
    const fs::path product = fs::canonical(m_setup.productDir.toStdString(), error);
    manifest.productDir = error ? m_setup.productDir.toStdString() : product.string();
    AddCommands(manifest);
    if (IsRoots()) {
        if (Failure failure = ReadAccount(m_setup, manifest.account.emplace()))
            return failure;
    }
    for (const Entry& entry : Entries()) {
        if (!IsListed(entry) || !Applies(entry, m_setup.conditions | WithEarlierRepository))
            continue;
        if (Failure failure = AddRow(entry, base, manifest))
            return failure;
    }
    Complete(manifest.entries);
    return {};
}
