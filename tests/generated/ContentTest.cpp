// Compares the scripts byte for byte with tests/expected/generated/, and the queue files.
#include <gtest/gtest.h>

#include "generated/Writing.h"
#include "harness/TempDir.h"
#include "setuprun/CQueueLimits.h"

namespace hx_test {
namespace {

constexpr const char* oddRoot = "/opt/Größe \"%s\" $HOME";
constexpr const char* oddDirectory = "100% d'or \"übung\"";

// Values with spaces, non-ASCII letters, quotes, percent signs, and a backtick.
void SetOddValues(CInstallBase& run) {
    run.m_installDir = QString::fromUtf8(oddDirectory);
    run.m_binariesDir = QString::fromUtf8(oddRoot);
    run.m_queueName = QStringLiteral("schön & \"schnell\" %d");
    run.m_qsubCmd = QStringLiteral("/opt/pbs bin/qsub \"x\" %n");
    run.m_qdelCmd = QStringLiteral("/opt/ж/qdel");
    run.m_qsigCmd = QStringLiteral("`qsig`%%");
    run.m_queueType = CInstallBase::QueueExternal;
}

constexpr const char* oddQueue = R"(export CORV_QUEUE_TYPE="EXTERNAL"
export CORV_QUEUE_NAME="schön & "schnell" %d"

cvset CORV_QSUB_CMD "/opt/pbs bin/qsub "x" %n" "${CORV_USER_QSUB_CMD}"
cvset CORV_QDEL_CMD "/opt/ж/qdel" "${CORV_USER_QDEL_CMD}"
cvset CORV_QSIG_CMD "`qsig`%%" "${CORV_USER_QSIG_CMD}"

)";

class GeneratedContent : public testing::Test {
protected:
    GeneratedContent() {
        MakeDirectory(m_home / "install", 0755);
        MakeDirectory(m_home / oddDirectory, 0755);
    }

    std::string Written(Writer writer, const std::string& path, const RunBody& settings = {}) {
        const auto result = WithWriter(m_home.path(), writer, {}, settings);
        EXPECT_EQ(result.status, 0) << result.out << result.err;
        EXPECT_EQ(result.err, "");
        return ReadFile(m_home / path);
    }

    std::string RunScript(const RunBody& settings) {
        return Written(&CInstallBase::WriteCorvaneOLD, "install/corvane26", settings);
    }

    static std::string ExpectedRunScript(const std::string& queue,
                                         const char* root = "/opt/corvane/bin",
                                         const char* directory = "install") {
        return Expected("corvane26",
                        {{"@QUEUE@\n", queue}, {"@ROOT@", root}, {"@INSTALL@", directory}});
    }

    // The snapshot script begins like the run script, without queue and without Intel directory.
    static std::string ExpectedSnapshotScript(const char* root = "/opt/corvane/bin",
                                              const char* directory = "install") {
        std::string text = ExpectedRunScript("", root, directory);
        text.resize(text.find("cvset CORV_BUILDER"));
        const std::string library = "${CORV_ROOT}/Intel-12.1.3:";
        text.erase(text.find(library), library.size());
        return text + R"(cvset CORV_SNAPSHOT "${CORV_ROOT}" "${CORV_USER_SNAPSHOT}"

exec "${CORV_SNAPSHOT}/cv_snapshot" "$@"
)";
    }

    TempDir m_home;
};

struct Queue {
    int type;
    const char* name;
    const char* expectedType;  // null: neither type nor name
    const char* expectedName;
};

constexpr Queue queues[] = {{0, "long batch", nullptr, ""},
                            {1, "", "INTERNAL", ""},
                            {1, "long batch", "INTERNAL", ""},
                            {2, "", "EXTERNAL", ""},
                            {2, "long batch", "EXTERNAL", "long batch"},
                            {3, "long batch", nullptr, ""},
                            {-1, "long batch", nullptr, ""},
                            {4, "long batch", nullptr, ""}};

