#include "generated/RunScripts.h"
#include "harness/Effort.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <set>
#include <sstream>

namespace hx_test {

std::vector<Ground> Grounds(std::initializer_list<Origin> origins) {
    const bool all = TriesEveryFault();
    std::vector<Ground> grounds;
    for (const Origin origin : origins) {
        for (const char* shell : {"dash", "bash"}) {
            for (const char* directory : {plainDirectory, directoryWithSpaces}) {
                // dash splits more unquoted values than bash, and only the template quotes all.
                const bool strict = (origin == Origin::Product) == (shell == std::string("dash"));
                if (all || strict == (directory == directoryWithSpaces))
                    grounds.push_back({origin, shell, directory});
            }
        }
    }
    return grounds;
}

void PrintTo(const Ground& ground, std::ostream* out) {
    *out << (ground.origin == Origin::Library ? "Writer" : "Template")
         << (ground.shell == std::string("dash") ? "Dash" : "Bash")
         << (ground.directory == directoryWithSpaces ? "WithSpaces" : "");
}

std::string GroundName(const testing::TestParamInfo<Ground>& info) {
    std::ostringstream name;
    PrintTo(info.param, &name);
    return name.str();
}

Variables ParseEnvironment(const std::string& listing) {
    static const std::set<std::string> others = {"PATH", "PWD", "OLDPWD", "SHLVL", "_"};
    Variables variables;
    std::istringstream lines(listing);
    for (std::string line; std::getline(lines, line);) {
        const size_t equals = line.find('=');
        const std::string name = line.substr(0, equals);
        if (!others.contains(name) && !name.starts_with("CORV_USER_"))
            variables[name] = equals == std::string::npos ? "" : line.substr(equals + 1);
    }
    return variables;
}

RunScriptTest::RunScriptTest() {
    const Variables values = installation.Placeholders();
    if (!IsWriter()) {
        installation.Instantiate(mainTemplate, values);
        installation.Instantiate(snapshotTemplate, values);
        return;
    }
    WriteMain([&](CInstallBase& run) {
        run.WriteCorvaneSnapshot();
        run.m_queueType = CInstallBase::QueueExternal;
        run.m_queueName = QString::fromStdString(values.at("CORV_QUEUE_NAME"));
        run.m_qsubCmd = QString::fromStdString(values.at("CORV_QSUB_CMD"));
        run.m_qdelCmd = QString::fromStdString(values.at("CORV_QDEL_CMD"));
        run.m_qsigCmd = QString::fromStdString(values.at("CORV_QSIG_CMD"));
    });
}

void RunScriptTest::SetUp() {
    if (!Installed(GetParam().shell))
        GTEST_SKIP() << GetParam().shell << " is not installed";
}

void RunScriptTest::WriteMain(const RunBody& settings) const {
    const auto result =
        WithWriter(installation.Home(), &CInstallBase::WriteCorvaneOLD, {}, [&](CInstallBase& run) {
            run.m_installDir = QString::fromStdString(installation.Settings());
            run.m_binariesDir = QString::fromStdString(installation.Root());
            if (settings)
                settings(run);
        });
    EXPECT_EQ(result.status, 0) << result.err;
}

Words RunScriptTest::Command(const std::string& script, const Words& args) {
    Words command = {GetParam().shell, script};
    command.insert(command.end(), args.begin(), args.end());
    return command;
}

ProcessOptions RunScriptTest::Environment(const Variables& env) const {
    const char* path = std::getenv("PATH");
    ProcessOptions options = {.env = env};
    options.env["PATH"] = installation.Home() + "/tools:" + (path != nullptr ? path : "");
    for (char** variable = environ; *variable != nullptr; ++variable)
        options.unset.push_back(std::string(*variable, std::strcspn(*variable, "=")));
    return options;
}

ProcessResult RunScriptTest::Run(const std::string& script, const Words& args,
                                 const Variables& env) const {
    return hx_test::Run(Command(script, args), Environment(env));
}

void RunScriptTest::ExpectReplaced(const std::string& script, const Words& args,
                                   const std::string& record) const {
    Words command = {"sh", "-c", R"sh(echo "pid $$"; exec "$@")sh", "sh"};
    const Words inner = Command(script, args);
    command.insert(command.end(), inner.begin(), inner.end());
    const ProcessResult result =
        hx_test::Run(command, Environment({{"STANDIN_STATUS", "37"}, {"STANDIN_PID", "yes"}}));
    const std::string pid = result.out.substr(0, result.out.find('\n') + 1);
    EXPECT_TRUE(pid.starts_with("pid ")) << result.out;
    EXPECT_EQ(result.out, pid + record + pid);
    EXPECT_EQ(result.status, 37);
}

ProcessResult RunScriptTest::CorvaneBeforePrograms(const Words& args) const {
    const std::string gate = installation.Home() + "/gate";
    std::filesystem::remove(gate);
    Words command = {"sh", "-c", R"sh("$@"; echo "status $?"; : > "$STANDIN_GATE")sh", "sh"};
    const Words inner = Command(main, args);
    command.insert(command.end(), inner.begin(), inner.end());
    return hx_test::Run(command, Environment({{"STANDIN_GATE", gate}}));
}

}  // namespace hx_test
