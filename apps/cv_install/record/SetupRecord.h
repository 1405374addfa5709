// The record that a setup leaves for the next one.
#pragma once

#include "answers/Answers.h"
#include "record/RecordDirectory.h"
#include "record/RecordText.h"

class SetupRecord {
public:
    explicit SetupRecord(const QString& installDir) : m_directory(installDir) {}

    // Writes the new record next to the present one, before the setup changes the machine. Until
    // Place, the present one stays; if Place is not called, the new one is removed. Does nothing
    // for a user without a home directory.
    Failure Prepare(const SetupFacts& facts, const Answers& answers, const QByteArray& script);

    // Replaces the present record, after the setup.
    Failure Place() { return m_directory.Replace(); }

private:
    RecordDirectory m_directory;
};
