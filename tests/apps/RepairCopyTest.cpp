// cv_install --repair by a regular user against the private copy as it was before the damage.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "apps/Damages.h"
#include "apps/JsonSchema.h"
#include "apps/UserSetup.h"
#include "harness/Effort.h"
#include "harness/Expect.h"

namespace {

namespace fs = std::filesystem;

using hx_test::ExpectHolds;
using hx_test::ProcessResult;

// Of an edited page, and of what may have jobs of users.
constexpr const char* deleteDatedFiles =
    "find \"$0/product\" -name '*.20[0-9][0-9][0-9][0-9][0-9][0-9]-*' -delete";

constexpr const char* listCopy =
    "cd \"$0\" && find product state ! -name '*.aside' ! -path '*.aside/*' ! -name verification "
    "! -path '*/private/states*' "
    "! -name 'lib*' ! -name cv_install -printf '%p %y %m %U:%G %l\\n' '(' ! -type f -o -exec "
    "sha256sum '{}' ';' ')' | sort";

// A private copy that was set up under a path that leads through a link.
class RepairedCopy {
public:
    RepairedCopy() {
        fs::create_directory_symlink("product", m_user.Root() + "/link");
        const auto setup = m_user.RunProgram({"/tmp/link/cv_install", "--setup", "--user-mode",
                                              "--yes", "--submission-scripts", "--job-limit=2"});
        EXPECT_EQ(setup.status, 0) << setup.err;
    }

    ProcessResult Repair(const std::vector<std::string>& more = {}) const {
        std::vector<std::string> options = {"--repair"};
        options.insert(options.end(), more.begin(), more.end());
        return m_user.Run(options);
    }

    const UserSetup& User() const { return m_user; }

    std::string List() const { return hx_test::Run({"sh", "-c", listCopy, m_user.Root()}).out; }

    void ExpectAsBefore(const std::string& before, const ProcessResult& repair) const {
        EXPECT_EQ(repair.status, 0) << repair.out << repair.err;
        hx_test::Run({"sh", "-c", deleteDatedFiles, m_user.Root()});
        EXPECT_EQ(List(), before) << repair.out << repair.err;
        const auto verified = m_user.Run({"--verify"});
        EXPECT_EQ(verified.status, 0) << verified.out;
    }

    // The damages of one row that the tests can make. The user runs the program in the install
    // directory, and can belong to several groups.
    std::vector<const Damage*> DamagesOf(const Target& target) const {
        std::vector<const Damage*> possible;
        for (const Damage& damage : Damages()) {
            const std::string attribute = damage.attribute;
            const bool changesOwner = attribute == "owner" || attribute == "group";
            const bool isPossible =
                (target.item != Item::InstallDirectory || attribute != "kind") &&
                (attribute != "group" || !IsOfRecord(target)) && (!changesOwner || getuid() == 0);
            if (damage.fits(target) && isPossible)
                possible.push_back(&damage);
        }
        return possible;
    }

    std::vector<Target> Targets() const {
        return DamagedTargetsOfUser(m_user.Root() + "/product", m_user.Root() + "/state",
                                    "tmp-product");
    }

    bool IsOfRecord(const Target& target) const {
        return target.path.starts_with(m_user.Root() + "/state/");
    }

