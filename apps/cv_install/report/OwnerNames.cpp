#include "report/OwnerNames.h"

#include <grp.h>

#include "installation/Owners.h"

OwnerNames::OwnerNames(const std::vector<AccountDifference>& created) {
    for (const AccountDifference& account : created) {
        const QString name = QString::fromStdString(account.name);
        if (account.isGroup)
            m_groups.emplace(account.gid, name);
        else
            m_users.emplace(account.uid, name);
    }
}

QString OwnerNames::User(uid_t uid) const {
    if (const auto found = m_users.find(uid); found != m_users.end())
        return found->second;
    return UserName(uid);
}

QString OwnerNames::Group(gid_t gid) const {
    if (const auto found = m_groups.find(gid); found != m_groups.end())
        return found->second;
    const group* owner = getgrgid(gid);
    return owner != nullptr ? QString::fromUtf8(owner->gr_name) : QString::number(gid);
}

QString OwnerNames::Both(uid_t uid, gid_t gid) const {
    return User(uid) + u':' + Group(gid);
}
