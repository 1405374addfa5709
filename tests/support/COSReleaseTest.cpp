// The release record, from real files at the real paths.
#include "support/COSRelease.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "harness/Child.h"
#include "harness/TempDir.h"

namespace {

using hx_test::RunInChild;
using hx_test::World;

void PrintRelease() {
    char name[] = "cv_install";
    char* argv[] = {name, nullptr};
    const COSRelease release(1, argv);
    std::printf("%s|%s|%s", qUtf8Printable(release.Name()), release.RpmBased() ? "rpm" : "-",
                release.DebBased() ? "deb" : "-");
}

// "name|rpm or -|deb or -" for an os-release file of this content. /etc/os-release is usually a
// link to the other path, and a bind mount over it follows the link.
std::string ReleaseOf(const std::string& text) {
    const hx_test::TempDir dir;
    hx_test::WriteFile(dir / "os-release", text);
    World world{.identity = World::Identity::Root};
    world.binds = {{dir / "os-release", "/etc/os-release"}};
    const auto result = RunInChild(world, PrintRelease);
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
}

// The two paths with a directory of the test's own for /etc; an empty path stands for no file.
std::string ReleaseOfTwo(const std::string& etcText, mode_t etcMode, const std::string& usrText) {
    const hx_test::TempDir dir;
    std::filesystem::create_directories(dir / "etc");
    std::filesystem::create_directories(dir / "lib");
    if (!etcText.empty()) {
        hx_test::WriteFile(dir / "etc/os-release", etcText);
        chmod((dir / "etc/os-release").c_str(), etcMode);
    }
    if (!usrText.empty())
        hx_test::WriteFile(dir / "lib/os-release", usrText);
    World world{.identity = World::Identity::User};
    world.binds = {{dir / "lib", "/usr/lib"}, {dir / "etc", "/etc"}};
    const auto result = RunInChild(world, [] {
        PrintRelease();
        // A leak checker would miss its own files below /usr/lib.
        std::fflush(nullptr);
        _exit(0);
    });
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
}

class OSRelease : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }
};

TEST_F(OSRelease, KnowsDebian) {
    EXPECT_EQ(ReleaseOf("PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n"
                        "NAME=\"Debian GNU/Linux\"\nVERSION_ID=\"12\"\nID=debian\n"),
              "Debian GNU/Linux|-|deb");
}

TEST_F(OSRelease, KnowsUbuntu) {
    EXPECT_EQ(ReleaseOf("PRETTY_NAME=\"Ubuntu 22.04.3 LTS\"\nNAME=\"Ubuntu\"\nID=ubuntu\n"
                        "ID_LIKE=debian\nUBUNTU_CODENAME=jammy\n"),
              "Ubuntu|-|deb");
}

TEST_F(OSRelease, KnowsAChildOfUbuntuByWhatItIsLike) {
    EXPECT_EQ(ReleaseOf("NAME=\"Pop!_OS\"\nID=pop\nID_LIKE=\"ubuntu debian\"\n"), "Pop!_OS|-|deb");
    EXPECT_EQ(ReleaseOf("NAME=Own\nID=own\nID_LIKE=\"other ubuntu\"\n"), "Own|-|deb");
}

TEST_F(OSRelease, KnowsRedHatAndFedora) {
    EXPECT_EQ(ReleaseOf("NAME=\"Red Hat Enterprise Linux\"\nID=\"rhel\"\nID_LIKE=\"fedora\"\n"),
              "Red Hat Enterprise Linux|rpm|-");
    EXPECT_EQ(ReleaseOf("NAME=\"Fedora Linux\"\nID=fedora\n"), "Fedora Linux|rpm|-");
}

TEST_F(OSRelease, KnowsAChildOfRedHat) {
    EXPECT_EQ(ReleaseOf("NAME=\"Rocky Linux\"\nID=\"rocky\"\nID_LIKE=\"rhel centos fedora\"\n"),
              "Rocky Linux|rpm|-");
    EXPECT_EQ(ReleaseOf("NAME=\"Own Linux\"\nID=\"own\"\nID_LIKE=\"rhel\"\n"), "Own Linux|rpm|-");
}

TEST_F(OSRelease, KnowsOpenSuse) {
    EXPECT_EQ(
        ReleaseOf("NAME=\"openSUSE Leap\"\nID=\"opensuse-leap\"\nID_LIKE=\"suse opensuse\"\n"),
        "openSUSE Leap|rpm|-");
    EXPECT_EQ(ReleaseOf("NAME=\"openSUSE Tumbleweed\"\nID=\"opensuse-tumbleweed\"\n"),
              "openSUSE Tumbleweed|rpm|-");
}

