// Sets up the installed product for one user: settings and run scripts in a directory of that
// user's own, every question answered with its default.
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
        // A setup by root makes accounts, links and services.
        if (m_accessFlags == RootAccess)
            InstallError(QStringLiteral("A private setup is not for root."), 1, 0);
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
        // The script ends with its object: stay until it is through.
        const bool finished = script.waitForFinished(-1);
        unlink(path.toUtf8().constData());
        return finished && script.exitStatus() == QProcess::NormalExit ? script.exitCode() : 1;
    }
};

// The library puts paths into the commit script as they are.
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
