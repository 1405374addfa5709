// The run scripts of both origins, in an installation whose programs only record.
#pragma once

#include "generated/Writing.h"
#include "product/Installation.h"

namespace hx_test {

// The commit script creates the run scripts from templates, the library's writers create their own.
enum class Origin { Product, Library };

struct Ground {
    Origin origin;
    const char* shell;
    const char* directory;  // of the installation
};

// Returns both shells and both directories: all combinations with HX_TEST_EVERY_FAULT, otherwise
// every pair of two properties.
std::vector<Ground> Grounds(std::initializer_list<Origin> origins = {Origin::Product,
                                                                     Origin::Library});

void PrintTo(const Ground& ground, std::ostream* out);
std::string GroundName(const testing::TestParamInfo<Ground>& info);

// Returns the variables of an `env` listing, except those of the shell and of this test.
Variables ParseEnvironment(const std::string& listing);

// Prints its environment.
inline constexpr const char* environmentPrinter = "#!/bin/sh\nexec env\n";

class RunScriptTest : public testing::TestWithParam<Ground> {
protected:
    // Creates both scripts, with an external queue.
    RunScriptTest();
    void SetUp() override;

    // Writes the main script again, with settings that take precedence.
    void WriteMain(const RunBody& settings = {}) const;

    // Runs a script with only PATH and `env` in its environment.
    ProcessResult Run(const std::string& script, const Words& args, const Variables& env) const;
    ProcessResult Corvane(const Words& args, const Variables& env = {}) const {
        return Run(main, args, env);
    }
    ProcessResult Snapshot(const Words& args, const Variables& env = {}) const {
        return Run(snapshot, args, env);
    }

    // Expects that the script is replaced by a program, whose record is `record`.
    void ExpectReplaced(const std::string& script, const Words& args,
                        const std::string& record) const;
    // Runs the main script. The programs of the installation wait until the script has ended, with
    // the status that is printed first.
    ProcessResult CorvaneBeforePrograms(const Words& args) const;

    // Returns the environment that the main script exports.
    Variables Exported(const Variables& env = {}) const {
        return ParseEnvironment(Corvane({"--printenv"}, env).out);
    }
    Variables Overridden(const std::string& variable, const std::string& value) const {
        return Exported({{"CORV_USER_OVERRIDE", "YES"}, {"CORV_USER_" + variable, value}});
    }

    bool IsWriter() const { return GetParam().origin == Origin::Library; }
    std::string Other() const { return installation.Home() + "/other  place"; }

    const Installation installation{GetParam().directory};
    const std::string main = installation.Settings() + "/corvane26";
    const std::string snapshot = installation.Settings() + "/corvane26_snapshot";

private:
    static Words Command(const std::string& script, const Words& args);
    ProcessOptions Environment(const Variables& env) const;
};

}  // namespace hx_test
