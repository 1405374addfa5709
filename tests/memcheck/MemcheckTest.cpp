// Whole runs of cv_install, and the integers, under valgrind's memcheck: no error, no lost memory.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "apps/UserSetup.h"

namespace {

constexpr const char* Valgrind = "/usr/bin/valgrind";
constexpr int ErrorsFound = 99;

// Runs a program, not what it starts, under memcheck.
std::vector<std::string> UnderMemcheck(const std::vector<std::string>& options,
                                       const std::vector<std::string>& program) {
    std::vector<std::string> command = {Valgrind,
                                        "--error-exitcode=" + std::to_string(ErrorsFound),
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
        if (access(Valgrind, X_OK) != 0)
            GTEST_SKIP() << Valgrind << " is needed";
    }
};

class MemcheckOfSetup : public Memcheck {
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

TEST_F(MemcheckOfSetup, FindsNothingInTheHelp) {
    ExpectClean({"--help"}, 0);
}

TEST_F(MemcheckOfSetup, FindsNothingInAWholeSetup) {
    ExpectClean({"--setup", "--user-mode", "--yes", "--submission-scripts"}, 0);
    EXPECT_TRUE(m_setup.File("QueueLimits").starts_with("MaxThreads: "));
}

TEST_F(MemcheckOfSetup, FindsNothingInARefusedOne) {
    ExpectClean({"--setup", "--user-mode", "--yes", "-q", "a$b"}, 4);
}

// So that the others are known to look.
TEST_F(MemcheckOfSetup, FindsWhatIsKeptByDesignWhereThatIsNotSuppressed) {
    EXPECT_EQ(Run({}, {"--setup", "--user-mode", "--yes", "-q", "a$b"}).status, ErrorsFound);
    EXPECT_NE(Log().find("hx_cpu_count"), std::string::npos) << Log();
}

// A sanitizer does not see what the assembly reads. The comparisons with Python take too long here.
TEST_F(Memcheck, FindsNothingInTheIntegers) {
    const auto result = hx_test::Run(UnderMemcheck(
        {"--quiet"}, {HX_BIGINT_TEST, "--gtest_filter=-*Python*:*Expected*:Binary.*"}));
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    EXPECT_NE(result.out.find("[  PASSED  ]"), std::string::npos);
}

}  // namespace
