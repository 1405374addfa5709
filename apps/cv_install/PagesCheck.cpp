#include "PagesCheck.h"

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

}  // namespace

QString FindTruncatedPage(const CInstallBase& run, const char* name) {
    const QString server = run.m_installDir + QStringLiteral("/corvanerc/corvane26server/");
    const QByteArray archive = ReadBack(
        run.m_binariesDir + QStringLiteral("/docroot/%1.tar").arg(QLatin1String(name)), INT_MAX);
    for (qsizetype at = 0; at + BlockSize <= archive.size() && archive[at] != '\0';) {
        const Member member = Parse(archive.mid(at, BlockSize));
        const QString path = server + QString::fromUtf8(member.name);
        if (member.isFile && !IsWhole(path, archive.mid(at + BlockSize, member.size))) {
            return QStringLiteral(
                       "\"%1\" is not complete, or cannot be read\n"
                       "    See that its file system has space, remove the directory \"%2\", and "
                       "run the setup again.")
                .arg(path, server + QLatin1String(name));
        }
        at += BlockSize + (member.size + BlockSize - 1) / BlockSize * BlockSize;
    }
    return {};
}
