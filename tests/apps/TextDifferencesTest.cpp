// What the report of a setup shows of the files that it changes.
#include "report/TextDifferences.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "harness/Child.h"
#include "harness/Expect.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"

namespace {

namespace fs = std::filesystem;
using hx_test::WriteFile;

constexpr const char* emptyDigest =
    "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

// A live and a staged install directory "T", and an upper layer of /etc.
class TextDifferences : public testing::Test {
protected:
    void SetUp() override {
        for (const char* name : {"live", "staged", "etc"})
            fs::create_directory(At(name));
    }

    std::string At(const std::string& name) const { return m_directory / name; }

    static Descriptor Open(const std::string& path) {
        return Descriptor(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    }

    // The state of a path below a directory.
    State StateOf(const std::string& directory, const std::string& path) const {
        return *ReadStateAt(Open(At(directory)).Number(), path, Reading::AllFiles);
    }

    // Adds the difference between the live and the staged file, as the comparison finds it.
    PathDifference& Add(const std::string& path) {
        const Descriptor live = Open(At("live"));
        const State before = *ReadStateAt(live.Number(), path, Reading::PublicFiles);
        const State after = StateOf("staged", path);
        const Change change = before.kind == State::Kind::Missing  ? Change::Create
                              : after.kind == State::Kind::Missing ? Change::Delete
                                                                   : Change::Modify;
        m_differences.paths.push_back({change, "/T/" + path, before, after});
        return m_differences.paths.back();
    }

    // Adds a file with these contents.
    void AddFile(const std::string& path, const std::string& live, const std::string& staged) {
        WriteFile(At("live/") + path, live);
        WriteFile(At("staged/") + path, staged);
        Add(path);
    }

    std::string Output(std::chrono::seconds longest = std::chrono::seconds(60)) const {
        StagedMachine staged;
        staged.installDir = "/T";
        staged.conditions = m_conditions;
        staged.tree = Open(At("staged"));
        staged.etc = Open(At("etc"));
        const Descriptor live = Open(At("live"));
        const auto result = hx_test::RunInChild(
            {}, [&] { PrintTextDifferences(staged, live.Number(), m_differences, longest); });
        EXPECT_EQ(result.status, 0) << result.out;
        EXPECT_EQ(result.err, "");
        return result.out;
    }

    hx_test::TempDir m_directory;
    unsigned m_conditions = AnySetup;
    Differences m_differences;
};

TEST_F(TextDifferences, ShowsUnifiedDiffs) {
    AddFile("limits", "MaxThreads: 8\nScratch:\t/tmp\n", "MaxThreads: 12\nScratch:\t/tmp");
    EXPECT_EQ(Output(),
              "--- /T/limits\n+++ /T/limits\n@@ -1,2 +1,2 @@\n-MaxThreads: 8\n-Scratch:\t/tmp\n"
              "+MaxThreads: 12\n+Scratch:\t/tmp\n\\ No newline at end of file\n");
}

TEST_F(TextDifferences, ShowsCreatedAndDeletedFiles) {
    WriteFile(At("staged/new"), "a\n");
    Add("new");
    WriteFile(At("live/old"), "b\n");
    Add("old");
    WriteFile(At("etc/hx-new"), "c\n");
    m_differences.paths.push_back(
        {Change::Create, "/etc/hx-new", State(), StateOf("etc", "hx-new")});
    EXPECT_EQ(Output(),
              "--- /dev/null\n+++ /T/new\n@@ -0,0 +1 @@\n+a\n"
              "--- /T/old\n+++ /dev/null\n@@ -1 +0,0 @@\n-b\n"
              "--- /dev/null\n+++ /etc/hx-new\n@@ -0,0 +1 @@\n+c\n");
}

// The report shows them.
TEST_F(TextDifferences, LeavesOutWhatHasNoContent) {
    AddFile("mode", "a\n", "a\n");
    chmod(At("staged/mode").c_str(), 0600);
    Add("mode");
    symlink("x", At("staged/link").c_str());
    Add("link");
    fs::create_directory(At("staged/directory"));
    Add("directory");
    // Jobs in QueueEntries are not compared.
    AddFile("queue", "a\n", "b\n");
    m_differences.paths.back().before.digest.clear();
    m_differences.paths.back().after.digest.clear();
    EXPECT_EQ(Output(), "No file content changes.\n");
}

TEST_F(TextDifferences, LeavesOutNewWebPages) {
    WriteFile(At("staged/page"), "a\n");
    for (const Entry& entry : Entries()) {
        if (entry.ownsAllBelow)
            Add("page").entry = &entry;
    }
    EXPECT_EQ(Output(), "No file content changes.\n");
    Add("page").entry = &Find(Item::RunScript);
    EXPECT_EQ(Output(), "--- /dev/null\n+++ /T/page\n@@ -0,0 +1 @@\n+a\n");
}

TEST_F(TextDifferences, ShowsSizeAndChecksumOfBinaryFiles) {
    WriteFile(At("staged/new"), std::string("a\0b", 3));
    Add("new");
    AddFile("changed", std::string(1, '\0'), "");
    EXPECT_EQ(Output(),
              // sha256sum
              "/T/new: binary file\n  before: none\n  after:  3 bytes, SHA-256 "
              "59b271ae1bbcb1d31d41929817f4b16fb439eb4f31520b5ad1d5ce98920a7138\n"
              "/T/changed: binary file\n  before: 1 bytes, SHA-256 "
              "6e340b9cffb37a989ca544e6bb780a2c78901d3fb33738768511a30617afa01d\n"
              "  after:  0 bytes, SHA-256 " +
                  std::string(emptyDigest) + "\n");
}

// Terminal escape sequences, other control characters, text in the other direction, and a name.
TEST_F(TextDifferences, ShowsNoControlCharacters) {
    AddFile("a\nb\x1b[2J", "\x1b]0;x\a\r\n\xc2\x9b\x37m\n\xe2\x80\xae\n\xff\n", "");
    EXPECT_EQ(Output(),
              "--- /T/a?b?[2J\n+++ /T/a?b?[2J\n@@ -1,4 +0,0 @@\n"
              "-?]0;x??\n-?7m\n-?\n-\xef\xbf\xbd\n");
}

struct RefusedCase {
    const char* name;
    std::function<void(const std::string& live)> change;  // after the comparison
    const char* shown;
};

TEST_F(TextDifferences, NamesFilesThatAreNotShown) {
    const std::string secret = At("secret");
    WriteFile(secret, "secret\n");
    chmod(secret.c_str(), 0640);
    const std::function<void(const std::string&)> toLink = [&](const std::string& live) {
        fs::remove(live);
        fs::create_symlink(secret, live);
    };
    const RefusedCase cases[] = {
        {"private", [](const auto& live) { chmod(live.c_str(), 0660); },
         "other users cannot read it"},
        {"hard-link",
         [&](const auto& live) {
             fs::remove(live);
             fs::create_hard_link(secret, live);
         },
         "other users cannot read it"},
        {"link", toLink, "it is not a regular file"},
        {"fifo",
         [](const auto& live) {
             fs::remove(live);
             mkfifo(live.c_str(), 0666);
         },
         "it is not a regular file"},
        {"directory",
         [](const auto& live) {
             fs::remove(live);
             fs::create_directory(live);
         },
         "it is not a regular file"},
        {"deleted", [](const auto& live) { fs::remove(live); }, "No such file or directory"},
        {"changed", [](const auto& live) { WriteFile(live, "other\n"); },
         "it changed after the comparison"},
        {"appended", [](const auto& live) { fs::resize_file(live, 9); },
         "it changed after the comparison"},
        {"huge", [](const auto& live) { fs::resize_file(live, (64 << 20) + 1); },
         "it is larger than 64 MB"},
    };
    for (const auto& [name, change, shown] : cases) {
        m_differences.paths.clear();
        AddFile(name, "old\n", "new\n");
        change(At("live/") + name);
        EXPECT_EQ(Output(), "/T/" + std::string(name) + ": content not shown: " + shown + "\n");
    }
}

TEST_F(TextDifferences, ShowsNothingOfPrivateDirectoriesAndFiles) {
    fs::create_directories(At("live/private"));
    fs::create_directories(At("staged/private"));
    chmod(At("live/private").c_str(), 0770);
    AddFile("private/file", "secret\n", "new\n");
    AddFile("file", "old\n", "new\n");
    chmod(At("staged/file").c_str(), 0640);
    EXPECT_EQ(Output(),
              "/T/private/file: content not shown: other users cannot read it\n"
              "/T/file: content not shown: other users cannot read it\n");
}

TEST_F(TextDifferences, ShowsPrivateFilesToTheirUser) {
    m_conditions = Condition::AsUser;
    for (const char* name : {"live/private", "staged/private"}) {
        fs::create_directories(At(name));
        chmod(At(name).c_str(), 0700);
    }
    WriteFile(At("live/private/file"), "old\n");
    WriteFile(At("staged/private/file"), "new\n");
    m_differences.paths.push_back({Change::Modify, "/T/private/file",
                                   StateOf("live", "private/file"),
                                   StateOf("staged", "private/file")});
    EXPECT_EQ(Output(), "--- /T/private/file\n+++ /T/private/file\n@@ -1 +1 @@\n-old\n+new\n");
}

TEST_F(TextDifferences, ReadsFilesOfOtherUsersAsUser) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        WriteFile("/srv/file", "a");
        const Descriptor directory = Open("/srv");
        ASSERT_EQ(seteuid(4001), 0);
        const auto content = ReadContent(directory.Number(), "file", Reading::AllFiles);
        ASSERT_TRUE(content);
        EXPECT_EQ(content->bytes, "a");
        // For the check for leaks.
        EXPECT_EQ(seteuid(0), 0);
        prctl(PR_SET_DUMPABLE, 1);
    });
}

