// What the controllers start, with stand-ins for the tools.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "harness/Child.h"
#include "harness/TempDir.h"
#include "services/CInitService.h"
#include "services/CSystemdService.h"
#include "services/SplitRoot.h"

namespace {

using hx_test::Recorded;
using hx_test::RunInSplitRoot;
using hx_test::StandIn;
using hx_test::Tools;
using Lines = std::vector<std::string>;

const Tools bothOfEach = {{"/bin/systemctl", StandIn::Recording},
                          {"/usr/bin/systemctl", StandIn::Recording},
                          {"/sbin/service", StandIn::Recording},
                          {"/usr/sbin/service", StandIn::Recording}};

// The child's expectations hold, and nothing was printed.
void ExpectSilentSuccess(const hx_test::ProcessResult& child) {
    EXPECT_EQ(child.status, 0) << child.out;
    EXPECT_EQ(child.out, "");
    EXPECT_EQ(child.err, "");
}

class Services : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }
};

TEST_F(Services, SystemdIsHandedTheVerbThenTheName) {
    ExpectSilentSuccess(RunInSplitRoot(bothOfEach, [] {
        CSystemdService service;
        EXPECT_EQ(service.Restart("corvane"), 0);
        EXPECT_EQ(service.Stop("corvane"), 0);
        EXPECT_EQ(service.Status("corvane"), 0);
        EXPECT_EQ(Recorded(), (Lines{"/bin/systemctl", "restart", "corvane", "/bin/systemctl",
                                     "stop", "corvane", "/bin/systemctl", "status", "corvane"}));
    }));
}

TEST_F(Services, InitIsHandedTheNameThenTheVerb) {
    ExpectSilentSuccess(RunInSplitRoot(bothOfEach, [] {
        CInitService service;
        EXPECT_EQ(service.Restart("corvane"), 0);
        EXPECT_EQ(service.Stop("corvane"), 0);
        EXPECT_EQ(service.Status("corvane"), 0);
        EXPECT_EQ(Recorded(), (Lines{"/sbin/service", "corvane", "restart", "/sbin/service",
                                     "corvane", "stop", "/sbin/service", "corvane", "status"}));
    }));
}

TEST_F(Services, StartHandsOverTheSameWords) {
    ExpectSilentSuccess(RunInSplitRoot(bothOfEach, [] {
        CSystemdService systemd;
        EXPECT_EQ(systemd.Start("corvane"), 0);
        EXPECT_TRUE(systemd.waitForFinished(-1));
        CInitService init;
        EXPECT_EQ(init.Start("corvane"), 0);
        EXPECT_TRUE(init.waitForFinished(-1));
        EXPECT_EQ(Recorded(), (Lines{"/bin/systemctl", "start", "corvane", "/sbin/service",
                                     "corvane", "start"}));
    }));
}

TEST_F(Services, ANameIsOneArgumentWhateverItHolds) {
    ExpectSilentSuccess(RunInSplitRoot(bothOfEach, [] {
        CSystemdService service;
        EXPECT_EQ(service.Stop("two words"), 0);
        EXPECT_EQ(service.Stop(QString::fromUtf8("größe;$(id)")), 0);
        EXPECT_EQ(service.Stop(QString()), 0);
        EXPECT_EQ(Recorded(), (Lines{"/bin/systemctl", "stop", "two words", "/bin/systemctl",
                                     "stop", "größe;$(id)", "/bin/systemctl", "stop", ""}));
    }));
}

// Calls all four operations one after the other.
template <typename Service>
std::vector<int> CallAll() {
    Service service;
    std::vector<int> results = {service.Start("corvane")};
    service.waitForFinished(-1);
    results.push_back(service.Stop("corvane"));
    results.push_back(service.Restart("corvane"));
    results.push_back(service.Status("corvane"));
    return results;
}

// The recorded paths of the tool of this name.
Lines CallsOf(const std::string& tool) {
    Lines paths;
    for (const std::string& line : Recorded()) {
        if (line.ends_with("/" + tool))
            paths.push_back(line);
    }
    return paths;
}

TEST_F(Services, EveryOperationFallsBackToTheToolBelowUsr) {
    const Tools onlyBelowUsr = {{"/usr/bin/systemctl", StandIn::Recording},
                                {"/usr/sbin/service", StandIn::Recording}};
    ExpectSilentSuccess(RunInSplitRoot(onlyBelowUsr, [] {
        EXPECT_EQ(CallAll<CSystemdService>(), (std::vector<int>{0, 0, 0, 0}));
        EXPECT_EQ(CallAll<CInitService>(), (std::vector<int>{0, 0, 0, 0}));
        EXPECT_EQ(CallsOf("systemctl"), Lines(4, "/usr/bin/systemctl"));
        EXPECT_EQ(CallsOf("service"), Lines(4, "/usr/sbin/service"));
    }));
}

TEST_F(Services, TheToolOutsideOfUsrWins) {
    ExpectSilentSuccess(RunInSplitRoot(bothOfEach, [] {
        CallAll<CSystemdService>();
        CallAll<CInitService>();
        EXPECT_EQ(CallsOf("systemctl"), Lines(4, "/bin/systemctl"));
        EXPECT_EQ(CallsOf("service"), Lines(4, "/sbin/service"));
    }));
}

