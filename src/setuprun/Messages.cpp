// How a run tells its failures and warnings, and how it pauses.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "setuprun/CInstallBase.h"
#include "support/HXfgets.h"

namespace {

// Questions and progress on stdout come before the failure that follows them.
void Tell(const char* kind, const QString& message, int errnum) {
    std::fflush(stdout);
    std::fprintf(stderr, "Corvane Install: %s\n    %s\n", kind, message.toUtf8().constData());
    if (errnum != 0)
        std::fprintf(stderr, "    %s\n", std::strerror(errnum));
}

}  // namespace

void CInstallBase::InstallError(const QString& message, int status, int errnum) {
    Tell("Error", message, errnum);
    std::exit(status);
}

void CInstallBase::InstallWarning(const QString& message, int errnum) {
    Tell("Warning", message, errnum);
}

void CInstallBase::InstallPause() {
    if (!m_interactive)
        return;
    std::printf("[Press \"Enter\" key to continue]");
    std::fflush(stdout);
    std::array<char, 256> ignored = {};
    HXfgets(ignored.data(), static_cast<int>(ignored.size()), stdin);
}

void CInstallBase::InstallSeparator() {
    std::printf("------------------------------------------------------------\n");
}
