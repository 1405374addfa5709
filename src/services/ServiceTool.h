// Finds and runs the command-line tool of a service controller.
#pragma once

#include <QProcess>
#include <QStringList>

namespace hx {

// The two possible paths of a tool.
struct ServiceTool {
    const char* preferred;
    const char* fallback;
};

enum class Wait { ForTheEnd, No };

// Starts the first path that exists as `process` and returns its exit status. Returns 127 without
// starting a process if neither path exists. With Wait::No, the result is that of a process that
// has just started, which is 0.
int RunServiceTool(QProcess& process, const ServiceTool& tool, const QStringList& arguments,
                   Wait wait);

}  // namespace hx
