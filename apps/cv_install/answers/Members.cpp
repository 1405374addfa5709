#include "answers/Members.h"

#include "answers/AnswerTable.h"

namespace {

QStringList NamesOnlyIn(const QStringList& names, const QStringList& others) {
    QStringList only;
    for (const QString& name : names) {
        if (!others.contains(name))
            only.append(name);
    }
    return only;
}

}  // namespace

void FindPresentMembers(CInstallBase& run) {
    run.m_serviceCurrentMembers.clear();
    run.DiscoverServiceUserGroup(run.m_serviceUser.toUtf8().constData(),
                                 run.m_serviceGroup.toUtf8().constData());
}

MemberChanges FindMemberChanges(CInstallBase& run) {
    QStringList& wanted = run.m_serviceMembers;
    if (wanted == QStringList(QLatin1String(noMembers)))
        wanted.clear();
    wanted.removeDuplicates();
    return {.joining = NamesOnlyIn(wanted, run.m_serviceCurrentMembers),
            .leaving = NamesOnlyIn(run.m_serviceCurrentMembers, wanted)};
}

void HideMembersFromScript(CInstallBase& run) {
    // The library's rule keeps equal lists only if no name is in them twice.
    run.m_serviceCurrentMembers.removeDuplicates();
    run.m_serviceMembers = run.m_serviceCurrentMembers;
}
