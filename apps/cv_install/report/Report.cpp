#include "report/Report.h"

#include <QStringList>
#include <algorithm>
#include <map>
#include <span>
#include <string_view>

#include "Console.h"
#include "report/OwnerNames.h"

namespace {

// In the order of the counts.
constexpr const char* pathVerbs[] = {"create", "change", "delete"};
constexpr const char* memberVerbs[] = {"add", nullptr, "remove"};
constexpr const char* serviceVerbs[] = {"start", "restart", "stop"};

QString VerbOf(std::span<const char* const> verbs, Change change) {
    return QLatin1String(verbs[static_cast<size_t>(change)]);
}

// Lines below a heading, which is printed before the first of them.
class Group {
public:
    explicit Group(QString heading) : m_heading(std::move(heading)) {}

    void Add(const QString& line) {
        if (!m_heading.isEmpty())
            std::printf("%s:\n", qUtf8Printable(Printable(m_heading)));
        m_heading.clear();
        std::printf("  %s\n", qUtf8Printable(Printable(line)));
    }

private:
    QString m_heading;
};

QString OfBytes(const std::string& text) {
    return QString::fromStdString(text);
}

QString OldAndNew(const QString& before, const QString& after) {
    return before + QStringLiteral(" -> ") + after;
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

QString NameOfKind(Kind kind) {
    return NameOfKind(kind == Kind::Directory ? State::Kind::Directory
                      : kind == Kind::Link    ? State::Kind::Link
                                              : State::Kind::File);
}

QString CountOfPages(size_t count) {
    return count == 1 ? QStringLiteral("1 web page") : QStringLiteral("%1 web pages").arg(count);
}

QStringList ContentChanges(const PathDifference& difference) {
    QStringList changes;
    for (const std::string& line : difference.changedLines)
        changes.append(OfBytes(line));
    return changes.isEmpty() ? QStringList(QStringLiteral("content")) : changes;
}

// Such as "14 to create, 2 to change, 1 to delete."
QString CountsOf(const Differences& differences) {
    std::map<QString, size_t> counts;
    for (const AccountDifference& account : differences.accounts)
        ++counts[VerbOf(pathVerbs, account.change)];
    for (const PathDifference& path : differences.paths)
        ++counts[VerbOf(pathVerbs, path.change)];
    counts[VerbOf(pathVerbs, Change::Modify)] += differences.userChanges.size();
    for (const MemberDifference& member : differences.members)
        ++counts[VerbOf(memberVerbs, member.change)];
    for (const ServiceDifference& service : differences.services)
        ++counts[VerbOf(serviceVerbs, service.change)];
    QStringList shown;
    for (const std::span<const char* const> verbs :
         {std::span(pathVerbs), std::span(memberVerbs), std::span(serviceVerbs)}) {
        for (const char* verb : verbs) {
            if (const size_t count = counts[QLatin1String(verb)])
                shown.append(QStringLiteral("%1 to %2").arg(count).arg(QLatin1String(verb)));
        }
    }
    return shown.join(QStringLiteral(", ")) + u'.';
}

class Printer {
public:
    Printer(const StagedMachine& staged, const Differences& differences)
        : m_staged(staged),
          m_differences(differences),
          m_installDir(staged.installDir.toStdString()),
          m_names(differences.accounts) {
        CountPages();
    }

    void PrintAccounts() const;
    void PrintTree();
    void PrintSystem();
    void PrintServices() const;
    void PrintKept() const;

private:
    // The web pages below the directory of a row that change in the same way.
    using PagesChange = std::pair<const Entry*, QString>;

    void CountPages();
    void AddPath(const PathDifference& difference, Group& group);
    QString NameOf(const std::string& path) const;
    QString OwnerChange(const PathDifference& difference) const;
    QString WhatDiffers(const PathDifference& difference) const;

    bool IsInTree(const std::string& path) const {
        return path == m_installDir || path.starts_with(m_installDir + '/');
    }

    // True for what is below a directory of web pages.
    bool IsWebPage(const PathDifference& difference) const {
        const Entry* entry = difference.entry;
        return entry != nullptr && entry->ownsAllBelow &&
               difference.path != PathOf(*entry, m_installDir);
    }

    const StagedMachine& m_staged;
    const Differences& m_differences;
    const std::string m_installDir;
    const OwnerNames m_names;
    std::map<const Entry*, size_t> m_newPages;
    std::map<PagesChange, size_t> m_changedPages;   // that were not printed yet
    std::map<const Entry*, size_t> m_deletedPages;  // likewise
};

void Printer::CountPages() {
    for (const PathDifference& difference : m_differences.paths) {
        if (!IsWebPage(difference))
            continue;
        if (difference.change == Change::Delete)
            m_deletedPages[difference.entry] +=
                difference.before.kind == State::Kind::Directory ? 0 : 1;
        else if (difference.change == Change::Modify)
            ++m_changedPages[{difference.entry, WhatDiffers(difference)}];
        else if (difference.after.kind == State::Kind::File)
            ++m_newPages[difference.entry];
    }
}

void Printer::PrintAccounts() const {
    Group accounts(QStringLiteral("Accounts"));
    for (const AccountDifference& account : m_differences.accounts) {
        const QString verb = VerbOf(pathVerbs, account.change);
        if (account.isGroup) {
            accounts.Add(QStringLiteral("%1 group %2 (GID %3)")
                             .arg(verb, OfBytes(account.name), QString::number(account.gid)));
        } else {
            accounts.Add(QStringLiteral("%1 user %2 (UID %3, shell %4)")
                             .arg(verb, OfBytes(account.name), QString::number(account.uid),
                                  OfBytes(account.shell)));
        }
    }
    for (const UserChange& change : m_differences.userChanges) {
        accounts.Add(QStringLiteral("change user %1: %2 %3")
                         .arg(OfBytes(change.user), OfBytes(change.attribute),
                              OldAndNew(OfBytes(change.before), OfBytes(change.after))));
    }
    for (const MemberDifference& member : m_differences.members) {
        const QString preposition = QLatin1String(member.change == Change::Delete ? "from" : "to");
        accounts.Add(QStringLiteral("%1 %2 %3 group %4")
                         .arg(VerbOf(memberVerbs, member.change), OfBytes(member.user), preposition,
                              OfBytes(member.group)));
    }
}

// Relative to the heading's directory.
QString Printer::NameOf(const std::string& path) const {
    const std::string inside = m_installDir + '/';
    return OfBytes(path.starts_with(inside) ? path.substr(inside.size()) : path);
}

QString Printer::OwnerChange(const PathDifference& difference) const {
    const State& before = difference.before;
    const State& after = difference.after;
    return QStringLiteral("owner ") + OldAndNew(m_names.Both(before.owner, before.group),
                                                m_names.Both(after.owner, after.group));
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
                   OldAndNew(ModeText(before.mode), ModeText(after.mode)));
    if (before.owner != after.owner || before.group != after.group)
        all.append(OwnerChange(difference));
    // A QueueEntries with several hard links goes aside.
    return all.isEmpty() ? QStringLiteral("new file") : all.join(QStringLiteral(", "));
}

void Printer::AddPath(const PathDifference& difference, Group& group) {
    const QString verb = VerbOf(pathVerbs, difference.change) + u' ';
    const QString name = NameOf(difference.path);
    if (difference.change == Change::Modify && IsWebPage(difference)) {
        const QString change = WhatDiffers(difference);
        auto counted = m_changedPages.extract({difference.entry, change});
        if (!counted.empty())
            group.Add(verb + CountOfPages(counted.mapped()) + QStringLiteral(" in ") +
                      QLatin1String(difference.entry->path) + QStringLiteral(": ") + change);
    } else if (difference.change == Change::Modify) {
        group.Add(verb + name + QStringLiteral(": ") + WhatDiffers(difference));
    } else if (difference.change == Change::Delete && IsWebPage(difference)) {
        auto counted = m_deletedPages.extract(difference.entry);
        if (!counted.empty())
            group.Add(verb + CountOfPages(counted.mapped()) + QStringLiteral(" in ") +
                      QLatin1String(difference.entry->path));
    } else if (difference.change == Change::Delete) {
        group.Add(verb + NameOfKind(difference.before.kind) + u' ' + name);
    } else if (!IsWebPage(difference)) {
        const State& created = difference.after;
        QString line = verb + NameOfKind(created.kind) + u' ' + name;
        if (created.kind == State::Kind::Link)
            line += QStringLiteral(" to ") + OfBytes(created.target);
        if (const auto pages = m_newPages.find(difference.entry); pages != m_newPages.end())
            line += QStringLiteral(" with ") + CountOfPages(pages->second);
        group.Add(line);
    }
}

void Printer::PrintTree() {
    Group tree(QStringLiteral("Tree ") + m_staged.installDir);
    for (const PathDifference& difference : m_differences.paths) {
        if (IsInTree(difference.path))
            AddPath(difference, tree);
    }
}

void Printer::PrintSystem() {
    Group system(QStringLiteral("System"));
    for (const PathDifference& difference : m_differences.paths) {
        if (!IsInTree(difference.path))
            AddPath(difference, system);
    }
}

void Printer::PrintServices() const {
    Group services(QStringLiteral("Services"));
    for (const ServiceDifference& service : m_differences.services)
        services.Add(VerbOf(serviceVerbs, service.change) + u' ' + OfBytes(service.name));
}

void Printer::PrintKept() const {
    const auto& accounts = m_differences.accounts;
    const auto isCreated = [&](bool isGroup) {
        return std::any_of(accounts.begin(), accounts.end(), [=](const AccountDifference& account) {
            return account.isGroup == isGroup;
        });
    };
    Group kept(QStringLiteral("Kept"));
    if ((m_staged.conditions & AsRoot) != 0 && !isCreated(true))
        kept.Add(QStringLiteral("keep group ") + m_staged.serviceGroup);
    if ((m_staged.conditions & AsRoot) != 0 && !isCreated(false))
        kept.Add(QStringLiteral("keep user ") + m_staged.serviceUser);
    for (const Entry* entry : m_differences.kept) {
        kept.Add(QStringLiteral("keep ") + NameOfKind(entry->kind) + u' ' +
                 NameOf(PathOf(*entry, m_installDir)) +
                 QLatin1String(entry->ownsAllBelow ? " with its web pages" : ""));
    }
    const auto& services = m_differences.services;
    const bool isServiceChanged =
        std::any_of(services.begin(), services.end(),
                    [](const ServiceDifference& service) { return service.name == serviceUnit; });
    const QString unit = QLatin1String(serviceUnit);
    for (const QString& service : m_staged.activeServices) {
        if (unit.startsWith(service + u'.') && !isServiceChanged)
            kept.Add(QStringLiteral("keep %1 active").arg(unit));
    }
}

}  // namespace

void PrintValues(const std::vector<std::pair<QString, QString>>& values) {
    qsizetype width = 0;
    for (const auto& [label, value] : values)
        width = std::max(width, label.size());
    Group group(QStringLiteral("Values in use"));
    for (const auto& [label, value] : values)
        group.Add((label + u':').leftJustified(width + 2) + value);
}

void PrintReport(const StagedMachine& staged, const Differences& differences) {
    PrintValues(staged.values);
    Printer printer(staged, differences);
    printer.PrintAccounts();
    printer.PrintTree();
    printer.PrintSystem();
    printer.PrintServices();
    {
        const Console::Printing kept(Console::Importance::Detail);
        printer.PrintKept();
    }
    std::printf("%s\n",
                differences.IsEmpty() ? "No changes." : qUtf8Printable(CountsOf(differences)));
}
