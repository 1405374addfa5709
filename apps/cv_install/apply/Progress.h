// Shows the output of the commit script with a title before each section.
#pragma once

#include <QByteArray>
#include <cstddef>

// Recognizes a section by the first line that the script prints in it; a section that prints
// nothing has no title.
class Progress {
public:
    // Without titles the output is shown as it is.
    explicit Progress(bool titles) : m_titles(titles) {}

    // Writes to stdout what the script printed. With titles an unfinished line waits for its end.
    void Show(const QByteArray& output);

    // Writes an unfinished last line.
    void Finish();

private:
    void ShowLine(const QByteArray& line);

    bool m_titles;
    size_t m_next = 0;  // the first section that has not begun
    QByteArray m_unfinished;
};
