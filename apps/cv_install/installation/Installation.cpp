#include "installation/Installation.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "commit/EarlierServices.h"

namespace {

constexpr unsigned ServiceMachine = AsRoot | WithoutClusterNode;

// Rows of one kind repeat these fields.

constexpr Entry SharedDirectory(Entry entry) {
    entry.kind = Kind::Directory;
    entry.rootMode = 0775;
    entry.userMode = 0755;
    entry.owner = Owner::ServiceAccount;
    entry.later = Later::Keeps;
    return entry;
}

constexpr Entry PagesDirectory(Entry entry) {
    entry.kind = Kind::Directory;
    entry.rootMode = 0755;
    entry.userMode = 0755;
    entry.owner = Owner::ServiceAccount;
    entry.conditions = WithoutClusterNode;
    entry.later = Later::Keeps;
    entry.ownsAllBelow = true;
    entry.check = Check::Archive;
    entry.removesAllBelow = true;
    entry.serviceUses = true;
    return entry;
}

constexpr Entry RunScript(Entry entry) {
    entry.rootMode = 0775;
    entry.userMode = 0755;
    entry.owner = Owner::ServiceAccount;
    entry.check = Check::Ending;
    return entry;
}

constexpr Entry QChemFile(Entry entry) {
    entry.rootMode = 0644;
    entry.userMode = 0644;
    entry.removal = Removal::Purge;
    entry.allVersions = true;
    return entry;
}

constexpr Entry SubmissionScript(Entry entry) {
    entry.rootMode = 0755;
    entry.userMode = 0755;
    entry.conditions = WithSubmissionScripts;
    entry.check = Check::Ending;
    entry.reference = "\nexit 0\n";
    entry.content = Content::Shared;
    return entry;
}

constexpr Entry CommandLink(Entry entry) {
    entry.kind = Kind::Link;
    entry.conditions = AsRoot;
    entry.later = Later::Updates;
    return entry;
}

// A directory or file of a record, as root at `path`, as a user below the user's directory.
constexpr Entry RecordRow(Entry entry) {
    const bool root = entry.rootMode != 0;
    entry.conditions |= root ? AsRoot : AsUser;
    entry.removal = root ? Removal::Purge : Removal::Keep;
    if (entry.kind == Kind::Directory)
        entry.later = Later::Keeps;
    return entry;
}

constexpr Entry createdEntries[] = {
    {.kind = Kind::Group, .conditions = AsRoot, .later = Later::Keeps, .removal = Removal::Purge},
    {.kind = Kind::User, .conditions = AsRoot, .later = Later::Keeps, .removal = Removal::Purge},

    SharedDirectory({.item = Item::InstallDirectory,
                     .purpose = "the install directory",
                     .removal = Removal::RemoveIfEmpty,
                     .allVersions = true}),
    SharedDirectory({.path = "corvanerc", .removal = Removal::RemoveIfEmpty, .allVersions = true}),
    SharedDirectory({.path = "corvanerc/corvane26",
                     .content = Content::Users,
                     .removal = Removal::Purge,
                     .removesAllBelow = true}),
    SharedDirectory({.path = pagesParent, .removal = Removal::RemoveIfEmpty}),
    {.path = "corvanerc/corvane26server/CorvaneServerRepository",
     .purpose = "link to the repository of the previous version",
     .kind = Kind::Link,
     .conditions = WithEarlierRepository,
     .later = Later::Keeps,
     .reference = earlierRepository,
     .removal = Removal::Purge},
    PagesDirectory({.path = "corvanerc/corvane26server/resources",
                    .purpose = "web pages",
                    .reference = "docroot/resources.tar"}),
    PagesDirectory({.path = "corvanerc/corvane26server/icons",
                    .purpose = "icons of the web pages",
                    .reference = "docroot/icons.tar"}),
    RunScript({.item = Item::RunScript,
               .path = "corvane26",
               .purpose = "run script",
               .reference = "\n  fi\nfi\n",
               .source = "corvane26.template",
               .serviceUses = true}),
    RunScript({.item = Item::SnapshotScript,
               .path = "corvane26_snapshot",
               .purpose = "run script of the snapshot program",
               .reference = "/cv_snapshot\" \"$@\"\n",
               .source = "corvane26_snapshot.template"}),
    {.item = Item::QueueEntries,
     .path = "QueueEntries",
     .purpose = "jobs of the internal queue",
     .rootMode = 0666,
     .userMode = 0644,
     .owner = Owner::ServiceAccount,
     .later = Later::KeepsContent,
     .content = Content::Shared,
     .removal = Removal::Purge,
     .allVersions = true},
    {.item = Item::QueueLimits,
     .path = "QueueLimits",
     .purpose = "limits for jobs",
     .rootMode = 0664,
     .userMode = 0644,
     .owner = Owner::ServiceAccount,
     .check = Check::ExpectedBytes,
     .content = Content::Shared,
     .removal = Removal::Purge,
     .allVersions = true},
    {.path = "qchemrc",
     .kind = Kind::Directory,
     .rootMode = 0755,
     .userMode = 0755,
     .later = Later::Keeps,
     .removal = Removal::Purge,
     .removesAllBelow = true,
     .allVersions = true},
    QChemFile({.item = Item::QChemLimits,
               .path = "qchemrc/qchemrc",
               .purpose = "limits for Q-Chem",
               .check = Check::Ending,
               .reference = "\n$end\n"}),
    QChemFile({.item = Item::QChemScratch,
               .path = "qchemrc/qcscratch",
               .purpose = "scratch directory for Q-Chem",
               .check = Check::ExpectedBytes}),
    SubmissionScript({.item = Item::SambaScript,
                      .path = "corvane26_samba",
                      .purpose = "submission script for Samba"}),
    SubmissionScript(
        {.item = Item::SshScript, .path = "corvane26_ssh", .purpose = "submission script for SSH"}),
    {.item = Item::RenderedUnit,
     .path = serviceUnit,
     .purpose = "text of the unit",
     .rootMode = 0644,
     .conditions = ServiceMachine,
     .source = "corvane26_service.template"},

    CommandLink({.path = "/usr/bin/corvane26",
                 .purpose = "command; link to the run script",
                 .reference = "corvane26",
                 .serviceUses = true}),
    CommandLink({.path = "/usr/bin/corvane26_snapshot",
                 .purpose = "command; link to the run script of the snapshot program",
                 .reference = "corvane26_snapshot"}),
    {.item = Item::ServiceScript,
     .path = "/usr/bin/corvane26_service_script",
     .purpose = "service program",
     .rootMode = 0755,
     .conditions = ServiceMachine,
     .source = "corvane26_service_script",
     .serviceUses = true},
    {.item = Item::Unit,
     .path = "/etc/systemd/system/corvane26_service.service",
     .purpose = "unit of the service",
     .rootMode = 0644,
     .conditions = ServiceMachine,
     .later = Later::Updates,
     .check = Check::ExpectedBytes,
     .source = "corvane26_service.template",
     .serviceUses = true},
    {.path = "/etc/systemd/system/multi-user.target.wants/corvane26_service.service",
     .purpose = "link that enables the unit",
     .kind = Kind::Link,
     .conditions = ServiceMachine,
     .later = Later::Updates,
     .reference = "/etc/systemd/system/corvane26_service.service"},

    {.path = "/etc/corvane26",
     .kind = Kind::Directory,
     .rootMode = 0755,
     .conditions = AsRoot,
     .later = Later::Keeps,
     .removal = Removal::Purge},
    {.item = Item::AccountRecord,
     .path = "/etc/corvane26/service",
     .purpose = "record of the service account",
     .rootMode = 0644,
     .conditions = AsRoot,
     .later = Later::Updates,
     .removal = Removal::Purge,
     .serviceUses = true},

    RecordRow({.item = Item::Record,
               .path = "/var/lib/corvane26",
               .purpose = "record of the previous setup",
               .kind = Kind::Directory,
               .rootMode = 0755,
               .removesAllBelow = true}),
    RecordRow({.item = Item::Manifest,
               .path = "/var/lib/corvane26/manifest",
               .purpose = "when, by whom, with which answers, and what was installed",
               .rootMode = 0644}),
    RecordRow({.item = Item::Verification,
               .path = "/var/lib/corvane26/verification",
               .purpose = "result of the previous verification",
               .rootMode = 0644,
               .conditions = ByVerification}),
    RecordRow({.item = Item::RecordPrivate,
               .path = "/var/lib/corvane26/private",
               .kind = Kind::Directory,
               .rootMode = 0700}),
    RecordRow({.item = Item::RecordedAnswers,
               .path = "/var/lib/corvane26/private/answers",
               .purpose = "answers for the next setup",
               .rootMode = 0600}),
    RecordRow({.item = Item::RecordedScript,
               .path = "/var/lib/corvane26/private/commit_script",
               .purpose = "commit script of the previous setup",
               .rootMode = 0600}),
    {.item = Item::SavedStates,
     .path = "/var/lib/corvane26/private/states",
     .purpose =
         "states before the first setup and before the last three, for `--remove` and `--undo`",
     .kind = Kind::Directory,
     .rootMode = 0700,
     .conditions = AsRoot | ForUndo,
     .later = Later::Keeps,
     .removal = Removal::Purge,
     .removesAllBelow = true},
    RecordRow({.path = "~/.local/state/corvane26", .kind = Kind::Directory, .userMode = 0700}),
    RecordRow({.item = Item::UserRecord,
               .path = "~/.local/state/corvane26/INSTALL-DIRECTORY",
               .purpose = "record of a user's setup",
               .kind = Kind::Directory,
               .userMode = 0700}),
    RecordRow({.path = "~/.local/state/corvane26/INSTALL-DIRECTORY/manifest", .userMode = 0644}),
    RecordRow({.path = "~/.local/state/corvane26/INSTALL-DIRECTORY/verification",
               .userMode = 0644,
               .conditions = ByVerification}),
    RecordRow({.path = "~/.local/state/corvane26/INSTALL-DIRECTORY/private",
               .kind = Kind::Directory,
               .userMode = 0700}),
    RecordRow(
        {.path = "~/.local/state/corvane26/INSTALL-DIRECTORY/private/answers", .userMode = 0600}),
    RecordRow({.path = "~/.local/state/corvane26/INSTALL-DIRECTORY/private/commit_script",
               .userMode = 0600}),
    RecordRow({.path = "~/.local/state/corvane26/INSTALL-DIRECTORY/private/states",
               .kind = Kind::Directory,
               .userMode = 0700,
               .conditions = ForUndo,
               .removesAllBelow = true}),

    {.item = Item::CommitScript,
     .path = "/tmp/corvane26_commit_XXXXXX",
     .purpose = "commit script; kept after a failure",
     .rootMode = 0600,
     .userMode = 0600,
     .conditions = InPlace | DuringMerge,
     .removal = Removal::Purge},
    {.item = Item::RootLog,
     .path = "/var/log/corvane26_setup.log",
     .purpose = "log of setups as root",
     .rootMode = 0600,
     .conditions = AsRoot,
     .later = Later::Appends,
     .removal = Removal::Purge},
    {.item = Item::UserLog,
     .path = "/tmp/corvane26_setup_XXXXXX.log",
     .purpose = "log of a user's setup",
     .userMode = 0600,
     .conditions = AsUser,
     .removal = Removal::Keep},
    {.item = Item::RootLock,
     .path = "/run/corvane26_setup.lock",
     .purpose = "lock of a setup as root",
     .rootMode = 0600,
     .conditions = AsRoot,
     .later = Later::Keeps},
    {.item = Item::PrivateDirectory,
     .path = ".corvane26_setup_XXXXXX",
     .purpose =
         "new and replaced files; also in other directories that the setup changes. A user's "
         "in a private copy during a repair",
     .kind = Kind::Directory,
     .rootMode = 0700,
     .conditions = AsRoot | DuringMerge,
     .removal = Removal::Keep},
    {.item = Item::UserLock,
     .path = ".corvane26_setup.lock",
     .purpose = "lock of a user's setup",
     .userMode = 0600,
     .conditions = AsUser | WithFileLocksOnly,
     .later = Later::Keeps},
};

constexpr Entry RemovedService(const hx::EarlierService& service) {
    return {.path = service.path,
            .purpose = "service of an earlier version",
            .kind = Kind::EarlierService,
            .conditions = ServiceMachine | WithEarlierServices,
            .later = Later::Removes,
            .removal = Removal::Keep};
}

constexpr auto allEntries = [] {
    std::array<Entry, std::size(createdEntries) + hx::earlierServices.size()> all;
    Entry* next = std::copy(std::begin(createdEntries), std::end(createdEntries), all.begin());
    std::transform(hx::earlierServices.begin(), hx::earlierServices.end(), next, RemovedService);
    return all;
}();

constexpr const char* accountFiles[] = {
    "/etc/passwd",  "/etc/passwd-", "/etc/shadow",   "/etc/shadow-",   "/etc/group",
    "/etc/group-",  "/etc/gshadow", "/etc/gshadow-", "/etc/.pwd.lock", "/etc/subuid",
    "/etc/subuid-", "/etc/subgid",  "/etc/subgid-"};

}  // namespace

std::span<const Entry> Entries() {
    return allEntries;
}

const Entry& Find(Item item) {
    const auto* found = std::find_if(std::begin(allEntries), std::end(allEntries),
                                     [item](const Entry& entry) { return entry.item == item; });
    if (found == std::end(allEntries))
        std::abort();
    return *found;
}

bool IsInTree(const Entry& entry) {
    return entry.kind != Kind::Group && entry.kind != Kind::User && entry.path[0] != '/' &&
           entry.path[0] != '~';
}

std::string PathOf(const Entry& entry, const std::string& installDir) {
    if (!IsInTree(entry))
        return entry.path;
    return *entry.path == '\0' ? installDir : installDir + '/' + entry.path;
}

bool IsStaged(const Entry& entry) {
    const std::string path = entry.path;
    return IsInTree(entry) || path.starts_with(std::string(etcDirectory) + '/') ||
           path.starts_with(std::string(binDirectory) + '/');
}

bool Applies(const Entry& entry, unsigned conditions) {
    return (entry.conditions & ~conditions) == 0;
}

std::span<const char* const> AccountFiles() {
    return accountFiles;
}
