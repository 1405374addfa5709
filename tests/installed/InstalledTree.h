// Installations of this build in temporary directories.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "harness/Process.h"
#include "harness/TempDir.h"

// One installation, removed with its object.
class InstalledTree {
public:
    enum class Way {
        Prefix,   // in a prefix that was moved afterwards
        Staged,   // for /usr, staged with DESTDIR
        Runtime,  // the component that runs a setup
        Development
    };
    explicit InstalledTree(Way way);

    // Returns a path below the current prefix.
    std::string Path(const std::string& name = {}) const { return m_prefix + "/" + name; }
    std::string Product() const { return Path("lib/corvane26"); }

    // The directories of the CMake package and of the pkg-config files.
    std::string CMakePackage() const;
    std::string PkgConfig() const;

    // Returns the files and links below a directory of the prefix, such as "docroot/icons.tar 644"
    // or "libX.so -> libX.so.1".
    std::set<std::string> Files(const std::string& directory) const;

    // Returns the prefix that was passed to `cmake --install`.
    const std::string& PrefixWhenInstalled() const { return m_given; }

    // Returns an installation that all tests share.
    static const InstalledTree& Moved();

private:
    std::string DirectoryOf(const std::string& file) const;

    hx_test::TempDir m_root;
    std::string m_given;
    std::string m_prefix;
};

// Runs the command, expects it to succeed, and returns its standard output.
std::string RunWell(const std::vector<std::string>& command,
                    const hx_test::ProcessOptions& options = {});
