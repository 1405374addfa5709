#include "services/CSystemdService.h"

#include "services/ServiceTool.h"

namespace {

constexpr hx::ServiceTool SystemdTool = {.preferred = "/bin/systemctl",
                                         .fallback = "/usr/bin/systemctl"};

}  // namespace

CSystemdService::CSystemdService(QObject* parent) : QProcess(parent) {}

CSystemdService::~CSystemdService() = default;

int CSystemdService::Start(const QString& service) {
    return hx::RunServiceTool(*this, SystemdTool, {QStringLiteral("start"), service}, hx::Wait::No);
}

int CSystemdService::Stop(const QString& service) {
    return hx::RunServiceTool(*this, SystemdTool, {QStringLiteral("stop"), service},
                              hx::Wait::ForTheEnd);
}

int CSystemdService::Restart(const QString& service) {
    return hx::RunServiceTool(*this, SystemdTool, {QStringLiteral("restart"), service},
                              hx::Wait::ForTheEnd);
}

int CSystemdService::Status(const QString& service) {
    return hx::RunServiceTool(*this, SystemdTool, {QStringLiteral("status"), service},
                              hx::Wait::ForTheEnd);
}
