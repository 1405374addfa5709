#include "PagesCheck.h"

#include <unistd.h>

#include <climits>

#include "ReadBack.h"

namespace {

constexpr qsizetype BlockSize = 512;

// One entry of an archive in the ustar format, of which the build makes ours.
struct Member {
    QByteArray name;
    qsizetype size;
    bool isFile;
};

QByteArray Field(const QByteArray& header, qsizetype offset, qsizetype length) {
    const QByteArray field = header.mid(offset, length);
    return field.left(field.indexOf('\0') == -1 ? length : field.indexOf('\0'));
}

Member Parse(const QByteArray& header) {
    const QByteArray prefix = Field(header, 345, 155);
    const QByteArray name = Field(header, 0, 100);
    const char type = header[156];
    return {prefix.isEmpty() ? name : prefix + '/' + name,
            static_cast<qsizetype>(Field(header, 124, 12).trimmed().toUInt(nullptr, 8)),
            type == '0' || type == '\0'};
}

// True for a page that somebody changed too: a cut one is the beginning of what was packed.
bool IsWhole(const QString& path, const QByteArray& packed) {
    const QByteArray page = ReadBack(path, packed.size());
    return page.size() == packed.size() || !packed.startsWith(page);
}

QString ServerDirectory(const CInstallBase& run) {
    return run.m_installDir + QStringLiteral("/corvanerc/corvane26server/");
}

// The path of the first page that is missing or cut short, or nothing.
QString FindTruncatedPage(const CInstallBase& run, QLatin1String directory) {
    const QByteArray archive =
        ReadBack(run.m_binariesDir + QStringLiteral("/docroot/%1.tar").arg(directory), INT_MAX);
    for (qsizetype at = 0; at + BlockSize <= archive.size() && archive[at] != '\0';) {
        const Member member = Parse(archive.mid(at, BlockSize));
        QString path = ServerDirectory(run) + QString::fromUtf8(member.name);
        if (member.isFile && !IsWhole(path, archive.mid(at + BlockSize, member.size)))
            return path;
        at += BlockSize + (member.size + BlockSize - 1) / BlockSize * BlockSize;
    }
    return {};
}

// `message` with the first such page for %1 and its directory for %2, or nothing.
QString TellOfTruncatedPage(const CInstallBase& run, const std::vector<QLatin1String>& directories,
                            const QString& message) {
    for (const QLatin1String directory : directories) {
        const QString page = FindTruncatedPage(run, directory);
        if (!page.isEmpty())
            return message.arg(page, ServerDirectory(run) + directory);
    }
    return {};
}

}  // namespace

PageDirectories FindPageDirectories(const CInstallBase& run) {
    PageDirectories pages;
    if (run.m_clusterNode)
        return pages;
    for (const QLatin1String name : {QLatin1String("resources"), QLatin1String("icons")}) {
        const QByteArray path = (ServerDirectory(run) + name).toUtf8();
        (access(path.constData(), F_OK) == 0 ? pages.kept : pages.missing).push_back(name);
    }
    return pages;
}

QString FindIncompletePage(const CInstallBase& run, const PageDirectories& pages) {
    return TellOfTruncatedPage(
        run, pages.missing,
        QStringLiteral("\"%1\" is not complete, or cannot be read\n"
                       "    See that its file system has space, remove the directory \"%2\", and "
                       "run the setup again."));
}

QString FindOutdatedPage(const CInstallBase& run, const PageDirectories& pages) {
    return TellOfTruncatedPage(
        run, pages.kept,
        QStringLiteral("\"%1\" is missing or shorter than the product's, and was left so\n"
                       "    To have all pages unpacked anew, move the directory \"%2\" away and "
                       "run the setup again."));
}
