// Runs the submission scripts. Their /tmp is a directory of the test, and "corvane26" only records.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "generated/Writing.h"
#include "harness/TempDir.h"

namespace hx_test {

// A submission script and the facts that are particular to it.
struct SubmissionScript {
    const char* name;
    const char* log;    // in /tmp
    const char* shell;  // that runs the script
    Writer writer;
};

std::vector<SubmissionScript> SambaScripts();  // one for each shell
std::vector<SubmissionScript> SshScripts();

inline void PrintTo(const SubmissionScript& script, std::ostream* out) {
    *out << script.name << "_" << script.shell;
}

inline std::string ScriptName(const testing::TestParamInfo<SubmissionScript>& info) {
    return testing::PrintToString(info.param);
}

// Paths inside the scripts are below /tmp.
class SubmissionTest : public testing::TestWithParam<SubmissionScript> {
protected:
    SubmissionTest();
    void SetUp() override;

    // Runs the script with nothing in its environment but PATH, USER=alice and `env`, in which an
    // empty value removes a variable. Expects status 0 and no output.
    ProcessResult Submit(const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& env = {}) const;

    // Submits a job in the form that the script accepts.
    ProcessResult SubmitJob(const std::string& job,
                            const std::map<std::string, std::string>& env = {}) const;

    // Changes a line of the settings, as an administrator would.
    void Set(const std::string& line, const std::string& newLine) const;

    // A file of the script's /tmp.
    std::string Outside(const std::string& name) const { return m_root / name; }
    std::string File(const std::string& name) const { return ReadFile(Outside(name)); }
    bool Has(const std::string& name) const { return std::filesystem::exists(Outside(name)); }

    std::string Script() const { return Outside(std::string("install/") + GetParam().name); }
    std::string Log() const { return File(GetParam().log); }

    // Returns the arguments of corvane26 in angle brackets, one call per line, and forgets them.
    std::string TakeRecorded() const;

    static bool IsBash() { return std::string(GetParam().shell) == "bash"; }
    bool IsSamba() const { return GetParam().writer == &CInstallBase::WriteCorvaneSamba; }

    TempDir m_root;
};

// "<a><b>\n"
std::string Call(const std::vector<std::string>& words);

// Returns the call for a job with the default settings; `words` are additional arguments.
std::string Submitted(std::vector<std::string> words, const std::string& job);

}  // namespace hx_test
