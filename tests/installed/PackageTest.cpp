// The Debian packages: installed, used, and removed on a throwaway machine.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

#include "harness/Expect.h"
#include "harness/Process.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayMachine.h"

namespace {

using hx_test::ThrowawayMachine;

// Replaces the application's service, which other packages contain.
constexpr const char* serviceProgram = "#!/bin/sh\nexec sleep infinity\n";

// The packages of this build, created once.
class Packages {
public:
    Packages() {
        // The umask of the user who creates a package can be restrictive.
        const auto made =
            hx_test::Run({"sh", "-c", "umask 077 && exec \"$0\" -G DEB --config \"$1\" -B \"$2\"",
                          HX_CPACK, HX_BUILD_DIR "/CPackConfig.cmake", m_directory / ""});
        m_problem = made.status == 0 ? "" : made.out + made.err;
    }
    const std::string& Problem() const { return m_problem; }
    std::string Directory() const { return m_directory.path().string(); }

    // Returns a field of the package's control file.
    std::string Field(const std::string& package, const std::string& name) const {
        return hx_test::Run({"sh", "-c", "dpkg-deb --field \"$0\"/\"$1\"_*.deb \"$2\"", Directory(),
                             package, name})
            .out;
    }

private:
    hx_test::TempDir m_directory;
    std::string m_problem;
};

const Packages& ThePackages() {
    static const Packages packages;
    return packages;
}

TEST(PackageFiles, DeclareDependencies) {
    if (hx_test::Run({"dpkg-shlibdeps", "--version"}).status != 0)
        GTEST_SKIP() << "dpkg-shlibdeps is not installed";
    ASSERT_EQ(ThePackages().Problem(), "");
    const std::string needed = ThePackages().Field("corvane26-setup", "Depends");
    for (const char* package :
         {"libc6 (>= ", "libqt6core6", "libqt6network6", "libstdc++6 (>= ", "passwd"})
        EXPECT_NE(needed.find(package), std::string::npos) << package << " is not in " << needed;
    EXPECT_EQ(ThePackages().Field("libhxinstallbase-dev", "Depends"),
              "corvane26-setup (= 26.0.0), qt6-base-dev\n");
}

TEST(PackageFiles, BelongToRootAndAreReadableByAll) {
    if (hx_test::Run({"dpkg-shlibdeps", "--version"}).status != 0)
        GTEST_SKIP() << "dpkg-shlibdeps is not installed";
    ASSERT_EQ(ThePackages().Problem(), "");
    const std::string list =
        hx_test::Run({"sh", "-c", "for p in \"$0\"/*.deb; do dpkg-deb --contents \"$p\"; done",
                      ThePackages().Directory()})
            .out;
    std::istringstream lines(list);
    int files = 0;
    for (std::string line; std::getline(lines, line); ++files) {
        const std::string begin = line.substr(0, line.find(' ', line.find(' ') + 1));
        EXPECT_TRUE(begin == "drwxr-xr-x root/root" || begin == "-rwxr-xr-x root/root" ||
                    begin == "-rw-r--r-- root/root" || begin == "lrwxrwxrwx root/root")
            << line;
    }
    EXPECT_GT(files, 30);
}

class Package : public testing::Test {
protected:
    static void SetUpTestSuite() {
        if (!Hindrance().empty() || !ThePackages().Problem().empty())
            return;
        s_machine = std::make_unique<ThrowawayMachine>();
        s_booted = s_machine->Boot();
        if (!s_booted)
            return;
        s_machine->CopyIn(ThePackages().Directory(), "/packages");
        s_machine->CopyIn(HX_SOURCE_DIR "/docs/examples/consumer", "/consumer");
        Shell("mkdir -p /var/spool/cron/crontabs");
        // Updating the index of manual pages takes seconds and is not tested here.
        Shell("rm -f /var/lib/man-db/auto-update");
        ListFiles("/packages/before");
        s_accounts = Accounts();
    }
    static void TearDownTestSuite() { s_machine.reset(); }

    static std::string Hindrance() {
        if (hx_test::Run({"dpkg-shlibdeps", "--version"}).status != 0)
            return "dpkg-shlibdeps is not installed";
        return ThrowawayMachine::Hindrance();
    }

