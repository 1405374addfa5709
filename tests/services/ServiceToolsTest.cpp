// What the service controllers run, with fake tools in a separate root.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "harness/Child.h"
#include "harness/TempDir.h"
#include "probes/ProcessWaits.h"
#include "services/CInitService.h"
#include "services/CSystemdService.h"

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;
using Results = std::vector<int>;

// The scripts of the tools by path. An empty script creates a file that is not executable.
using Tools = std::map<std::string, std::string>;

// Records the path and the arguments on one line, such as "/bin/systemctl [stop] [name]".
const std::string recording = R"sh(#!/shell/sh
{ printf '%s' "$0"; printf ' [%s]' "$@"; echo; } >> /record
)sh";
const std::string failing = recording + "echo output; echo error >&2; exit 3\n";
const std::string untilGo =
    recording + "until [ -e /go ]; do read -r _ < /proc/uptime; done; exit 5\n";

void Bind(const fs::path& what, const fs::path& over) {
    fs::create_directories(over);
    if (mount(what.c_str(), over.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
        FAIL() << "binding " << what << " over " << over;
}

// Provides what the fake tools need. Their shell is outside the directories under test.
void BindSystem(const fs::path& root) {
    for (const char* directory : {"/lib", "/lib64", "/usr/lib", "/proc"}) {
        if (fs::exists(directory))
            Bind(fs::canonical(directory), root / fs::path(directory).relative_path());
    }
    fs::create_directories(root / "shell");
    fs::copy_file(fs::canonical("/bin/sh"), root / "shell/sh");
    fs::create_directories(root / "dev");
    hx_test::WriteFile(root / "dev/null", "");
    mount("/dev/null", (root / "dev/null").c_str(), nullptr, MS_BIND, nullptr);
}

void AddTools(const fs::path& root, const Tools& tools) {
    for (const char* directory : {"bin", "sbin", "usr/bin", "usr/sbin"})
        fs::create_directories(root / directory);
    for (const auto& [path, script] : tools) {
        const fs::path file = root / fs::path(path).relative_path();
        hx_test::WriteFile(file, script);
        fs::permissions(file, script.empty() ? fs::perms::owner_read : fs::perms::owner_all);
    }
}

class ServiceCall : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    // Runs `body` in a root with separate /bin and /usr/bin, /sbin and /usr/sbin. Expects no
    // output.
    static void WithTools(const Tools& tools, const std::function<void()>& body) {
        const hx_test::TempDir directory;
        const auto child = hx_test::RunInChild({.identity = hx_test::World::Identity::Root}, [&] {
            const fs::path& root = directory.path();
            ASSERT_EQ(mount("tmpfs", root.c_str(), "tmpfs", 0, nullptr), 0);
            BindSystem(root);
            AddTools(root, tools);
            ASSERT_FALSE(HasFailure());
            ASSERT_EQ(chroot(root.c_str()), 0);
            ASSERT_EQ(chdir("/"), 0);
            body();
        });
        EXPECT_EQ(child.status, 0) << child.out;
        EXPECT_EQ(child.out, "");
        EXPECT_EQ(child.err, "");
    }
};

// The lines that the tools recorded.
Lines Recorded() {
    Lines lines;
    std::istringstream text(hx_test::ReadFile("/record"));
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

// The results of the four operations on one object.
template <typename Service>
Results CallAll() {
    Service service;
    Results results = {service.Start("corvane")};
    service.waitForFinished(-1);
    results.push_back(service.Stop("corvane"));
    results.push_back(service.Restart("corvane"));
    results.push_back(service.Status("corvane"));
    return results;
}

void ExpectCalls(const std::string& systemctl, const std::string& service) {
    EXPECT_EQ(CallAll<CSystemdService>(), Results(4, 0));
    EXPECT_EQ(CallAll<CInitService>(), Results(4, 0));
    Lines expected;
    for (const char* verb : {"start", "stop", "restart", "status"})
        expected.push_back(systemctl + " [" + verb + "] [corvane]");
    for (const char* verb : {"start", "stop", "restart", "status"})
        expected.push_back(service + " [corvane] [" + verb + "]");
    EXPECT_EQ(Recorded(), expected);
}

TEST_F(ServiceCall, PrefersToolOutsideUsr) {
    WithTools({{"/bin/systemctl", recording},
               {"/usr/bin/systemctl", recording},
               {"/sbin/service", recording},
               {"/usr/sbin/service", recording}},
              [] { ExpectCalls("/bin/systemctl", "/sbin/service"); });
}

TEST_F(ServiceCall, FallsBackToToolInUsr) {
    WithTools({{"/usr/bin/systemctl", recording}, {"/usr/sbin/service", recording}},
              [] { ExpectCalls("/usr/bin/systemctl", "/usr/sbin/service"); });
}

TEST_F(ServiceCall, PassesNameAsOneArgument) {
    WithTools({{"/bin/systemctl", recording}}, [] {
        CSystemdService service;
        for (const char* name : {"two words", "größe;$(id)", ""})
            EXPECT_EQ(service.Stop(QString::fromUtf8(name)), 0);
        EXPECT_EQ(Recorded(),
                  (Lines{"/bin/systemctl [stop] [two words]", "/bin/systemctl [stop] [größe;$(id)]",
                         "/bin/systemctl [stop] []"}));
    });
}

TEST_F(ServiceCall, Returns127WithoutTool) {
    // Each class finds only the tool of the other class, which is in its own directories.
    WithTools({{"/bin/service", recording},
               {"/usr/bin/service", recording},
               {"/sbin/systemctl", recording},
               {"/usr/sbin/systemctl", recording}},
              [] {
                  EXPECT_EQ(CallAll<CSystemdService>(), Results(4, 127));
                  EXPECT_EQ(CallAll<CInitService>(), Results(4, 127));
                  EXPECT_EQ(Recorded(), Lines{});
                  CInitService service;
                  service.Start("corvane");
                  EXPECT_EQ(service.state(), QProcess::NotRunning);
                  EXPECT_EQ(service.error(), QProcess::UnknownError);
              });
}

TEST_F(ServiceCall, Returns255WhenToolCannotRun) {
    WithTools({{"/bin/systemctl", ""},
               {"/usr/bin/systemctl", recording},
               {"/sbin/service", ""},
               {"/usr/sbin/service", recording}},
              [] {
                  EXPECT_EQ(CallAll<CSystemdService>(), (Results{0, 255, 255, 255}));
                  EXPECT_EQ(CallAll<CInitService>(), (Results{0, 255, 255, 255}));
                  EXPECT_EQ(Recorded(), Lines{});
                  CSystemdService service;
                  service.Stop("corvane");
                  EXPECT_EQ(service.error(), QProcess::FailedToStart);
              });
}

TEST_F(ServiceCall, ReturnsExitStatusExceptFromStart) {
    WithTools({{"/bin/systemctl", failing}, {"/sbin/service", failing}}, [] {
        EXPECT_EQ(CallAll<CSystemdService>(), (Results{0, 3, 3, 3}));
        EXPECT_EQ(CallAll<CInitService>(), (Results{0, 3, 3, 3}));
        CSystemdService service;
        service.Status("corvane");
        EXPECT_EQ(service.readAllStandardOutput().toStdString(), "output\n");
        EXPECT_EQ(service.readAllStandardError().toStdString(), "error\n");
    });
}

template <typename Service>
void ExpectReadWriteWithoutTimeLimit() {
    Service service;
    int started = 0;
    QObject::connect(&service, &QProcess::started, [&] {
        EXPECT_EQ(service.openMode(), QIODeviceBase::ReadWrite);
        ++started;
    });
    hx_test::ProcessWaits().clear();
    service.Start("corvane");
    EXPECT_EQ(hx_test::ProcessWaits(), Results{});
    service.waitForFinished(-1);
    hx_test::ProcessWaits().clear();
    service.Stop("corvane");
    service.Restart("corvane");
    service.Status("corvane");
    EXPECT_EQ(hx_test::ProcessWaits(), Results(3, -1));
    EXPECT_EQ(started, 4);
}

TEST_F(ServiceCall, OpensToolReadWriteWithoutTimeLimit) {
    WithTools({{"/bin/systemctl", recording}, {"/sbin/service", recording}}, [] {
        ExpectReadWriteWithoutTimeLimit<CSystemdService>();
        ExpectReadWriteWithoutTimeLimit<CInitService>();
    });
}

template <typename Service>
void ExpectStartNotToWait() {
    Service service;
    EXPECT_EQ(service.Start("corvane"), 0);
    EXPECT_NE(service.state(), QProcess::NotRunning);
    hx_test::WriteFile("/go", "");
    EXPECT_TRUE(service.waitForFinished(-1));
    EXPECT_EQ(service.exitCode(), 5);
    EXPECT_EQ(unlink("/go"), 0);
}

TEST_F(ServiceCall, ReturnsFromStartBeforeToolEnds) {
    WithTools({{"/bin/systemctl", untilGo}, {"/sbin/service", untilGo}}, [] {
        ExpectStartNotToWait<CSystemdService>();
        ExpectStartNotToWait<CInitService>();
    });
}

TEST_F(ServiceCall, ReturnsStatusFromSecondObjectDuringStart) {
    WithTools({{"/bin/systemctl", untilGo}}, [] {
        CSystemdService starter;
        starter.Start("corvane");
        EXPECT_TRUE(starter.waitForStarted(-1));
        hx_test::WriteFile("/go", "");
        EXPECT_EQ(CSystemdService().Status("corvane"), 5);
        EXPECT_TRUE(starter.state() == QProcess::NotRunning || starter.waitForFinished(-1));
    });
}

TEST(ServiceObject, AddsNothingToQProcess) {
    EXPECT_STREQ(CSystemdService::staticMetaObject.className(), "CSystemdService");
    EXPECT_STREQ(CInitService::staticMetaObject.className(), "CInitService");
    EXPECT_EQ(CInitService::staticMetaObject.superClass(), &QProcess::staticMetaObject);
    EXPECT_EQ(sizeof(CSystemdService), sizeof(QProcess));
    EXPECT_EQ(sizeof(CInitService), sizeof(QProcess));
}

TEST(ServiceObject, BelongsToGivenParent) {
    QObject parent;
    EXPECT_EQ(CSystemdService().parent(), nullptr);
    EXPECT_EQ((new CSystemdService(&parent))->parent(), &parent);
    EXPECT_EQ((new CInitService(&parent))->parent(), &parent);
}

}  // namespace
