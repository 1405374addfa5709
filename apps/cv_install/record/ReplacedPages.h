// Web pages of which a newer product has another version.
#pragma once

#include <QMap>
#include <QString>

#include "installation/PackedPages.h"
#include "record/Manifest.h"

// The pages of a directory as the previous setup installed them: SHA-256 by path below the install
// directory. Empty if the product still has the same ones.
using FormerPages = QMap<QString, QString>;

// Returns the former pages of all directories of which the product, `packed`, has others. Without
// a manifest, edited pages cannot be recognized.
FormerPages FindReplacedPages(const std::optional<Manifest>& previous, const PackedPages& packed,
                              unsigned conditions);

// True if the product has other pages for this directory.
bool IsReplaced(const Entry& directory, const FormerPages& former);

// The name of a page that is being written, in its directory.
inline constexpr const char* unfinishedPage = ".corvane26_page";

// Writes the new pages into the install directory. Replaces pages that are as the previous
// setup installed them, and removes those that the product no longer has. Other files at these
// paths are kept under a dated name, which is reported. For setups in place, before their script.
Failure ReplacePages(const QString& installDir, const FormerPages& former,
                     const PackedPages& packed, unsigned conditions);
