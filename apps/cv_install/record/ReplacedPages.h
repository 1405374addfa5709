// Web pages of which a newer product has another version, and missing ones.
#pragma once

#include <QMap>
#include <QString>

#include "installation/PackedPages.h"
#include "record/Manifest.h"

// The directories that a setup unpacks again, and their pages as the previous setup installed them:
// SHA-256 by path below the install directory; empty for a directory.
using FormerPages = QMap<QString, QString>;

// Returns the former pages of all directories of which the product, `packed`, has others. Where the
// previous manifest lists no pages, such as after a removal, these are the directories of the
// install directory `tree` in which a page is missing. `tree` is -1 if it does not exist.
FormerPages FindReplacedPages(const std::optional<Manifest>& previous, const PackedPages& packed,
                              unsigned conditions, int tree);

// SHA-256.
QString DigestOfPage(const QByteArray& text);

// True if the setup unpacks this directory again.
bool IsReplaced(const Entry& directory, const FormerPages& former);

// The name of a page that is being written, in its directory.
inline constexpr const char* unfinishedPage = ".corvane26_page";

// Writes the new pages into the install directory. Replaces pages that are as the previous
// setup installed them, and removes those that the product no longer has. Other files at these
// paths are kept under a dated name, which is reported. For setups in place, before their script.
Failure ReplacePages(const QString& installDir, const FormerPages& former,
                     const PackedPages& packed, unsigned conditions);
