// Dry runs of regular users against the setups that follow, and what a dry run refuses.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "apply/ScriptRun.h"
#include "apps/JsonSchema.h"
#include "apps/Leaks.h"
#include "apps/UserSetup.h"
#include "harness/Expect.h"
#include "installation/Installation.h"
#include "machine/ThrowawayRoot.h"
#include "staging/TreeCopy.h"
#include "staging/UserView.h"

namespace {

namespace fs = std::filesystem;
using hx_test::ExpectHolds;
using hx_test::ProcessResult;

// A private copy below /tmp, and the setups of one user.
class PrivateCopy {
public:
    PrivateCopy() { fs::copy(HX_TREE_CHANGES, m_setup.Root() + "/tree_changes.py"); }
    virtual ~PrivateCopy() = default;

    virtual ProcessResult Run(const std::vector<std::string>& command) const {
        return m_setup.RunProgram(command);
    }

    ProcessResult RunSetup(std::vector<std::string> options) const {
        options.insert(options.begin(), {"--setup", "--user-mode", "--yes"});
        return Run(m_setup.Command(options));
    }

    // Everything below /tmp, with times.
    std::string List() const {
        const auto result =
            Run({"/usr/bin/python3", "-BI", "/tmp/tree_changes.py", "list", "/tmp"});
        EXPECT_EQ(result.status, 0) << result.err;
        return result.out;
    }

    // Changes the product directory from outside.
    void Prepare(const std::string& commands) const {
        const auto result =
            hx_test::Run({"sh", "-ec", "cd '" + m_setup.Outside("") + "'; " + commands});
        EXPECT_EQ(result.status, 0) << result.err;
    }

    std::string Logs() const { return hx_test::Run({"ls", "-l", Root()}).out; }

    std::string Root() const { return m_setup.Root(); }

protected:
    const UserSetup m_setup;
};

// As above, with a group besides the user's own.
class CopyOfMember : public PrivateCopy {
public:
    static constexpr const char* member =
        "mount --bind \"$0/var\" /var && mount --bind \"$0\" /tmp && "
        "exec setpriv --reuid=4001 --regid=4001 --groups=4002 "
        "env --unset=TMPDIR XDG_STATE_HOME=/tmp/state \"$@\"";

    CopyOfMember() {
        fs::create_directory(Root() + "/var");
        Prepare("chown -R 4001:4001 ..");
    }

