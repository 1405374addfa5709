#include "report/Report.h"

#include <QStringList>
#include <algorithm>
#include <map>

#include "report/OwnerNames.h"

namespace {

// Lines after a label in a column of its own. Long ones are wrapped after commas.
class Group {
public:
    explicit Group(const char* label) : m_label(label) {}

    void Add(const QString& text) {
        constexpr qsizetype width = 64;
        QString line;
        for (const QString& part : Printable(text).split(QStringLiteral(", "))) {
            const bool isFirst = line.isEmpty();
            if (!isFirst && line.size() + part.size() + 3 > width) {
                Print(line + u',');
                line = QStringLiteral("  ") + part;
            } else {
                line += isFirst ? part : QStringLiteral(", ") + part;
            }
        }
        Print(line);
    }

    // Adds the verb and all names, if there are any.
    void AddList(const QString& verb, const QStringList& names) {
        if (!names.isEmpty())
            Add(verb + u' ' + names.join(QStringLiteral(", ")));
    }

private:
    void Print(const QString& line) {
        std::printf("  %-12s %s\n", m_label, qUtf8Printable(line));
        m_label = "";
    }

    const char* m_label;
};

QString OfBytes(const std::string& text) {
    return QString::fromStdString(text);
}

QString OldAndNew(const QString& before, const QString& after) {
    return before + QStringLiteral(" -> ") + after;
}

QString OctalMode(mode_t mode) {
    return QStringLiteral("%1").arg(mode, 4, 8, QLatin1Char('0'));
}

QString NameOfKind(State::Kind kind) {
    switch (kind) {
        case State::Kind::File:
            return QStringLiteral("file");
        case State::Kind::Directory:
            return QStringLiteral("directory");
        case State::Kind::Link:
            return QStringLiteral("link");
        default:
            return QStringLiteral("special file");
    }
}

class Printer {
public:
    Printer(const StagedMachine& staged, const Differences& differences)
        : m_staged(staged), m_differences(differences), m_names(differences.accounts) {}

    void PrintValues() const;
    void PrintAccounts() const;
    void PrintPaths(const char* label, State::Kind kind) const;
    void PrintServices() const;

private:
    QString NameOf(const PathDifference& difference) const;
    QString CreatedName(const PathDifference& difference) const;
    QString WhatDiffers(const PathDifference& difference) const;

