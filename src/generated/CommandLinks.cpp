// Creates the links in /usr/bin to the run scripts of the install directory, for callers without a
// commit script. The commit script of a setup as root creates the same links.
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>

#include "generated/FileWriter.h"
#include "setuprun/CInstallBase.h"
#include "setuprun/Require.h"

namespace {

enum class LinkState { New, Replaced, Correct };

// A longer link text never compares equal.
constexpr size_t linkTextLimit = 1024;

// Compares the text of the link, without following it.
bool HasText(const char* link, const char* target) {
    // One byte more than the limit, to detect a longer text.
    std::array<char, linkTextLimit + 1> text = {};
    const ssize_t length = readlink(link, text.data(), text.size());
    return length >= 0 && static_cast<size_t>(length) <= linkTextLimit &&
           std::string_view(text.data(), static_cast<size_t>(length)) == target;
}

LinkState Examine(const QString& path, const char* link, const char* target) {
    struct stat entry = {};
    const bool present = lstat(link, &entry) == 0;
    if (!present && errno == ENOENT)
        return LinkState::New;
    hx::Require(present, "Unable to lstat \"", path);
    if (S_ISLNK(entry.st_mode) && HasText(link, target))
        return LinkState::Correct;
    return LinkState::Replaced;
}

const char* Word(LinkState state) {
    switch (state) {
        case LinkState::New:
            return "created";
        case LinkState::Replaced:
            return "updated";
        default:
            return "exists and is correct";
    }
}

// `title` names the product in the report.
void KeepLink(CInstallBase& run, const char* name, const char* title) {
    const QString path = QStringLiteral("/usr/bin/") + QLatin1String(name);
    const QByteArray link = path.toUtf8();
    const QByteArray target = (run.m_installDir + u'/' + QLatin1String(name)).toUtf8();
    const LinkState state = Examine(path, link.constData(), target.constData());
    if (state == LinkState::Replaced)
        hx::Require(unlink(link.constData()) == 0, "Unable to remove \"", path);
    if (state != LinkState::Correct) {
        hx::Require(symlink(target.constData(), link.constData()) == 0, "Unable to create \"", path,
                    " link\"");
    }
    hx::Report(run, [&] {
        std::printf("  %s symbolic link %s...\n    \"%s\" -> \"%s\"\n", title, Word(state),
                    link.constData(), target.constData());
    });
}

}  // namespace

int CInstallBase::WriteCorvaneLink() {
    KeepLink(*this, "corvane26", "CORVANE");
    return 1;
}

int CInstallBase::WriteCorvaneSnapshotLink() {
    KeepLink(*this, "corvane26_snapshot", "CORVANE snapshot");
    return 1;
}
