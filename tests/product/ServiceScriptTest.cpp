// The service script on a machine with a real account: user, arguments, environment, and failures.
#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>

#include "harness/Pattern.h"
#include "harness/TempDir.h"
#include "machine/Accounts.h"
#include "machine/ThrowawayRoot.h"
#include "product/Installation.h"

namespace fs = std::filesystem;

namespace hx_test {
namespace {

constexpr const char* records = "/records";  // the test program records its start here
constexpr const char* runScript = "/var/corvane/corvane26";
constexpr const char* computeService = "/opt/corvane26/cv_computeservice";
constexpr const char* pidFile = "/run/corvane26_service.pid";
constexpr const char* runDirectory = "/run/corvane26_service";

constexpr const char* scriptPath = "/usr/bin/corvane26_service_script";

// Writes the record "pid" last.
const char* const StandIn = R"sh(#!/bin/sh
printf '<%s>\n' "$@" > /records/arguments
cat /proc/self/status > /records/process
pwd > /records/directory
printf '%s\n' "$HOME" "$USER" "$LOGNAME" > /records/account
: > /run/corvane26_service/hello || exit 9
trap 'echo terminated > /records/end; exit 0' TERM
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

void AddRunScript() {
    AddProgram(runScript, Filled(ReadFile(HX_PRODUCT_DIR "/corvane26.template"),
                                 {{"CORV_ROOT", "/opt/corvane26"},
                                  {"CORV_CORVANERC", "/var/corvane"},
                                  {"CORV_COMPSRVC_ALLOW", "BOTH"},
                                  {"CORV_COMPSRVC_HTTP_PORT", "8081"},
                                  {"CORV_COMPSRVC_HTTP_ADDR", "10.0.0.1"},
                                  {"CORV_COMPSRVC_HTTPS_PORT", "8444"},
                                  {"CORV_COMPSRVC_HTTPS_ADDR", "2001:db8::7"},
                                  {"CORV_COMPSRVC_CERT", "chem cert.pem"},
                                  {"CORV_COMPSRVC_KEY", "chem-key.pem"},
                                  {"CORV_COMPSRVC_DH", ""},
                                  {"CORV_COMPSRVC_GROUP", "corvsrvc"},
                                  {"CORV_COMPSRVC_USER", "corvsrvc"}}));
    Succeed({"chmod", "775", runScript});
    Succeed({"chown", "-R", "corvsrvc:corvsrvc", "/var/corvane"});
    fs::remove("/usr/bin/corvane26");
    fs::create_symlink(runScript, "/usr/bin/corvane26");
}

bool AppearsInTime(const std::string& path) {
    for (int tries = 0; tries < 400; ++tries) {
        if (fs::exists(path))
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    return false;
}

// Installs the service as a setup does, with a test program instead of the service program.
void PrepareService() {
    fs::remove_all("/var/corvane");
    fs::remove_all("/opt/corvane26");
    fs::remove(pidFile);
    fs::remove_all(runDirectory);
    RemoveServiceAccount();
    Succeed({"groupadd", "--system", "corvsrvc"});
    Succeed({"useradd", "--system", "-M", "-g", "corvsrvc", "corvsrvc"});
    AddGroup("helpers");
    Succeed({"usermod", "--append", "-G", "helpers", "corvsrvc"});
    AddRunScript();
    AddProgram(scriptPath, ReadFile(HX_PRODUCT_DIR "/corvane26_service_script"));
    AddProgram(computeService, StandIn);
    fs::create_directory(records);
    fs::permissions(records, fs::perms(01777));
}

// Replaces the account in the run script. Its owner does not change.
void LetRunScriptName(const std::string& user, const std::string& group) {
    Succeed({"sed", "-i", "-e", "s/CORV_COMPSRVC_USER=.*/CORV_COMPSRVC_USER=" + user + "/", "-e",
             "s/CORV_COMPSRVC_GROUP=.*/CORV_COMPSRVC_GROUP=" + group + "/", runScript});
    Succeed({"chown", "corvsrvc:corvsrvc", runScript});
}

ProcessResult Service(const std::string& word, const std::string& shell = "dash") {
    return hx_test::Run({shell, scriptPath, word});
}

// Returns a record of the test program.
std::string Record(const std::string& name) {
    return ReadFile(std::string(records) + "/" + name);
}

// Starts the service script in the background, under a shell that waits for it, and returns when
// the test program is running. `before` precedes the command line.
void StartService(const std::string& shell = "dash", const std::string& before = "") {
    const std::string command = before + " " + shell + " " + scriptPath + " start";
    Run({"sh", "-c",
         "(" + command +
             " > /records/out 2>&1; echo $? > /records/status.new; "
             "mv /records/status.new /records/status) > /dev/null 2>&1 &"});
    EXPECT_TRUE(AppearsInTime("/records/pid")) << Record("out");
}

// Waits until it has ended and returns its exit status.
std::string StatusAtTheEnd() {
    EXPECT_TRUE(AppearsInTime("/records/status"));
    const std::string status = Record("status");
    return status.substr(0, status.find('\n'));
}

std::string FirstLine(const Words& command) {
    const std::string out = hx_test::Run(command).out;
    return out.substr(0, out.find('\n'));
}

// Returns a line of the test program's /proc status, with single spaces.
std::string ProcessLine(const std::string& name) {
    const Match found = FirstMatch(Record("process"), "\n" + name + ":\\s+([^\n]*)\n");
    return found.empty() ? "missing" : ReplaceMatches(found[1], "\\s+", " ");
}

std::string Four(const std::string& id) {
    return id + " " + id + " " + id + " " + id;
}

std::string OwnProcess() {
    return FirstLine({"cat", std::string(records) + "/pid"});
}

std::string Access(const std::string& path) {
    return FirstLine({"stat", "-c", "%a %U:%G", path});
}

const std::string arguments =
    "<--allow>\n<BOTH>\n<--http-address>\n<10.0.0.1>\n<--http-port>\n<8081>\n"
    "<--https-address>\n<2001:db8::7>\n<--https-port>\n<8444>\n"
    "<--certificate>\n<chem cert.pem>\n<--key>\n<chem-key.pem>\n<--dh>\n<>\n"
    "<--run-directory>\n</run/corvane26_service>\n";

TEST(ServiceScript, RunsServiceAsItsUserWithAllGroups) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const std::string shell : {"dash", "bash"}) {
        HX_EXPECT_SCENARIO([&] {
            PrepareService();
            StartService(shell);
            EXPECT_EQ(ProcessLine("Uid"), Four(FirstLine({"id", "-u", "corvsrvc"})));
            EXPECT_EQ(ProcessLine("Gid"), Four(FirstLine({"id", "-g", "corvsrvc"})));
            EXPECT_EQ(
                ProcessLine("Groups"),
                FirstLine({"sh", "-c", "id -G corvsrvc | xargs -n 1 | sort -n | xargs"}) + " ");
            for (const char* set : {"CapEff", "CapPrm", "CapAmb"})
                EXPECT_EQ(ProcessLine(set), "0000000000000000") << set;
            EXPECT_EQ(Record("arguments"), arguments);
            EXPECT_EQ(Record("directory"), "/\n");
            EXPECT_EQ(Record("out"), "");
            EXPECT_EQ(Service("stop", shell).status, 0);
        });
    }
}

TEST(ServiceScript, SetsEnvironmentOfServiceUser) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const char* before :
         {"env HOME=/root USER=root LOGNAME=root", "env -u HOME -u USER -u LOGNAME"}) {
        HX_EXPECT_SCENARIO([&] {
            PrepareService();
            hx_test::Run({"usermod", "--home", "/srv/corvane home", "corvsrvc"});
            StartService("dash", before);
            EXPECT_EQ(Record("account"), "/srv/corvane home\ncorvsrvc\ncorvsrvc\n") << before;
            EXPECT_EQ(Service("stop").status, 0);
        });
    }
}

