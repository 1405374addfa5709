#include "services/CInitService.h"

#include "services/ServiceTool.h"

namespace {

constexpr hx::ServiceTool initTool = {.preferred = "/sbin/service",
                                      .fallback = "/usr/sbin/service"};

}  // namespace

CInitService::CInitService(QObject* parent) : QProcess(parent) {}

CInitService::~CInitService() = default;

int CInitService::Start(const QString& service) {
    return hx::RunServiceTool(*this, initTool, {service, QStringLiteral("start")}, hx::Wait::No);
}

int CInitService::Stop(const QString& service) {
    return hx::RunServiceTool(*this, initTool, {service, QStringLiteral("stop")},
                              hx::Wait::ForTheEnd);
}

int CInitService::Restart(const QString& service) {
    return hx::RunServiceTool(*this, initTool, {service, QStringLiteral("restart")},
                              hx::Wait::ForTheEnd);
}

int CInitService::Status(const QString& service) {
    return hx::RunServiceTool(*this, initTool, {service, QStringLiteral("status")},
                              hx::Wait::ForTheEnd);
}
