// The program of the compute service on a machine with a real account: whom it becomes, what it
// hands on, how it ends, and what it says where something is missing.
#include <filesystem>
#include <regex>

#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"
#include "product/RunScript.h"
#include "product/ServiceMachine.h"

namespace fs = std::filesystem;

namespace hx_test {
namespace {

std::string Told(const Words& command) {
    const std::string out = hx_test::Run(command).out;
    return out.substr(0, out.find('\n'));
}

// A line of the stand-in's /proc status, with single blanks.
std::string ProcessLine(const std::string& name) {
    std::smatch found;
    const std::string status = Record("process");
    if (!std::regex_search(status, found, std::regex("\n" + name + ":\\s+([^\n]*)\n")))
        return "missing";
    return std::regex_replace(found[1].str(), std::regex("\\s+"), " ");
}

std::string Four(const std::string& id) {
    return id + " " + id + " " + id + " " + id;
}

std::string Access(const std::string& path) {
    return Told({"stat", "-c", "%a %U:%G", path});
}

const std::string Arguments =
    "<--allow>\n<BOTH>\n<--http-address>\n<10.0.0.1>\n<--http-port>\n<8081>\n"
    "<--https-address>\n<2001:db8::7>\n<--https-port>\n<8444>\n"
    "<--certificate>\n<chem cert.pem>\n<--key>\n<chem-key.pem>\n<--dh>\n<>\n"
    "<--run-directory>\n</run/corvane26_service>\n";

TEST(ServiceProgram, BecomesTheServiceUserWithAllItsGroups) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const std::string shell : {"dash", "bash"}) {
        HX_EXPECT_SCENARIO([&] {
            PrepareService();
            StartService(shell);
            EXPECT_EQ(ProcessLine("Uid"), Four(Told({"id", "-u", "corvsrvc"})));
            EXPECT_EQ(ProcessLine("Gid"), Four(Told({"id", "-g", "corvsrvc"})));
            const std::string groups = ProcessLine("Groups");
            for (const char* name : {"corvsrvc", "helpers"}) {
                const std::string record = Told({"getent", "group", name});
                const size_t number = record.find(':', record.find(':') + 1) + 1;
                const std::string id = record.substr(number, record.find(':', number) - number);
                EXPECT_NE((" " + groups).find(" " + id + " "), std::string::npos) << groups;
            }
            EXPECT_EQ(std::count(groups.begin(), groups.end(), ' '), 2) << groups;
            for (const char* set : {"CapEff", "CapPrm", "CapAmb"})
                EXPECT_EQ(ProcessLine(set), "0000000000000000") << set;
            EXPECT_EQ(Service("stop", shell).status, 0);
        });
    }
}

TEST(ServiceProgram, HandsTheSettingsOfTheRunScriptOn) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const std::string shell : {"dash", "bash"}) {
        HX_EXPECT_SCENARIO([&] {
            PrepareService();
            StartService(shell);
            EXPECT_EQ(Record("arguments"), Arguments);
            EXPECT_EQ(Record("directory"), "/\n");
            EXPECT_EQ(Record("out"), "");
            EXPECT_EQ(Service("stop", shell).status, 0);
        });
    }
}

TEST(ServiceProgram, GivesTheServiceTheEnvironmentOfItsUser) {
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

TEST(ServiceProgram, PreparesItsRunDirectory) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareService();
        StartService();
        EXPECT_EQ(Access(kRunDirectory), "750 corvsrvc:corvsrvc");
        EXPECT_EQ(Access(kPidFile), "644 root:root");
        EXPECT_EQ(Access(std::string(kRunDirectory) + "/hello"), "644 corvsrvc:corvsrvc");
        EXPECT_EQ(Service("stop").status, 0);
    });
}

TEST(ServiceProgram, TakesAnExistingRunDirectoryOver) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareService();
        fs::create_directory(kRunDirectory);
        fs::permissions(kRunDirectory, fs::perms::all);
        StartService();
        EXPECT_EQ(Access(kRunDirectory), "750 corvsrvc:corvsrvc");
        EXPECT_EQ(Service("stop").status, 0);
    });
}

TEST(ServiceProgram, IsOneProcessFromStartToEnd) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareService();
        StartService();
        const std::string pid = Record("pid").substr(0, Record("pid").find('\n'));
        EXPECT_TRUE(ReadFile(kPidFile).starts_with(pid + " ")) << ReadFile(kPidFile);
        const auto status = Service("status");
        EXPECT_EQ(status.status, 0);
        EXPECT_EQ(status.out, "corvane26_service runs as process " + pid + "\n");
        const auto stop = Service("stop");
        EXPECT_EQ(stop.status, 0);
        EXPECT_EQ(stop.out + stop.err, "");
        EXPECT_FALSE(fs::exists("/proc/" + pid));
        EXPECT_EQ(Record("end"), "asked to end\n");
        EXPECT_EQ(StatusAtTheEnd(), "0");
    });
}

TEST(ServiceProgram, TellsThatItDoesNotRun) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareService();
        const auto expectNotRunning = [] {
            const auto status = Service("status");
            EXPECT_EQ(status.status, 3);
            EXPECT_EQ(status.out, "corvane26_service does not run\n");
            EXPECT_EQ(status.err, "");
            EXPECT_EQ(Service("stop").status, 0);
        };
        expectNotRunning();
        StartService();
        EXPECT_EQ(Service("stop").status, 0);
        expectNotRunning();
    });
}

