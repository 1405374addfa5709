#include "installed/InstalledTree.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

namespace {

namespace fs = std::filesystem;

std::string Describe(const fs::directory_entry& entry, const fs::path& directory) {
    const std::string name = entry.path().lexically_relative(directory).string();
    if (entry.is_symlink())
        return name + " -> " + fs::read_symlink(entry.path()).string();
    char mode[8];
    std::snprintf(mode, sizeof mode, " %o", static_cast<unsigned>(entry.status().permissions()));
    return name + mode;
}

}  // namespace

std::string RunWell(const std::vector<std::string>& command,
                    const hx_test::ProcessOptions& options) {
    const auto result = hx_test::Run(command, options);
    EXPECT_EQ(result.status, 0) << command.front() << ":\n" << result.out << result.err;
    return result.out;
}

InstalledTree::InstalledTree(Way way) : m_given(m_root / "given"), m_prefix(m_root / "prefix") {
    std::vector<std::string> command = {HX_CMAKE, "--install", HX_BUILD_DIR, "--prefix", m_given};
    hx_test::ProcessOptions options;
    options.unset = {"DESTDIR"};
    switch (way) {
        case Way::Prefix:
            break;
        case Way::Staged:
            command.back() = "/usr";
            options = {.env = {{"DESTDIR", m_given}}};
            break;
        case Way::Runtime:
            command.insert(command.end(), {"--component", "runtime"});
            break;
        case Way::Development:
            command.insert(command.end(), {"--component", "development"});
            break;
    }
    RunWell(command, options);
    fs::rename(way == Way::Staged ? m_given + "/usr" : m_given, m_prefix);
}

std::string InstalledTree::DirectoryOf(const std::string& file) const {
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(Path("lib"))) {
        if (entry.path().filename() == file)
            return entry.path().parent_path().string();
    }
    ADD_FAILURE() << file << " is not installed";
    return {};
}

std::string InstalledTree::CMakePackage() const {
    return DirectoryOf("HXInstallBaseConfig.cmake");
}

std::string InstalledTree::PkgConfig() const {
    return DirectoryOf("HXInstallBase.pc");
}

std::set<std::string> InstalledTree::Files(const std::string& directory) const {
    std::set<std::string> files;
    const fs::path start = Path(directory);
    if (!fs::exists(start))
        return files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(start)) {
        if (entry.is_symlink() || !entry.is_directory())
            files.insert(Describe(entry, start));
    }
    return files;
}

const InstalledTree& InstalledTree::Moved() {
    static const InstalledTree tree(Way::Prefix);
    return tree;
}
