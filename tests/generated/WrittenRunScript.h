// The run scripts as the writers make them, in an installation whose programs only record.
#pragma once

#include "generated/Writing.h"
#include "product/RunScript.h"

namespace hx_test {

class WrittenRunScriptTest : public RunScriptTest {
protected:
    WrittenRunScriptTest();

    // Writes the main run script anew with these settings on top of the installation's.
    void WriteMain(const RunBody& settings = {});

    ProcessResult Corvane(const Words& args, const Variables& env = {}) const {
        return RunScript(Script(), args, env);
    }
    std::string Script() const { return installation.settings() + "/corvane26"; }
    std::string SnapshotScript() const { return installation.settings() + "/corvane26_snapshot"; }

    // The environment that the script's programs get.
    Variables Environment(const Variables& env = {}) const;

    // How often cv_arch was asked for the CPU directory.
    size_t TimesArchWasAsked() const;
};

}  // namespace hx_test
