#include "answers/Checks.h"

#include <cerrno>
#include <cstring>

#include "installation/Installation.h"

namespace {

void AddError(Findings& findings, const QString& text, const QString& remedy) {
    findings.errors.push_back({ExitStatus::ChecksFailed, text, remedy, Changes::Unknown});
}

void AddWarning(Findings& findings, const QString& text, const QString& remedy) {
    findings.warnings.push_back({ExitStatus::Complete, text, remedy, Changes::Unknown});
}

void CheckMembersExist(const MachineFacts& facts, Findings& findings) {
    for (const QString& name : facts.unknownMembers) {
        const QString text = QStringLiteral("service group member \"%1\" does not exist").arg(name);
        if (facts.members.joining.contains(name))
            AddError(findings, text,
                     QStringLiteral("Create the user, or run the setup again with other members."));
        else
            AddWarning(
                findings, text,
                QStringLiteral("Run: gpasswd --delete %1 %2.").arg(name, facts.serviceGroup));
    }
}

// gpasswd changes only /etc/group.
void CheckMembersCanChange(const MachineFacts& facts, Findings& findings) {
    if (!facts.group)
        return;
    const MemberChanges& changes = facts.members;
    const std::optional<QStringList>& local = facts.group->localMembers;
    if (!local && !(changes.joining.isEmpty() && changes.leaving.isEmpty())) {
        AddError(
            findings,
            QStringLiteral("cannot change the members of group \"%1\": it is not in /etc/group")
                .arg(facts.serviceGroup),
            QStringLiteral("Change them where the group is defined, and run the setup again "
                           "without a change of members; or specify a different group with "
                           "--service-group."));
    }
    for (const QString& name : changes.leaving) {
        if (local && !local->contains(name)) {
            AddError(findings,
                     QStringLiteral("cannot remove member \"%1\" of group \"%2\": /etc/group does "
                                    "not list it")
                         .arg(name, facts.serviceGroup),
                     QStringLiteral("Remove it where it is defined, then run the setup again."));
        }
    }
}

void CheckServiceAccount(const MachineFacts& facts, Findings& findings) {
    const QString another = QStringLiteral("Specify a different %1 with --service-%1.");
    if (facts.group && facts.group->gid == 0) {
        AddError(findings, QStringLiteral("service group \"%1\" is root's").arg(facts.serviceGroup),
                 another.arg(QStringLiteral("group")));
    }
    if (!facts.user)
        return;
    const MachineFacts::User& user = *facts.user;
    if (user.uid == 0) {
        AddError(findings, QStringLiteral("service user \"%1\" has the UID of root").arg(user.name),
                 another.arg(QStringLiteral("user")));
        return;
    }
    if (user.isNamed)
        return;
    const QString confirm =
        QStringLiteral(
            "Specify a system account with --service-user, or confirm this one with "
            "--service-user %1.")
            .arg(user.name);
    if (user.uid >= facts.firstUserUid) {
        AddError(findings,
                 QStringLiteral("service user \"%1\" is not a system account: its UID is %2")
                     .arg(user.name)
                     .arg(user.uid),
                 confirm);
    }
    if (user.hasPassword)
        AddError(findings, QStringLiteral("service user \"%1\" has a password").arg(user.name),
                 confirm);
}

void CheckShell(const MachineFacts& facts, Findings& findings) {
    if (!facts.scheduler || !facts.user || facts.user->hasShell)
        return;
    AddWarning(findings,
               QStringLiteral("shell \"%1\" of service user \"%2\" does not suit an external queue")
                   .arg(facts.user->shell, facts.user->name),
               QStringLiteral("Run: usermod --shell %1 %2.")
                   .arg(QLatin1String(accountShellForExternalQueue), facts.user->name));
}

void CheckLinks(const MachineFacts& facts, Findings& findings) {
    for (const QString& path : facts.obstacles) {
        AddError(findings, QStringLiteral("\"%1\" is in the way of a symbolic link").arg(path),
                 QStringLiteral("Move it away, then run the setup again."));
    }
}

void CheckTargets(const MachineFacts& facts, Findings& findings) {
    for (const MachineFacts::Target& target : facts.targets) {
        if (target.error != 0) {
            AddError(findings,
                     QStringLiteral("cannot write to directory \"%1\": %2")
                         .arg(target.path, QString::fromUtf8(std::strerror(target.error))),
                     target.error == EROFS
                         ? QStringLiteral(
                               "Remount its file system as writable, then run the setup again.")
                         : QStringLiteral("Make it writable, then run the setup again."));
        } else if (target.free < target.needed) {
            AddError(findings,
                     QStringLiteral("not enough space in directory \"%1\": %2 bytes needed, %3 "
                                    "bytes free")
                         .arg(target.path)
                         .arg(target.needed)
                         .arg(target.free),
                     QStringLiteral("Free up disk space, then run the setup again."));
        }
    }
}

void CheckFiles(const MachineFacts& facts, Findings& findings) {
    for (const MachineFacts::File& file : facts.unusableFiles) {
        AddError(findings,
                 QStringLiteral("cannot use %1 \"%2\": %3")
                     .arg(QLatin1String(file.kind), file.path, file.reason),
                 QLatin1String(file.remedy));
    }
}

void CheckScheduler(const MachineFacts& facts, Findings& findings) {
    if (!facts.scheduler)
        return;
    const MachineFacts::Scheduler& scheduler = *facts.scheduler;
    for (const MachineFacts::Command& command : scheduler.missingCommands) {
        const auto add = command.isNeeded ? AddError : AddWarning;
        add(findings, QStringLiteral("cannot execute command \"%1\"").arg(command.path),
            QStringLiteral("Install the commands of %1, or specify the path with --%2.")
                .arg(scheduler.label, command.name));
    }
    if (scheduler.queue.isEmpty())
        return;
    if (!scheduler.knownQueues) {
        AddWarning(findings,
                   QStringLiteral("cannot check %1 \"%2\" of %3: %4")
                       .arg(scheduler.setting, scheduler.queue, scheduler.label, scheduler.reason),
                   QStringLiteral("Make sure that it exists, or jobs will fail."));
        return;
    }
    for (const QString& name : scheduler.queue.split(u',', Qt::SkipEmptyParts)) {
        if (scheduler.knownQueues->contains(name))
            continue;
        AddError(findings,
                 QStringLiteral("unknown %1 of %2: \"%3\"")
                     .arg(scheduler.setting, scheduler.label, name),
                 scheduler.knownQueues->isEmpty()
                     ? QStringLiteral("Create it, then run the setup again.")
                     : QStringLiteral("Use one of these: %1.")
                           .arg(scheduler.knownQueues->join(QStringLiteral(", "))));
    }
}

void CheckPorts(const MachineFacts& facts, Findings& findings) {
    for (const MachineFacts::TakenPort& taken : facts.takenPorts) {
        AddError(
            findings,
            QStringLiteral("port %1 of the compute service is in use by %2")
                .arg(taken.port)
                .arg(taken.process.isEmpty() ? QStringLiteral("another process") : taken.process),
            QStringLiteral("Stop that process, or specify another port with --%1-port.")
                .arg(taken.protocol));
    }
}

void CheckScratch(const MachineFacts& facts, Findings& findings) {
    constexpr std::uint64_t gigabyte = std::uint64_t{1} << 30U;
    const MachineFacts::Scratch& scratch = facts.scratch;
    if (scratch.isInMemory) {
        AddWarning(findings,
                   QStringLiteral("scratch directory \"%1\" is in memory: its files leave less for "
                                  "jobs")
                       .arg(facts.scratchDirectory),
                   QStringLiteral("Specify another directory with --scratch-directory."));
    }
    if (scratch.size != 0 && scratch.size < scratch.promised) {
        AddWarning(findings,
                   QStringLiteral("the scratch limits add up to %1 GB, but the file system of "
                                  "\"%2\" has %3 GB")
                       .arg(scratch.promised / gigabyte)
                       .arg(facts.scratchDirectory)
                       .arg(scratch.size / gigabyte),
                   QStringLiteral("Specify another directory with --scratch-directory, or a lower "
                                  "limit with --scratch-limit."));
    }
}

constexpr void (*checks[])(const MachineFacts&, Findings&) = {
    CheckMembersExist, CheckMembersCanChange, CheckServiceAccount, CheckShell,
    CheckLinks,        CheckTargets,          CheckFiles,          CheckScheduler,
    CheckPorts,        CheckScratch};

}  // namespace

Findings RunChecks(const MachineFacts& facts) {
    Findings findings;
    for (const auto check : checks)
        check(facts, findings);
    return findings;
}

Failure ReportFindings(const Findings& findings) {
    for (const Problem& warning : findings.warnings)
        ReportWarning(warning);
    if (findings.errors.empty())
        return {};
    if (findings.errors.size() > 1) {
        for (const Problem& error : findings.errors)
            Report(error);
        return Problem{ExitStatus::ChecksFailed,
                       QStringLiteral("%1 checks failed").arg(findings.errors.size()),
                       {}};
    }
    Problem only = findings.errors.front();
    only.changes = Changes::None;
    return only;
}
