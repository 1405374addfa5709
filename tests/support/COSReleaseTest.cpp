// The release of the operating system, from files at their real paths.
#include "support/COSRelease.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

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

// Returns "name|rpm or -|deb or -" for an os-release file with this content. A bind mount over
// /etc/os-release follows the link that it usually is.
std::string ReleaseOf(const std::string& text) {
    const hx_test::TempDir dir;
    hx_test::WriteFile(dir / "os-release", text);
    World world{.identity = World::Identity::Root};
    world.binds = {{dir / "os-release", "/etc/os-release"}};
    const auto result = RunInChild(world, PrintRelease);
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
}

// Returns the same with new directories at /etc and /usr/lib. Without text, there is no file.
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
        // A leak checker would need files in /usr/lib.
        std::fflush(nullptr);
        _exit(0);
    });
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
}

class OSRelease : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    // Pairs of a file and its release.
    static void ExpectReleases(const std::vector<std::pair<std::string, std::string>>& cases) {
        for (const auto& [text, release] : cases)
            EXPECT_EQ(ReleaseOf(text), release) << text;
    }
};

TEST_F(OSRelease, DetectsFamilyById) {
    ExpectReleases(
        {{"PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\nNAME=\"Debian GNU/Linux\"\n"
          "VERSION_ID=\"12\"\nID=debian\n",
          "Debian GNU/Linux|-|deb"},
         {"NAME=\"Fedora Linux\"\nID=fedora\n", "Fedora Linux|rpm|-"},
         {"NAME=\"openSUSE Tumbleweed\"\nID=\"opensuse-tumbleweed\"\n",
          "openSUSE Tumbleweed|rpm|-"},
         {"NAME=\"SLES\"\nVERSION=\"12-SP5\"\nID=\"sles\"\n", "SLES|rpm|-"},
         {"NAME=\"Arch Linux\"\nPRETTY_NAME=\"Arch Linux\"\nID=arch\n", "Arch Linux|-|-"},
         {"NAME=debian\nVARIANT_ID=rhel\nPLATFORM_ID=fedora\nID=arch\n", "debian|-|-"}});
}

TEST_F(OSRelease, DetectsFamilyByIdLike) {
    ExpectReleases(
        {{"PRETTY_NAME=\"Ubuntu 22.04.3 LTS\"\nNAME=\"Ubuntu\"\nID=ubuntu\nID_LIKE=debian\n",
          "Ubuntu|-|deb"},
         {"NAME=\"Pop!_OS\"\nID=pop\nID_LIKE=\"ubuntu debian\"\n", "Pop!_OS|-|deb"},
         {"NAME=Own\nID=own\nID_LIKE=\"other ubuntu\"\n", "Own|-|deb"},
         {"NAME=\"Red Hat Enterprise Linux\"\nID=\"rhel\"\nID_LIKE=\"fedora\"\n",
          "Red Hat Enterprise Linux|rpm|-"},
         {"NAME=\"Rocky Linux\"\nID=\"rocky\"\nID_LIKE=\"rhel centos fedora\"\n",
          "Rocky Linux|rpm|-"},
         {"NAME=\"Own Linux\"\nID=\"own\"\nID_LIKE=\"rhel\"\n", "Own Linux|rpm|-"},
         {"NAME=\"openSUSE Leap\"\nID=\"opensuse-leap\"\nID_LIKE=\"suse opensuse\"\n",
          "openSUSE Leap|rpm|-"},
         {"NAME=\"SLES\"\nVERSION=\"15-SP5\"\nID=\"sles\"\nID_LIKE=\"suse\"\n", "SLES|rpm|-"},
         {"NAME=N\nID=debianish\nID_LIKE=\"notrhel fedorax\"\n", "N|-|-"}});
}

TEST_F(OSRelease, ReadsValuesAsShell) {
    ExpectReleases({{"NAME='Single Quoted'\nID='debian'\n", "Single Quoted|-|deb"},
                    {"NAME=Plain\nID=fedora\n", "Plain|rpm|-"},
                    {"NAME=\"\"\nID=\"\"\n", "|-|-"},
                    {R"(NAME="The \"Own\" \$5 \\ Linux")", R"(The "Own" $5 \ Linux|-|-)"},
                    {R"(NAME='Single \ quotes')", R"(Single \ quotes|-|-)"},
                    {"# ID=debian\n\nno equals sign\n=x\nNAME=N\nID=arch\n", "N|-|-"},
                    {"ID=debian\nNAME=\"Größe\"", "Größe|-|deb"}});
}

TEST_F(OSRelease, IsLinuxWithoutName) {
    ExpectReleases({{"ID=debian\n", "Linux|-|deb"}, {"", "Linux|-|-"}});
}

TEST_F(OSRelease, PrefersFileInEtcIfItCanBeOpened) {
    const std::string first = "NAME=First\nID=fedora\n";
    const std::string second = "NAME=Second\nID=debian\n";
    EXPECT_EQ(ReleaseOfTwo(first, 0644, second), "First|rpm|-");
    EXPECT_EQ(ReleaseOfTwo(first, 0, second), "Second|-|deb");
    EXPECT_EQ(ReleaseOfTwo("", 0, second), "Second|-|deb");
    EXPECT_EQ(ReleaseOfTwo("", 0, ""), "Linux|-|-");
}

TEST(OSReleaseOfThisMachine, HasNameThatShellReads) {
    const auto shell = hx_test::Run({"sh", "-c", ". /etc/os-release && printf %s \"$NAME\""});
    if (shell.status != 0)
        GTEST_SKIP() << "this machine has no /etc/os-release";
    char name[] = "cv_install";
    char* argv[] = {name, nullptr};
    EXPECT_EQ(COSRelease(1, argv).Name().toStdString(), shell.out);
}

}  // namespace
