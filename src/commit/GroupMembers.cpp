// Works out who enters and who leaves the service group.
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
    const QSet<QString> present(m_serviceCurrentMembers.begin(), m_serviceCurrentMembers.end());
    QString joining;
    for (const QString& name : m_serviceMembers) {
        if (!present.contains(name))
            AppendName(joining, name);
    }
    return joining;
}

// Kept: the rule is not the mirror image of the one above. A name's place among the wanted ones, or
// their number when it is not wanted, is held against the number of present names: fewer wanted
// names than present ones remove nobody, and a wanted name that stands too far behind is removed.
QString CInstallBase::RemoveServiceGroupUsers() {
    QHash<QString, qsizetype> places;
    for (qsizetype place = m_serviceMembers.size() - 1; place >= 0; --place)
        places.insert(m_serviceMembers[place], place);
    QString leaving;
    for (const QString& name : m_serviceCurrentMembers) {
        if (places.value(name, m_serviceMembers.size()) >= m_serviceCurrentMembers.size())
            AppendName(leaving, name);
    }
    return leaving;
}
