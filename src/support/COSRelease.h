// The release of the operating system, from its os-release file.
#pragma once

#include <QString>

#include "support/hx_export.h"

// The constructor reads /etc/os-release or, if that cannot be opened, /usr/lib/os-release. Without
// either, the name is "Linux" and the release is neither RPM-based nor Debian-based.
class HX_EXPORT COSRelease {
public:
    // Ignores the arguments, which are part of the interface.
    COSRelease(int argc, char** argv);

    // Returns the distribution's name without a version (field NAME), such as "Debian GNU/Linux";
    // "Linux" without that field.
    QString Name() const { return m_name; }

    // Returns true for Red Hat, Fedora, SUSE, and their derivatives (fields ID and ID_LIKE).
    bool RpmBased() const { return m_rpmBased; }

    // Returns true for Debian, Ubuntu, and their derivatives (the same fields).
    bool DebBased() const { return m_debBased; }

private:
    QString m_name;
    bool m_rpmBased = false;
    bool m_debBased = false;
};
