#include "product/ServiceMachine.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <thread>

#include "harness/TempDir.h"
#include "machine/Accounts.h"

namespace fs = std::filesystem;

namespace hx_test {
namespace {

constexpr const char* Program = "/usr/bin/corvane26_service_script";

// The last record is the sign that it runs.
const char* const StandIn = R"sh(#!/bin/sh
printf '<%s>\n' "$@" > /records/arguments
cat /proc/self/status > /records/process
pwd > /records/directory
printf '%s\n' "$HOME" "$USER" "$LOGNAME" > /records/account
: > /run/corvane26_service/hello || exit 9
trap 'echo asked to end > /records/end; exit 0' TERM
echo $$ > /records/pid.new
mv /records/pid.new /records/pid
while :
do
    sleep 0.05
done
)sh";

void AddProgram(const std::string& path, const std::string& text) {
    fs::create_directories(fs::path(path).parent_path());
    fs::remove(path);
    WriteFile(path, text);
    fs::permissions(path, fs::perms(0755));
}

std::string Filled(std::string text, const std::map<std::string, std::string>& values) {
    for (const auto& [name, value] : values) {
        const std::string placeholder = "%" + name + "%";
        for (size_t at = 0; (at = text.find(placeholder, at)) != std::string::npos;)
            text.replace(at, placeholder.size(), value);
    }
    return text;
}

void AddRunScript(const std::string& listeners) {
    AddProgram(kRunScript, Filled(ReadFile(HX_PRODUCT_DIR "/corvane26.template"),
                                  {{"CORV_ROOT", "/opt/corvane26"},
                                   {"CORV_CORVANERC", "/var/corvane"},
                                   {"CORV_COMPSRVC_ALLOW", listeners},
                                   {"CORV_COMPSRVC_HTTP_PORT", "8081"},
                                   {"CORV_COMPSRVC_HTTP_ADDR", "10.0.0.1"},
                                   {"CORV_COMPSRVC_HTTPS_PORT", "8444"},
                                   {"CORV_COMPSRVC_HTTPS_ADDR", "2001:db8::7"},
                                   {"CORV_COMPSRVC_CERT", "chem cert.pem"},
                                   {"CORV_COMPSRVC_KEY", "chem-key.pem"},
                                   {"CORV_COMPSRVC_DH", ""},
                                   {"CORV_COMPSRVC_GROUP", "corvsrvc"},
                                   {"CORV_COMPSRVC_USER", "corvsrvc"}}));
    Succeed({"chmod", "775", kRunScript});
    Succeed({"chown", "-R", "corvsrvc:corvsrvc", "/var/corvane"});
    fs::remove("/usr/bin/corvane26");
    fs::create_symlink(kRunScript, "/usr/bin/corvane26");
}

bool AppearsInTime(const std::string& path) {
    for (int tries = 0; tries < 400; ++tries) {
        if (fs::exists(path))
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    return false;
}

}  // namespace

void PrepareService(const std::string& listeners) {
    const std::string program = ReadFile(HX_PRODUCT_DIR "/corvane26_service_script");
    fs::remove_all("/var/corvane");
    fs::remove_all("/opt/corvane26");
    fs::remove(kPidFile);
    fs::remove_all(kRunDirectory);
    RemoveServiceAccount();
    Succeed({"groupadd", "--system", "corvsrvc"});
    Succeed({"useradd", "--system", "-M", "-g", "corvsrvc", "corvsrvc"});
    AddGroup("helpers");
    Succeed({"usermod", "--append", "-G", "helpers", "corvsrvc"});
    AddRunScript(listeners);
    AddProgram(Program, program);
    AddProgram(kComputeService, StandIn);
    fs::create_directory(kRecords);
    fs::permissions(kRecords, fs::perms(01777));
}

void LetRunScriptName(const std::string& user, const std::string& group) {
    Succeed({"sed", "-i", "-e", "s/CORV_COMPSRVC_USER=.*/CORV_COMPSRVC_USER=" + user + "/", "-e",
             "s/CORV_COMPSRVC_GROUP=.*/CORV_COMPSRVC_GROUP=" + group + "/", kRunScript});
    Succeed({"chown", "corvsrvc:corvsrvc", kRunScript});
}

ProcessResult Service(const std::string& word, const std::string& shell) {
    return Run({shell, Program, word});
}

void StartService(const std::string& shell, const std::string& before) {
    const std::string command = before + " " + shell + " " + Program + " start";
    Run({"sh", "-c",
         "(" + command +
             " > /records/out 2>&1; echo $? > /records/status.new; "
             "mv /records/status.new /records/status) > /dev/null 2>&1 &"});
    EXPECT_TRUE(AppearsInTime("/records/pid")) << Record("out");
}

std::string StatusAtTheEnd() {
    EXPECT_TRUE(AppearsInTime("/records/status"));
    const std::string status = Record("status");
    return status.substr(0, status.find('\n'));
}

std::string Record(const std::string& name) {
    return ReadFile(std::string(kRecords) + "/" + name);
}

}  // namespace hx_test
