#include "commit/CCommitScript.h"

CCommitScript::CCommitScript(QObject* parent) : QProcess(parent) {}

CCommitScript::~CCommitScript() = default;

void CCommitScript::Run(const QString& path) {
    start(QStringLiteral("/bin/bash"), {path}, QIODeviceBase::ReadWrite);
}
