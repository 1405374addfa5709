#include "report/Agreement.h"

#include <QStringList>
#include <algorithm>

#include "Console.h"
#include "report/Plan.h"
#include "report/Report.h"

namespace {

// The rows show what differs in QueueLimits, except lines that do not count.
Differences WithoutLimits(Differences differences) {
    std::erase_if(differences.paths, [](const PathDifference& difference) {
        return difference.entry == &Find(Item::QueueLimits);
    });
    return differences;
}

void AddPathsNotIn(const Differences& known, const Differences& found,
                   std::set<std::string>& names) {
    for (const PathDifference& difference : found.paths) {
        if (std::find(known.paths.begin(), known.paths.end(), difference) == known.paths.end())
            names.insert(difference.path);
    }
}

// What changed after `before`, the rows, was read and after `shown` was found.
std::set<std::string> FindChanges(const LiveRows& before, const Differences& shown,
                                  const LiveMachine& now) {
    std::set<std::string> names = DifferingRows(before, now.rows);
    const Differences former = WithoutLimits(shown);
    const Differences latest = WithoutLimits(now.differences);
    if (former == latest)
        return names;
    AddPathsNotIn(former, latest, names);
    AddPathsNotIn(latest, former, names);
    if (names.empty())
        names.insert("accounts");
    return names;
}

void WarnOfChanges(const std::set<std::string>& names) {
    constexpr size_t mostNames = 10;
    QStringList shown;
    for (const std::string& name : names) {
        if (static_cast<size_t>(shown.size()) < mostNames)
            shown.append(QString::fromStdString(name));
    }
    if (names.size() > mostNames)
        shown.append(QStringLiteral("%1 more").arg(names.size() - mostNames));
    ReportWarning(
        {ExitStatus::Complete,
         QStringLiteral("the machine changed meanwhile: %1").arg(shown.join(QStringLiteral(", "))),
         {}});
}

}  // namespace

Failure ShowDifferences(const StagedMachine& staged, const LiveReader& read,
                        Differences& differences) {
    LiveMachine live;
    Failure failure = read(live);
    if (failure)
        return failure;
    differences = std::move(live.differences);
    PrintReport(staged, differences);
    return {};
}

Failure Agree(const StagedMachine& staged, const LiveRows& atStaging, const LiveReader& read,
              const ContentPrinter& showContents, Differences& differences) {
    const Console::Printing printing(staged.interactive ? Console::Importance::Needed
                                                        : Console::Importance::Usual);
    if (Failure failure = ShowDifferences(staged, read, differences))
        return failure;
    LiveRows before = atStaging;
    for (int question = 1;; ++question) {
        if (staged.interactive && !ConfirmPlan([&] { showContents(differences); }))
            return PlanDeclined();
        LiveMachine now;
        if (Failure failure = read(now))
            return failure;
        const std::set<std::string> changes = FindChanges(before, differences, now);
        if (changes.empty())
            return {};
        if (question == 2) {
            return Problem{ExitStatus::Declined,
                           QStringLiteral("setup canceled: the machine changed again while the "
                                          "plan was read"),
                           QStringLiteral("Find out what changes it, then run the setup again.")};
        }
        WarnOfChanges(changes);
        differences = std::move(now.differences);
        before = std::move(now.rows);
        PrintReport(staged, differences);
        if (!staged.interactive)
            return {};
    }
}