    const StagedMachine& m_staged;
    const Differences& m_differences;
    const OwnerNames m_names;
};

void Printer::PrintValues() const {
    qsizetype width = 0;
    for (const auto& [label, value] : m_staged.values)
        width = std::max(width, label.size());
    if (width > 0)
        std::printf("Values in use:\n");
    for (const auto& [label, value] : m_staged.values) {
        const QString field = (Printable(label) + u':').leftJustified(width + 1);
        std::printf("  %s %s\n", qUtf8Printable(field), qUtf8Printable(Printable(value)));
    }
}

void Printer::PrintAccounts() const {
    Group accounts("Accounts");
    for (const AccountDifference& account : m_differences.accounts) {
        if (account.isGroup) {
            accounts.Add(QStringLiteral("create group %1 (GID %2)")
                             .arg(OfBytes(account.name), QString::number(account.gid)));
        } else {
            accounts.Add(QStringLiteral("create user %1 (UID %2, shell %3)")
                             .arg(OfBytes(account.name), QString::number(account.uid),
                                  OfBytes(account.shell)));
        }
    }
    std::map<std::string, QStringList> joining;
    std::map<std::string, QStringList> leaving;
    for (const MemberDifference& member : m_differences.members) {
        auto& changed = member.change == Change::Delete ? leaving : joining;
        changed[member.group].append(OfBytes(member.user));
    }
    Group members("Members");
    for (const auto& [group, names] : joining)
        members.AddList(QStringLiteral("add to %1:").arg(OfBytes(group)), names);
    for (const auto& [group, names] : leaving)
        members.AddList(QStringLiteral("remove from %1:").arg(OfBytes(group)), names);
}

// True for what is below a directory of web pages, and for that directory.
bool IsWebPage(const PathDifference& difference) {
    return difference.entry != nullptr && difference.entry->ownsAllBelow;
}

State::Kind ShownKind(const PathDifference& difference) {
    if (IsWebPage(difference))
        return State::Kind::File;
    const State& state = difference.change == Change::Delete ? difference.before : difference.after;
    return state.kind == State::Kind::Special ? State::Kind::File : state.kind;
}

QString Printer::NameOf(const PathDifference& difference) const {
    const QString path = OfBytes(difference.path);
    const QString inside = m_staged.installDir + u'/';
    return path.startsWith(inside) ? path.mid(inside.size()) : path;
}

// With the target of a link in the tree, because other users may have chosen it.
QString Printer::CreatedName(const PathDifference& difference) const {
    const bool isShort = difference.after.kind != State::Kind::Link ||
                         (difference.entry != nullptr && !IsInTree(*difference.entry));
    return isShort ? NameOf(difference)
                   : OldAndNew(NameOf(difference), OfBytes(difference.after.target));
}

QStringList ContentChanges(const PathDifference& difference) {
    QStringList changes;
    for (const std::string& line : difference.changedLines)
        changes.append(OfBytes(line));
    return changes.isEmpty() ? QStringList(QStringLiteral("content")) : changes;
}

QString Printer::WhatDiffers(const PathDifference& difference) const {
    const State& before = difference.before;
    const State& after = difference.after;
    QStringList all;
    if (before.kind != after.kind)
        all.append(OldAndNew(NameOfKind(before.kind), NameOfKind(after.kind)));
    else if (before.digest != after.digest)
        all.append(ContentChanges(difference));
    else if (before.target != after.target)
        all.append(OldAndNew(OfBytes(before.target), OfBytes(after.target)));
    if (before.kind == after.kind && before.mode != after.mode)
        all.append(QStringLiteral("mode ") +
                   OldAndNew(OctalMode(before.mode), OctalMode(after.mode)));
    if (before.owner != after.owner || before.group != after.group)
        all.append(QStringLiteral("owner ") + OldAndNew(m_names.Both(before.owner, before.group),
                                                        m_names.Both(after.owner, after.group)));
    // A QueueEntries with several hard links goes aside.
    return all.isEmpty() ? QStringLiteral("new file") : all.join(QStringLiteral(", "));
}

QString CountOfPages(int count) {
    return count == 1 ? QStringLiteral("1 web page") : QStringLiteral("%1 web pages").arg(count);
}

void Printer::PrintPaths(const char* label, State::Kind kind) const {
    QStringList created;
    QStringList deleted;
    int createdPages = 0;
    int changedPages = 0;
    for (const PathDifference& difference : m_differences.paths) {
        if (ShownKind(difference) != kind)
            continue;
        if (IsWebPage(difference))
            ++(difference.change == Change::Create ? createdPages : changedPages);
        else if (difference.change == Change::Create)
            created.append(CreatedName(difference));
        else if (difference.change == Change::Delete)
            deleted.append(NameOf(difference));
    }
    Group group(label);
    group.AddList(QStringLiteral("create"), created);
    if (createdPages > 0)
        group.Add(QStringLiteral("create ") + CountOfPages(createdPages));
    if (changedPages > 0)
        group.Add(QStringLiteral("change the owner of ") + CountOfPages(changedPages));
    for (const PathDifference& difference : m_differences.paths) {
        if (ShownKind(difference) == kind && difference.change == Change::Modify &&
            !IsWebPage(difference))
            group.Add(QStringLiteral("change ") + NameOf(difference) + QStringLiteral(": ") +
                      WhatDiffers(difference));
    }
    group.AddList(QStringLiteral("delete"), deleted);
}

void Printer::PrintServices() const {
    Group services("Services");
    for (const ServiceDifference& service : m_differences.services) {
        const char* verb = service.change == Change::Create   ? "start "
                           : service.change == Change::Modify ? "restart "
                                                              : "stop ";
        services.Add(QLatin1String(verb) + OfBytes(service.name));
    }
}

}  // namespace

void PrintReport(const StagedMachine& staged, const Differences& differences) {
    const Printer printer(staged, differences);
    printer.PrintValues();
    if (differences.IsEmpty()) {
        std::printf("No changes.\n");
        return;
    }
    std::printf("Changes (relative paths are in %s):\n",
                qUtf8Printable(Printable(staged.installDir)));
    printer.PrintAccounts();
    printer.PrintPaths("Directories", State::Kind::Directory);
    printer.PrintPaths("Files", State::Kind::File);
    printer.PrintPaths("Links", State::Kind::Link);
    printer.PrintServices();
}
