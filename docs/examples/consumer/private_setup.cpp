// Sets up the installed product for one user: settings and run scripts in a directory of the user,
// with the default answer to each question.
//
//   private_setup PRODUCT DIRECTORY     such as: private_setup /usr/lib/corvane26 ~/corvane
#include <unistd.h>

#include <QRegularExpression>
#include <QString>
#include <cstdio>

#include "commit/CCommitScript.h"
#include "setuprun/CInstallBase.h"

namespace {

class PrivateSetup : public CInstallBase {
public:
    PrivateSetup(int argc, char** argv, const QString& product, const QString& directory)
        : CInstallBase(true, argc, argv) {
        // A setup as root creates accounts, links, and services.
        if (m_accessFlags == RootAccess)
            InstallError(QStringLiteral("A private setup must not run as root."), 1, 0);
        m_binariesDir = product;
        m_installDir = directory;
        m_interactive = false;
        m_queueType = QueueInternal;
    }

    int Run() {
        PromptJobLimit();
        PromptMemoryLimit();
        PromptScratchDirectory();
        PromptScratchLimit();
        PromptQueueType();

        CreateInstallDirectory();
        WriteQChemRC();
        WriteQCScratch();
        return RunCommitScript();
    }

private:
    int RunCommitScript() {
        QString path;
        if (!WriteCommitScript(path, false))
            return 1;
        std::fflush(stdout);
        CCommitScript script;
        script.setProcessChannelMode(QProcess::ForwardedChannels);
        script.Run(path);
        // The destructor would end the script, so wait for it.
        const bool finished = script.waitForFinished(-1);
        unlink(path.toUtf8().constData());
        return finished && script.exitStatus() == QProcess::NormalExit ? script.exitCode() : 1;
    }
};

// The library inserts paths into the commit script unchanged.
bool IsPlainPath(const QString& path) {
    static const QRegularExpression plain(QStringLiteral("\\A/[A-Za-z0-9/._+-]*\\z"));
    return plain.match(path).hasMatch();
}

}  // namespace

int main(int argc, char** argv) {
    const QString product = QString::fromUtf8(argc == 3 ? argv[1] : "");
    const QString directory = QString::fromUtf8(argc == 3 ? argv[2] : "");
    if (!IsPlainPath(product) || !IsPlainPath(directory)) {
        std::fprintf(stderr, "usage: %s PRODUCT DIRECTORY\n    Both are absolute paths.\n",
                     argv[0]);
        return 2;
    }
    PrivateSetup setup(argc, argv, product, directory);
    return setup.Run();
}
