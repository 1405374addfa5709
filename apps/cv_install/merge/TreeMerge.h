// Brings staged files, directories and links into the live machine.
#pragma once

#include <memory>

#include "Problem.h"
#include "installation/Difference.h"
#include "installation/StagedMachine.h"
#include "merge/Undo.h"

// An undo also deletes entries of the tree and empty directories. It fails if an entry is no longer
// the one that was compared, and creates files and links again rather than changing their owner. So
// does a repair, which also replaces what is in place of a directory, follows no link to the
// install directory, and restores directories of any owner: its plan decides which.
enum class MergePurpose { Setup, Undo, Repair };

// Members of the service group and the service account can rename, exchange, link and plant
// anything in the install tree at any moment. New content is therefore made in a private directory
// of root's and goes to its place by an exchange; what was there is looked at only then. A regular
// user merges into a private copy in the same way, without the checks that protect root.
class TreeMerge {
public:
    // `account` and `group` are the ids of the service account, which must exist by then;
    // `recordedAccount` is that of the last setup, or -1. A regular user passes the own ids and -1.
    // Steps in an Undo use the object.
    TreeMerge(const StagedMachine& staged, uid_t account, gid_t group, uid_t recordedAccount,
              MergePurpose purpose = MergePurpose::Setup);
    ~TreeMerge();
    TreeMerge(const TreeMerge&) = delete;
    TreeMerge& operator=(const TreeMerge&) = delete;

    // Places the differences inside the install directory, in order. A setup deletes only web pages
    // there that an earlier setup wrote. First removes what a killed setup left, so call it without
    // differences too.
    Failure PlaceInTree(const std::vector<PathDifference>& differences, Undo& undo);

    // Places, replaces and deletes the differences outside the install directory, where a regular
    // user has none.
    Failure PlaceOutside(const std::vector<PathDifference>& differences, Undo& undo);

    // Opens everything again by name: each entry that was placed must still be the inode that was
    // placed, with its mode, owner and access control list.
    Failure Verify() const;

    // After the merge is complete: discards what was replaced, and removes directories. A replaced
    // directory that is not empty goes back into the tree under a dated name, which is reported. A
    // deleted one that is not empty stays, which is reported too.
    void Finish();

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};
