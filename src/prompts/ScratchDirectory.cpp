// Asks where calculations keep their temporary files, which settles m_scratchDir.
#include <cstdio>

#include "prompts/Console.h"
#include "setuprun/CInstallBase.h"

namespace {

void WriteIntroduction() {
    std::fputs(R"(------------------------------------------------------------

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

// Kept: the last installation's directory wins over -d unless another is typed. The directory is
// not tested in any way.
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
    std::printf(R"(------------------------------------------------------------

  Scratch Directory: %s

)",
                qUtf8Printable(m_scratchDir));
    InstallPause();
}