    void SetUp() override {
        if (!Hindrance().empty())
            GTEST_SKIP() << Hindrance();
        ASSERT_EQ(ThePackages().Problem(), "");
        ASSERT_TRUE(s_booted) << s_machine->Log();
    }

    // Also removes the files of a failed test.
    void TearDown() override {
        if (!s_booted)
            return;
        s_machine->Shell(
            "systemctl stop corvane26_service; umount /var/corvane; dpkg -P libhxinstallbase-dev "
            "corvane26-setup; "
            "rm -rf /usr/lib/corvane26 /opt/corvane26 /var/corvane /etc/corvane26 "
            "/var/lib/corvane26 /usr/bin/corvane26* /srv/away /srv/scratch "
            "/run/corvane26* "
            "/etc/systemd/system/*/corvane2* /etc/systemd/system/corvane2*; "
            "rmdir /etc/systemd/system/multi-user.target.wants; "
            "systemctl daemon-reload; userdel corvsrvc; groupdel corvsrvc; userdel ann; "
            "userdel svc; groupdel svc; groupdel lab");
    }

    // Returns what the machine's shell prints for `text`, which must succeed.
    static std::string Shell(const std::string& text) {
        const auto result = s_machine->Shell(text);
        EXPECT_EQ(result.status, 0) << text << '\n' << result.out << result.err;
        return result.out;
    }

    static void Install() { Shell("dpkg -i /packages/*.deb"); }

    // Returns what dpkg and the package print.
    static std::string Purge() {
        return Shell("dpkg -P libhxinstallbase-dev corvane26-setup 2>&1");
    }

    // Sets up with a replacement of the application's service, so that the unit can start.
    static void SetUpService(const std::string& product, const std::string& options = {}) {
        hx_test::WriteFile(s_machine->Path(product + "/cv_computeservice"), serviceProgram);
        const bool isPackage = product == "/usr/lib/corvane26";
        Shell("chmod 755 " + product + "/cv_computeservice; " + (isPackage ? "" : product + "/") +
              "cv_install --setup --yes " + options);
    }

    static std::string Unit(const std::string& property) {
        return Shell("systemctl show --value -p " + property + " corvane26_service");
    }

    // Lists all files except backups and those that change on a running machine, in a file outside
    // of the listed directories.
    static void ListFiles(const std::string& list) {
        Shell(
            "{ find /home /root -maxdepth 2; "
            "find /etc /opt /srv /usr /var -xdev "
            "\\( -path /var/log/journal -o -path /var/lib/systemd -o -path /var/cache/man "
            "-o -path /var/log/dpkg.log -o -path '/etc/*-' -o -path '/var/lib/dpkg/*-old' "
            "\\) -prune -o -print; "
            "find /run /tmp -name 'corvane26*'; } | LC_ALL=C sort > " +
            list + "; test -s " + list);
    }

    // Returns the accounts without passwords.
    static std::string Accounts() {
        return Shell(
            "cut -d: -f1,3- /etc/passwd; cut -d: -f1,3- /etc/group; cut -d: -f1 /etc/shadow; "
            "cut -d: -f1,3- /etc/gshadow");
    }

    // Compares with the state before the packages were installed.
    static void ExpectNothingLeft() {
        ListFiles("/packages/now");
        EXPECT_EQ(s_machine->Shell("diff /packages/before /packages/now").out, "");
        EXPECT_EQ(Accounts(), s_accounts);
    }

