#include "product/RunScript.h"

#include <cstdlib>
#include <set>
#include <sstream>

namespace hx_test {
namespace fs = std::filesystem;

const char* const kRecorder = R"sh(#!/bin/sh
tries=0
while [ -n "$STANDIN_GATE" ] && [ ! -e "$STANDIN_GATE" ]
do
    tries=$((tries + 1))
    [ "$tries" -lt 200 ] || { echo "the gate stayed closed"; exit 99; }
    sleep 0.05
done
printf '%s\n' "$0" "$@"
[ -z "$STANDIN_PID" ] || echo "pid $$"
exit "${STANDIN_STATUS:-0}"
)sh";

namespace {

// Names the CPU directory, and records any other question.
const char* const kArch = R"sh(#!/bin/sh
[ "$1" != "-n" ] || { echo "linux x86-64"; exit 0; }
printf '%s\n' "$0" "$@"
exit "${STANDIN_STATUS:-0}"
)sh";

// Names the builder, and records any other question.
const char* const kSelect = R"sh(#!/bin/sh
if [ "$1" = "-n" ]
then
    printf '%s\n' "$0" "$@" > "${0%/*}/select.asked"
    echo "cv_builder gl"
    exit 0
fi
printf '%s\n' "$0" "$@"
exit "${STANDIN_STATUS:-0}"
)sh";

const char* const kLdd = R"sh(#!/bin/sh
printf 'listing of <%s>\n' "$@"
exit "${STANDIN_STATUS:-0}"
)sh";

}  // namespace

bool Installed(const std::string& program) {
    return hx_test::Run({"sh", "-c", "command -v \"$1\" > /dev/null", "sh", program}).status == 0;
}

Installation::Installation(const std::string& directory) : m_home(m_temp / directory) {
    fs::create_directories(root());
    fs::create_directories(settings());
    fs::create_directories(home() + "/tools");
    for (const char* name : {"cv_install", "cv_monitor", "cv_snapshot", "cv_spd", "cv_input2plist",
                             "cv_computecontrol", "cv_computeservice", "cv_builder gl"})
        AddProgram(Program(name));
    AddProgram(Program("cv_arch"), kArch);
    AddProgram(Program("cv_select"), kSelect);
    AddProgram(home() + "/tools/ldd", kLdd);
}

void Installation::AddProgram(const std::string& path, const std::string& text) {
    fs::create_directories(fs::path(path).parent_path());
    WriteFile(path, text);
    fs::permissions(path, fs::perms::owner_all);
}

Variables Installation::Placeholders() const {
    return {{"CORV_ROOT", root()},
            {"CORV_CORVANERC", settings()},
            {"CORV_CLUSTER_NODE", "NO"},
            {"CORV_QUEUE_ALLOW", "alice,bob"},
            {"CORV_SCHEDULER", "PBS"},
            {"CORV_QUEUE_TYPE", "EXTERNAL"},
            {"CORV_QUEUE_NAME", "batch long"},
            {"CORV_QSUB_CMD", "/opt/pbs/bin/qsub"},
            {"CORV_QDEL_CMD", "/opt/pbs/bin/qdel"},
            {"CORV_QSIG_CMD", "/opt/pbs/bin/qsig"},
            {"CORV_PARTITION_NAME", "größe"},
            {"CORV_SBATCH_CMD", "/opt/slurm tools/sbatch"},
            {"CORV_SCANCEL_CMD", "/opt/slurm tools/scancel"},
            {"CORV_COMPSRVC_ALLOW", "192.0.2.0/24"},
            {"CORV_COMPSRVC_HTTP_PORT", "8080"},
            {"CORV_COMPSRVC_HTTP_ADDR", "192.0.2.7"},
            {"CORV_COMPSRVC_HTTPS_PORT", "8443"},
            {"CORV_COMPSRVC_HTTPS_ADDR", "2001:db8::7"},
            {"CORV_COMPSRVC_CERT", "/etc/corvane/server.crt"},
            {"CORV_COMPSRVC_KEY", "/etc/corvane/server.key"},
            {"CORV_COMPSRVC_DH", "/etc/corvane/dh.pem"},
            {"CORV_COMPSRVC_GROUP", "corvsrvc"},
            {"CORV_COMPSRVC_USER", "corvuser"}};
}

std::string Installation::Instantiate(const std::string& templatePath,
                                      const Variables& values) const {
    Words command = {"sed"};
    for (const auto& [name, value] : values) {
        const char delimiter = name == "CORV_QUEUE_ALLOW" ? '/' : '|';
        std::ostringstream expression;
        expression << 's' << delimiter << '%' << name << '%' << delimiter << value << delimiter
                   << 'g';
        command.insert(command.end(), {"-e", expression.str()});
    }
    command.push_back(templatePath);
    const ProcessResult result = hx_test::Run(command);
    EXPECT_EQ(result.status, 0) << result.err;
    std::string script = settings() + "/" + fs::path(templatePath).stem().string();
    WriteFile(script, result.out);
    fs::permissions(script, fs::perms(0755));
    return script;
}

void RunScriptTest::SetUp() {
    if (!Installed(GetParam().shell))
        GTEST_SKIP() << GetParam().shell << " is not installed";
}

Words RunScriptTest::Command(const std::string& script, const Words& args,
                             const Variables& env) const {
    const char* path = std::getenv("PATH");
    Words command = {"env", "-i",
                     "PATH=" + installation.home() + "/tools:" + (path != nullptr ? path : "")};
    for (const auto& [name, value] : env)
        command.push_back(name + "=" + value);
    command.insert(command.end(), {GetParam().shell, script});
    command.insert(command.end(), args.begin(), args.end());
    return command;
}

ProcessResult RunScriptTest::RunScript(const std::string& script, const Words& args,
                                       const Variables& env) const {
    return hx_test::Run(Command(script, args, env));
}

ProcessResult RunScriptTest::RunFrom(const std::string& text, const std::string& script,
                                     const Words& args, const Variables& env) const {
    Words command = {"sh", "-c", text, "sh"};
    const Words inner = Command(script, args, env);
    command.insert(command.end(), inner.begin(), inner.end());
    ProcessOptions options;
    options.env = env;
    return hx_test::Run(command, options);
}

ProcessResult RunScriptTest::RunScriptInPlace(const std::string& script, const Words& args,
                                              Variables env) const {
    env["STANDIN_PID"] = "yes";
    return RunFrom(R"sh(echo "pid $$"; exec "$@")sh", script, args, env);
}

ProcessResult RunScriptTest::RunScriptThenOpenGate(const std::string& script,
                                                   const Words& args) const {
    return RunFrom(R"sh("$@"; echo "status $?"; : > "$STANDIN_GATE")sh", script, args,
                   {{"STANDIN_GATE", installation.home() + "/gate"}});
}

std::string Lines(const Words& words) {
    std::string text;
    for (const auto& word : words)
        text += word + "\n";
    return text;
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

}  // namespace hx_test
