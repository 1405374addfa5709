// The example programs, built with the installed library as the guide says.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "harness/Child.h"
#include "installed/InstalledTree.h"

namespace {

namespace fs = std::filesystem;
using hx_test::TempDir;

const std::string example = HX_SOURCE_DIR "/docs/examples/consumer";

void CopyExample(const TempDir& to) {
    fs::copy(example, to.path(), fs::copy_options::recursive);
}

std::vector<std::string> Configure(const TempDir& project, const std::string& prefix) {
    return {HX_CMAKE,
            "-G" HX_GENERATOR,
            "-S" + project.path().string(),
            "-B" + (project / "build"),
            "-DCMAKE_C_COMPILER=" HX_CC,
            "-DCMAKE_CXX_COMPILER=" HX_CXX,
            "-DCMAKE_PREFIX_PATH=" + prefix};
}

void Build(const TempDir& project) {
    RunWell({HX_CMAKE, "--build", project / "build"});
}

void ExpectPrintsMachine(const std::string& program) {
    // The values of the system's own tools.
    const std::string processors = RunWell({"getconf", "_NPROCESSORS_CONF"});
    const std::string memory =
        RunWell({"sh", "-c", "echo $(($(getconf _PHYS_PAGES) * $(getconf PAGESIZE) / 1048576))"});
    EXPECT_EQ(RunWell({program}), "processors " + processors + "memory " +
                                      memory.substr(0, memory.size() - 1) +
                                      " MB\n2^89 - 1 = 618970019642690137449562111\n");
}

// Runs the setup as a regular user with a new home directory, and hides an installation in /var.
void ExpectSetsUp(const std::string& program, const InstalledTree& tree) {
    HX_REQUIRE_NAMESPACES();
    const std::string product = tree.Product();
    const auto before = tree.Files({});
    const TempDir nothing;
    const TempDir home;
    const hx_test::World world = {.identity = hx_test::World::Identity::User,
                                  .binds = {{nothing.path().string(), "/var"}}};
    const auto setup = hx_test::RunInChild(world, [&] {
        execl(program.c_str(), program.c_str(), product.c_str(), home.path().c_str(), nullptr);
        _exit(127);
    });
    EXPECT_EQ(setup.status, 0) << setup.out << setup.err;
    EXPECT_EQ(RunWell({home / "corvane26", "--root-path"}), "CORV_ROOT=" + product + "\n");
    EXPECT_EQ(RunWell({home / "corvane26", "--printenv", "CORV_CORVANERC"}),
              home.path().string() + "\n");
    EXPECT_EQ(RunWell({home / "corvane26", "--printenv", "CORV_QUEUE_TYPE"}), "INTERNAL\n");
    EXPECT_TRUE(fs::exists(home / "corvanerc/corvane26server/resources/index.html"));
    EXPECT_NE(hx_test::ReadFile(home / "QueueLimits").find("\nScratch: /tmp\n"), std::string::npos);
    EXPECT_EQ(tree.Files({}), before) << "the setup changed the installation";
}

TEST(Consumer, BuildsWithCMakeFromMovedTree) {
    const InstalledTree& tree = InstalledTree::Moved();
    const TempDir project;
    CopyExample(project);
    RunWell(Configure(project, tree.Path()));
    Build(project);
    ExpectPrintsMachine(project / "build/machine");
    RunWell({HX_CMAKE, "--install", project / "build", "--prefix", project / "installed"},
            {.unset = {"DESTDIR"}});
    ExpectPrintsMachine(project / "installed/bin/machine");
    ExpectSetsUp(project / "installed/bin/private_setup", tree);
}

TEST(Consumer, BuildsWithPkgConfigFromStagedTree) {
    const InstalledTree tree(InstalledTree::Way::Staged);
    const TempDir project;
    CopyExample(project);
    RunWell({"make", "-C", project.path(), "CC=" HX_CC, "CXX=" HX_CXX,
             "PKG_CONFIG_PATH=" + tree.PkgConfig()});
    ExpectPrintsMachine(project / "machine");
    ExpectSetsUp(project / "private_setup", tree);
}

constexpr const char* cProject = R"(cmake_minimum_required(VERSION 3.25)
project(consumer LANGUAGES C)
foreach(other IN ITEMS 25 26.1 27)
  find_package(HXInstallBase ${other} QUIET COMPONENTS C)
  if(HXInstallBase_FOUND)
    message(FATAL_ERROR "found version ${other}")
  endif()
endforeach()
find_package(HXInstallBase 26.0 QUIET COMPONENTS C Fortran)
if(HXInstallBase_FOUND)
  message(FATAL_ERROR "found a nonexistent component")
endif()
find_package(HXInstallBase 26.0 REQUIRED COMPONENTS C)
add_executable(machine machine.c)
target_link_libraries(machine PRIVATE HXInstallBase::C)
)";

TEST(Consumer, BuildsInCWithoutQtOrCPlusPlus) {
    const TempDir project;
    fs::copy(example + "/machine.c", project / "machine.c");
    hx_test::WriteFile(project / "CMakeLists.txt", cProject);
    std::vector<std::string> command = Configure(project, InstalledTree::Moved().Path());
    command.insert(command.end(), {"-DCMAKE_DISABLE_FIND_PACKAGE_Qt6=ON", "--no-warn-unused-cli"});
    RunWell(command);
    Build(project);
    ExpectPrintsMachine(project / "build/machine");
}

}  // namespace
