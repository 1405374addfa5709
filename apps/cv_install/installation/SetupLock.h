// The lock that keeps two setups from changing one install tree at the same time.
#pragma once

#include <chrono>
#include <string>

#include "Problem.h"

// What a lock shows to others.
struct LockState {
    QString runningSetup;       // empty if no setup is running
    bool isIncomplete = false;  // of root's: as FoundIncompleteMerge, unless a setup is running
};

// The lock of a setup as root is a file that only root can open. A user's lock is the install
// directory itself or, on file systems that cannot lock directories, a file in it. A setup as root
// and a user's setup do not exclude each other. No setup removes a file, because another one may be
// waiting for its lock.
//
// The lock is released when the object is destroyed and no process inherited the descriptor.
class SetupLock {
public:
    SetupLock() = default;
    ~SetupLock();
    SetupLock(const SetupLock&) = delete;
    SetupLock& operator=(const SetupLock&) = delete;

    // A dry run changes nothing, so it does not create the file of a lock that no setup has taken.
    enum class Purpose { Setup, DryRun };

    // Takes the lock of the tree, after waiting up to `limit` for another setup. Fails with Locked
    // and names that setup, or with SystemCallFailed.
    Failure Take(const QString& installDir, std::chrono::seconds limit,
                 Purpose purpose = Purpose::Setup);

    // Notes in the lock file of root that a merge begins or is complete.
    void NoteMerge(bool begins) const;

    // True when the previous setup since the machine was started began a merge and did not complete
    // it. A directory that is the lock does not show that.
    bool FoundIncompleteMerge() const;

    // The state of the lock of root or of a user's install directory, without taking it.
    static LockState Look(const QString& installDir, bool isRoots);

    // For a child process between fork and exec: lets it hold the lock too.
    void Inherit() const;

private:
    Failure OpenFile(const std::string& path, mode_t mode);
    Failure OpenDirectory(const std::string& path);

    // Returns 0 or errno; EWOULDBLOCK when another process has the lock.
    int TryLock() const;

    std::string m_path;
    int m_descriptor = -1;
};
