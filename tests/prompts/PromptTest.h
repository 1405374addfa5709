// Drives the prompts of a user's setup run over a console, and compares every byte that they say.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "harness/Child.h"
#include "harness/TempDir.h"
#include "setuprun/CInstallBase.h"

namespace hx_test {

enum class Console { Pipe, Terminal };

// Closes the input where it stands; nothing can be typed behind it.
inline const std::string End = "\x04";

// What is said, and what is typed then. Over a terminal nothing is typed before all of it was said.
struct Turn {
    std::string says;
    std::string typed = {};
};

class PromptTest : public testing::TestWithParam<Console> {
protected:
    PromptTest();
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    // Leaves the file of an earlier installation in the install directory.
    void LastInstallation(const std::string& queueLimits) const;

    // Puts a shell script in PATH, before everything else there.
    void AddProgram(const std::string& name, const std::string& script) const;

    // Makes a df that reports so many free blocks of 1024 bytes, and writes its arguments to
    // m_home/df_arguments.
    void FreeBlocks(const std::string& blocks) const;

    // Binds a directory of the test's own over `path`, if that exists, and returns it.
    std::string Replace(const std::string& path);

    // Constructs a run with m_options in a child whose console is the one under test, and calls
    // `body` with it. What is left of the input afterwards must be m_unread alone.
    void Converse(const std::vector<Turn>& turns, const std::function<void(CInstallBase&)>& body);

    TempDir m_home;  // the install directory of the run
    std::vector<std::string> m_options;
    World m_world;
    std::string m_unread;  // typed, but left for the next reader
    int m_status = 0;      // of the child
    std::string m_error;   // regular expression for all of its stderr

private:
    void Act(const std::function<void(CInstallBase&)>& body, const std::string& unread);
    ProcessResult OverPipe(const std::vector<Turn>& turns, const std::function<void()>& act,
                           const std::string& ahead);
    ProcessResult OverTerminal(const std::vector<Turn>& turns, const std::function<void()>& act,
                               const std::string& ahead);
};

inline std::string NameOf(const testing::TestParamInfo<Console>& console) {
    return console.param == Console::Pipe ? "Pipe" : "Terminal";
}

}  // namespace hx_test

// Runs the tests of a fixture over both kinds of console.
#define HX_OVER_BOTH_CONSOLES(Fixture)                                                            \
    INSTANTIATE_TEST_SUITE_P(Over, Fixture,                                                       \
                             testing::Values(hx_test::Console::Pipe, hx_test::Console::Terminal), \
                             hx_test::NameOf)
