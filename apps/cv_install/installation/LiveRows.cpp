#include "installation/LiveRows.h"

#include <fcntl.h>

#include <fstream>

#include "installation/Installation.h"

namespace {

using Accounts = std::map<std::string, std::string>;

Limits ReadSetLimits(int tree) {
    Limits set;
    const std::optional<Limits> all = ReadLimits(tree);
    for (const hx::QueueLimitsLine& line : hx::queueLimitsLines) {
        const QString key = QString::fromLatin1(line.key).toLower();
        if (all && IsSetBySetup(line) && all->contains(key))
            set[key] = all->at(key);
    }
    return set;
}

LiveRows::Row ReadRow(const Entry& entry, int base) {
    if (base == -1)
        return {State(), {}};
    const bool isInTree = IsInTree(entry);
    const char* path = isInTree ? entry.path : entry.path + 1;
    if (entry.item == Item::QueueEntries)
        return {ReadStateAt(base, path, Reading::Nothing), {}};
    if (entry.item == Item::QueueLimits)
        return {ReadStateAt(base, path, Reading::Nothing), ReadSetLimits(base)};
    return {ReadStateAt(base, path, isInTree ? Reading::PublicFiles : Reading::AllFiles), {}};
}

void AddAccounts(const char* path, const char* kind, Accounts& accounts) {
    std::ifstream file(path);
    for (std::string record; std::getline(file, record);)
        accounts[kind + record.substr(0, record.find(':'))] = record;
}

// Adds the names whose values are not the same in both maps.
template <class Map>
void AddDiffering(const Map& one, const Map& other, std::set<std::string>& names) {
    for (const auto& [name, value] : one) {
        const auto found = other.find(name);
        if (found == other.end() || !(found->second == value))
            names.insert(name);
    }
}

}  // namespace

LiveRows ReadLiveRows(int liveTree) {
    LiveRows live;
    const Descriptor root(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (const Entry& entry : Entries()) {
        if (!IsStaged(entry) || (entry.conditions & AsUser) != 0)
            continue;
        live.rows[PathOf(entry, sharedDirectory)] =
            ReadRow(entry, IsInTree(entry) ? liveTree : root.Number());
    }
    AddAccounts("/etc/passwd", "user ", live.accounts);
    AddAccounts("/etc/group", "group ", live.accounts);
    return live;
}

std::set<std::string> DifferingRows(const LiveRows& one, const LiveRows& other) {
    std::set<std::string> names;
    AddDiffering(one.rows, other.rows, names);
    AddDiffering(other.rows, one.rows, names);
    AddDiffering(one.accounts, other.accounts, names);
    AddDiffering(other.accounts, one.accounts, names);
    return names;
}
