#include "apply/Progress.h"

#include <cstdio>
#include <iterator>

namespace {

struct Section {
    const char* line;  // how its first line begins
    const char* title;
};

// In the script's order. Lines are in the script's own spelling.
constexpr Section sections[] = {
    {"Corvane Service Group created", "Service account"},
    {"Corvane Service User created", "Service account"},
    {"Adding/Removing users", "Service group members"},
    {"Created directory ", "Directories"},
    {"resources/", "Web pages"},
    {"icons/", "Web pages"},
    {"Wrote Corvane'26 run script", "Run script"},
    {"Wrote Corvane'26 snapshot run script", "Snapshot script"},
    {"Wrote Corvane'26 service script", "Compute service"},
};

void Write(const QByteArray& text) {
    std::fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stdout);
}

}  // namespace

void Progress::Show(const QByteArray& output) {
    if (!m_titles) {
        Write(output);
        std::fflush(stdout);
        return;
    }
    m_unfinished += output;
    for (qsizetype end; (end = m_unfinished.indexOf('\n')) != -1;) {
        ShowLine(m_unfinished.left(end + 1));
        m_unfinished.remove(0, end + 1);
    }
    std::fflush(stdout);
}

void Progress::Finish() {
    Write(m_unfinished);
    m_unfinished.clear();
    std::fflush(stdout);
}

void Progress::ShowLine(const QByteArray& line) {
    for (size_t i = m_next; i < std::size(sections); ++i) {
        if (!line.startsWith(sections[i].line))
            continue;
        std::printf("==> %s\n", sections[i].title);
        // Sections of the same title follow each other.
        const QByteArray title = sections[i].title;
        for (m_next = i + 1; m_next < std::size(sections) && title == sections[m_next].title;)
            ++m_next;
        break;
    }
    Write(line);
}
