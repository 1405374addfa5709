#include "ResultCheck.h"

#include <QThread>
#include <algorithm>
#include <vector>

#include "ReadBack.h"

namespace {

// More than any of these files holds.
constexpr qsizetype Most = 1 << 20;

QString Incomplete(const QString& path) {
    return QStringLiteral(
               "\"%1\" is not complete, or cannot be read\n"
               "    See that its file system has space and may be written to, and run the setup "
               "again.")
        .arg(path);
}

// Whether the lines of the commit script are there, and maybe a further one of the service.
bool HoldsLimits(const QString& path, const CInstallBase& run) {
    // A list of Qt's would not notice that it gets no memory.
    std::vector<QString> lines = {QStringLiteral("MaxThreads: %1").arg(run.m_jobLimit),
                                  QStringLiteral("MemoryPerThreadMB: %1").arg(run.m_memoryLimitMB),
                                  QStringLiteral("Scratch: ") + run.m_scratchDir,
                                  QStringLiteral("DiskPerThreadGB: %1").arg(run.m_scratchLimitGB)};
    if (run.m_prevJobLimit == run.m_jobLimit && run.m_threadsPerMolecule > 0)
        lines.push_back(QStringLiteral("ThreadsPerMolecule: %1").arg(run.m_threadsPerMolecule));
    const QByteArray text = '\n' + ReadBack(path, Most);
    return std::all_of(lines.cbegin(), lines.cend(), [&text](const QString& line) {
        return text.contains('\n' + line.toUtf8() + '\n');
    });
}

// The service, just started, may be about to write the file once more.
bool HoldsLimitsSoon(const QString& path, const CInstallBase& run) {
    for (int looks = 0; looks < 5; ++looks) {
        if (HoldsLimits(path, run))
            return true;
        QThread::msleep(100);
    }
    return false;
}

bool EndsWith(const QString& path, const char* end) {
    return ReadBack(path, Most).endsWith(end);
}

}  // namespace

QString FindIncompleteRunTimeFile(const CInstallBase& run, bool submissionScripts) {
    const QString scratch = run.m_installDir + QStringLiteral("/qchemrc/qcscratch");
    if (!Holds(scratch, run.m_scratchDir.toUtf8()))
        return Incomplete(scratch);
    struct Ending {
        const char* path;
        const char* end;
        bool written;
    };
    for (const Ending& file : {Ending{"/qchemrc/qchemrc", "\n$end\n", true},
                               Ending{"/corvane26_samba", "\nexit 0\n", submissionScripts},
                               Ending{"/corvane26_ssh", "\nexit 0\n", submissionScripts}}) {
        const QString path = run.m_installDir + QLatin1String(file.path);
        if (file.written && !EndsWith(path, file.end))
            return Incomplete(path);
    }
    return {};
}

QString FindIncompleteResult(const CInstallBase& run, const PageDirectories& pages) {
    const QString limits = run.m_installDir + QStringLiteral("/QueueLimits");
    if (!HoldsLimitsSoon(limits, run))
        return Incomplete(limits);
    QString truncated = FindIncompletePage(run, pages);
    if (!truncated.isEmpty())
        return truncated;
    if (run.m_clusterNode || run.m_accessFlags != CInstallBase::RootAccess)
        return {};
    const QString rendered = run.m_installDir + QStringLiteral("/corvane26_service.service");
    const QString installed = QStringLiteral("/etc/systemd/system/corvane26_service.service");
    return Holds(installed, ReadBack(rendered, Most)) ? QString() : Incomplete(installed);
}
