#include "services/CInitService.h"

#include "services/ServiceTool.h"

namespace {

constexpr hx::ServiceTool InitTool = {.preferred = "/sbin/service",
                                      .fallback = "/usr/sbin/service"};

}  // namespace

CInitService::CInitService(QObject* parent) : QProcess(parent) {}

CInitService::~CInitService() = default;

int CInitService::Start(const QString& service) {
    return hx::RunServiceTool(*this, InitTool, {service, QStringLiteral("start")}, hx::Wait::No);
}

int CInitService::Stop(const QString& service) {
    return hx::RunServiceTool(*this, InitTool, {service, QStringLiteral("stop")},
                              hx::Wait::ForTheEnd);
}

int CInitService::Restart(const QString& service) {
    return hx::RunServiceTool(*this, InitTool, {service, QStringLiteral("restart")},
                              hx::Wait::ForTheEnd);
}

int CInitService::Status(const QString& service) {
    return hx::RunServiceTool(*this, InitTool, {service, QStringLiteral("status")},
                              hx::Wait::ForTheEnd);
}