    ProcessResult Run(const std::vector<std::string>& command) const override {
        std::vector<std::string> all = {"unshare", "--mount", "sh", "-c", member, Root()};
        all.insert(all.end(), command.begin(), command.end());
        hx_test::ProcessOptions options;
        options.workingDirectory = "/";
        options.env["LSAN_OPTIONS"] = LeakOptions("/tmp/lsan.supp");
        return hx_test::Run(all, options);
    }
};

std::vector<std::string> With(std::vector<std::string> options,
                              const std::vector<std::string>& more) {
    options.insert(options.end(), more.begin(), more.end());
    return options;
}

enum class Expected { Changes, NoChanges };

void ExpectReportOf(const std::string& before, const std::string& after, const std::string& report,
                    Expected expected) {
    const hx_test::TempDir files;
    hx_test::WriteFile(files / "before", before);
    hx_test::WriteFile(files / "after", after);
    hx_test::WriteFile(files / "report", report);
    const auto compared =
        hx_test::Run({"/usr/bin/python3", "-BI", HX_TREE_CHANGES, "compare", files / "before",
                      files / "after", files / "report", "/tmp/product"});
    EXPECT_EQ(compared.out + compared.err, "");
    EXPECT_EQ(compared.status, expected == Expected::Changes ? 0 : 3);
}

// The dry run leaves nothing, and lists exactly what the setup then changes. With --if-needed, that
// setup lists it, too.
void ExpectListedChanges(const PrivateCopy& copy, const std::vector<std::string>& options,
                         Expected expected, const std::vector<std::string>& ifNeeded = {}) {
    const std::string before = copy.List();
    const auto dry = copy.RunSetup(With(options, {"--dry-run", "--json", "-"}));
    EXPECT_EQ(dry.status, 0) << dry.err;
    EXPECT_EQ(copy.List(), before);
    ExpectReport(dry.out, R"({"action": "dry-run", "status": 0, "log": null})");
    const auto setup = copy.RunSetup(With(options, ifNeeded));
    EXPECT_EQ(setup.status, 0) << setup.out << setup.err;
    const std::string after = copy.List();
    ExpectReportOf(before, after, dry.out, expected);
    if (ifNeeded.empty())
        return;
    const bool changed = expected == Expected::Changes;
    ExpectReport(setup.out, std::string(R"({"action": "setup", "changed": )") +
                                (changed ? "true}" : R"(false, "log": null})"));
    ExpectReportOf(before, after, setup.out, expected);
}

TEST(UserDryRun, ListsWhatSetupChanges) {
    HX_REQUIRE_NAMESPACES();
    const PrivateCopy copy;
    // Measured limits could differ from one setup to the next.
    const std::vector<std::string> limits = {"-m", "777", "-s", "5"};
    const std::vector<std::string> ifNeeded = {"--if-needed", "--json", "-"};
    ExpectListedChanges(copy, limits, Expected::Changes);
    const auto logs = copy.Logs();
    ExpectListedChanges(copy, {}, Expected::NoChanges, ifNeeded);
    EXPECT_EQ(copy.Logs(), logs);
    copy.Prepare(
        "echo job > QueueEntries; chmod 600 QueueEntries QueueLimits; chmod 750 corvane26;"
        "echo edited >> corvane26_snapshot; chmod 444 qchemrc/qchemrc; echo > qchemrc/qcscratch;"
        "rm -r corvanerc/corvane26server; ln -s /tmp/product/docroot link;"
        "mkdir -p corvanerc/corvane24server/CorvaneServerRepository");
    ExpectListedChanges(copy, {"-m", "500", "--submission-scripts", "-p", "chem"},
                        Expected::Changes, ifNeeded);
}

TEST(UserDryRun, ListsPagesOfNewProduct) {
    HX_REQUIRE_NAMESPACES();
    const PrivateCopy copy;
    const std::vector<std::string> limits = {"-m", "777", "-s", "5"};
    EXPECT_EQ(copy.RunSetup(limits).status, 0);
    copy.Prepare(
        "echo own > corvanerc/corvane26server/resources/own.html; cd docroot;"
        "tar -xf resources.tar; cd resources; mkdir js; echo new > index.html; echo new > "
        "js/new.js;"
        "rm style.css; cd ..; tar -cf resources.tar resources; rm -r resources");
    ExpectListedChanges(copy, {}, Expected::Changes);
    ExpectListedChanges(copy, {}, Expected::NoChanges);
}

TEST(UserDryRun, ShowsContentsWithDiff) {
    HX_REQUIRE_NAMESPACES();
    const PrivateCopy copy;
    copy.Prepare("mkdir qchemrc; echo /old > qchemrc/qcscratch");
    const auto result = copy.RunSetup({"-d", "/tmp", "--dry-run", "--diff", "--quiet"});
    EXPECT_EQ(result.status, 0) << result.err;
    ExpectHolds(result.out, "\n-/old\n+/tmp\n");
}

// The answers are asked once.
TEST(UserIfNeeded, SetsUpOnceForSameAnswers) {
    HX_REQUIRE_NAMESPACES();
    const UserSetup setup;
    const std::vector<std::string> asking = {"--setup", "--user-mode", "--if-needed"};
    const std::string answers = "2\n500\n/tmp\n7\n1\n";
    const auto first = setup.Run(asking, answers);
    EXPECT_EQ(first.status, 0) << first.err;
    ExpectHolds(first.out, "  Installed: /tmp/product\n");
    EXPECT_EQ(setup.File("QueueLimits"),
              "MaxThreads: 2\nMemoryPerThreadMB: 500\nScratch: /tmp\nDiskPerThreadGB: 7\n");
    const auto second = setup.Run(With(asking, {"--yes"}));
    EXPECT_EQ(second.status, 0) << second.err;
    EXPECT_TRUE(second.out.ends_with("\nNothing to do.\n")) << second.out;
}

// New entries of a setgid directory get its group, and modes by its access control list.
TEST(UserDryRun, ListsGroupsOfSetgidDirectory) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const CopyOfMember copy;
    const std::vector<std::string> limits = {"-m", "777", "-s", "5"};
    copy.Prepare("chgrp 4002 .; chmod 2775 .");
    ExpectListedChanges(copy, limits, Expected::Changes);
    copy.Prepare(
        "rm -r qchemrc corvanerc/corvane26server; chgrp 4001 corvane26; chmod 444 QueueLimits;"
        "chown 0 corvanerc QueueEntries; chmod 2575 corvanerc; chmod 644 QueueEntries;"
        "mkdir -m 700 qchemrc; chown 4001:4001 qchemrc; chmod u+w QueueLimits;"
        // Permissions of user, named user, group, mask, others.
        "/usr/bin/python3 -BIc 'import os, struct; os.setxattr(\"corvanerc\", "
        "\"system.posix_acl_default\", struct.pack(\"<I\", 2) + b\"\".join(struct.pack(\"<HHI\", "
        "*row) for row in ((1, 7, -1 & 0xffffffff), (2, 7, 4003), (4, 5, -1 & 0xffffffff), "
        "(16, 5, -1 & 0xffffffff), (32, 0, -1 & 0xffffffff))))'");
    ExpectListedChanges(copy, {"-m", "500"}, Expected::Changes);
}