    static inline std::unique_ptr<ThrowawayMachine> s_machine;
    static inline bool s_booted = false;
    static inline std::string s_accounts;
};

constexpr const char* product = "/usr/lib/corvane26";

TEST_F(Package, LeavesNothingWhenRemovedWithoutSetup) {
    Install();
    EXPECT_EQ(Shell("cd /consumer && make machine > /dev/null && ./machine | tail -n 1"),
              "2^89 - 1 = 618970019642690137449562111\n");
    Shell("rm /consumer/machine; mkdir /var/corvane; mkfifo /var/corvane/corvane26");
    Shell("timeout 60 dpkg -r libhxinstallbase-dev corvane26-setup; rm -r /var/corvane");
    EXPECT_EQ(s_machine->Shell("ls -d /var/log/corvane26* /var/lib/corvane26").out, "");
    Purge();
    ExpectNothingLeft();
}

TEST_F(Package, LeavesNothingOfSetupWhenPurged) {
    Install();
    Shell("useradd ann");
    SetUpService(product);
    Shell(
        "usermod --append --groups corvsrvc ann; "
        "mkdir /etc/systemd/system/corvane26_service.service.d; "
        "echo > /etc/systemd/system/corvane26_service.service.d/override.conf");
    EXPECT_EQ(Unit("ActiveState"), "active\n");
    EXPECT_EQ(Shell("corvane26 --root-path"), "CORV_ROOT=/usr/lib/corvane26\n");
    const std::string pid = Unit("MainPID");
    Shell("rm /usr/lib/corvane26/cv_computeservice");
    Shell("logrotate --force --state /run/hx_logrotate /etc/logrotate.d/corvane26-setup");
    EXPECT_EQ(Shell("ls /var/log/corvane26*"), "/var/log/corvane26_setup.log.1\n");

    Shell("dpkg -r libhxinstallbase-dev corvane26-setup");
    EXPECT_EQ(Unit("LoadState"), "not-found\n");
    EXPECT_NE(s_machine->Shell("kill -0 " + pid).status, 0);
    // The administrator's file is a setting.
    EXPECT_EQ(Shell("find /usr/bin /usr/lib /etc/systemd /run -name 'corvane26*'"),
              "/etc/systemd/system/corvane26_service.service.d\n");
    EXPECT_EQ(Shell("head -c 12 /var/corvane/QueueLimits; stat -c ' %U' /var/corvane"),
              "MaxThreads:  corvsrvc\n");
    // dpkg can call it twice.
    Shell("/var/lib/dpkg/info/corvane26-setup.postrm remove");

    Shell("dpkg -P corvane26-setup; userdel ann");
    ExpectNothingLeft();
}

// An upgrade to this version is an installation after a setup of another one.
TEST_F(Package, ReportsSetupOfAnotherVersion) {
    const std::string install = "dpkg -i /packages/corvane26-setup_*.deb | grep cv_install || true";
    EXPECT_EQ(Shell(install), "To set up Corvane: cv_install --setup\n");
    SetUpService(product);
    EXPECT_EQ(Shell(install), "");
    Shell("sed -i 's/^# version: .*/# version: 25.0.1/' /var/lib/corvane26/manifest");
    const std::string version = Shell("dpkg-query -Wf '${Version}' corvane26-setup");
    EXPECT_EQ(Shell(install), "Corvane was set up with version 25.0.1. To set up version " +
                                  version + ": cv_install --setup --yes\n");
    Purge();
}

TEST_F(Package, KeepsServiceRunningWhenInstalledAgain) {
    Install();
    SetUpService(product);
    const std::string pid = Unit("MainPID");
    const std::string tree = "find /var/corvane /usr/bin/corvane26* -printf '%p %m %u %l %T@\\n'";
    const std::string before = Shell(tree);
    Install();
    EXPECT_EQ(Unit("ActiveState"), "active\n");
    EXPECT_EQ(Unit("MainPID"), pid);
    EXPECT_EQ(Shell(tree), before);
}

TEST_F(Package, KeepsSetupOfAnotherProductDirectory) {
    Install();
    Shell("cp -a /usr/lib/corvane26 /opt/corvane26");
    SetUpService("/opt/corvane26");
    const std::string pid = Unit("MainPID");
    // A member of the service group renames it.
    Shell("mv /var/corvane/corvane26 /var/corvane/renamed");
    EXPECT_EQ(s_machine->Shell("dpkg -i /packages/corvane26-setup_*.deb | grep cv_install").out,
              "");
    hx_test::ExpectHolds(Purge(), "Keeping the setup of Corvane: another copy of the product");
    Shell("mv /var/corvane/renamed /var/corvane/corvane26");
    EXPECT_EQ(Unit("MainPID"), pid);
    EXPECT_EQ(Shell("corvane26 --root-path"), "CORV_ROOT=/opt/corvane26\n");
    // A version without a record made the setup.
    Shell("rm -r /var/lib/corvane26");
    Install();
    Purge();
    EXPECT_EQ(Unit("MainPID"), pid);
    Shell("id corvsrvc; ls /var/log/corvane26_setup.log; rm /var/log/corvane26_setup.log");
}

TEST_F(Package, KeepsJobResultsAndTheirOwner) {
    Install();
    SetUpService(product);
    const std::string repository = "/var/corvane/corvanerc/corvane26server/CorvaneServerRepository";
    Shell("install -d -o corvsrvc " + repository + "; echo energy > " + repository + "/job");
    hx_test::ExpectHolds(Purge(), "/var/corvane contains files that no setup created");
    EXPECT_EQ(Shell("find /var/corvane -type f; id -un corvsrvc"), repository + "/job\ncorvsrvc\n");
}

TEST_F(Package, KeepsTreeOnAnotherFileSystem) {
    Install();
    Shell("mkdir /var/corvane; mount -t tmpfs none /var/corvane");
    SetUpService(product, "--cluster-node");
    hx_test::ExpectHolds(Purge(), "/var/corvane is on another file system");
    Shell("ls /var/corvane/QueueLimits && id corvsrvc");
    Shell("umount /var/corvane");
}

TEST_F(Package, FollowsNoLinkOfServiceGroupMembers) {
    Install();
    SetUpService(product);
    Shell(
        "mkdir -p /srv/away/corvane26 /srv/away/icons; echo keep > /srv/away/corvane26/file; "
        "echo keep > /srv/away/icons/file; cd /var/corvane; rm -rf qchemrc corvanerc/corvane26; "
        "sed -i 's|^cvset CORV_ROOT \"[^\"]*\"|cvset CORV_ROOT \"/opt/x\"|' corvane26; "
        "rm -rf corvanerc/corvane26server; ln -s /srv/away corvanerc/corvane26server; "
        "ln -s /srv/away/corvane26 corvanerc/corvane26; ln -s /srv/away qchemrc");
    Purge();
    EXPECT_EQ(Shell("cat /srv/away/corvane26/file /srv/away/icons/file"), "keep\nkeep\n");
    EXPECT_EQ(Unit("LoadState"), "not-found\n");
    EXPECT_EQ(s_machine->Shell("ls -d /usr/bin/corvane26* /var/lib/corvane26").out, "");
}

TEST_F(Package, RemovesPrivateDirectoriesOfKilledSetup) {
    Install();
    SetUpService(product, "--cluster-node");
    Shell(
        "rm /usr/lib/corvane26/cv_computeservice; umask 077; "
        "for parent in /var/corvane /var /etc/systemd/system /usr/bin; do "
        "mkdir -p $parent/.corvane26_setup_abcdef/corvane26_new/corvane26_slot.2.a/b; "
        "cd $parent/.corvane26_setup_abcdef; touch corvane26_slot.1.corvane26 "
        "corvane26_new/corvane26_slot.2.a/b/c; ln -s /etc/passwd corvane26_slot.3.QueueLimits; "
        "done");
    Purge();
    ExpectNothingLeft();
}

// What it replaced; another directory of root's, which a user renamed; and one of that user's.
TEST_F(Package, KeepsDirectoriesRenamedLikePrivateOnes) {
    Install();
    SetUpService(product, "--cluster-node");
    Shell(
        "umask 077; cd /var/corvane; mkdir -p .corvane26_setup_killed/corvane26_slot.1.x "
        ".corvane26_setup_secret .corvane26_setup_nobody/corvane26_new/moved; "
        "touch .corvane26_setup_killed/corvane26_slot.1.x/job .corvane26_setup_secret/key; "
        "chown corvsrvc .corvane26_setup_nobody");
    hx_test::ExpectHolds(Purge(), "/var/corvane contains files that no setup created");
    EXPECT_EQ(Shell("cd /var/corvane; find . -type f -o -name moved | sort |"
                    "sed 's/[.][0-9]*-[0-9]*//'"),
              "./.corvane26_setup_nobody/corvane26_new/moved\n./.corvane26_setup_secret/key\n"
              "./x/job\n");
}

TEST_F(Package, KeepsAccountThatExistedBefore) {
    Install();
    Shell("useradd --system ann");
    SetUpService(product, "--cluster-node -u ann -g ann");
    EXPECT_EQ(Shell("stat -c %U /var/corvane/corvane26"), "ann\n");
    Purge();
    EXPECT_EQ(Shell("id -un ann; id -gn ann"), "ann\nann\n");
    EXPECT_NE(s_machine->Shell("ls /var/corvane").status, 0);
}

TEST_F(Package, RemovesOnlyTheGroupOfTheAccount) {
    Install();
    Shell("groupadd --system svc");
    SetUpService(product, "--cluster-node -u svc -g lab");
    ASSERT_EQ(Shell("id -gn svc"), "lab\n");
    Purge();
    EXPECT_EQ(Shell("getent group lab svc | cut -d: -f1"), "svc\n");
    EXPECT_NE(s_machine->Shell("id svc").status, 0);
}

TEST_F(Package, KeepsGroupWithMembers) {
    Install();
    Shell("useradd ann; groupadd --system lab; usermod --append --groups lab ann");
    SetUpService(product, "--cluster-node -u svc -g lab");
    hx_test::ExpectHolds(Purge(), "Keeping group lab: it has members.\n");
    EXPECT_EQ(Shell("id -Gn ann"), "ann lab\n");
    EXPECT_NE(s_machine->Shell("id svc").status, 0);
}

// What was there before is restored.
TEST_F(Package, PurgeRestoresEarlierVersion) {
    Shell(
        "mkdir -p /var/corvane/corvanerc/corvane24server; echo 'MaxThreads: 1' > "
        "/var/corvane/QueueLimits; chmod 600 /var/corvane/QueueLimits;"
        "chmod 644 /var/corvane/QueueLimits; ln -s /opt/corvane24/corvane /usr/bin/corvane26");
    const std::string state =
        "find /var/corvane /usr/bin/corvane26* -printf '%p %m %u:%g %l\\n' | sort;"
        "cat /var/corvane/QueueLimits";
    const std::string before = Shell(state);
    Install();
    SetUpService(product);
    EXPECT_NE(Shell(state), before);
    Shell("dpkg -r libhxinstallbase-dev corvane26-setup");
    Purge();
    EXPECT_EQ(Shell(state), before);
    EXPECT_EQ(s_machine->Shell("ls -d /etc/corvane26 /var/lib/corvane26").out, "");
}

struct PackageCall {
    const char* name;
    const char* arguments;  // of prerm, as dpkg calls it
    bool removes;
};

const PackageCall packageCalls[] = {
    {"Upgrade", "upgrade 26.1.0", false},
    {"FailedUpgrade", "failed-upgrade 25.0.0", false},
    {"Deconfigure", "deconfigure in-favour other 1.0", false},
    {"Remove", "remove", true},
};

TEST_F(Package, RemovesSetupOnlyWhenRemoved) {
    Install();
    SetUpService(product, "--cluster-node");
    for (const PackageCall& row : packageCalls) {
        SCOPED_TRACE(row.name);
        Shell(std::string("/var/lib/dpkg/info/corvane26-setup.prerm ") + row.arguments);
        EXPECT_EQ(s_machine->Shell("test -e /usr/bin/corvane26").status, row.removes ? 1 : 0);
    }
}

TEST_F(Package, StaysInstalledWhenSetupCannotBeRemoved) {
    Install();
    SetUpService(product, "--cluster-node");
    Shell("chmod 777 /etc/corvane26");
    const auto removal = s_machine->Shell("dpkg -r libhxinstallbase-dev corvane26-setup 2>&1");
    EXPECT_NE(removal.status, 0);
    hx_test::ExpectHolds(removal.out, "The package stays installed");
    Shell("test -e /usr/bin/corvane26; dpkg -s corvane26-setup | grep '^Status: .* ok installed$'");
}

struct UnrestoredSetup {
    const char* name;
    const char* breaks;  // a shell command
    const char* message;
};

const UnrestoredSetup unrestoredSetups[] = {
    {"WithoutProgram", "rm /usr/lib/corvane26/cv_install",
     "Cannot run /usr/lib/corvane26/cv_install. The package is removed without restoring"},
    {"WithoutProgramAndStates",
     "rm -r /usr/lib/corvane26/cv_install /var/lib/corvane26/private/states",
     "Cannot run /usr/lib/corvane26/cv_install. The package is removed without restoring"},
    {"WithDamagedState", "truncate -s -1 /var/lib/corvane26/private/states/first/state",
     "Cannot use the record in /var/lib/corvane26. The package is removed without restoring"},
};

TEST_F(Package, IsPurgedWhenStateCannotBeRestored) {
    for (const UnrestoredSetup& row : unrestoredSetups) {
        SCOPED_TRACE(row.name);
        Install();
        SetUpService(product);
        Shell(std::string("rm /usr/lib/corvane26/cv_computeservice; ") + row.breaks);
        hx_test::ExpectHolds(Purge(), row.message);
        ExpectNothingLeft();
    }
}

TEST_F(Package, KeepsWhatWasBeforeUntilItIsRestored) {
    Shell(
        "mkdir -p /var/corvane/qchemrc; cd /var/corvane; echo 'MaxThreads: 1' > QueueLimits; "
        "echo mine > qchemrc/mine; chmod 644 QueueLimits");
    const std::string files = "cd /var/corvane; head QueueLimits qchemrc/mine";
    const std::string before = Shell(files);
    Install();
    SetUpService(product);
    const std::string during = Shell(files);
    EXPECT_NE(during, before);
    Shell(
        "rm /usr/lib/corvane26/cv_computeservice /usr/lib/corvane26/cv_install; cd /var/corvane; "
        "echo job > QueueEntries; "
        "umask 077; mkdir .corvane26_setup_killed; cd .corvane26_setup_killed; "
        "echo job > corvane26_slot.2.QueueEntries; touch corvane26_slot.3.QueueLimits");
    hx_test::ExpectHolds(Purge(),
                         "Keeping /var/lib/corvane26/private/states/first: it contains files as "
                         "they were before the first setup.\n");
    EXPECT_EQ(Shell(files), during);
    EXPECT_EQ(Shell("cd /var/corvane; find . | sort"),
              ".\n./.corvane26_setup_killed\n"
              "./.corvane26_setup_killed/corvane26_slot.2.QueueEntries\n"
              "./QueueEntries\n./QueueLimits\n./qchemrc\n./qchemrc/mine\n");
    Shell("rm -r /var/corvane/.corvane26_setup_killed");
    Install();
    Purge();
    EXPECT_EQ(Shell(files), before);
    EXPECT_EQ(s_machine->Shell("ls -d /var/lib/corvane26").out, "");
}

struct UsedAccount {
    const char* name;
    const char* uses;  // a shell command
    const char* file;
};

const UsedAccount usedAccounts[] = {
    {"ScratchFile", "touch /srv/scratch/job; chown corvsrvc /srv/scratch/job", "/srv/scratch/job"},
    {"GroupOfScratchFile", "touch /srv/scratch/job; chgrp corvsrvc /srv/scratch/job",
     "/srv/scratch/job"},
    {"Crontab", "touch /var/spool/cron/crontabs/corvsrvc", "/var/spool/cron/crontabs/corvsrvc"},
};

TEST_F(Package, KeepsAccountThatIsStillUsed) {
    Shell("mkdir /srv/scratch");
    for (const UsedAccount& row : usedAccounts) {
        SCOPED_TRACE(row.name);
        Install();
        SetUpService(product, "--cluster-node --scratch-directory /srv/scratch");
        Shell(row.uses);
        hx_test::ExpectHolds(Purge(),
                             std::string("Keeping user corvsrvc: used by ") + row.file + ".\n");
        Shell(std::string("id corvsrvc; rm ") + row.file);
        Shell("userdel corvsrvc");
    }
}

// Returns the first commands of the section.
std::string CommandsOfTheGuide(const std::string& section) {
    const std::string guide = hx_test::ReadFile(HX_SOURCE_DIR "/docs/installing.md");
    const size_t begin = guide.find("\n    ", guide.find("\n## " + section + "\n"));
    return guide.substr(begin, guide.find("\n\n", begin) - begin);
}

TEST_F(Package, IsRemovedByTheCommandsOfTheGuide) {
    Install();
    Shell("mkdir -p /opt/corvane/lib; cp -a /usr/lib/corvane26 /opt/corvane/lib");
    Purge();
    SetUpService("/opt/corvane/lib/corvane26");
    EXPECT_EQ(Unit("ActiveState"), "active\n");
    const std::string commands = CommandsOfTheGuide("Removing without a package");
    EXPECT_NE(commands.find("--remove --purge"), std::string::npos);
    Shell(commands);
    EXPECT_EQ(Unit("LoadState"), "not-found\n");
    ExpectNothingLeft();
}

}  // namespace
