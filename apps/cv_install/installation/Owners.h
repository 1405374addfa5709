// Names of owners, for messages.
#pragma once

#include <pwd.h>

#include <QString>

// The user's name, or the number of a user without a name.
inline QString UserName(uid_t user) {
    const passwd* found = getpwuid(user);
    return found != nullptr ? QString::fromUtf8(found->pw_name) : QString::number(user);
}
