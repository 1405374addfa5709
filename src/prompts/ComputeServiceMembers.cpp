// Asks for the members of the service group and sets m_serviceMembers.
#include <QRegularExpression>
#include <cstdio>

#include "prompts/Console.h"
#include "setuprun/CInstallBase.h"

namespace {

// Compatibility: "responsiblily", as in released versions.
void WriteQuestion(const QString& present) {
    std::printf(R"(
Specify users who will be responsible for the administration
of the Corvane Compute Service.  The main responsiblily of these
users will be to manage remote user access to the service.

Enter user names as follows...

dana,erik

Corvane Compute Service Members [%s]: )",
                qUtf8Printable(present));
}

}  // namespace

// An answer replaces the list; an empty one keeps the present members. Names are not checked.
void CInstallBase::PromptComputeServiceGroupMembers() {
    const QString present = m_serviceCurrentMembers.join(u',');
    WriteQuestion(present);
    m_serviceMembers.clear();
    if (m_interactive) {
        static const QRegularExpression separator(QStringLiteral("[, ]"));
        m_serviceMembers = hx::ReadTextAnswer().split(separator, Qt::SkipEmptyParts);
    } else {
        std::printf("%s\n", qUtf8Printable(present));
    }
    if (m_serviceMembers.isEmpty())
        m_serviceMembers = m_serviceCurrentMembers;
    InstallSeparator();
    std::printf("\n  Corvane Compute Service Group Members: %s\n\n",
                qUtf8Printable(m_serviceMembers.join(u',')));
    InstallPause();
}
