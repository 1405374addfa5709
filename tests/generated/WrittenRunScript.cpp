#include "generated/WrittenRunScript.h"

#include "harness/TempDir.h"

namespace hx_test {
namespace {

// Notes every question beside itself, and names a CPU directory for "-n".
const char* const kNotingArch = R"sh(#!/bin/sh
echo asked >> "${0%/*}/arch.asked"
[ "$1" != "-n" ] || { echo x86_64; exit 0; }
printf '%s\n' "$0" "$@"
)sh";

void SetDirectories(CInstallBase& run, const Installation& installation) {
    run.m_installDir = QString::fromStdString(installation.settings());
    run.m_binariesDir = QString::fromStdString(installation.root());
}

}  // namespace

WrittenRunScriptTest::WrittenRunScriptTest() {
    Installation::AddProgram(installation.Program("cv_arch"), kNotingArch);
    WriteMain();
    const auto result = WithRun(installation.home(), [&](CInstallBase& run) {
        SetDirectories(run, installation);
        run.WriteCorvaneSnapshot();
    });
    EXPECT_EQ(result.status, 0) << result.err;
}

void WrittenRunScriptTest::WriteMain(const RunBody& settings) {
    const auto result = WithRun(installation.home(), [&](CInstallBase& run) {
        SetDirectories(run, installation);
        if (settings)
            settings(run);
        run.WriteCorvaneOLD();
    });
    EXPECT_EQ(result.status, 0) << result.err;
}

Variables WrittenRunScriptTest::Environment(const Variables& env) const {
    Installation::AddProgram(installation.Program("cv_snapshot"), kEnvironmentPrinter);
    const ProcessResult result = Corvane({"--snapshot"}, env);
    EXPECT_EQ(result.err, "");
    return ParseEnvironment(result.out);
}

size_t WrittenRunScriptTest::TimesArchWasAsked() const {
    return ReadFile(installation.Program("arch.asked")).size() / std::string("asked\n").size();
}

}  // namespace hx_test
