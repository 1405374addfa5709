// A small installation of Corvane whose programs only record how they were
// started, and the run scripts that a setup would put into it.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "harness/Process.h"
#include "harness/TempDir.h"

namespace hx_test {

using Words = std::vector<std::string>;
using Variables = std::map<std::string, std::string>;

inline constexpr const char* kMainTemplate = HX_PRODUCT_DIR "/corvane26.template";
inline constexpr const char* kSnapshotTemplate = HX_PRODUCT_DIR "/corvane26_snapshot.template";

// Prints its path and its arguments, one a line, and ends with $STANDIN_STATUS.
// With $STANDIN_GATE set, waits first until that file is there.
extern const char* const kRecorder;

// Prints its environment.
inline constexpr const char* kEnvironmentPrinter = "#!/bin/sh\nexec env\n";

bool Installed(const std::string& program);

class Installation {
public:
    // The installation's two roots stand in `directory` below a directory of its own.
    explicit Installation(const std::string& directory);

    std::string root() const { return (m_home / "bin").string(); }
    std::string settings() const { return (m_home / "var").string(); }
    std::string home() const { return m_home.string(); }
    std::string Program(const std::string& name) const { return root() + "/" + name; }

    // What the setup knows about this installation, by placeholder.
    Variables Placeholders() const;

    // Fills a template with sed, as the setup does, and returns the script's path.
    std::string Instantiate(const std::string& templatePath, const Variables& values) const;

    static void AddProgram(const std::string& path, const std::string& text = kRecorder);

private:
    TempDir m_temp;
    std::filesystem::path m_home;
};

// A shell, and where the installation stands.
struct Ground {
    const char* name;
    const char* shell;
    const char* directory;
};

inline constexpr Ground kGrounds[] = {
    {"Dash", "dash", "plain"},
    {"Bash", "bash", "plain"},
    {"DashWithBlanksInPaths", "dash", "Corvane 26  für Zürich"},
    {"BashWithBlanksInPaths", "bash", "Corvane 26  für Zürich"},
};

inline void PrintTo(const Ground& ground, std::ostream* out) {
    *out << ground.name;
}

inline std::string GroundName(const testing::TestParamInfo<Ground>& info) {
    return info.param.name;
}

class RunScriptTest : public testing::TestWithParam<Ground> {
protected:
    void SetUp() override;

    // Runs a script with nothing in its environment but PATH and `env`.
    ProcessResult RunScript(const std::string& script, const Words& args,
                            const Variables& env = {}) const;
    // The same from a shell that first prints "pid" and its process id, then becomes the script.
    ProcessResult RunScriptInPlace(const std::string& script, const Words& args,
                                   Variables env = {}) const;
    // The same from a shell that prints "status" and the script's status as soon as it has it,
    // and only then lets the installation's programs go on.
    ProcessResult RunScriptThenOpenGate(const std::string& script, const Words& args) const;

    Installation installation{GetParam().directory};

private:
    Words Command(const std::string& script, const Words& args, const Variables& env) const;
    // Runs a shell text that has the script's command line as its arguments.
    ProcessResult RunFrom(const std::string& text, const std::string& script, const Words& args,
                          const Variables& env) const;
};

class MainRunScriptTest : public RunScriptTest {
protected:
    ProcessResult Corvane(const Words& args, const Variables& env = {}) const {
        return RunScript(script, args, env);
    }

    std::string script = installation.Instantiate(kMainTemplate, installation.Placeholders());
};

// Words one a line, as the recorder prints them.
std::string Lines(const Words& words);

// The variables of an `env` listing, but for those of the shell and of this test.
Variables ParseEnvironment(const std::string& listing);

}  // namespace hx_test
