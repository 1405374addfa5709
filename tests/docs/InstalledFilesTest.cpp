// The files, modes, and owners in the administrator's guide are those of real setups.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "apps/RootSetup.h"
#include "apps/UserSetup.h"
#include "docs/Texts.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"

namespace {

struct ListedFile {
    std::string path;      // relative to the install directory, or absolute
    std::string rootMode;  // empty for a link
    std::string userMode;
    std::string owner;
    std::string when;
};

std::vector<ListedFile> ListedFiles() {
    const std::string guide = hx_test::ReadFile(HX_DOCS "/administrator.md");
    const std::string section = hx_docs::Between(guide, "\n## What is made\n", "\n## ");
    std::vector<ListedFile> files;
    for (const std::string& line : hx_docs::Lines(section)) {
        const std::vector<std::string> cells = hx_docs::Matches(line, "\\| ([^|]*)(?= \\||\\|)");
        if (cells.size() != 4)
            continue;
        const std::vector<std::string> modes =
            hx_docs::Matches(cells[1].substr(0, cells[1].find(';')), "([0-7]{3})");
        for (const std::string& path : hx_docs::Matches(cells[0], "`([^`]+)`")) {
            files.push_back(
                {path, modes.empty() ? "" : modes.front(), modes.empty() ? "" : modes.back(),
                 cells[2].starts_with("S") ? "corvsrvc:corvsrvc" : "root:root", cells[3]});
            // The umask that the tests below set.
            if (cells[1].find("666 less the umask") != std::string::npos)
                files.back().rootMode = "644";
        }
    }
    return files;
}

// Returns a shell pattern that matches the file or directory.
std::string Pattern(const ListedFile& file, const std::string& installDirectory) {
    std::string path = file.path;
    if (const size_t unknown = path.find("XXXXXX"); unknown != std::string::npos)
        path.replace(unknown, 6, "??????");
    return path.starts_with('/') ? path : installDirectory + "/" + path;
}

class InstalledFiles : public testing::Test {
protected:
    ~InstalledFiles() override { umask(m_former); }
    const mode_t m_former = umask(022);
};

TEST_F(InstalledFiles, MatchGuideAfterSetupAsRoot) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::vector<ListedFile> files = ListedFiles();
    EXPECT_GT(files.size(), 20U);
    HX_EXPECT_SCENARIO([&files] {
        LayOutRootSetup();
        // An earlier version was installed.
        const std::string repository = "/corvanerc/corvane24server/CorvaneServerRepository";
        Shell("umask 002; mkdir -p /var/corvane" + repository);
        const auto setup = RunRootSetup({"--yes", "--submission-scripts"});
        ASSERT_EQ(setup.status, 0) << setup.out << setup.err;
        for (const ListedFile& file : files) {
            if (file.when.starts_with("another user's setup"))
                continue;
            const std::string wanted =
                (file.rootMode.empty() ? "777 " : file.rootMode + " ") + file.owner;
            EXPECT_EQ(Shell("stat -c '%a %U:%G' " + Pattern(file, "/var/corvane")), wanted)
                << file.path;
        }
        EXPECT_EQ(Shell("find /var/corvane/corvanerc/corvane26server/icons -type f ! -perm 644"),
                  "");
    });
}

TEST_F(InstalledFiles, MatchGuideAfterSetupAsUser) {
    HX_REQUIRE_NAMESPACES();
    const UserSetup setup;
    ASSERT_EQ(setup.Run({"--setup", "--user-mode", "--yes", "--submission-scripts"}).status, 0);
    for (const ListedFile& file : ListedFiles()) {
        // A link has no mode. The link to the repository needs an earlier version.
        if (file.when.starts_with("root's setup") || file.rootMode.empty())
            continue;
        const auto mode =
            setup.RunProgram({"/bin/sh", "-c", "stat -c %a " + Pattern(file, setup.Inside("."))});
        EXPECT_EQ(mode.out, file.userMode + "\n") << file.path;
    }
}

}  // namespace