TEST_F(TextDifferences, LimitsDiffAndItsOutputToOneMegabyte) {
    const std::string line = std::string(1023, 'x') + '\n';
    std::string lines;
    for (int i = 0; i < 1024; ++i)
        lines += line;
    AddFile("large", lines + '\n', "");
    AddFile("lines", lines, "");
    const std::string out = Output();
    EXPECT_TRUE(out.starts_with("/T/large: large file\n  before: 1048577 bytes, SHA-256 "))
        << out.substr(0, 200);
    hx_test::ExpectHolds(out, "--- /T/lines\n+++ /T/lines\n@@ -1,1024 +0,0 @@\n-" + line);
    EXPECT_TRUE(out.ends_with("-" + line + "/T/lines: the rest is not shown\n"));
    EXPECT_LE(out.size(), 1050000U);
}

TEST_F(TextDifferences, NamesFilesForWhichDiffFails) {
    const std::string path = getenv("PATH");
    AddFile("file", "old\n", "new\n");
    const std::string program = At("bin/diff");
    fs::create_directory(At("bin"));
    setenv("PATH", At("bin").c_str(), 1);
    EXPECT_EQ(Output(), "/T/file: content not shown: diff failed: No such file or directory\n");
    const struct {
        const char* script;
        const char* shown;
    } cases[] = {{"echo part; printf 'a\\033[2J' >&2; exit 2", "a?[2J"},
                 {"exec /bin/sleep 60", "the process did not end within 1 seconds"}};
    for (const auto& [script, shown] : cases) {
        WriteFile(program, std::string("#!/bin/sh\n") + script + "\n");
        chmod(program.c_str(), 0755);
        EXPECT_EQ(Output(std::chrono::seconds(1)),
                  "/T/file: content not shown: diff failed: " + std::string(shown) + "\n");
    }
    setenv("PATH", path.c_str(), 1);
}

}  // namespace