TEST_F(GeneratedContent, RunScriptExportsQueueAndCommands) {
    constexpr std::pair<QString CInstallBase::*, const char*> commands[] = {
        {&CInstallBase::m_qsubCmd, "QSUB"},
        {&CInstallBase::m_qdelCmd, "QDEL"},
        {&CInstallBase::m_qsigCmd, "QSIG"}};
    for (const Queue& queue : queues) {
        for (unsigned int given = 0; given < 8; ++given) {
            std::string expected;
            if (queue.expectedType != nullptr) {
                expected += std::string("export CORV_QUEUE_TYPE=\"") + queue.expectedType +
                            "\"\nexport CORV_QUEUE_NAME=\"" + queue.expectedName + "\"\n\n";
            }
            const std::string script = RunScript([&](CInstallBase& run) {
                run.m_queueType = queue.type;
                run.m_queueName = QString::fromUtf8(queue.name);
                run.m_partitionName = QStringLiteral("gpu");
                for (unsigned int i = 0; i < 3; ++i) {
                    if ((given >> i & 1U) != 0)
                        run.*commands[i].first = QStringLiteral("/opt/pbs/bin/%d");
                }
            });
            for (unsigned int i = 0; i < 3; ++i) {
                const std::string name = commands[i].second;
                if ((given >> i & 1U) != 0) {
                    expected += "cvset CORV_" + name + "_CMD \"/opt/pbs/bin/%d\" \"${CORV_USER_" +
                                name + "_CMD}\"\n";
                }
            }
            EXPECT_EQ(script, ExpectedRunScript(expected + (given != 0 ? "\n" : "")))
                << queue.type << " " << queue.name << " " << given;
        }
    }
}

TEST_F(GeneratedContent, RunScriptsKeepSpecialCharacters) {
    const std::string directory = std::string(oddDirectory) + "/";
    EXPECT_EQ(Written(&CInstallBase::WriteCorvaneOLD, directory + "corvane26", SetOddValues),
              ExpectedRunScript(oddQueue, oddRoot, oddDirectory));
    EXPECT_EQ(Written(&CInstallBase::WriteCorvaneSnapshot, directory + "corvane26_snapshot",
                      SetOddValues),
              ExpectedSnapshotScript(oddRoot, oddDirectory));
}

TEST_F(GeneratedContent, OtherScriptsDoNotDependOnQueue) {
    const auto settings = [](CInstallBase& run) {
        SetOddValues(run);
        run.m_installDir = QStringLiteral("install");
        run.m_binariesDir = QStringLiteral("/opt/corvane/bin");
    };
    for (const RunBody& body : {RunBody(), RunBody(settings)}) {
        EXPECT_EQ(Written(&CInstallBase::WriteCorvaneSnapshot, "install/corvane26_snapshot", body),
                  ExpectedSnapshotScript());
        EXPECT_EQ(Written(&CInstallBase::WriteCorvaneSamba, "install/corvane26_samba", body),
                  Expected("corvane26_submission.head", {{"@NAME@", "samba"}}) +
                      Expected("corvane26_samba.tail", {}));
        EXPECT_EQ(Written(&CInstallBase::WriteCorvaneSsh, "install/corvane26_ssh", body),
                  Expected("corvane26_submission.head", {{"@NAME@", "ssh"}}) +
                      Expected("corvane26_ssh.tail", {}));
    }
}

TEST_F(GeneratedContent, QueueEntriesAreEmptied) {
    WriteFile(m_home / "install/queue_entries", "entries\n");
    EXPECT_EQ(WithWriter(m_home.path(), &CInstallBase::CreateInternalQueueEntries).status, 0);
    EXPECT_EQ(ReadFile(m_home / "install/queue_entries"), "");
}

TEST_F(GeneratedContent, QueueLimitsContainJobLimitOnly) {
    WriteFile(m_home / "install/QueueLimits",
              "MaxThreads: 2\nMemoryPerThreadMB: 600\nScratch: /data\nDiskPerThreadGB: 3\n");
    const std::tuple<int, const char*, int> limits[] = {{12, "12", 12},
                                                        {1, "1", 1},
                                                        {0, "0", 0},
                                                        {-5, "-5", 0},
                                                        {2147483647, "2147483647", 2147483647}};
    for (const auto& [limit, text, threads] : limits) {
        WithWriter(m_home.path(), &CInstallBase::WriteInternalQueueLimits, {},
                   [limit = limit](CInstallBase& run) { run.m_jobLimit = limit; });
        EXPECT_EQ(ReadFile(m_home / "install/QueueLimits"), text);
        const CQueueLimits read((m_home / "install").c_str());
        EXPECT_EQ(read.MaxThreads, threads);
        EXPECT_EQ(read.MemoryPerThreadMB, 1024);
        EXPECT_EQ(read.DiskPerThreadGB, 1);
        EXPECT_EQ(read.Scratch, "/tmp");
    }
}

}  // namespace
}  // namespace hx_test
