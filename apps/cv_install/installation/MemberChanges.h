// How a setup changes the members of the service group.
#pragma once

#include <QStringList>

struct MemberChanges {
    QStringList joining;
    QStringList leaving;
};
