// A directory of root's, on the file system of the directory that contains it, for new entries
// before they are placed and for what they replaced.
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

class PrivateDirectory {
public:
    // Creates one in `parent`, where other users may rename it or put something in its place.
    static Failure Create(const DirectoryPointer& parent,
                          std::unique_ptr<PrivateDirectory>& created);

    // Removes it with the new entries that were not placed. Slots must be empty.
    ~PrivateDirectory();
    PrivateDirectory(const PrivateDirectory&) = delete;
    PrivateDirectory& operator=(const PrivateDirectory&) = delete;

    // The directory for entries that are not complete. No other process ever had access to them.
    int Incomplete() const { return m_incomplete.Number(); }

    // The directory of the slots, and a new slot: the name for a complete entry, and later
    // for what it replaced. `name` is the entry's.
    int Slots() const { return m_directory.Number(); }
    std::string NewSlot(const std::string& name);

    // Removes what is in the slot. A directory that is not empty moves back to the parent under a
    // dated name, which is reported.
    void Discard(const std::string& slot);

    // Moves what is in the slot back to the parent under a dated name, reports it, and returns the
    // name; empty on failure.
    std::string MoveBack(const std::string& slot);

    // Removes what a killed setup left in `parent`, and moves the directories that it replaced
    // back.
    static void CleanUp(const DirectoryPointer& parent);

private:
    PrivateDirectory(DirectoryPointer parent, Descriptor directory);

    DirectoryPointer m_parent;
    Descriptor m_directory;
    Descriptor m_incomplete;
    int m_slots = 0;
};

// Puts `from` where nothing is. Returns 0 or an error number: EEXIST if something is there.
int MoveToFreeName(int fromDirectory, const std::string& from, int toDirectory,
                   const std::string& to);

enum class Placed { Failed, Free, Exchanged };

// Puts the slot's entry in its place. Exchanged: what was there is in the slot now. Failed with
// errno set: EISDIR for a directory on a file system that cannot exchange entries.
Placed ExchangeOrMove(int slotDirectory, const std::string& slot, int directory,
                      const std::string& name);

// Removes an entry and everything below it that no other process ever had access to.
void RemovePrivateEntry(int directory, const std::string& name);
