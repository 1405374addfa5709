#include "merge/PlacedEntry.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "installation/DatedName.h"
#include "installation/PathParts.h"

namespace {

void RemoveIfSame(int directory, const std::string& path, const State& created) {
    const std::string name = BaseNameOf(path);
    const Descriptor parent = OpenDirectory(directory, ParentOf(path));
    const Descriptor entry = parent ? OpenEntry(parent.Number(), name) : Descriptor();
    const std::optional<State> found = entry ? ReadAttributes(entry) : std::nullopt;
    if (found && found->IsSameInode(created)) {
        unlinkat(parent.Number(), name.c_str(),
                 found->kind == State::Kind::Directory ? AT_REMOVEDIR : 0);
    }
}

// Removes from the slot what the merge created, children before their parents. A directory where
// others put something goes back.
void EmptySlot(const PlacedEntry& placed) {
    for (size_t i = placed.created.size(); i-- > 1;) {
        const std::string below = placed.created[i].path.substr(placed.created.front().path.size());
        RemoveIfSame(placed.holder->Slots(), placed.slot + below, placed.created[i].state);
    }
    if (HasJobs(placed.holder->Slots(), placed.slot))
        placed.holder->MoveBack(placed.slot);
    else
        placed.holder->Discard(placed.slot);
}

// What was there is in the slot.
bool ExchangeBack(PlacedEntry& placed) {
    const Placed result =
        ExchangeOrMove(placed.holder->Slots(), placed.slot, placed.Parent(), placed.name);
    if (result == Placed::Failed) {
        WarnNotRestored(placed.Path(), errno);
        return false;
    }
    placed.isReplacing = false;
    if (result == Placed::Exchanged)
        EmptySlot(placed);
    return true;
}

}  // namespace

bool TakeBack(PlacedEntry& placed) {
    if (placed.isReplacing)
        return ExchangeBack(placed);
    int error = MoveToFreeName(placed.Parent(), placed.name, placed.holder->Slots(), placed.slot);
    const bool isTaken = error == 0;
    if (error == ENOENT)
        error = 0;
    if (error == 0 && !placed.aside.empty())
        error = MoveToFreeName(placed.Parent(), placed.aside, placed.Parent(), placed.name);
    if (error != 0)
        WarnNotRestored(placed.Path(), error);
    if (isTaken)
        EmptySlot(placed);
    return error == 0;
}

void WarnNotRestored(const std::string& path, int error) {
    ReportWarning({ExitStatus::Complete,
                   QStringLiteral("cannot restore \"%1\": %2")
                       .arg(QString::fromStdString(path), QString::fromUtf8(std::strerror(error))),
                   QStringLiteral("Inspect it.")});
}