    // The record must be usable to repair anything.
    bool IsRecordUnusable(const Target& target, const Damage& damage) const {
        const std::string attribute = damage.attribute;
        const std::string name = fs::path(target.path).filename();
        if (!IsOfRecord(target) || attribute == "content")
            return false;
        if (name == "tmp-product")
            return true;
        if (name == "private" && damage.name == std::string("Missing"))
            return false;
        return attribute != "mode" && (target.kind == Kind::Directory || name == "manifest");
    }

private:
    UserSetup m_user;
};

bool IsLeft(const Target& target, const Damage& damage) {
    return target.kind == Kind::Directory && damage.attribute == std::string("owner");
}

void ExpectOneRepairOfCopy(const RepairedCopy& copy, const Target& target, const Damage& damage,
                           const std::string& before) {
    SCOPED_TRACE(target.path + ' ' + damage.name);
    struct stat found = {};
    ASSERT_EQ(lstat(target.path.c_str(), &found), 0);
    damage.put(target.path);
    const auto repair = copy.Repair();
    if (copy.IsRecordUnusable(target, damage)) {
        EXPECT_EQ(repair.status, 68) << repair.out << repair.err;
        damage.restore(target.path, found);
    } else if (IsLeft(target, damage)) {
        EXPECT_EQ(repair.status, 0) << repair.err;
        ExpectHolds(repair.out, " (it belongs to another user)\n");
        damage.restore(target.path, found);
    }
    copy.ExpectAsBefore(before, copy.IsRecordUnusable(target, damage) ? copy.Repair() : repair);
    fs::remove_all(Aside(target.path));
}

// A damage of its own for each row. What is below a directory of another kind is not damaged.
void DamageAllRows(const RepairedCopy& copy) {
    size_t number = 0;
    for (const Target& target : copy.Targets()) {
        std::vector<const Damage*> possible = copy.DamagesOf(target);
        std::erase_if(possible, [&](const Damage* damage) {
            const bool isKind = std::string(damage->attribute) == "kind";
            return copy.IsRecordUnusable(target, *damage) || IsLeft(target, *damage) ||
                   (isKind && target.kind == Kind::Directory);
        });
        if (!possible.empty())
            possible[number++ % possible.size()]->put(target.path);
    }
}

TEST(CopyRepair, RestoresDamagesOfAllRows) {
    HX_REQUIRE_NAMESPACES();
    const RepairedCopy copy;
    const std::string before = copy.List();
    DamageAllRows(copy);
    const std::string damaged = copy.List();
    const auto shown = copy.Repair({"--dry-run", "--diff", "--json", "/tmp/report"});
    EXPECT_EQ(shown.status, 0) << shown.err;
    EXPECT_EQ(copy.List(), damaged);
    ExpectReport(hx_test::ReadFile(copy.User().Root() + "/report"),
                 R"({"action": "repair", "status": 0, "changed": true, "differences": []})");
    copy.ExpectAsBefore(before, copy.Repair());
    if (!hx_test::TriesEveryFault())
        return;
    int count = 0;
    for (const Target& target : copy.Targets()) {
        for (const Damage* damage : copy.DamagesOf(target)) {
            ExpectOneRepairOfCopy(copy, target, *damage, before);
            ++count;
        }
    }
    EXPECT_GT(count, getuid() == 0 ? 120 : 80);
}

// A dry run cannot find it.
TEST(CopyRepair, RestoresWhatIsUnreadableExceptSettings) {
    HX_REQUIRE_NAMESPACES();
    const RepairedCopy copy;
    const std::string before = copy.List();
    fs::remove(copy.User().Outside("qchemrc/qcscratch"));
    fs::permissions(copy.User().Outside("qchemrc"), fs::perms::none);
    const auto shown = copy.Repair({"--dry-run"});
    EXPECT_EQ(shown.status, 0) << shown.err;
    ExpectHolds(shown.out,
                "Not checked: /tmp/product/qchemrc/qcscratch: Permission denied\n"
                "A repair can find further differences.\n");
    copy.ExpectAsBefore(before, copy.Repair());
    // Settings may have been edited, so they are not replaced.
    const std::string limits = copy.User().Outside("QueueLimits");
    const std::string text = hx_test::ReadFile(limits);
    fs::permissions(limits, fs::perms::none);
    const auto refused = copy.Repair();
    EXPECT_EQ(refused.status, 2) << refused.out;
    ExpectHolds(refused.err,
                "cv_install: cannot read \"/tmp/product/QueueLimits\": Permission denied\n"
                "    Make sure that no other process uses it, then repair again.");
    fs::permissions(limits, fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(hx_test::ReadFile(limits), text);
    copy.ExpectAsBefore(before, copy.Repair());
}

TEST(CopyRepair, RemovesWhatKilledOneLeft) {
    const RepairedCopy copy;
    const std::string before = copy.List();
    const std::string left = copy.User().Outside(".corvane26_setup_abcdef/corvane26_new");
    fs::create_directories(left);
    fs::permissions(fs::path(left).parent_path(), fs::perms::owner_all);
    hx_test::WriteFile(left + "/corvane26_slot.1.corvane26", "new");
    const auto repair = copy.Repair();
    EXPECT_EQ(repair.out, "Nothing to repair.\n");
    copy.ExpectAsBefore(before, repair);
}

// Only files need the namespaces.
TEST(CopyRepair, ReportsMissingUserNamespaces) {
    HX_REQUIRE_NAMESPACES();
    const RepairedCopy copy;
    const std::string before = copy.List();
    const auto command = copy.User().Command({"HX_TEST_FAIL=unshare=1"}, {"--repair"});
    fs::permissions(copy.User().Outside("corvanerc"), fs::perms::owner_all);
    copy.ExpectAsBefore(before, copy.User().RunProgram(command));
    fs::remove(copy.User().Outside("corvane26"));
    const auto repair = copy.User().RunProgram(command);
    EXPECT_EQ(repair.status, 67);
    ExpectHolds(repair.err,
                "cv_install: cannot create the files again: user namespaces are not available: "
                "Operation not permitted\n");
    EXPECT_FALSE(copy.User().Has("corvane26"));
}

TEST(CopyRepair, NeedsOwnRecord) {
    const UserSetup user;
    const auto repair = user.Run({"--repair"});
    EXPECT_EQ(repair.status, 68);
    ExpectHolds(repair.err, "cv_install: no setup of \"/tmp/product\" is recorded\n");
}

}  // namespace
