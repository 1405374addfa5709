// The installation table for the guide and for files of the Debian package.
#include "installation/Installation.h"

#include <algorithm>
#include <filesystem>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "generate/Texts.h"
#include "undo/AccountUse.h"
#include "undo/SavedStates.h"

namespace {

std::string Octal(mode_t mode) {
    std::string digits;
    for (int shift = 6; shift >= 0; shift -= 3)
        digits += static_cast<char>('0' + (mode >> shift & 7));
    return digits;
}

std::string ModesOf(const Entry& entry) {
    if (entry.rootMode == 0 || entry.userMode == 0 || entry.rootMode == entry.userMode)
        return entry.rootMode + entry.userMode == 0
                   ? ""
                   : Octal(std::max(entry.rootMode, entry.userMode));
    return Octal(entry.rootMode) + ", " + Octal(entry.userMode);
}

std::string OwnerOf(const Entry& entry) {
    if (entry.kind == Kind::EarlierService)
        return "";
    if ((entry.conditions & AsUser) != 0)
        return "the user";
    const std::string owner = entry.owner == Owner::Root ? "root" : "service account";
    return entry.ownsAllBelow ? owner + ", also of everything below it" : owner;
}

std::string ConditionsOf(const Entry& entry) {
    constexpr std::pair<unsigned, const char*> texts[] = {
        {AsRoot, "setup as root"},
        {AsUser, "setup as a user"},
        {WithoutClusterNode, "not on a compute node"},
        {WithSubmissionScripts, "with `--submission-scripts`"},
        {WithEarlierRepository, "if the previous version has a repository"},
        {WithEarlierServices, "if it exists"},
        {WithFileLocksOnly, "on a file system that cannot lock directories"},
        {DuringMerge, "while it changes the machine"},
        {InPlace, "setup as a user, or as root without private mounts"},
        {ByVerification, "by `--verify`"},
        {ForUndo, "if it changes something"}};
    std::string conditions;
    for (const auto& [condition, text] : texts) {
        if ((entry.conditions & condition) != 0)
            conditions += (conditions.empty() ? "" : "; ") + std::string(text);
    }
    return conditions;
}

bool HasRandomName(const Entry& entry) {
    return std::string_view(entry.path).find(randomPart) != std::string_view::npos;
}

const char* LaterOf(const Entry& entry) {
    switch (entry.later) {
        case Later::Rewrites:
            return HasRandomName(entry) ? "creates another one" : "writes it again";
        case Later::Appends:
            return "appends to it";
        case Later::Updates:
            return "replaces one that differs";
        case Later::KeepsContent:
            return "keeps the content; sets mode and owner";
        case Later::Keeps:
            return entry.check == Check::Archive ? "keeps it; replaces pages of an earlier product"
                                                 : "keeps it";
        default:
            return "removes it";
    }
}

void WriteTable(std::ostream& guide, bool inTree) {
    guide << "| Path | Purpose | Mode | Owner | Created | Later setup |\n"
             "| --- | --- | --- | --- | --- | --- |\n";
    for (const Entry& entry : Entries()) {
        if (entry.kind == Kind::Group || entry.kind == Kind::User || IsInTree(entry) != inTree)
            continue;
        guide << "| `" << (*entry.path == '\0' ? "." : entry.path) << "` | " << entry.purpose
              << " | " << ModesOf(entry) << " | " << OwnerOf(entry) << " | " << ConditionsOf(entry)
              << " | " << LaterOf(entry) << " |\n";
    }
}

// A pattern of the shell for a path with random characters.
std::string Pattern(const Entry& entry) {
    std::string path = entry.path;
    return path.replace(path.find(randomPart), randomPart.size(), "??????");
}

void WriteSetting(std::ostream& script, const char* name, const std::string& value) {
    script << name << "='" << value << "'\n";
}

std::string QuotedPath(const Entry& entry) {
    return "\"$tree/" + std::string(entry.path) + "\"";
}

}  // namespace

void WriteTreeTable(std::ostream& guide) {
    WriteTable(guide, true);
}

void WriteElsewhereTable(std::ostream& guide) {
    WriteTable(guide, false);
}

