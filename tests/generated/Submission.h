// The submission scripts, run with a /tmp of their own in which "corvane26" only records.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "generated/Writing.h"
#include "harness/TempDir.h"

namespace hx_test {

// Runs a script under each shell. Paths inside are below /tmp, where the test's own directory
// stands for it.
class SubmissionTest : public testing::TestWithParam<const char*> {
protected:
    // `name` is the script's, corvane26_samba or corvane26_ssh.
    SubmissionTest(const std::string& name, Writer writer);
    void SetUp() override;

    // Runs the script with nothing in its environment but PATH, USER=alice and `env`; an empty
    // value takes a variable out.
    ProcessResult Submit(const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& env = {}) const;

    // Sets a line of the script's settings as an administrator would.
    void Set(const std::string& line, const std::string& newLine);

    // A file of the script's /tmp.
    std::string Outside(const std::string& name) const { return m_root / name; }
    std::string File(const std::string& name) const { return ReadFile(Outside(name)); }
    bool Has(const std::string& name) const { return std::filesystem::exists(Outside(name)); }

    // The words that corvane26 was started with, in angle brackets, one call a line.
    std::string Recorded() const { return File("recorded"); }

    static bool IsBash() { return std::string(GetParam()) == "bash"; }

    // The complaint of a shell that does not know "==".
    static size_t Complaints(const ProcessResult& result);

    const std::string m_name;
    TempDir m_root;
};

inline std::string ShellName(const testing::TestParamInfo<const char*>& info) {
    return info.param;
}

// "<a><b>\n"
std::string Call(const std::vector<std::string>& words);

}  // namespace hx_test
