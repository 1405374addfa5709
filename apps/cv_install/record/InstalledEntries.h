// What a setup installed, as it is on the machine afterwards.
#pragma once

#include <set>

#include "installation/Installation.h"
#include "installation/PackedPages.h"
#include "record/Manifest.h"
#include "record/ReplacedPages.h"

// What a setup is about to install.
struct InstalledSetup {
    QString installDir;
    QString productDir;
    unsigned conditions = 0;  // see Installation.h
    QString serviceUser;      // in a setup as root
    QString serviceGroup;
    FormerPages formerPages = {};         // that the setup replaces
    const PackedPages* packed = nullptr;  // if they have been read
};

class InstalledEntries {
public:
    // Before the setup changes anything. `previous` is the manifest of the previous setup.
    InstalledEntries(InstalledSetup setup, std::optional<Manifest> previous);
    InstalledEntries(const InstalledEntries&) = delete;
    InstalledEntries& operator=(const InstalledEntries&) = delete;

    // After the setup. Adds everything except the facts, the answers and the digests. Of web pages
    // that the setup kept, `manifest` gets what the previous one has. Contents are read under the
    // rules of Reading.
    Failure Read(Manifest& manifest) const;

private:
    struct Base {
        Descriptor top;
        Descriptor tree;
    };

    Failure OpenBase(Base& base, Manifest& manifest) const;
    Failure AddRow(const Entry& entry, const Base& base, Manifest& manifest) const;
    Failure AddPages(const Entry& entry, const Base& base, Manifest& manifest) const;
    Failure AddInTree(const std::string& path, Reading reading, bool isOfSetup, const Base& base,
                      Manifest& manifest) const;
    Failure AddOutside(const Entry& entry, Manifest& manifest) const;
    bool TakeKeptPages(const Entry& entry, const Base& base, Manifest& manifest) const;

    bool IsRoots() const { return (m_setup.conditions & AsRoot) != 0; }

    InstalledSetup m_setup;
    std::optional<Manifest> m_previous;
    std::set<const Entry*> m_keptPages;
    PackedPages m_readPages;
    const PackedPages* m_packed;
};

// True for a row that a manifest lists: not for logs, locks and what setups remove.
bool IsListed(const Entry& entry);

// True if a command of a scheduler can be executed. Its caller searches for a name without a
// directory.
bool IsExecutable(const QString& command);
