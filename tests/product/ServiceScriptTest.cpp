// The service script on a machine with a real account: user, arguments, environment, and failures.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <thread>

#include "harness/Effort.h"
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

constexpr const char* record = "/etc/corvane26/service";

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
    fs::remove_all(fs::path(record).parent_path());
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

void WriteRecord(const std::string& text) {
    fs::create_directories(fs::path(record).parent_path());
    WriteFile(record, text);
}

const std::string validRecord = "user=corvsrvc\nuid=@uid\ngroup=corvsrvc\ngid=@gid\n";

// Replaces "@uid" and "@gid" by the numbers of the service account.
std::string WithNumbers(const std::string& text) {
    const std::string account = hx_test::Run({"getent", "passwd", "corvsrvc"}).out;
    const Match found = FirstMatch(account, ":([0-9]+):([0-9]+):");
    if (found.empty())
        return text;
    return ReplaceMatches(ReplaceMatches(text, "@uid", found[1]), "@gid", found[2]);
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
         6, "service user corvsrvc does not exist" + again},
        {[] { WriteFile(runDirectory, "a file"); }, 1,
         "cannot prepare directory /run/corvane26_service\n"}};
    const std::pair<std::string, std::string> accounts[] = {
        {"root", "corvsrvc"}, {"corvsrvc", "root"}, {"corvsrvc", "helpers"}, {"", ""}};
    for (const auto& [user, group] : accounts) {
        failures.push_back({[user = user, group = group] { LetRunScriptName(user, group); }, 6,
                            "/usr/bin/corvane26 names " + user + ":" + group +
                                ", not the service account corvsrvc:corvsrvc" + again});
    }
    const std::string inspect =
        "cannot read the service account in /etc/corvane26/service\n"
        "    Inspect this file, remove it, then run the setup again as root.\n";
    const std::string root =
        " has an ID of root\n"
        "    Run the setup again as root with another service user and group.\n";
    const std::pair<std::string, std::string> refusedRecords[] = {
        {"user=corvsrvc\nuid=1\ngroup=corvsrvc\ngid=@gid\n",
         "corvsrvc:corvsrvc has the IDs @uid:@gid, not 1:@gid" + again},
        {"user=corvsrvc\nuid=@uid\ngroup=corvsrvc\ngid=1\n",
         "corvsrvc:corvsrvc has the IDs @uid:@gid, not @uid:1" + again},
        {"user=missing\nuid=@uid\ngroup=corvsrvc\ngid=@gid\n",
         "service user missing does not exist" + again},
        {"user=@uid\nuid=@uid\ngroup=corvsrvc\ngid=@gid\n",
         "service user @uid does not exist" + again},
        {"user=corvsrvc\nuid=@uid\ngroup=missing\ngid=@gid\n",
         "service group missing does not exist" + again},
        {"user=root\nuid=0\ngroup=corvsrvc\ngid=@gid\n", "root:corvsrvc" + root},
        {"user=corvsrvc\nuid=@uid\ngroup=root\ngid=0\n", "corvsrvc:root" + root},
        {"user=$(touch /records/pid)\nuid=1\ngroup=a\ngid=1\n",
         "service user $(touch /records/pid) does not exist" + again},
        {"touch /records/pid\n", inspect},
        {"", inspect},
    };
    for (const auto& [text, message] : refusedRecords) {
        failures.push_back({[text = text] { WriteRecord(WithNumbers(text)); }, 6, message});
    }
    for (const char* change :
         {"chmod 664 $0", "chmod 646 $0", "chown corvsrvc $0", "chgrp corvsrvc $0",
          "mv $0 $0.away; ln -s $0.away $0", "rm $0; ln -s /missing $0", "rm $0; mkdir $0"}) {
        failures.push_back({[change] {
                                WriteRecord(WithNumbers(validRecord));
                                Succeed({"sh", "-c", change, record});
                            },
                            6, inspect});
    }
    for (const Failure& failure : failures) {
        HX_EXPECT_SCENARIO([&] {
            PrepareService();
            failure.prepare();
            for (const std::string shell : {"dash", "bash"}) {
                const auto result = Service("start", shell);
                EXPECT_EQ(result.status, failure.status);
                EXPECT_EQ(result.out, "");
                EXPECT_TRUE(
                    result.err.ends_with("corvane26_service: " + WithNumbers(failure.message)))
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

TEST(ServiceScript, RunsServiceAsRecordedAccount) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareService();
        AddGroup("lab");
        AddUser("chem", "people", {"lab", "helpers"});
        const std::string uid = FirstLine({"id", "-u", "chem"});
        const std::string gid = FirstLine({"sh", "-c", "getent group lab | cut -d: -f3"});
        WriteRecord("user=chem\nuid=" + uid + "\ngroup=lab\ngid=" + gid + "\n");
        LetRunScriptName("chem", "lab");
        StartService();
        EXPECT_EQ(ProcessLine("Uid"), Four(uid));
        EXPECT_EQ(ProcessLine("Gid"), Four(gid));
        EXPECT_EQ(Access(runDirectory), "750 chem:lab");
        EXPECT_EQ(Service("stop").status, 0);
    });
}

// Exchanges two entries of the install tree until the object is destroyed, as a member of the
// service group can.
class Exchange {
public:
    Exchange(const char* one, const char* other) : m_process(fork()) {
        if (m_process != 0)
            return;
        for (;;)
            renameat2(AT_FDCWD, one, AT_FDCWD, other, RENAME_EXCHANGE);
    }
    ~Exchange() {
        kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
    }
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

private:
    pid_t m_process;
};

// The victim's own program is exchanged with the attacker's.
TEST(ServiceScript, UsesNoAccountOfExchangedRunScript) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareService();
        AddUser("victim");
        AddProgram("/home/victim/tool", "#!/bin/sh\n");
        Succeed({"chown", "victim:people", "/home/victim/tool"});
        fs::create_symlink("/home/victim/tool", "/var/corvane/other");
        WriteFile("/records/ids", "");
        fs::permissions("/records/ids", fs::perms(0666));
        AddProgram(runScript, "#!/bin/sh\nid -u >> /records/ids\n");
        const Exchange exchange(runScript, "/var/corvane/other");
        for (int starts = 0; starts < 10 * RaceRounds(); ++starts)
            EXPECT_NE(Service("start").status, 0);
        const std::string service = FirstLine({"id", "-u", "corvsrvc"});
        EXPECT_EQ(FirstLine({"sh", "-c", "sort -u /records/ids | xargs"}), service);
    });
}