TEST(UserDryRun, IsRefusedInSharedTree) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const CopyOfMember copy;
    copy.Prepare(
        "mkdir ../var/corvane; cd ../var/corvane; chgrp 4002 .; chmod 2775 .;"
        "echo > corvane26; chown 4003 corvane26");
    const std::string before = copy.List();
    const auto result = copy.RunSetup({"--dry-run"});
    EXPECT_EQ(result.status, 8) << result.out;
    EXPECT_EQ(result.err,
              "cv_install: cannot change the mode of \"/var/corvane/corvane26\": owned by another "
              "user\n    Run the setup as root.\n    No changes were made.\n");
    EXPECT_EQ(copy.List(), before);
}

// `directory` represents the install directory.
std::string ReasonAgainst(const std::string& directory, unsigned conditions) {
    const Descriptor tree(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const Failure failure = FindUnstagedEntry(tree, QStringLiteral("/T"), conditions);
    if (!failure)
        return "";
    EXPECT_EQ(failure->status, ExitStatus::NoDryRun);
    return failure->text.toStdString();
}

TEST(UserDryRun, RefusesEntryThatCopyDoesNotShow) {
    const unsigned head = AsUser | WithoutClusterNode;
    const std::string prefix = "cannot find out what a setup would change: \"/T/";
    const struct {
        const char* commands;
        std::string reason;
        unsigned conditions = AsUser | WithoutClusterNode;
    } cases[] = {
        {"mkdir corvanerc qchemrc; touch QueueEntries; ln -s gone other", ""},
        {"mkdir ../jobs; ln -s ../jobs corvanerc", prefix + "corvanerc\" is a symbolic link"},
        {"touch qchemrc", prefix + "qchemrc\" is not a directory"},
        {"ln -s QueueLimits corvane26", prefix + "corvane26\" is a symbolic link"},
        {"mkfifo corvane26", prefix + "corvane26\" is not a regular file"},
        {"mkdir corvane26", prefix + "corvane26\" is not a regular file"},
        {"touch corvane26; ln corvane26 other", prefix + "corvane26\" has more than one hard link"},
        // Kept as it is, until the mode changes.
        {"touch QueueEntries; chmod 644 QueueEntries; ln QueueEntries other", ""},
        {"touch QueueEntries; chmod 600 QueueEntries; ln QueueEntries other",
         prefix + "QueueEntries\" has more than one hard link"},
        {"ln -s gone corvane26_ssh", ""},
        {"ln -s gone corvane26_ssh", prefix + "corvane26_ssh\" is a symbolic link",
         head | WithSubmissionScripts},
    };
    for (const auto& [commands, reason, conditions] : cases) {
        SCOPED_TRACE(commands);
        const hx_test::TempDir directory;
        fs::create_directory(directory / "T");
        hx_test::Run({"sh", "-c", "cd " + directory / "T" + "; " + commands});
        EXPECT_EQ(ReasonAgainst(directory / "T", conditions), reason);
    }
}

TEST(UserDryRun, RefusesFileOfAnotherUser) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const hx_test::TempDir directory;
    const std::string limits = directory / "QueueLimits";
    hx_test::WriteFile(limits, "");
    EXPECT_EQ(chown(limits.c_str(), 4001, 4001), 0);
    EXPECT_EQ(ReasonAgainst(directory.path(), AsUser),
              "cannot find out what a setup would change: \"/T/QueueLimits\" is owned by another "
              "user");
}

