#include "report/TextDifferences.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <QCryptographicHash>
#include <QStringList>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Problem.h"
#include "WriteAll.h"
#include "installation/TimeLimit.h"
#include "installation/Tool.h"

namespace {

// A file before or after the setup.
struct Side {
    bool exists = false;
    QByteArray bytes;
    QString reason;  // why it cannot be shown
};

void PrintLine(const QString& line) {
    std::printf("%s\n", qUtf8Printable(line));
}

// Tabs are harmless, and part of many files.
QString PrintableText(const QString& line) {
    QStringList parts = line.split(u'\t');
    for (QString& part : parts)
        part = Printable(part);
    return parts.join(u'\t');
}

QString WhyUnread(int error) {
    // The setup's timer interrupts system calls that wait.
    return QString::fromUtf8(error == EINTR ? "timed out" : std::strerror(error));
}

std::string Sha256Of(const QByteArray& bytes) {
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex().toStdString();
}

// The content that the comparison found. Another process may have put a different file there.
Side ReadSide(int base, const std::string& path, Reading reading, const State& compared) {
    Side side;
    if (compared.kind != State::Kind::File)
        return side;
    side.exists = true;
    const TimeLimit limit;
    std::optional<FileContent> content = ReadContent(base, path, reading);
    if (!content)
        side.reason = WhyUnread(errno);
    else if (content->refusal != nullptr)
        side.reason = QLatin1String(content->refusal);
    else if (Sha256Of(content->bytes) != compared.digest)
        side.reason = QStringLiteral("it changed after the comparison");
    else
        side.bytes = std::move(content->bytes);
    return side;
}

// diff would need much memory for its lines.
bool IsLarge(const Side& side) {
    constexpr qsizetype largestText = 1 << 20;
    return side.bytes.size() > largestText;
}

bool IsBinary(const Side& side) {
    return side.bytes.contains('\0');
}

QString SizeAndDigest(const Side& side) {
    if (!side.exists)
        return QStringLiteral("none");
    return QStringLiteral("%1 bytes, SHA-256 %2")
        .arg(QString::number(side.bytes.size()), QString::fromStdString(Sha256Of(side.bytes)));
}

// A file for diff that no other process can change; as long as the object exists.
class TemporaryFile {
public:
    explicit TemporaryFile(const Side& side) {
        if (!side.exists)
            return;
        m_file = Descriptor(memfd_create("content", MFD_CLOEXEC));
        if (!m_file || WriteAll(m_file.Number(), {side.bytes.constData(),
                                                  static_cast<size_t>(side.bytes.size())}) != 0) {
            m_error = errno;
            return;
        }
        m_path = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(m_file.Number());
    }

    const std::string& Path() const { return m_path; }
    int Error() const { return m_error; }

private:
    Descriptor m_file;
    std::string m_path = "/dev/null";
    int m_error = 0;
};

class TextPrinter {
public:
    TextPrinter(const StagedMachine& staged, int liveTree, std::chrono::seconds longest)
        : m_staged(staged), m_liveTree(liveTree), m_longest(longest) {}

    void Print(const PathDifference& difference) const;

private:
    QString PrintDiff(const QString& path, const Side& before, const Side& after) const;

    const StagedMachine& m_staged;
    const int m_liveTree;
    const Descriptor m_root = Descriptor(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    const std::chrono::seconds m_longest;
};

// Returns why there is none; empty when it was printed.
QString TextPrinter::PrintDiff(const QString& path, const Side& before, const Side& after) const {
    const TemporaryFile old(before);
    const TemporaryFile now(after);
    if (const int error = old.Error() != 0 ? old.Error() : now.Error())
        return WhyUnread(error);
    const auto label = [&](const Side& side) {
        return side.exists ? path.toStdString() : std::string("/dev/null");
    };
    constexpr int filesDiffer = 1;
    const ToolOutput diff = ReadTool({"diff", "--text", "--unified", "--label", label(before),
                                      "--label", label(after), old.Path(), now.Path()},
                                     m_longest, filesDiffer);
    if (diff.failure)
        return QStringLiteral("diff failed: ") + *diff.failure;
    QStringList lines = QString::fromUtf8(diff.text).split(u'\n');
    // What follows the last newline: nothing, or the beginning of a line.
    lines.removeLast();
    for (const QString& line : lines)
        PrintLine(PrintableText(line));
    if (diff.text.size() == longestToolOutput)
        PrintLine(path + QStringLiteral(": the rest is not shown"));
    return {};
}

void TextPrinter::Print(const PathDifference& difference) const {
    const QString path = Printable(QString::fromStdString(difference.path));
    const LayerPath place = PathIn(m_staged, difference.path);
    const bool isInTree = place.base == m_staged.tree.Number();
    const std::string livePath = isInTree ? place.path : difference.path.substr(1);
    // A user sees what that user can read.
    const bool isUser = (m_staged.conditions & AsUser) != 0;
    const Reading reading = isUser ? Reading::AllFiles : Reading::PublicFiles;
    const Side before =
        ReadSide(isInTree ? m_liveTree : m_root.Number(), livePath, reading, difference.before);
    const Side after = ReadSide(place.base, place.path, reading, difference.after);
    QString reason = before.reason.isEmpty() ? after.reason : before.reason;
    const QString kind = IsLarge(before) || IsLarge(after)     ? QStringLiteral(": large file")
                         : IsBinary(before) || IsBinary(after) ? QStringLiteral(": binary file")
                                                               : QString();
    if (reason.isEmpty() && !kind.isEmpty()) {
        PrintLine(path + kind);
        PrintLine(QStringLiteral("  before: ") + SizeAndDigest(before));
        PrintLine(QStringLiteral("  after:  ") + SizeAndDigest(after));
        return;
    }
    if (reason.isEmpty())
        reason = PrintDiff(path, before, after);
    if (!reason.isEmpty())
        PrintLine(path + QStringLiteral(": content not shown: ") + Printable(reason));
}

// True if the content of a file is created, changed or deleted. Of QueueEntries, no content is
// read.
bool ChangesContent(const PathDifference& difference) {
    const State& before = difference.before;
    const State& after = difference.after;
    if (after.kind == State::Kind::File)
        return !after.digest.empty() && before.digest != after.digest;
    return before.kind == State::Kind::File;
}

// They are files of the product, created with their directory.
bool IsNewWebPage(const PathDifference& difference) {
    return difference.entry != nullptr && difference.entry->ownsAllBelow;
}

}  // namespace

void PrintTextDifferences(const StagedMachine& staged, int liveTree, const Differences& differences,
                          std::chrono::seconds longest) {
    const TextPrinter printer(staged, liveTree, longest);
    bool isAny = false;
    for (const PathDifference& difference : differences.paths) {
        if (!ChangesContent(difference) || IsNewWebPage(difference))
            continue;
        isAny = true;
        printer.Print(difference);
    }
    if (!isAny)
        std::printf("No file content changes.\n");
}