TEST(ServiceScript, PreparesRunDirectory) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const bool exists : {false, true}) {
        HX_EXPECT_SCENARIO([&] {
            PrepareService();
            if (exists) {
                fs::create_directory(runDirectory);
                fs::permissions(runDirectory, fs::perms::all);
            }
            StartService();
            EXPECT_EQ(Access(runDirectory), "750 corvsrvc:corvsrvc");
            EXPECT_EQ(Access(pidFile), "644 root:root");
            EXPECT_EQ(Access(std::string(runDirectory) + "/hello"), "644 corvsrvc:corvsrvc");
            EXPECT_EQ(Service("stop").status, 0);
        });
    }
}

TEST(ServiceScript, IsOneProcessFromStartToStop) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareService();
        const auto expectNotRunning = [] {
            const auto status = Service("status");
            EXPECT_EQ(status.status, 3);
            EXPECT_EQ(status.out, "corvane26_service is not running\n");
            EXPECT_EQ(status.err, "");
            EXPECT_EQ(Service("stop").status, 0);
        };
        expectNotRunning();
        StartService();
        const std::string pid = OwnProcess();
        EXPECT_TRUE(ReadFile(pidFile).starts_with(pid + " ")) << ReadFile(pidFile);
        const auto second = Service("start");
        EXPECT_EQ(second.status, 1);
        EXPECT_EQ(second.err,
                  "corvane26_service: the service is already running as process " + pid + "\n");
        const auto status = Service("status");
        EXPECT_EQ(status.status, 0);
        EXPECT_EQ(status.out, "corvane26_service is running as process " + pid + "\n");
        const auto stop = Service("stop");
        EXPECT_EQ(stop.status, 0);
        EXPECT_EQ(stop.out + stop.err, "");
        EXPECT_FALSE(fs::exists("/proc/" + pid));
        EXPECT_EQ(Record("end"), "terminated\n");
        EXPECT_EQ(StatusAtTheEnd(), "0");
        expectNotRunning();
    });
}