TEST_F(Services, WithoutAToolEveryOperationGives127AndStartsNothing) {
    // Each class has the other's tools only, and its own in the other's places.
    const Tools wrong = {{"/bin/service", StandIn::Recording},
                         {"/usr/bin/service", StandIn::Recording},
                         {"/sbin/systemctl", StandIn::Recording},
                         {"/usr/sbin/systemctl", StandIn::Recording}};
    ExpectSilentSuccess(RunInSplitRoot(wrong, [] {
        const std::vector<int> notFound(4, 127);
        EXPECT_EQ(CallAll<CSystemdService>(), notFound);
        EXPECT_EQ(CallAll<CInitService>(), notFound);
        EXPECT_EQ(Recorded(), Lines{});
        CInitService service;
        service.Start("corvane");
        EXPECT_EQ(service.state(), QProcess::NotRunning);
        EXPECT_EQ(service.error(), QProcess::UnknownError);
    }));
}

TEST_F(Services, AToolThatExistsIsTakenThoughItCannotBeRun) {
    const Tools tools = {{"/bin/systemctl", StandIn::Unrunnable},
                         {"/usr/bin/systemctl", StandIn::Recording}};
    ExpectSilentSuccess(RunInSplitRoot(tools, [] {
        CSystemdService service;
        const int result = service.Stop("corvane");
        EXPECT_EQ(result, service.exitCode());
        EXPECT_NE(result, 127);
        EXPECT_EQ(service.error(), QProcess::FailedToStart);
        EXPECT_EQ(Recorded(), Lines{});
    }));
}

const Tools failing = {{"/bin/systemctl", StandIn::Failing}, {"/sbin/service", StandIn::Failing}};

TEST_F(Services, TheToolsStatusIsTheAnswerWithoutComment) {
    ExpectSilentSuccess(RunInSplitRoot(failing, [] {
        // A fresh object's Start gives 0, since it does not wait.
        EXPECT_EQ(CallAll<CSystemdService>(), (std::vector<int>{0, 3, 3, 3}));
        EXPECT_EQ(CallAll<CInitService>(), (std::vector<int>{0, 3, 3, 3}));
    }));
}

TEST_F(Services, WhatTheToolSaysStaysUnread) {
    ExpectSilentSuccess(RunInSplitRoot(failing, [] {
        CSystemdService service;
        service.Status("corvane");
        EXPECT_EQ(service.readAllStandardOutput().toStdString(), "said\n");
        EXPECT_EQ(service.readAllStandardError().toStdString(), "complained\n");
    }));
}

const Tools slow = {{"/bin/systemctl", StandIn::Slow}, {"/sbin/service", StandIn::Slow}};

template <typename Service>
void ExpectStartNotToWait() {
    Service service;
    EXPECT_EQ(service.Start("corvane"), 0);
    // The tool waits for this file.
    EXPECT_NE(service.state(), QProcess::NotRunning);
    hx_test::WriteFile("/go", "");
    EXPECT_TRUE(service.waitForFinished(-1));
    EXPECT_EQ(service.exitCode(), 5);
    EXPECT_EQ(unlink("/go"), 0);
}

TEST_F(Services, StartDoesNotWaitForTheTool) {
    ExpectSilentSuccess(RunInSplitRoot(slow, [] {
        ExpectStartNotToWait<CSystemdService>();
        ExpectStartNotToWait<CInitService>();
    }));
}

TEST_F(Services, ASecondObjectAsksWhileAStartRuns) {
    ExpectSilentSuccess(RunInSplitRoot(slow, [] {
        CSystemdService starter;
        starter.Start("corvane");
        EXPECT_TRUE(starter.waitForStarted(-1));
        hx_test::WriteFile("/go", "");
        CSystemdService asker;
        EXPECT_EQ(asker.Status("corvane"), 5);
        EXPECT_TRUE(starter.state() == QProcess::NotRunning || starter.waitForFinished(-1));
    }));
}

TEST(ServiceObjects, HaveTheParentThatTheyAreGiven) {
    QObject parent;
    const CSystemdService systemd(&parent);
    const CInitService init(&parent);
    EXPECT_EQ(systemd.parent(), &parent);
    EXPECT_EQ(init.parent(), &parent);
    EXPECT_EQ(CSystemdService().parent(), nullptr);
}

TEST(ServiceObjects, NameTheirClasses) {
    EXPECT_STREQ(CSystemdService::staticMetaObject.className(), "CSystemdService");
    EXPECT_STREQ(CInitService::staticMetaObject.className(), "CInitService");
    EXPECT_EQ(CInitService::staticMetaObject.superClass(), &QProcess::staticMetaObject);
}

TEST(ServiceObjects, AddNoDataToTheirBase) {
    EXPECT_EQ(sizeof(CSystemdService), sizeof(QProcess));
    EXPECT_EQ(sizeof(CInitService), sizeof(QProcess));
}

}  // namespace