// The service account can stop and leave processes as it likes.
TEST(ServiceScript, WaitsForSettingsOnlyForLimitedTime) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const std::string text : {"sleep 1000", "kill -STOP $PPID; setsid sleep 1000 & sleep 1000",
                                   "trap '' TERM; while :; do echo; done"}) {
        HX_EXPECT_SCENARIO([&] {
            PrepareService();
            AddProgram(scriptPath,
                       ReplaceMatches(ReadFile(scriptPath), "TIME_LIMIT=30", "TIME_LIMIT=3"));
            AddProgram(runScript, "#!/bin/sh\n" + text + "\n");
            const auto start = std::chrono::steady_clock::now();
            const auto result = Service("start");
            EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
            EXPECT_NE(result.status, 0);
            const std::string hangs =
                "corvane26_service: /usr/bin/corvane26 printed no settings within 3 seconds\n"
                "    Run the setup again as root.\n";
            if (text.starts_with("sleep") || text.starts_with("kill")) {
                EXPECT_EQ(result.status, 1);
                EXPECT_EQ(result.err, hangs);
            }
            // No process that is left holds the lock.
            EXPECT_EQ(Service("start").err.find("already being started"), std::string::npos);
        });
    }
}

TEST(ServiceScript, PrintsNoControlCharactersOfRunScript) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareService();
        AddProgram(runScript, "#!/bin/sh\nprintf 'CORV_COMPSRVC_USER=\\033[2J%%s\\\\n\\n'\n");
        const auto result = Service("start");
        EXPECT_EQ(result.status, 6);
        EXPECT_EQ(result.err,
                  "corvane26_service: /usr/bin/corvane26 names ?[2J%s\\n:, not the service account "
                  "corvsrvc:corvsrvc\n    Run the setup again as root.\n");
    });
}

TEST(ServiceScript, StartsOnceOfTwoStartsAtSameTime) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (int round = 0; round < 5; ++round) {
        HX_EXPECT_SCENARIO([] {
            PrepareService();
            const std::string both = std::string("for i in 1 2; do (") + scriptPath +
                                     " start > /records/out$i 2>&1; echo $? > /records/status$i) & "
                                     "done; wait";
            hx_test::Run({"sh", "-c", "(" + both + ") > /dev/null 2>&1 &"});
            ASSERT_TRUE(AppearsInTime("/records/pid"));
            const std::string failed = "cat /records/status? 2> /dev/null | xargs";
            for (int tries = 0; tries < 2400 && FirstLine({"sh", "-c", failed}).empty(); ++tries)
                std::this_thread::sleep_for(std::chrono::milliseconds(25));
            EXPECT_EQ(FirstLine({"sh", "-c", failed}), "1");
            const std::string message = FirstLine({"sh", "-c", "cat /records/out?"});
            EXPECT_TRUE(message.starts_with("corvane26_service: the service is already "))
                << message;
            EXPECT_EQ(FirstLine({"pgrep", "-c", "cv_computeservi"}), "1");
            EXPECT_EQ(FirstLine({"stat", "-c", "%a %U:%G", "/run/corvane26_service.lock"}),
                      "600 root:root");
            // The service does not hold the lock.
            Succeed({"flock", "--nonblock", "/run/corvane26_service.lock", "true"});
            EXPECT_EQ(Service("stop").status, 0);
        });
    }
}

}  // namespace
}  // namespace hx_test