TEST_F(OSRelease, KnowsSles) {
    EXPECT_EQ(ReleaseOf("NAME=\"SLES\"\nVERSION=\"15-SP5\"\nID=\"sles\"\nID_LIKE=\"suse\"\n"),
              "SLES|rpm|-");
    EXPECT_EQ(ReleaseOf("NAME=\"SLES\"\nVERSION=\"12-SP5\"\nID=\"sles\"\n"), "SLES|rpm|-");
}

TEST_F(OSRelease, ArchIsNeither) {
    EXPECT_EQ(ReleaseOf("NAME=\"Arch Linux\"\nPRETTY_NAME=\"Arch Linux\"\nID=arch\n"),
              "Arch Linux|-|-");
}

TEST_F(OSRelease, OnlyTheIdFieldsDecide) {
    EXPECT_EQ(ReleaseOf("NAME=debian\nVARIANT_ID=rhel\nPLATFORM_ID=fedora\nID=arch\n"),
              "debian|-|-");
}

TEST_F(OSRelease, APartOfAnIdIsNotTheId) {
    EXPECT_EQ(ReleaseOf("NAME=N\nID=debianish\nID_LIKE=\"notrhel fedorax\"\n"), "N|-|-");
}

TEST_F(OSRelease, ReadsValuesWithEitherQuoteOrNone) {
    EXPECT_EQ(ReleaseOf("NAME='Single Quoted'\nID='debian'\n"), "Single Quoted|-|deb");
    EXPECT_EQ(ReleaseOf("NAME=Plain\nID=fedora\n"), "Plain|rpm|-");
    EXPECT_EQ(ReleaseOf("NAME=\"\"\nID=\"\"\n"), "|-|-");
}

TEST_F(OSRelease, ReadsEscapesAsAShellDoes) {
    EXPECT_EQ(ReleaseOf(R"(NAME="The \"Own\" \$5 \\ Linux")"), R"(The "Own" $5 \ Linux|-|-)");
    EXPECT_EQ(ReleaseOf(R"(NAME='Single \ quotes')"), R"(Single \ quotes|-|-)");
}

TEST_F(OSRelease, PassesOverCommentsAndOtherLines) {
    EXPECT_EQ(ReleaseOf("# ID=debian\n\nno equals sign\n=x\nNAME=N\nID=arch\n"), "N|-|-");
}

TEST_F(OSRelease, ReadsUtf8AndALastLineWithoutNewline) {
    EXPECT_EQ(ReleaseOf("ID=debian\nNAME=\"Größe\""), "Größe|-|deb");
}

TEST_F(OSRelease, AFileWithoutANameIsLinux) {
    EXPECT_EQ(ReleaseOf("ID=debian\n"), "Linux|-|deb");
    EXPECT_EQ(ReleaseOf(""), "Linux|-|-");
}

TEST_F(OSRelease, TheFileBelowEtcComesFirst) {
    EXPECT_EQ(ReleaseOfTwo("NAME=First\nID=fedora\n", 0644, "NAME=Second\nID=debian\n"),
              "First|rpm|-");
}

TEST_F(OSRelease, TheFileBelowUsrLibStandsInForAMissingOne) {
    EXPECT_EQ(ReleaseOfTwo("", 0, "NAME=Second\nID=debian\n"), "Second|-|deb");
}

TEST_F(OSRelease, TheFileBelowUsrLibStandsInForOneThatCannotBeOpened) {
    EXPECT_EQ(ReleaseOfTwo("NAME=First\nID=fedora\n", 0, "NAME=Second\nID=debian\n"),
              "Second|-|deb");
}

TEST_F(OSRelease, WithoutEitherFileTheAnswersAreNo) {
    EXPECT_EQ(ReleaseOfTwo("", 0, ""), "Linux|-|-");
}

TEST(OSReleaseOfThisMachine, HasTheNameThatAShellReads) {
    const auto shell = hx_test::Run({"sh", "-c", ". /etc/os-release && printf %s \"$NAME\""});
    if (shell.status != 0)
        GTEST_SKIP() << "this machine has no /etc/os-release";
    char name[] = "cv_install";
    char* argv[] = {name, nullptr};
    EXPECT_EQ(COSRelease(1, argv).Name().toStdString(), shell.out);
}

}  // namespace
