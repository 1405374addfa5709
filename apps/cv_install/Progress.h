// Tells which section of the commit script is being run.
#pragma once

#include <sys/types.h>

#include <QString>
#include <vector>

// Follows bash through the script without touching either: while a command runs, bash's file offset
// stands behind it. Where the offset is not to be had nothing is told.
class Progress {
public:
    explicit Progress(const QString& scriptPath);

    // Writes a line for each section that the bash of this process id has come to since the last
    // call.
    void Tell(pid_t bash);

    // Writes the lines that are left, for a script that went to its end.
    void TellRest();

private:
    struct Section {
        qsizetype offset;
        const char* title;
    };
    void TellUpTo(long long offset);

    std::vector<Section> m_sections;
    size_t m_told = 0;
};
