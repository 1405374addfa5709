// Asks where calculations store temporary files and sets m_scratchDir.
#include <cstdio>

#include "prompts/Console.h"
#include "setuprun/CInstallBase.h"

namespace {

void WriteIntroduction() {
    CInstallBase::InstallSeparator();
    std::fputs(R"(
Some higher level Corvane jobs require the use of scratch
disk space.  Enter a directory where sufficient disk space
is available.  Typically this directory should be world-writable
with the sticky bit set.  The sticky bit should be set such that
only the owner of a scratch file is allowed to delete or rename
it.  The default choice is "/tmp" which is world-writable with
the sticky bit set.

)",
               stdout);
}

void WriteDirectoryNotice(const QString& previous) {
    std::printf(R"(A previous installation has set the scratch storage
directory to "%s".  To preserve setting, accept
the default response to the next question.

)",
                qUtf8Printable(previous));
}

}  // namespace

// Compatibility: the previous setup's directory takes precedence over -d. The directory is not
// checked.
void CInstallBase::PromptScratchDirectory() {
    WriteIntroduction();
    if (!m_prevScratchDir.isEmpty()) {
        WriteDirectoryNotice(m_prevScratchDir);
        m_scratchDir = m_prevScratchDir;
    }
    std::printf("Scratch directory [%s]: ", qUtf8Printable(m_scratchDir));
    if (m_interactive)
        hx::ReadTextAnswerInto(m_scratchDir);
    else
        std::printf("%s\n", qUtf8Printable(m_scratchDir));
    InstallSeparator();
    std::printf("\n  Scratch Directory: %s\n\n", qUtf8Printable(m_scratchDir));
    InstallPause();
}
