#include "installation/ContentCheck.h"

#include <QThread>
#include <algorithm>

#include "installation/ReadBack.h"
#include "installation/SetupRun.h"
#include "setuprun/QueueLimitsKeys.h"

namespace {

// More than any of these files contains.
constexpr qsizetype mostBytes = 1 << 20;

Problem IncompleteFile(const QString& path) {
    return {ExitStatus::Incomplete, QStringLiteral("\"%1\" is incomplete or unreadable").arg(path),
            QStringLiteral("Make sure that its file system is writable and not full, then run the "
                           "setup again."),
            Changes::Unknown};
}

// True when the lines of the commit script are in the file, which may contain further lines of the
// service.
bool HasLimits(const QString& path, const CInstallBase& run) {
    const QByteArray text = '\n' + ReadBack(path, mostBytes);
    return std::all_of(hx::queueLimitsLines.begin(), hx::queueLimitsLines.end(),
                       [&](const hx::QueueLimitsLine& line) {
                           const QByteArray expected =
                               QByteArray("\n") + line.key + ": " + line.Answer(run) + '\n';
                           return !line.isCommitted(run) || text.contains(expected);
                       });
}

// Waits half a second, because the service, just started, may be writing the file.
bool HasLimitsSoon(const QString& path, const CInstallBase& run) {
    for (int attempt = 0; attempt < 5; ++attempt) {
        if (HasLimits(path, run))
            return true;
        QThread::msleep(100);
    }
    return false;
}

bool HasExpectedBytes(const CInstallBase& run, const Entry& entry) {
    const QString path = PathIn(run, entry);
    if (entry.item == Item::QueueLimits)
        return HasLimitsSoon(path, run);
    const QByteArray expected = entry.item == Item::QChemScratch
                                    ? run.m_scratchDir.toUtf8()
                                    : ReadBack(PathIn(run, Find(Item::RenderedUnit)), mostBytes);
    return ReadBack(path, expected.size() + 1) == expected;
}

}  // namespace

Failure CheckContent(const CInstallBase& run, const Entry& entry) {
    const QString path = PathIn(run, entry);
    const bool complete =
        entry.check == Check::None ||
        (entry.check == Check::Ending ? ReadBack(path, mostBytes).endsWith(entry.reference)
                                      : HasExpectedBytes(run, entry));
    if (complete)
        return {};
    return IncompleteFile(path);
}
