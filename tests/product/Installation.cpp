#include "product/Installation.h"

namespace hx_test {
namespace fs = std::filesystem;

const char* const recorder = R"sh(#!/bin/sh
tries=0
while [ -n "$STANDIN_GATE" ] && [ ! -e "$STANDIN_GATE" ]
do
    tries=$((tries + 1))
    [ "$tries" -lt 200 ] || { echo "the gate is closed"; exit 99; }
    sleep 0.05
done
printf '%s\n' "$0" "$@"
[ -z "$STANDIN_PID" ] || echo "pid $$"
exit "${STANDIN_STATUS:-0}"
)sh";

namespace {

// Counts its calls, prints the CPU directory, and records other arguments.
const char* const arch = R"sh(#!/bin/sh
echo call >> "${0%/*}/arch.calls"
[ "$1" != "-n" ] || { echo x86_64; exit 0; }
printf '%s\n' "$0" "$@"
exit "${STANDIN_STATUS:-0}"
)sh";

// Prints the name of the builder, and records other arguments.
const char* const select = R"sh(#!/bin/sh
if [ "$1" = "-n" ]
then
    printf '%s\n' "$0" "$@" > "${0%/*}/select.arguments"
    echo "cv_builder gl"
    exit 0
fi
printf '%s\n' "$0" "$@"
exit "${STANDIN_STATUS:-0}"
)sh";

const char* const ldd = R"sh(#!/bin/sh
printf 'listing of <%s>\n' "$@"
exit "${STANDIN_STATUS:-0}"
)sh";

}  // namespace

bool Installed(const std::string& program) {
    static std::map<std::string, bool> known;
    const auto [entry, isNew] = known.try_emplace(program);
    if (isNew) {
        entry->second =
            hx_test::Run({"sh", "-c", "command -v \"$1\" > /dev/null", "sh", program}).status == 0;
    }
    return entry->second;
}

Installation::Installation(const std::string& directory) : m_home(m_temp / directory) {
    fs::create_directories(Root());
    fs::create_directories(Settings());
    fs::create_directories(Home() + "/tools");
    for (const char* name : {"cv_install", "cv_monitor", "cv_snapshot", "cv_spd", "cv_input2plist",
                             "cv_computecontrol", "cv_computeservice", "cv_builder gl"})
        AddProgram(Program(name));
    AddProgram(Program("cv_arch"), arch);
    AddProgram(Program("cv_select"), select);
    AddProgram(Home() + "/tools/ldd", ldd);
}

void Installation::AddProgram(const std::string& path, const std::string& text) {
    fs::create_directories(fs::path(path).parent_path());
    WriteFile(path, text);
    fs::permissions(path, fs::perms::owner_all);
}

Variables Installation::Placeholders() const {
    Variables values = {{"CORV_ROOT", Root()}, {"CORV_CORVANERC", Settings()}};
    for (const char* name : {"CLUSTER_NODE",
                             "QUEUE_ALLOW",
                             "SCHEDULER",
                             "QUEUE_TYPE",
                             "QUEUE_NAME",
                             "QSUB_CMD",
                             "QDEL_CMD",
                             "QSIG_CMD",
                             "PARTITION_NAME",
                             "SBATCH_CMD",
                             "SCANCEL_CMD",
                             "COMPSRVC_ALLOW",
                             "COMPSRVC_HTTP_PORT",
                             "COMPSRVC_HTTP_ADDR",
                             "COMPSRVC_HTTPS_PORT",
                             "COMPSRVC_HTTPS_ADDR",
                             "COMPSRVC_CERT",
                             "COMPSRVC_KEY",
                             "COMPSRVC_DH",
                             "COMPSRVC_GROUP",
                             "COMPSRVC_USER"})
        values[std::string("CORV_") + name] = std::string("größe of  ") + name;
    values["CORV_QUEUE_TYPE"] = "EXTERNAL";
    return values;
}

std::string Installation::Instantiate(const std::string& templatePath,
                                      const Variables& values) const {
    Words command = {"sed"};
    for (const auto& [name, value] : values) {
        const char delimiter = name == "CORV_QUEUE_ALLOW" ? '/' : '|';
        command.insert(command.end(), {"-e", std::string("s") + delimiter + "%" + name + "%" +
                                                 delimiter + value + delimiter + "g"});
    }
    command.push_back(templatePath);
    const ProcessResult result = hx_test::Run(command);
    EXPECT_EQ(result.status, 0) << result.err;
    std::string script = Settings() + "/" + fs::path(templatePath).stem().string();
    WriteFile(script, result.out);
    fs::permissions(script, fs::perms(0755));
    return script;
}

std::string Lines(const Words& words) {
    std::string text;
    for (const auto& word : words)
        text += word + "\n";
    return text;
}

}  // namespace hx_test
