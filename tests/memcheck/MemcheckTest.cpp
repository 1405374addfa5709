// Whole setups and the integers under valgrind: no memory errors, no leaks, no data races.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "apps/UserSetup.h"

namespace {

constexpr const char* valgrind = "/usr/bin/valgrind";
constexpr int errorsFound = 99;

// Returns the command that runs a program, without its children, under memcheck.
std::vector<std::string> UnderMemcheck(const std::vector<std::string>& options,
                                       const std::vector<std::string>& program) {
    std::vector<std::string> command = {valgrind,
                                        "--error-exitcode=" + std::to_string(errorsFound),
                                        "--vgdb=no",
                                        "--child-silent-after-fork=yes",
                                        "--leak-check=full",
                                        "--show-leak-kinds=definite",
                                        "--errors-for-leak-kinds=definite"};
    command.insert(command.end(), options.begin(), options.end());
    command.insert(command.end(), program.begin(), program.end());
    return command;
}

class Memcheck : public testing::Test {
protected:
    void SetUp() override {
        if (access(valgrind, X_OK) != 0)
            GTEST_SKIP() << valgrind << " is not installed";
    }
};

class SetupMemcheck : public Memcheck {
protected:
    void SetUp() override {
        HX_REQUIRE_NAMESPACES();
        Memcheck::SetUp();
        std::filesystem::copy(HX_VALGRIND_SUPPRESSIONS, m_setup.Root() + "/suppressions");
    }

    hx_test::ProcessResult Run(std::vector<std::string> options,
                               const std::vector<std::string>& arguments) const {
        options.push_back("--log-file=/tmp/memcheck.log");
        return m_setup.RunProgram(UnderMemcheck(options, m_setup.Command(arguments)));
    }

    void ExpectClean(const std::vector<std::string>& arguments, int status) const {
        const auto result = Run({"--suppressions=/tmp/suppressions"}, arguments);
        EXPECT_EQ(result.status, status) << result.err << Log();
        EXPECT_NE(Log().find("ERROR SUMMARY: 0 errors"), std::string::npos) << Log();
    }

    std::string Log() const { return hx_test::ReadFile(m_setup.Root() + "/memcheck.log"); }

    const UserSetup m_setup;
};

TEST_F(SetupMemcheck, FindsNoErrorInHelp) {
    ExpectClean({"--help"}, 0);
}

TEST_F(SetupMemcheck, FindsNoErrorInWholeSetup) {
    ExpectClean({"--setup", "--user-mode", "--yes", "--submission-scripts"}, 0);
    EXPECT_TRUE(m_setup.File("QueueLimits").starts_with("MaxThreads: "));
}

TEST_F(SetupMemcheck, FindsNoErrorInRefusedSetup) {
    ExpectClean({"--setup", "--user-mode", "--yes", "-q", "a$b"}, 4);
}

// Shows that the other tests detect leaks.
TEST_F(SetupMemcheck, FindsIntendedLeakWithoutSuppression) {
    EXPECT_EQ(Run({}, {"--setup", "--user-mode", "--yes", "-q", "a$b"}).status, errorsFound);
    EXPECT_NE(Log().find("hx_cpu_count"), std::string::npos) << Log();
}

// Needed in addition to the sanitizers, which do not check the assembly. The omitted tests repeat
// calls of the others, with longer operands, and take too long here.
TEST_F(Memcheck, FindsNoErrorInIntegers) {
    const auto result = hx_test::Run(
        UnderMemcheck({"--quiet"}, {HX_BIGINT_TEST,
                                    "--gtest_filter=-*Python*:*Growth*:Binary.*:Published*:"
                                    "Text.Reads*:Threads.*:*/OneRecord.*:Arithmetic.Root*"}));
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    EXPECT_NE(result.out.find("[  PASSED  ]"), std::string::npos);
}

// Detects memory that threads share by mistake even if no result becomes wrong.
TEST_F(Memcheck, FindsNoDataRaceInIntegers) {
    const auto result = hx_test::Run({valgrind, "--tool=helgrind", "--quiet", "--vgdb=no",
                                      "--error-exitcode=" + std::to_string(errorsFound),
                                      HX_BIGINT_TEST, "--gtest_filter=Threads.*"});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    EXPECT_NE(result.out.find("[  PASSED  ] 1 test"), std::string::npos);
}

}  // namespace
