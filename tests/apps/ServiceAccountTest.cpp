// The record of the service account.
#include "merge/ServiceAccount.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "harness/TempDir.h"
#include "machine/Accounts.h"
#include "machine/ThrowawayRoot.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* accountRecord = "/etc/corvane26/service";
const std::string recordText = "user=chem\nuid=990\ngroup=lab\ngid=991\n";
const ServiceAccount recorded = {.user = "chem", .group = "lab", .uid = 990, .gid = 991};

TEST(ServiceAccountRecord, IsReadAsWritten) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        umask(0077);
        fs::remove_all("/etc/corvane26");
        EXPECT_FALSE(WriteServiceAccount(recorded));
        EXPECT_EQ(hx_test::ReadFile(accountRecord), recordText);
        const auto mode = [](const char* path) { return fs::status(path).permissions(); };
        EXPECT_EQ(mode(accountRecord), fs::perms(0644));
        EXPECT_EQ(mode("/etc/corvane26"), fs::perms(0755));
        std::optional<ServiceAccount> found;
        EXPECT_FALSE(ReadServiceAccount(found));
        EXPECT_EQ(found, recorded);
        EXPECT_EQ(std::distance(fs::directory_iterator("/etc/corvane26"), {}), 1);
    });
}

TEST(ServiceAccountRecord, IsReplacedOnlyWhenDifferent) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        const auto inode = [] {
            struct stat found = {};
            EXPECT_EQ(lstat(accountRecord, &found), 0);
            return found.st_ino;
        };
        EXPECT_FALSE(WriteServiceAccount(recorded));
        const ino_t first = inode();
        EXPECT_FALSE(WriteServiceAccount(recorded));
        EXPECT_EQ(inode(), first);
        hx_test::WriteFile("/target", "kept");
        for (const char* change :
             {"echo >> $0", "chmod 600 $0", "chmod 664 $0", "ln -sf /target $0"}) {
            hx_test::Succeed({"sh", "-c", change, accountRecord});
            EXPECT_FALSE(WriteServiceAccount(recorded)) << change;
            EXPECT_EQ(hx_test::ReadFile(accountRecord), recordText) << change;
            EXPECT_EQ(fs::symlink_status(accountRecord).permissions(), fs::perms(0644)) << change;
        }
        EXPECT_EQ(hx_test::ReadFile("/target"), "kept");
    });
}

TEST(ServiceAccountRecord, IsMissingBeforeFirstSetup) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        fs::remove_all("/etc/corvane26");
        hx_test::RemoveServiceAccount();
        std::optional<ServiceAccount> found;
        EXPECT_FALSE(ReadServiceAccount(found));
        EXPECT_FALSE(found);
        hx_test::Succeed({"groupadd", "--gid", "64322", "lab2"});
        hx_test::Succeed({"useradd", "-M", "--uid", "64321", "--gid", "lab2", "corvsrvc"});
        EXPECT_FALSE(ReadServiceAccount(found));
        EXPECT_EQ(found, (ServiceAccount{"corvsrvc", "lab2", 64321, 64322}));
        EXPECT_FALSE(RecordServiceAccount(QStringLiteral("corvsrvc"), QStringLiteral("root")));
        EXPECT_EQ(hx_test::ReadFile(accountRecord),
                  "user=corvsrvc\nuid=64321\ngroup=root\ngid=0\n");
        EXPECT_TRUE(RecordServiceAccount(QStringLiteral("corvsrvc"), QStringLiteral("missing")));
    });
}

TEST(ServiceAccountRecord, IsRefusedUnlessRootsAlone) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::pair<std::string, std::string> changes[] = {
        {"chmod 664 service", "other users can write to it"},
        {"chmod 646 service", "other users can write to it"},
        {"chown 1:0 service", "other users can write to it"},
        {"chown 0:1 service", "other users can write to it"},
        {"chmod 775 .", "other users can write to it"},
        {"chown 1 .", "other users can write to it"},
        {"mv service other; ln -s other service", "Invalid argument"},
        {"rm service; mkfifo service", "Invalid argument"},
        {"rm service; mkdir service", "Invalid argument"},
        {"mv /etc/corvane26 /away; ln -s /away /etc/corvane26", "Not a directory"},
        {"echo 'user=other' >> service", "no setup wrote this text"},
        {"sed -i 's/uid=990/uid=0990/' service", "no setup wrote this text"},
        {"sed -i 's/uid=990/uid=4294967296/' service", "no setup wrote this text"},
        {"sed -i 's/uid=990/uid=-1/' service", "no setup wrote this text"},
        {"sed -i 's/chem/$(id)/' service", "no setup wrote this text"},
        {"sed -i 's/lab/-lab/' service", "no setup wrote this text"},
        {"sed -i '1d' service", "no setup wrote this text"},
        {": > service", "no setup wrote this text"},
    };
    for (const auto& [change, reason] : changes) {
        HX_EXPECT_SCENARIO([&, change = change, reason = reason] {
            EXPECT_FALSE(WriteServiceAccount(recorded));
            hx_test::Succeed({"sh", "-c", "cd /etc/corvane26 && " + change});
            std::optional<ServiceAccount> found;
            const Failure failure = ReadServiceAccount(found);
            ASSERT_TRUE(failure) << change;
            EXPECT_EQ(failure->text.toStdString(),
                      "cannot read the service account in \"/etc/corvane26/service\": " + reason);
            EXPECT_FALSE(found);
        });
    }
}

}  // namespace
