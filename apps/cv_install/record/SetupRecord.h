// The record that a setup leaves for the next one.
#pragma once

#include <optional>

#include "answers/Answers.h"
#include "record/InstalledEntries.h"
#include "record/RecordDirectory.h"

class SetupRecord {
public:
    explicit SetupRecord(const InstalledSetup& setup)
        : m_setup(setup), m_directory(setup.installDir) {}

    // Writes the new record next to the present one, before the setup changes the machine. Until
    // Place, the present one stays; if Place is not called, the new one is removed. Does nothing
    // for a user without a home directory.
    Failure Prepare(const SetupFacts& facts, const Answers& answers, const QByteArray& script);

    // Replaces the present record, after the setup. The manifest, which lists what is on the
    // machine then, comes last. Does nothing after a failure of Prepare.
    Failure Place();

private:
    InstalledSetup m_setup;
    RecordDirectory m_directory;
    std::optional<InstalledEntries> m_entries;
    Manifest m_manifest;
};

// The text of the recorded answers. A manifest has the same facts and answers.
QByteArray RecordedAnswersText(const SetupFacts& facts, const Answers& answers);

// Reads the manifest of a record that is open. Empty if there is none. Fails with RecordUnusable if
// it is damaged.
Failure ReadManifest(const RecordDirectory& directory, std::optional<Manifest>& manifest);
