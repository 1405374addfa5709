#include "staging/Recorder.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QByteArray>
#include <QFile>
#include <QProcess>
#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include "commit/EarlierServices.h"
#include "installation/Installation.h"

namespace {

struct Tool {
    const char* name;
    std::array<const char*, 2> paths;  // the commit script uses the first one that is executable
};

constexpr Tool tools[] = {
    {"systemctl", {"/bin/systemctl", "/usr/bin/systemctl"}},
    {"service", {"/sbin/service", "/usr/sbin/service"}},
    {"chkconfig", {"/sbin/chkconfig", "/usr/sbin/chkconfig"}},
};

// %1 is the directory. The tools are called as "systemctl VERB [OPTION] UNIT" and "service NAME
// VERB". The real tools see only staged files: offline, systemctl does not ask the manager.
constexpr const char* recorder = R"(#!/bin/sh
DIRECTORY="%1"
TOOL="${0##*/}"
echo "${TOOL} $*" >> "${DIRECTORY}/calls"
case "${TOOL}" in
systemctl)
  VERB="${1}"
  for NAME in "$@"; do :; done
  NAME="${NAME%.service}";;
service)
  NAME="${1}"
  VERB="${2}";;
chkconfig)
  exec env SYSTEMD_OFFLINE=1 "${DIRECTORY}/real-chkconfig" "$@";;
esac
case "${VERB}" in
status) [ -e "${DIRECTORY}/active-${NAME}" ] || exit 3;;
stop) rm -f "${DIRECTORY}/active-${NAME}";;
start|restart) : > "${DIRECTORY}/active-${NAME}";;
enable|disable) exec env SYSTEMD_OFFLINE=1 "${DIRECTORY}/real-systemctl" "$@";;
esac
exit 0
)";

constexpr int longestWait = 30000;

struct CallAnswer {
    int status = -1;  // -1 if the tool cannot be run
    QByteArray output;
};

CallAnswer Ask(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(program, arguments);
    if (!process.waitForFinished(longestWait)) {
        process.kill();
        process.waitForFinished(1000);
        return {};
    }
    const int status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    return {status, process.readAllStandardOutput()};
}

// Where no manager is running, systemctl prints nothing on stdout. In a chroot, it ends with 0.
CallAnswer AskManager(const QString& unit) {
    return Ask(QStringLiteral("systemctl"), {QStringLiteral("is-active"), unit});
}

bool IsActive(const CallAnswer& answer) {
    return answer.status == 0 && !answer.output.isEmpty();
}

bool IsActive(const hx::EarlierService& service) {
    const QString name = QLatin1String(service.name);
    if (access(service.path, F_OK) != 0)
        return false;
    if (!service.hasInitScript)
        return IsActive(AskManager(name + QStringLiteral(".service")));
    return Ask(QStringLiteral("service"), {name, QStringLiteral("status")}).status == 0;
}

bool WriteFile(const std::string& path, const QByteArray& text, mode_t mode) {
    QFile file(QString::fromStdString(path));
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size() && file.flush() &&
           chmod(path.c_str(), mode) == 0;
}

bool BindFile(const std::string& from, const std::string& to) {
    return mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr) == 0;
}

// The tool's file after links; empty if it does not exist.
std::string FindTool(const Tool& tool) {
    for (const char* path : tool.paths) {
        std::array<char, PATH_MAX> resolved = {};
        if (realpath(path, resolved.data()) != nullptr)
            return resolved.data();
    }
    return {};
}

// The real tool stays reachable in the directory. Several tools may be links to one file.
bool ReplaceTool(const Tool& tool, const std::string& directory) {
    const std::string path = FindTool(tool);
    if (path.empty())
        return true;
    const std::string real = directory + "/real-" + tool.name;
    return WriteFile(real, {}, 0700) && BindFile(path, real) &&
           BindFile(directory + "/recorder", path);
}

}  // namespace

ServiceStates FindServiceStates() {
    ServiceStates states;
    for (const hx::EarlierService& service : hx::earlierServices) {
        if (IsActive(service))
            states.active.push_back(QLatin1String(service.name));
    }
    const QString unit = QLatin1String(serviceUnit);
    const CallAnswer answer = AskManager(unit);
    states.isManagerRunning = !answer.output.isEmpty();
    if (IsActive(answer))
        states.active.push_back(unit.chopped(8));
    return states;
}

bool ReplaceServiceTools(const std::string& directory, const QStringList& active) {
    const QByteArray script =
        QByteArray(recorder).replace("%1", QByteArray::fromStdString(directory));
    if (!WriteFile(directory + "/recorder", script, 0700) ||
        !WriteFile(directory + '/' + callsFile, {}, 0600))
        return false;
    for (const QString& service : active) {
        if (!WriteFile(directory + "/active-" + service.toStdString(), {}, 0600))
            return false;
    }
    return std::ranges::all_of(tools,
                               [&](const Tool& tool) { return ReplaceTool(tool, directory); });
}
