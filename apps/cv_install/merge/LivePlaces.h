// Where a merge places entries on the live machine.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "merge/MergePaths.h"
#include "merge/PrivateDirectory.h"

// A directory, a name in it, and the private directory on the same file system.
struct LivePlace {
    DirectoryPointer parent;
    std::string name;
    PrivateDirectory* holder = nullptr;

    int Parent() const { return parent->descriptor.Number(); }
    std::string Path() const { return parent->path + '/' + name; }
};

class LivePlaces {
public:
    // With `isExact`, no link to the install directory is followed, and something else in its place
    // counts as none.
    LivePlaces(std::string installDir, const TreeOwners& owners, bool isExact = false);

    // Opens the install directory if it exists. First removes what a killed setup left there. With
    // `refusesFuse`, fails if a FUSE file system is mounted at or below it.
    Failure OpenTree(bool refusesFuse = true);

    // After the install directory was placed.
    void OpenNewTree(const LivePlace& place);

    // True for a path in the install tree, and for the install directory.
    bool IsInTree(const std::string& path) const;

    // Opens the directory that contains an absolute path. It is opened again each time: an entry
    // goes where its path leads now.
    Failure OpenParent(const std::string& path, LiveDirectory& parent, std::string& name) const;

    // Sets `place` to that of an absolute path, with a private directory.
    Failure FindPlace(const std::string& path, LivePlace& place);

    // Removes what a killed setup left in the directories of the installation table that are
    // outside of the tree.
    void CleanUpOutside() const;

    // Fails when another directory is at the path of the install directory now.
    Failure VerifyTree() const;

    // Removes the private directories.
    void RemoveHolders() { m_holders.clear(); }

private:
    Failure OpenAbove(const std::string& path, bool followsLast, RootPath& opened) const;
    Failure FindHolder(const DirectoryPointer& parent, PrivateDirectory*& holder);

    const std::string m_installDir;
    const TreeOwners m_owners;
    const bool m_isExact;
    DirectoryPointer m_tree;  // null while it does not exist
    std::map<std::string, std::unique_ptr<PrivateDirectory>> m_holders;  // by directory
};
