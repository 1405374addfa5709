#include "services/CSystemdService.h"

#include "services/ServiceTool.h"

namespace {

constexpr hx::ServiceTool systemdTool = {.preferred = "/bin/systemctl",
                                         .fallback = "/usr/bin/systemctl"};

}  // namespace

CSystemdService::CSystemdService(QObject* parent) : QProcess(parent) {}

CSystemdService::~CSystemdService() = default;

int CSystemdService::Start(const QString& service) {
    return hx::RunServiceTool(*this, systemdTool, {QStringLiteral("start"), service}, hx::Wait::No);
}

int CSystemdService::Stop(const QString& service) {
    return hx::RunServiceTool(*this, systemdTool, {QStringLiteral("stop"), service},
                              hx::Wait::ForTheEnd);
}

int CSystemdService::Restart(const QString& service) {
    return hx::RunServiceTool(*this, systemdTool, {QStringLiteral("restart"), service},
                              hx::Wait::ForTheEnd);
}

int CSystemdService::Status(const QString& service) {
    return hx::RunServiceTool(*this, systemdTool, {QStringLiteral("status"), service},
                              hx::Wait::ForTheEnd);
}
