// Determines which users to add to and remove from the service group.
#include <QHash>
#include <QSet>

#include "setuprun/CInstallBase.h"

namespace {

void AppendName(QString& names, const QString& name) {
    if (!names.isEmpty())
        names += u' ';
    names += name;
}

}  // namespace

QString CInstallBase::AddServiceGroupUsers() {
    const QSet<QString> current(m_serviceCurrentMembers.begin(), m_serviceCurrentMembers.end());
    QString joining;
    for (const QString& name : m_serviceMembers) {
        if (!current.contains(name))
            AppendName(joining, name);
    }
    return joining;
}

// Compatibility: earlier versions compare the first index of a name among the wanted names, or
// their count if it is not wanted, with the number of current members. So fewer wanted names than
// current members remove none, and a wanted name with a high index is removed.
QString CInstallBase::RemoveServiceGroupUsers() {
    QHash<QString, qsizetype> indexes;
    for (qsizetype index = m_serviceMembers.size() - 1; index >= 0; --index)
        indexes.insert(m_serviceMembers[index], index);
    QString leaving;
    for (const QString& name : m_serviceCurrentMembers) {
        if (indexes.value(name, m_serviceMembers.size()) >= m_serviceCurrentMembers.size())
            AppendName(leaving, name);
    }
    return leaving;
}
