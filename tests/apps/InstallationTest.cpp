// The installation table is what setups really create: nothing less, and nothing else.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>

#include "apps/RootSetup.h"
#include "harness/Pattern.h"
#include "harness/TempDir.h"
#include "installation/Installation.h"
#include "machine/ThrowawayRoot.h"
#include "record/InstalledEntries.h"

namespace {

namespace fs = std::filesystem;

struct Case {
    const char* name;
    const char* prepare;  // shell commands on the machine before the setup
    const char* setup;    // the setup's command line
    const char* installDir;
    unsigned conditions;
};

constexpr unsigned InPlaceAsRoot = AsRoot | InPlace | ForUndo;
constexpr unsigned StagedAsRoot = AsRoot | ForUndo;

constexpr const char* earlierVersion =
    "umask 002; mkdir -p /var/corvane/corvanerc/corvane24server/CorvaneServerRepository; "
    "touch /etc/init.d/corvane_service /etc/systemd/system/corvane20_service.service "
    "/etc/systemd/system/corvane24_service.service; "
    "for name in qsub qdel qsig; do ln -sf /bin/true /usr/local/bin/$name; done; ";

const Case setups[] = {
    {"HeadNodeWithInternalQueue", "", "--internal-default-queue", sharedDirectory,
     StagedAsRoot | WithoutClusterNode},
    {"HeadNodeInPlace", "", "--internal-default-queue", sharedDirectory,
     InPlaceAsRoot | WithoutClusterNode},
    {"HeadNodeWithSlurm", "", "-p chem", sharedDirectory, StagedAsRoot | WithoutClusterNode},
    {"HeadNodeWithTorqueOverEarlierVersion", earlierVersion, "-q batch --submission-scripts",
     sharedDirectory,
     StagedAsRoot | WithoutClusterNode | WithSubmissionScripts | WithEarlierRepository |
         WithEarlierServices},
    {"HeadNodeInPlaceOverEarlierVersion", earlierVersion, "-q batch --submission-scripts",
     sharedDirectory,
     InPlaceAsRoot | WithoutClusterNode | WithSubmissionScripts | WithEarlierRepository |
         WithEarlierServices},
    {"ClusterNode", "", "--cluster-node", sharedDirectory, StagedAsRoot},
    {"ClusterNodeInPlace", "", "--cluster-node", sharedDirectory, InPlaceAsRoot},
    {"PrivateCopy",
     "useradd -u 4321 -m dora; mkdir -p /home/dora/.local/state;"
     "chown -R 4321:4321 /opt/corvane26 /home/dora",
     "--submission-scripts", "/opt/corvane26",
     AsUser | InPlace | ForUndo | WithoutClusterNode | WithSubmissionScripts},
};

// How a setup is run, or another action.
std::string CommandOf(const Case& test, const std::string& action = {}) {
    const std::string user =
        (test.conditions & AsRoot) != 0 ? "" : "setpriv --reuid=4321 --regid=4321 --clear-groups ";
    return "env -u XDG_STATE_HOME LSAN_OPTIONS=detect_leaks=0 " + user +
           ((test.conditions & InPlaceAsRoot) == InPlaceAsRoot ? withoutMounts : "") +
           "/opt/corvane26/cv_install " +
           (action.empty()
                ? std::string("--setup --yes ") + (user.empty() ? "" : "--user-mode ") + test.setup
                : action);
}

// A path with random characters in their place in the table.
std::string WithoutRandomPart(const std::string& path) {
    return hx_test::ReplaceMatches(path, "^(/tmp/corvane26_(?:commit|setup)_)[A-Za-z0-9]{6}",
                                   "$1XXXXXX");
}

// The path of the table, with the user's record where this test has it.
std::string RealPath(const Entry& entry, const Case& test) {
    std::string path = PathOf(entry, test.installDir);
    if (path.starts_with(userRecords))
        path.replace(0, std::strlen(userRecords), "/home/dora/.local/state");
    if (const size_t at = path.find(escapedPart); at != std::string::npos)
        path.replace(at, escapedPart.size(), "opt-corvane26");
    return path;
}

std::string Octal(mode_t mode) {
    char text[8];
    std::snprintf(text, sizeof text, "%o", mode);
    return text;
}

// How ChangedPaths shows an entry after "PATH CHANGE ".
std::string Expected(const Entry& entry, const Case& test) {
    const bool root = (test.conditions & AsRoot) != 0;
    const std::string owner = !root ? "4321:4321"
                              : entry.owner == Owner::ServiceAccount
                                  ? Shell("id -u corvsrvc") + ":" + Shell("id -g corvsrvc")
                                  : "0:0";
    if (entry.kind == Kind::Directory)
        return "directory " + Octal(root ? entry.rootMode : entry.userMode) + " " + owner;
    if (entry.kind != Kind::Link)
        return "file " + Octal(root ? entry.rootMode : entry.userMode) + " " + owner;
    const std::string target = entry.reference;
    return "link 777 " + owner + " -> " +
           (target.starts_with('/') ? target : std::string(test.installDir) + "/" + target);
}

bool IsAccount(const Entry& entry) {
    return entry.kind == Kind::Group || entry.kind == Kind::User;
}

bool IsAccountFile(const std::string& path) {
    return std::find(AccountFiles().begin(), AccountFiles().end(), path) != AccountFiles().end();
}

// True when a setup of this kind has a row for the changed path.
bool IsInTable(const std::string& path, const Case& test) {
    const bool account = (test.conditions & AsRoot) != 0 && IsAccountFile(path);
    return account || std::any_of(Entries().begin(), Entries().end(), [&](const Entry& entry) {
               const std::string own = RealPath(entry, test);
               return Applies(entry, test.conditions) && !IsAccount(entry) &&
                      (own == path ||
                       ((entry.check == Check::Archive || (entry.conditions & ForUndo) != 0) &&
                        path.starts_with(own + "/")));
           });
}

void ExpectTable(const Case& test, const std::vector<std::string>& changes) {
    std::map<std::string, std::string> changed;  // path and the rest of the line
    for (const std::string& line : changes) {
        const size_t space = line.find(' ');
        changed[WithoutRandomPart(line.substr(0, space))] = line.substr(space + 1);
    }
    for (const auto& [path, change] : changed)
        EXPECT_TRUE(IsInTable(path, test)) << path << ' ' << change;
    for (const Entry& entry : Entries()) {
        if (!Applies(entry, test.conditions) || IsAccount(entry))
            continue;
        const std::string path = RealPath(entry, test);
        const std::string change = changed[path];
        if (entry.later == Later::Removes) {
            EXPECT_TRUE(change.starts_with("deleted ")) << path << ' ' << change;
            continue;
        }
        // A private copy's install directory is the product directory, which exists before.
        const std::string found = change.empty() ? Shell("stat -c 'directory %a %u:%g' " + path)
                                                 : change.substr(change.find(' ') + 1);
        EXPECT_EQ(found, Expected(entry, test)) << path;
    }
}

// True for what a second setup with the same answers writes. A staged one brings nothing to the
// machine that is there already, but notes in its lock that it may be changing the machine, and
// records when it ran.
bool IsRewritten(const Entry& entry, unsigned conditions) {
    if ((conditions & InPlace) == 0) {
        return entry.item == Item::RootLog || entry.item == Item::RootLock ||
               entry.item == Item::Manifest || entry.item == Item::RecordedAnswers ||
               entry.item == Item::RecordedScript;
    }
    return Applies(entry, conditions) &&
           (entry.later == Later::Rewrites || entry.later == Later::Appends);
}

void ExpectRewritten(const Case& test, const std::vector<std::string>& changes) {
    std::set<std::string> expected;
    for (const Entry& entry : Entries()) {
        if (IsRewritten(entry, test.conditions))
            expected.insert(RealPath(entry, test));
    }
    // A setup in place knows only afterwards that it changed nothing else.
    for (const Entry& entry : Entries()) {
        if ((test.conditions & InPlace) != 0 && (entry.conditions & ForUndo) != 0 &&
            Applies(entry, test.conditions))
            expected.insert(RealPath(entry, test) + "/first/state");
    }
    std::set<std::string> changed;
    for (const std::string& line : changes)
        changed.insert(WithoutRandomPart(line.substr(0, line.find(' '))));
    EXPECT_EQ(changed, expected);
}

// True for what stays as the setup left it: not for logs, locks and temporary files.
bool IsPermanent(const Entry& entry) {
    const std::string path = entry.path;
    const bool isElsewhere =
        path.starts_with("/tmp/") || path.starts_with("/run/") || path.starts_with("/var/log/");
    return !IsAccount(entry) && !isElsewhere && entry.later != Later::Removes;
}

// What the manifest should list, relative to its top: rows of the table, the members of the
// archives, and for root the directories above.
std::set<std::string> ListedPaths(const Case& test) {
    const std::string top = (test.conditions & AsRoot) != 0 ? "/" : std::string(test.installDir);
    std::set<std::string> paths = {"."};
    const auto add = [&](fs::path path) {
        for (; path != top; path = path.parent_path())
            paths.insert("./" + path.lexically_relative(top).string());
    };
    for (const Entry& entry : Entries()) {
        const std::string path = RealPath(entry, test);
        // Saved states are not part of the installation.
        if (!Applies(entry, test.conditions & ~static_cast<unsigned>(ForUndo)) ||
            !IsPermanent(entry) || !(path + '/').starts_with(top))
            continue;
        add(path);
        if (entry.check != Check::Archive)
            continue;
        const std::string archive = std::string("/opt/corvane26/") + entry.reference;
        std::istringstream members(Shell("tar tf " + archive));
        for (std::string member; std::getline(members, member);)
            add((fs::path(path).parent_path() / member / "").parent_path());
    }
    return paths;
}

std::set<std::string> LinesOf(const std::string& text) {
    std::istringstream stream(text);
    std::set<std::string> lines;
    for (std::string line; std::getline(stream, line);)
        lines.insert(line);
    return lines;
}

// Other programs read the manifest, and find no difference.
void ExpectManifest(const Case& test) {
    const bool root = (test.conditions & AsRoot) != 0;
    const std::string manifest = root ? "/var/lib/corvane26/manifest"
                                      : "/home/dora/.local/state/corvane26/opt-corvane26/manifest";
    const std::string top = root ? "/" : test.installDir;
    // mtree also lists what is not in the manifest, but not with -e.
    EXPECT_EQ(Shell("mtree -e -f " + manifest + " -p " + top + " 2>&1"), "");
    const std::string listed = Shell("bsdtar -tf " + manifest + " 2>&1 | sed 's:\\(.\\)/$:\\1:'");
    EXPECT_EQ(LinesOf(listed), ListedPaths(test));
    const auto verification = hx_test::Run({"/bin/sh", "-c", CommandOf(test, "--verify")});
    EXPECT_EQ(verification.status, 0) << verification.err;
    EXPECT_TRUE(verification.out.starts_with("No differences from ") ||
                verification.out.starts_with("Not checked: "))
        << verification.out;
}

// An edited page is not one of the setup, whatever is known of earlier setups.
TEST(InstalledEntries, HavePackedPagesWithoutPreviousManifest) {
    const hx_test::TempDir tree;
    const std::string pages = tree / pagesParent;
    Shell("mkdir -p " + pages + "; tar -C " + pages +
          " -xf " HX_PRODUCT_DIR "/docroot/resources.tar; cd " + pages +
          "/resources; sha256sum * > ../digests; "
          "echo edited > index.html");
    const InstalledEntries installed({.installDir = QString::fromStdString(tree.path().string()),
                                      .productDir = QStringLiteral(HX_PRODUCT_DIR),
                                      .conditions = AsUser | WithoutClusterNode,
                                      .serviceUser = {},
                                      .serviceGroup = {}},
                                     std::nullopt);
    Manifest manifest;
    const Failure failure = installed.Read(manifest);
    EXPECT_FALSE(failure) << failure->text.toStdString();
    std::string digests;
    for (const ManifestEntry& entry : manifest.entries) {
        if (!entry.state.digest.empty())
            digests += entry.state.digest + "  " + fs::path(entry.path).filename().string() + '\n';
    }
    EXPECT_EQ(digests, hx_test::ReadFile(pages + "/digests"));
}

class Installation : public testing::TestWithParam<Case> {};

// What a setup of this kind changes.
std::vector<std::string> ChangesOf(const Case& test) {
    hx_test::MarkChanges();
    const auto setup = hx_test::Run({"/bin/sh", "-c", CommandOf(test)});
    EXPECT_EQ(setup.status, 0) << setup.out << setup.err;
    return hx_test::ChangedPaths();
}

TEST_P(Installation, TableSaysWhatFirstAndLaterSetupWrite) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const Case& test = GetParam();
    HX_EXPECT_SCENARIO([&] {
        LayOutRootSetup();
        Shell(test.prepare);
        ExpectTable(test, ChangesOf(test));
        ExpectManifest(test);
        ExpectRewritten(test, ChangesOf(test));
        ExpectManifest(test);
    });
}

INSTANTIATE_TEST_SUITE_P(Setups, Installation, testing::ValuesIn(setups),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
