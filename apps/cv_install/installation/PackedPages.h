// The web pages as the product's archives contain them.
#pragma once

#include <QByteArray>
#include <map>
#include <string>
#include <vector>

#include "Problem.h"
#include "installation/Installation.h"
#include "setuprun/CInstallBase.h"

// Whether this setup wrote the pages, which decides the remedy.
enum class Written { Now, Before };

// Reads the archives before a setup changes anything, because libarchive can end the process when
// it lacks memory. Keeps the pages in memory: only the whole text shows whether a shorter page is
// truncated or edited.
class PackedPages {
public:
    // Reads the archives of a setup that meets `conditions`. Check reports a failure.
    void Read(const CInstallBase& run, unsigned conditions);
    void Read(const QString& productDir, unsigned conditions);

    // Checks a directory of web pages below the install directory `tree`. Edited pages pass;
    // missing and truncated ones do not. Follows no links in the tree. The status of a failure is
    // Incomplete.
    Failure Check(const CInstallBase& run, const Entry& entry, int tree, Written written) const;

    struct Page {
        std::string path;  // relative to the install directory
        QByteArray text;
    };

    // The pages of a directory, as far as its archive could be read.
    const std::vector<Page>& PagesOf(const Entry& entry) const {
        return m_archives.at(&entry).pages;
    }

private:
    struct Archive {
        std::vector<Page> pages;
        Failure failure;
    };

    std::map<const Entry*, Archive> m_archives;
};
