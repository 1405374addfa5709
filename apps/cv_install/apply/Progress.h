// Shows the output of the commit script with a title before each section.
#pragma once

#include <QByteArray>
#include <cstddef>

// Recognizes a section by the lines with which the script begins it; a section that prints nothing
// has no title. Messages of tools, which can come before these lines, wait for them, so that they
// appear below the title.
class Progress {
public:
    // Without titles the output is shown as it is.
    explicit Progress(bool titles) : m_titles(titles) {}

    // Writes to stdout what the script printed, except the closing lines. An unfinished line waits
    // for its end.
    void Show(const QByteArray& output);

    // Writes what waits.
    void Finish();

    // The lines that report success, once the script has ended. The setup is not complete then.
    const QByteArray& ClosingLines() const { return m_closing; }

private:
    void ShowLine(const QByteArray& line);
    bool BeginsSection(const QByteArray& line);
    void WriteWaiting();

    bool m_titles;
    size_t m_next = 0;         // the first section that has not begun
    const char* m_title = "";  // of the present section
    bool m_isBetween = false;  // an empty line has ended the present section
    QByteArray m_waiting;      // lines between sections
    QByteArray m_unfinished;
    QByteArray m_closing;
};
