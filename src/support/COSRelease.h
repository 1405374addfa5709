// The operating system's release, as its os-release file tells it.
#pragma once

#include <QString>

#include "support/hx_export.h"

// Read once, in the constructor, from /etc/os-release or, where that cannot be opened, from
// /usr/lib/os-release. Without either the name is "Linux" and both questions answer no.
class HX_EXPORT COSRelease {
public:
    // Takes the executable's own arguments, which do not matter today.
    COSRelease(int argc, char** argv);

    // The distribution's name without a version (the NAME field), such as "Debian GNU/Linux".
    QString Name() const { return m_name; }

    // True for Red Hat, Fedora, SUSE and their children, by the ID and ID_LIKE fields.
    bool RpmBased() const { return m_rpmBased; }

    // True for Debian, Ubuntu and their children, by the same fields.
    bool DebBased() const { return m_debBased; }

private:
    QString m_name;
    bool m_rpmBased = false;
    bool m_debBased = false;
};
