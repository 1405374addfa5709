// Answers the prompts of a user's setup over a console and compares the whole output.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "harness/Child.h"
#include "harness/TempDir.h"
#include "setuprun/CInstallBase.h"

namespace hx_test {

using Words = std::vector<std::string>;

enum class Console { Pipe, Terminal };

// Closes the input. Nothing can be typed after it.
inline const std::string End = "\x04";

// Expected output, and the input that follows it.
struct Turn {
    std::string output;
    std::string typed = {};
};

class PromptTest : public testing::TestWithParam<Console> {
protected:
    PromptTest();
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    // Writes the QueueLimits file of a previous setup.
    void PreviousSetup(const std::string& queueLimits) const;

    // Adds a shell script, whose directory comes first in PATH.
    void AddProgram(const std::string& name, const std::string& script) const;

    // Adds a df that reports this number of free 1024-byte blocks and writes its arguments to
    // m_home/df_arguments.
    void FreeBlocks(const std::string& blocks) const;

    // Binds a directory of the test over `path`, if that exists, and returns the directory.
    std::string Replace(const std::string& path);

    // Calls `body` in a child with a setup that has m_options. After it, the input must contain
    // m_unread only.
    void Converse(const std::vector<Turn>& turns, const std::function<void(CInstallBase&)>& body);

    TempDir m_home;  // the install directory
    Words m_options;
    World m_world;
    std::string m_unread;
    int m_status = 0;     // expected of the child
    std::string m_error;  // regular expression for its stderr

private:
    void Act(const std::function<void(CInstallBase&)>& body, const std::string& unread);
    ProcessResult OverPipe(const std::vector<Turn>& turns, const std::function<void()>& act,
                           const std::string& ahead);
    ProcessResult OverTerminal(const std::vector<Turn>& turns, const std::function<void()>& act,
                               const std::string& ahead);
};

}  // namespace hx_test

// Runs the tests of a fixture with both kinds of console.
#define HX_OVER_BOTH_CONSOLES(Fixture)                                                      \
    INSTANTIATE_TEST_SUITE_P(                                                               \
        Over, Fixture, testing::Values(hx_test::Console::Pipe, hx_test::Console::Terminal), \
        [](const testing::TestParamInfo<hx_test::Console>& console) {                       \
            return console.param == hx_test::Console::Pipe ? "Pipe" : "Terminal";           \
        })
