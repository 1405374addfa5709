// Installations of this build in directories of the test's own.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "harness/Process.h"
#include "harness/TempDir.h"

// One installation, gone with its object.
class InstalledTree {
public:
    enum class Way {
        Prefix,   // into a prefix, which was moved since then
        Staged,   // for /usr, staged with DESTDIR
        Runtime,  // what runs a setup, and nothing else
        Development
    };
    explicit InstalledTree(Way way);

    // A path below the prefix, as it can be reached now.
    std::string Path(const std::string& name = {}) const { return m_prefix + "/" + name; }
    std::string Product() const { return Path("lib/corvane26"); }

    // The folders of the CMake package and of the pkg-config files.
    std::string CMakePackage() const;
    std::string PkgConfig() const;

    // What stands below a directory of the prefix, by its name there: plain files and links, such
    // as "docroot/icons.tar 644" or "libX.so -> libX.so.1".
    std::set<std::string> Files(const std::string& directory) const;

    // The path that `cmake --install` was given.
    const std::string& PrefixWhenInstalled() const { return m_given; }

    // The prefix is moved once; then all tests of the program share it.
    static const InstalledTree& Moved();

private:
    std::string DirectoryOf(const std::string& file) const;

    hx_test::TempDir m_root;
    std::string m_given;
    std::string m_prefix;
};

// Runs the command and expects it to succeed; returns what it wrote to stdout.
std::string RunWell(const std::vector<std::string>& command,
                    const hx_test::ProcessOptions& options = {});
