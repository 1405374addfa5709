// What the service controllers share: find the tool, start it, wait for its end or not.
#pragma once

#include <QProcess>
#include <QStringList>

namespace hx {

// The two places of a tool; the first that exists is taken, whether it may be run or not.
struct ServiceTool {
    const char* preferred;
    const char* fallback;
};

enum class Wait { ForTheEnd, No };

// Runs the tool as `process` and returns its exit code: 127, without starting anything, when the
// tool is in neither place.
int RunServiceTool(QProcess& process, const ServiceTool& tool, const QStringList& arguments,
                   Wait wait);

}  // namespace hx