TEST(UserDryRun, NamesWhatForbidsUserNamespaces) {
    const std::string elsewhere =
        "Make sure that no container or chroot forbids them, or run cv_install outside of it.";
    const struct {
        const char* name;
        const char* value;
        std::string remedy;
    } cases[] = {
        {"kernel/unprivileged_userns_clone", "0\n",
         "Run as root: sysctl --write kernel.unprivileged_userns_clone=1."},
        {"kernel/unprivileged_userns_clone", "1\n", elsewhere},
        {"user/max_user_namespaces", "0\n",
         "Run as root: sysctl --write user.max_user_namespaces=10000."},
        {"kernel/apparmor_restrict_unprivileged_userns", "1\n",
         "Run as root: sysctl --write "
         "kernel.apparmor_restrict_unprivileged_userns=0."},
        {"kernel/other", "0\n", elsewhere},
    };
    for (const auto& [name, value, remedy] : cases) {
        const hx_test::TempDir settings;
        fs::create_directory(settings / "kernel");
        fs::create_directory(settings / "user");
        hx_test::WriteFile(settings / name, value);
        EXPECT_EQ(UserView::RemedyFor(settings.path()).toStdString(), remedy) << name;
    }
}

TEST(UserDryRun, IsImpossibleInChroot) {
    HX_REQUIRE_NAMESPACES();
    const auto result = hx_test::RunInChild({.identity = hx_test::World::Identity::Root}, [] {
        EXPECT_FALSE(UserView::FindObstacle());
        const Descriptor top(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
        ASSERT_EQ(chroot("/usr"), 0);
        const Failure failure = UserView::FindObstacle();
        // A leak checker needs /proc.
        ASSERT_EQ(fchdir(top.Number()), 0);
        ASSERT_EQ(chroot("."), 0);
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->status, ExitStatus::NoDryRun);
        EXPECT_EQ(failure->text.toStdString(),
                  "cannot find out what a setup would change: user namespaces are not available: "
                  "Operation not permitted");
    });
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(UserDryRun, NeedsSpaceForCommitScript) {
    HX_REQUIRE_NAMESPACES();
    const auto result = hx_test::RunInChild({.identity = hx_test::World::Identity::Root}, [] {
        for (const char* size : {"size=1m", "size=32k"}) {
            ASSERT_EQ(mount("tmpfs", "/tmp", "tmpfs", 0, size), 0);
            const Failure failure = CheckScriptDirectory();
            EXPECT_EQ(failure.has_value(), size == std::string("size=32k"));
        }
    });
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

}  // namespace