// A number that another process has taken over since.
TEST(ServiceProgram, LeavesAnotherProcessOfTheSameNumberAlone) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareService();
        const std::string pid = Told({"sh", "-c", "sleep 1000 > /dev/null 2>&1 & echo $!"});
        for (const std::string text : {" 1", "", " "}) {
            WriteFile(kPidFile, pid + text + "\n");
            EXPECT_EQ(Service("status").status, 3) << text;
            EXPECT_EQ(Service("stop").status, 0) << text;
            EXPECT_EQ(ReadFile("/proc/" + pid + "/comm"), "sleep\n");
        }
    });
}

TEST(ServiceProgram, DoesNotStartASecondTime) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareService();
        StartService();
        const auto second = Service("start");
        EXPECT_EQ(second.status, 1);
        EXPECT_EQ(second.err,
                  "corvane26_service: the service runs already, as process " + Record("pid"));
        EXPECT_EQ(Service("status").status, 0);
        EXPECT_EQ(Service("stop").status, 0);
    });
}

TEST(ServiceProgram, GetsAlongWithTheCapabilitiesThatTheUnitLeavesIt) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string unit = ReadFile(HX_PRODUCT_DIR "/corvane26_service.template");
    std::smatch found;
    ASSERT_TRUE(std::regex_search(unit, found, std::regex("\nCapabilityBoundingSet=([^\n]*)\n")));
    std::string set = "-all";
    const std::string names = found[1].str();
    const std::regex word("CAP_([A-Z_]+)");
    for (std::sregex_iterator it(names.begin(), names.end(), word), end; it != end; ++it) {
        std::string name = (*it)[1].str();
        std::transform(name.begin(), name.end(), name.begin(), [](char letter) {
            return letter == '_' ? '_' : static_cast<char>(letter - 'A' + 'a');
        });
        set += ",+" + name;
    }
    HX_EXPECT_SCENARIO([&] {
        PrepareService();
        StartService("dash", "setpriv --bounding-set " + set + " --inh-caps -all --");
        EXPECT_EQ(ProcessLine("Uid"), Four(Told({"id", "-u", "corvsrvc"})));
        EXPECT_NE(ProcessLine("CapBnd"),
                  Told({"sh", "-c", "sed -n 's/CapBnd:\t//p' /proc/1/status"}));
        EXPECT_EQ(Access(kRunDirectory), "750 corvsrvc:corvsrvc");
        EXPECT_EQ(Service("stop").status, 0);
    });
}

void ExpectFailure(const std::function<void()>& spoil, int status, const std::string& message) {
    HX_EXPECT_SCENARIO([&] {
        PrepareService();
        spoil();
        for (const std::string shell : {"dash", "bash"}) {
            const auto result = Service("start", shell);
            EXPECT_EQ(result.status, status);
            EXPECT_EQ(result.out, "");
            EXPECT_EQ(result.err, "corvane26_service: " + message + "\n");
            EXPECT_FALSE(fs::exists(kPidFile));
            EXPECT_FALSE(fs::exists("/records/pid"));
            EXPECT_FALSE(fs::exists("/records/taken"));
        }
    });
}

TEST(ServiceProgram, AMissingRunScriptIsNotInstalled) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string message = "/usr/bin/corvane26 is missing, run the setup: cv_install --setup";
    ExpectFailure([] { fs::remove("/usr/bin/corvane26"); }, 5, message);
    ExpectFailure([] { fs::remove(kRunScript); }, 5, message);
}

TEST(ServiceProgram, AMissingComputeServiceIsNotInstalled) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectFailure([] { fs::remove(kComputeService); }, 5,
                  "the service program /opt/corvane26/cv_computeservice is not installed");
}

TEST(ServiceProgram, AMissingAccountIsNotConfigured) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectFailure(
        [] {
            ASSERT_EQ(hx_test::Run({"userdel", "corvsrvc"}).status, 0);
            hx_test::Run({"groupdel", "corvsrvc"});
        },
        6,
        "/usr/bin/corvane26 belongs to UNKNOWN:UNKNOWN and not to the service account, run the "
        "setup again");
}

TEST(ServiceProgram, ARunScriptOfRootIsNotConfigured) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectFailure(
        [] {
            hx_test::Run({"chown", "root:corvsrvc", kRunScript});
        },
        6,
        "/usr/bin/corvane26 belongs to root:corvsrvc and not to the service account, "
        "run the setup again");
}

// The group may write the run script: it cannot make root become somebody else that way.
TEST(ServiceProgram, ARunScriptThatNamesAnotherAccountIsNotConfigured) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::pair<std::string, std::string> accounts[] = {
        {"root", "corvsrvc"}, {"corvsrvc", "root"}, {"corvsrvc", "helpers"}, {"", ""}};
    for (const auto& account : accounts) {
        ExpectFailure([&] { LetRunScriptName(account.first, account.second); }, 6,
                      "/usr/bin/corvane26 belongs to corvsrvc:corvsrvc but names " + account.first +
                          ":" + account.second + ", run the setup again");
    }
}

TEST(ServiceProgram, RootNeverRunsTheRunScript) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareService();
        const std::string script = ReadFile(kRunScript);
        WriteFile(kRunScript, "#!/bin/sh\nid -u >> /records/ids\n" + script.substr(10));
        StartService();
        const std::string ids = Record("ids");
        EXPECT_NE(ids, "");
        EXPECT_EQ(("\n" + ids).find("\n0\n"), std::string::npos) << ids;
        EXPECT_EQ(Service("stop").status, 0);
    });
}

TEST(ServiceProgram, OnlyRootStartsIt) {
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

TEST(ServiceProgram, ARunDirectoryThatCannotBeMadeIsTold) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareService();
        WriteFile(kRunDirectory, "a file");
        const auto result = Service("start");
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(result.err.ends_with(
            "corvane26_service: the directory /run/corvane26_service cannot be prepared\n"))
            << result.err;
    });
}

}  // namespace
}  // namespace hx_test
