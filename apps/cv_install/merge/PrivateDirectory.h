// A directory of the user who merges, on the file system of the directory that contains it, for new
// entries before they are placed and for what they replaced.
#pragma once

#include <memory>
#include <string>

#include "Problem.h"
#include "installation/State.h"

// A directory on the live machine.
struct LiveDirectory {
    Descriptor descriptor;
    std::string path;  // for messages
};

using DirectoryPointer = std::shared_ptr<const LiveDirectory>;

// Exchanged: what was there is in the slot now. Failed: errno is set.
enum class Placed { Failed, Free, Exchanged };

class PrivateDirectory {
public:
    // Creates one in `parent`, where other users may rename it or put something in its place.
    static Failure Create(const DirectoryPointer& parent,
                          std::unique_ptr<PrivateDirectory>& created);

    // Removes it with the new entries that were not placed. Slots must be empty.
    ~PrivateDirectory();
    PrivateDirectory(const PrivateDirectory&) = delete;
    PrivateDirectory& operator=(const PrivateDirectory&) = delete;

    // The directory for new entries until they are placed. No other process ever had access to
    // them, so the next setup removes what a killed one left there.
    int New() const { return m_new.Number(); }

    // The directory of the slots, and a new slot: a name in New(), and here for what the entry
    // replaced. `name` is the entry's.
    int Slots() const { return m_directory.Number(); }
    std::string NewSlot(const std::string& name);

    // Puts an entry from New() in its place, a directory only where nothing is. A file or link is
    // in the slot shortly before, so a directory in a slot was always captured.
    Placed Place(const std::string& slot, State::Kind kind, int directory, const std::string& name);

    // Removes what is in the slot. A directory that is not empty moves back to the parent under a
    // dated name, which is reported.
    void Discard(const std::string& slot);

    // Moves what is in the slot back to the parent under a dated name, reports it, and returns the
    // name; empty on failure.
    std::string MoveBack(const std::string& slot);

    // Removes what a killed setup left in `parent`, and moves back the directories and the jobs
    // that it replaced.
    static void CleanUp(const DirectoryPointer& parent);

private:
    PrivateDirectory(DirectoryPointer parent, Descriptor directory);

    DirectoryPointer m_parent;
    Descriptor m_directory;
    Descriptor m_new;
    int m_slots = 0;
};

// Puts the slot's entry in its place. The error is EISDIR for a directory on a file system that
// cannot exchange entries.
Placed ExchangeOrMove(int slotDirectory, const std::string& slot, int directory,
                      const std::string& name);

// True for a QueueEntries with jobs in the slot.
bool HasJobs(int slotDirectory, const std::string& slot);

// Removes an entry and everything below it that no other process ever had access to.
void RemovePrivateEntry(int directory, const std::string& name);