TEST(ServiceScript, IgnoresOtherProcessWithSameId) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareService();
        const std::string pid = FirstLine({"sh", "-c", "sleep 1000 > /dev/null 2>&1 & echo $!"});
        for (const std::string text : {" 1", "", " "}) {
            WriteFile(pidFile, pid + text + "\n");
            EXPECT_EQ(Service("status").status, 3) << text;
            EXPECT_EQ(Service("stop").status, 0) << text;
            EXPECT_EQ(ReadFile("/proc/" + pid + "/comm"), "sleep\n");
        }
    });
}

TEST(ServiceScript, NeedsNoOtherCapabilitiesThanUnitAllows) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string set =
        FirstLine({"sed", "-n", "s/^CapabilityBoundingSet=/-all /; T; s/ CAP_/,+/g; s/.*/\\L&/p",
                   HX_PRODUCT_DIR "/corvane26_service.template"});
    EXPECT_TRUE(set.starts_with("-all,+chown,+")) << set;
    HX_EXPECT_SCENARIO([&] {
        PrepareService();
        StartService("dash", "setpriv --bounding-set " + set + " --inh-caps -all --");
        EXPECT_EQ(ProcessLine("Uid"), Four(FirstLine({"id", "-u", "corvsrvc"})));
        EXPECT_NE(ProcessLine("CapBnd"),
                  FirstLine({"sh", "-c", "sed -n 's/CapBnd:\t//p' /proc/1/status"}));
        EXPECT_EQ(Access(runDirectory), "750 corvsrvc:corvsrvc");
        EXPECT_EQ(Service("stop").status, 0);
    });
}

// The service group can write to the run script.
TEST(ServiceScript, NeverRunsRunScriptAsRoot) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareService();
        const std::string script = ReadFile(runScript);
        WriteFile(runScript, "#!/bin/sh\nid -u >> /records/ids\n" + script.substr(10));
        StartService();
        const std::string ids = Record("ids");
        EXPECT_NE(ids, "");
        EXPECT_EQ(("\n" + ids).find("\n0\n"), std::string::npos) << ids;
        EXPECT_EQ(Service("stop").status, 0);
    });
}

struct Failure {
    std::function<void()> prepare;
    int status;
    std::string message;  // the last lines
};

TEST(ServiceScript, DoesNotStartWithoutValidInstallation) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string noScript =
        "cannot execute /usr/bin/corvane26\n    Run the setup as root: cv_install --setup\n";
    const std::string again = "\n    Run the setup again as root.\n";
    std::vector<Failure> failures = {
        {[] { fs::remove("/usr/bin/corvane26"); }, 5, noScript},
        {[] { fs::remove(runScript); }, 5, noScript},
        {[] { fs::remove(computeService); }, 5,
         "cannot execute /opt/corvane26/cv_computeservice\n"
         "    Install the product again, or correct CORV_COMPUTESERVICE.\n"},
        {[] {
             ASSERT_EQ(hx_test::Run({"userdel", "corvsrvc"}).status, 0);
             hx_test::Run({"groupdel", "corvsrvc"});
         },
         6, "/usr/bin/corvane26 is owned by UNKNOWN:UNKNOWN, not by the service account" + again},
        {[] {
             hx_test::Run({"chown", "root:corvsrvc", runScript});
         },
         6, "/usr/bin/corvane26 is owned by root:corvsrvc, not by the service account" + again},
        {[] { WriteFile(runDirectory, "a file"); }, 1,
         "cannot prepare directory /run/corvane26_service\n"}};
    const std::pair<std::string, std::string> accounts[] = {
        {"root", "corvsrvc"}, {"corvsrvc", "root"}, {"corvsrvc", "helpers"}, {"", ""}};
    for (const auto& [user, group] : accounts) {
        failures.push_back({[user = user, group = group] { LetRunScriptName(user, group); }, 6,
                            "/usr/bin/corvane26 is owned by corvsrvc:corvsrvc but names " + user +
                                ":" + group + again});
    }
    for (const Failure& failure : failures) {
        HX_EXPECT_SCENARIO([&] {
            PrepareService();
            failure.prepare();
            for (const std::string shell : {"dash", "bash"}) {
                const auto result = Service("start", shell);
                EXPECT_EQ(result.status, failure.status);
                EXPECT_EQ(result.out, "");
                EXPECT_TRUE(result.err.ends_with("corvane26_service: " + failure.message))
                    << result.err;
                EXPECT_FALSE(fs::exists(pidFile));
                EXPECT_FALSE(fs::exists("/records/pid"));
            }
        });
    }
}

TEST(ServiceScript, StartsOnlyAsRoot) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareService();
        const auto result =
            hx_test::Run({"setpriv", "--reuid=corvsrvc", "--regid=corvsrvc", "--clear-groups",
                          "/usr/bin/corvane26_service_script", "start"});
        EXPECT_EQ(result.status, 4);
        EXPECT_EQ(result.err, "corvane26_service: only root can start the service\n");
        EXPECT_FALSE(fs::exists("/records/pid"));
    });
}

}  // namespace
}  // namespace hx_test