void WriteRemovalSettings(std::ostream& script) {
    WriteSetting(script, "tree", sharedDirectory);
    WriteSetting(script, "unit", serviceUnit);
    WriteSetting(script, "unit_file", Find(Item::Unit).path);
    WriteSetting(script, "log", Find(Item::RootLog).path);
    WriteSetting(script, "commit_scripts", Pattern(Find(Item::CommitScript)));
    WriteSetting(script, "private_directory", Pattern(Find(Item::PrivateDirectory)));
    WriteSetting(script, "new_entries", newEntriesName);
    WriteSetting(script, "slots", std::string(slotPrefix) + '*');
    WriteSetting(script, "record", Find(Item::AccountRecord).path);
    const std::filesystem::path states = Find(Item::SavedStates).path;
    WriteSetting(script, "first_state", states / stateBeforeFirstSetup);
    WriteSetting(script, "first_content", (states / stateBeforeFirstSetup).parent_path());
    WriteSetting(script, "answers", Find(Item::RecordedAnswers).path);
    WriteSetting(script, "lock", Find(Item::RootLock).path);
    WriteSetting(script, "account", accountName);
    WriteSetting(script, "account_comment", accountComment);
}

void WriteUpgradeSettings(std::ostream& script) {
    WriteSetting(script, "version", HX_VERSION);
}

void WriteElsewhereTest(std::ostream& script) {
    WriteSetting(script, "product", "/usr/lib/corvane26");
    WriteSetting(script, "setup_record", Find(Item::Record).path);
    WriteSetting(script, "manifest", Find(Item::Manifest).path);
    WriteSetting(script, "run_script", PathOf(Find(Item::RunScript), sharedDirectory));
    script << R"sh(
# True when another copy of the product made the present setup, whose files stay. Setups before
# there were records left only the run script, which members of the service group can exchange: it
# is read without waiting and never run.
set_up_elsewhere()
{
    if [ -e "$setup_record" ]; then
        # Bytes are escaped as \NNN there.
        root=$(sed -n 's/^# product: //p' "$manifest" 2> /dev/null | head -n 1 | sed 's/\\/\\0/g')
        root=$(printf %b "$root")
    else
        root=$(dd if="$run_script" iflag=nonblock,nofollow bs=64k count=1 2> /dev/null |
            sed -n 's/^cvset CORV_ROOT "\([^"]*\)".*/\1/p' | head -n 1)
    fi
    [ -n "$root" ] && [ "$(timeout 10 readlink -m -- "$root")" != "$(readlink -m "$product")" ]
}
)sh";
}

void WriteLogPath(std::ostream& settings) {
    settings << Find(Item::RootLog).path << '\n';
}

// The script handles the unit and the lock separately: the unit must be disabled first, and the
// lock is removed last.
void WriteRemovedFiles(std::ostream& script) {
    for (const Entry& entry : Entries()) {
        if (entry.kind == Kind::File && !IsInTree(entry) && entry.removal == Removal::Remove &&
            entry.item != Item::Unit && entry.item != Item::RootLock)
            script << entry.path << " \\\n";
    }
}

void WriteRemovedLinks(std::ostream& script) {
    for (const Entry& entry : Entries()) {
        if (entry.kind == Kind::Link && !IsInTree(entry) && entry.reference[0] != '/')
            script << entry.path << " \\\n";
    }
}

// The directories outside of the tree in which a merge creates private directories.
void WritePrivateParents(std::ostream& script) {
    std::set<std::string> parents = {std::filesystem::path(sharedDirectory).parent_path()};
    for (const Entry& entry : Entries()) {
        if (IsStaged(entry) && !IsInTree(entry))
            parents.insert(std::filesystem::path(entry.path).parent_path());
    }
    for (const std::string& parent : parents)
        script << parent << " \\\n";
}

void WriteCrontabs(std::ostream& script) {
    for (const char* directory : crontabDirectories)
        script << directory << " \\\n";
}

void WritePurgedFiles(std::ostream& script) {
    std::string separator;
    for (const Entry& entry : Entries()) {
        if (!IsInTree(entry) || entry.removal != Removal::Purge || entry.kind == Kind::Directory ||
            entry.item == Item::QueueEntries)
            continue;
        script << separator << QuotedPath(entry);
        separator = " | ";
    }
    script << ")\n";
}
