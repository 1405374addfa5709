#include "verify/VerifyReport.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "Console.h"
#include "Problem.h"

namespace {

void PrintResultLine(const QString& line) {
    std::printf("%s\n", qUtf8Printable(Printable(line)));
}

}  // namespace

QString LineOf(const FoundDifference& difference) {
    const QString what = difference.path.isEmpty()
                             ? QLatin1String(difference.kind) + u' ' + difference.name
                             : difference.path;
    return what +
           QStringLiteral(": %1: expected %2, found %3")
               .arg(QLatin1String(difference.attribute), difference.expected, difference.found);
}

void PrintUnchecked(const std::vector<Unchecked>& unchecked) {
    for (const Unchecked& each : unchecked)
        PrintResultLine(QStringLiteral("Not checked: %1: %2").arg(each.what, each.reason));
}

void PrintResult(const RecordedInstallation& installation, const VerifyResult& result) {
    const Console::Printing needed(Console::Importance::Needed);
    for (const FoundDifference& difference : result.differences)
        PrintResultLine(LineOf(difference));
    PrintUnchecked(result.unchecked);
    if (result.differences.empty()) {
        const SetupFacts& facts = installation.manifest.facts;
        PrintResultLine(QStringLiteral("No differences from the setup of \"%1\" at %2, version %3")
                            .arg(installation.installDir, facts.time, facts.version));
    }
    std::fflush(stdout);
}

nlohmann::ordered_json JsonOf(const std::vector<FoundDifference>& differences) {
    nlohmann::ordered_json array = nlohmann::ordered_json::array();
    for (const FoundDifference& each : differences) {
        const bool isPath = !each.path.isEmpty();
        array.push_back({{isPath ? "path" : "name", (isPath ? each.path : each.name).toStdString()},
                         {"kind", each.kind},
                         {"attribute", each.attribute},
                         {"expected", each.expected.toStdString()},
                         {"found", each.found.toStdString()}});
    }
    return array;
}

nlohmann::ordered_json JsonOf(const std::vector<Unchecked>& unchecked) {
    nlohmann::ordered_json array = nlohmann::ordered_json::array();
    for (const Unchecked& each : unchecked)
        array.push_back({{"what", each.what.toStdString()}, {"reason", each.reason.toStdString()}});
    return array;
}
