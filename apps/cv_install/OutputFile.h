// Files that options name: for --json and --save-answers.
#pragma once

#include <sys/types.h>

#include <QByteArray>
#include <string>
#include <string_view>

#include "Problem.h"
#include "installation/State.h"

// Reserves standard output for the file "-": from now on, all other output goes to stderr.
void ReserveStandardOutput();

// A file that is replaced by a new one, so that a link or hard link that another user put there
// leads nowhere else. "-" is standard output, and a device or pipe is written to. A link that
// another user made is refused.
class OutputFile {
public:
    OutputFile(std::string path, mode_t mode) : m_path(std::move(path)), m_mode(mode) {}

    // Fails if the file cannot be written later. Changes nothing.
    Failure Open();

    // Returns 0 or errno.
    int Write(std::string_view text);

    // The problem of a file that cannot be written.
    Problem Unwritable(const QString& reason, const QString& remedy) const;

private:
    int OpenExisting();
    int OpenDirectory();

    std::string m_path;
    mode_t m_mode;
    Descriptor m_open;       // standard output, a device, or a pipe
    Descriptor m_directory;  // of any other file
    std::string m_name;      // in m_directory
};

// Opens and writes the file.
Failure WriteOutputFile(const std::string& path, const QByteArray& text, mode_t mode);
