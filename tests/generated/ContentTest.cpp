// The bytes of every generated file, for every branch.
#include <gtest/gtest.h>

#include "generated/Writing.h"
#include "harness/TempDir.h"

namespace hx_test {
namespace {

class GeneratedContent : public testing::Test {
protected:
    GeneratedContent() { MakeDirectory(m_home / "install", 0755); }

    // What the writer leaves in the file `name` of the install directory.
    std::string Written(Writer writer, const std::string& name, const RunBody& settings = {}) {
        const auto result = WithRun(m_home.path(), [&](CInstallBase& run) {
            if (settings)
                settings(run);
            EXPECT_EQ((run.*writer)(), 1);
        });
        EXPECT_EQ(result.status, 0) << result.out << result.err;
        EXPECT_EQ(result.err, "");
        return ReadFile(m_home / (m_installDir + "/" + name));
    }

    std::string RunScript(const RunBody& settings) {
        return Written(&CInstallBase::WriteCorvaneOLD, "corvane26", settings);
    }

    // Names with blanks, letters outside ASCII, quotes, percent signs and a backtick.
    void UseOddNames() {
        m_installDir = "100% d'or \"übung\"";
        MakeDirectory(m_home / m_installDir, 0755);
    }
    void SetOddNames(CInstallBase& run) const {
        run.m_installDir = QString::fromStdString(m_installDir);
        run.m_binariesDir = QStringLiteral("/opt/Größe \"%s\" $HOME");
        run.m_queueName = QStringLiteral("schön & \"schnell\" %d");
        run.m_qsubCmd = QStringLiteral("/opt/pbs bin/qsub \"x\" %n");
        run.m_qdelCmd = QStringLiteral("/opt/ж/qdel");
        run.m_qsigCmd = QStringLiteral("`qsig`%%");
        run.m_queueType = CInstallBase::QueueExternal;
    }

    TempDir m_home;
    std::string m_installDir = "install";
};

struct Queue {
    int type;
    const char* name;
    const char* expected;  // null: nothing
};

constexpr Queue queues[] = {{0, "", nullptr},
                            {0, "long batch", nullptr},
                            {1, "", "corvane26.internal"},
                            {1, "long batch", "corvane26.internal"},
                            {2, "", "corvane26.external_unnamed"},
                            {2, "long batch", "corvane26.external_named"},
                            {3, "", nullptr},
                            {3, "long batch", nullptr}};

std::string Commands(bool qsub, bool qdel, bool qsig) {
    std::string lines;
    if (qsub)
        lines += "cvset CORV_QSUB_CMD \"/opt/pbs/bin/qsub\" \"${CORV_USER_QSUB_CMD}\"\n";
    if (qdel)
        lines += "cvset CORV_QDEL_CMD \"/opt/pbs/bin/qdel\" \"${CORV_USER_QDEL_CMD}\"\n";
    if (qsig)
        lines += "cvset CORV_QSIG_CMD \"/opt/pbs/bin/qsig\" \"${CORV_USER_QSIG_CMD}\"\n";
    return lines.empty() ? lines : lines + "\n";
}

TEST_F(GeneratedContent, TheRunScriptKnowsEveryQueueWithEveryChoiceOfCommands) {
    for (const Queue& queue : queues) {
        for (unsigned int given = 0; given < 8; ++given) {
            const bool qsub = (given & 1U) != 0;
            const bool qdel = (given & 2U) != 0;
            const bool qsig = (given & 4U) != 0;
            const std::string script = RunScript([&](CInstallBase& run) {
                run.m_queueType = queue.type;
                run.m_queueName = QString::fromUtf8(queue.name);
                run.m_qsubCmd = QString::fromUtf8(qsub ? "/opt/pbs/bin/qsub" : "");
                run.m_qdelCmd = QString::fromUtf8(qdel ? "/opt/pbs/bin/qdel" : "");
                run.m_qsigCmd = QString::fromUtf8(qsig ? "/opt/pbs/bin/qsig" : "");
            });
            const std::string identity = queue.expected == nullptr ? "" : Expected(queue.expected);
            EXPECT_EQ(script, Expected("corvane26.head") + identity + Commands(qsub, qdel, qsig) +
                                  Expected("corvane26.tail"))
                << queue.type << " " << queue.name << " " << given;
        }
    }
}

TEST_F(GeneratedContent, ANegativeOrUnknownQueueTypeIsNoQueue) {
    for (const int type : {-1, 4}) {
        EXPECT_EQ(RunScript([type](CInstallBase& run) { run.m_queueType = type; }),
                  Expected("corvane26.head") + Expected("corvane26.tail"));
    }
}

TEST_F(GeneratedContent, ValuesEnterTheRunScriptAsTheyAre) {
    UseOddNames();
    EXPECT_EQ(RunScript([&](CInstallBase& run) { SetOddNames(run); }),
              Expected("corvane26.odd_names"));
}

TEST_F(GeneratedContent, TheSnapshotScriptKnowsItsDirectoriesAndNoQueue) {
    EXPECT_EQ(Written(&CInstallBase::WriteCorvaneSnapshot, "corvane26_snapshot"),
              Expected("corvane26_snapshot"));
    EXPECT_EQ(Written(&CInstallBase::WriteCorvaneSnapshot, "corvane26_snapshot",
                      [&](CInstallBase& run) {
                          SetOddNames(run);
                          run.m_installDir = QStringLiteral("install");
                          run.m_binariesDir = QStringLiteral("/opt/corvane/bin");
                      }),
              Expected("corvane26_snapshot"));
    UseOddNames();
    EXPECT_EQ(Written(&CInstallBase::WriteCorvaneSnapshot, "corvane26_snapshot",
                      [&](CInstallBase& run) { SetOddNames(run); }),
              Expected("corvane26_snapshot.odd_names"));
}

TEST_F(GeneratedContent, NoFieldEntersTheSubmissionScripts) {
    EXPECT_EQ(Written(&CInstallBase::WriteCorvaneSamba, "corvane26_samba"),
              Expected("corvane26_samba"));
    EXPECT_EQ(Written(&CInstallBase::WriteCorvaneSsh, "corvane26_ssh"), Expected("corvane26_ssh"));
    UseOddNames();
    const auto odd = [&](CInstallBase& run) { SetOddNames(run); };
    EXPECT_EQ(Written(&CInstallBase::WriteCorvaneSamba, "corvane26_samba", odd),
              Expected("corvane26_samba"));
    EXPECT_EQ(Written(&CInstallBase::WriteCorvaneSsh, "corvane26_ssh", odd),
              Expected("corvane26_ssh"));
}

TEST_F(GeneratedContent, AnOlderLongerFileLeavesNothingBehind) {
    for (const char* name : {"corvane26", "corvane26_snapshot", "corvane26_samba"})
        MakeFile(m_home / ("install/" + std::string(name)), std::string(100000, 'x'), 0600);
    EXPECT_EQ(RunScript({}), Expected("corvane26.head") + Expected("corvane26.tail"));
    EXPECT_EQ(Written(&CInstallBase::WriteCorvaneSnapshot, "corvane26_snapshot"),
              Expected("corvane26_snapshot"));
    EXPECT_EQ(Written(&CInstallBase::WriteCorvaneSamba, "corvane26_samba"),
              Expected("corvane26_samba"));
}

}  // namespace
}  // namespace hx_test
