#include "apply/Progress.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string_view>
#include <utility>

namespace {

struct Section {
    const char* line;  // how its first line begins
    const char* title;
};

// In the script's order. Lines are in the script's own spelling.
constexpr Section sections[] = {
    {"Corvane Service Group created", "Service account"},
    {"Error, unable to create Corvane service group", "Service account"},
    {"Corvane Service User created", "Service account"},
    {"Error, unable to create Corvane service user", "Service account"},
    {"Adding/Removing users", "Service group members"},
    {"Created directory ", "Directories"},
    {"Error, creating directory ", "Directories"},
    {"resources/", "Web pages"},
    {"Error, unpacking resources", "Web pages"},
    {"icons/", "Web pages"},
    {"Error, unpacking icons", "Web pages"},
    {"Wrote Corvane'26 run script", "Run script"},
    {"Error, writing Corvane'26 run script", "Run script"},
    {"Wrote Corvane'26 snapshot run script", "Snapshot script"},
    {"Error, writing Corvane'26 snapshot run script", "Snapshot script"},
    {"Wrote Corvane'26 service script", "Compute service"},
    {"Error, writing Corvane'26 service script", "Compute service"},
};

// How lines begin in which the script reports a mode that it sets: they belong to the section
// before them.
constexpr const char* modeLines[] = {"Updating ", "/"};

constexpr const char* closingLine = "Corvane'26 Installation script completed successfully!";

void Write(const QByteArray& text) {
    std::fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stdout);
}

}  // namespace

void Progress::Show(const QByteArray& output) {
    m_unfinished += output;
    for (qsizetype end; (end = m_unfinished.indexOf('\n')) != -1;) {
        ShowLine(m_unfinished.left(end + 1));
        m_unfinished.remove(0, end + 1);
    }
    std::fflush(stdout);
}

void Progress::Finish() {
    WriteWaiting();
    Write(std::exchange(m_unfinished, {}));
    std::fflush(stdout);
}

void Progress::ShowLine(const QByteArray& line) {
    if (!m_closing.isEmpty() || line.startsWith(closingLine)) {
        m_closing += line;
        return;
    }
    if (!m_titles) {
        Write(line);
        return;
    }
    if (BeginsSection(line)) {
        WriteWaiting();
        m_isBetween = false;
    }
    if (m_isBetween &&
        !std::ranges::any_of(modeLines, [&](const char* begin) { return line.startsWith(begin); }))
        m_waiting += line;
    else
        Write(line);
    if (line == "\n")
        m_isBetween = true;
}

// Also true for a line of the present section, which may follow an empty line.
bool Progress::BeginsSection(const QByteArray& line) {
    for (size_t i = 0; i < std::size(sections); ++i) {
        const std::string_view title = sections[i].title;
        if (!line.startsWith(sections[i].line) || (i < m_next && title != m_title))
            continue;
        if (title != m_title)
            std::printf("==> %s\n", sections[i].title);
        m_title = sections[i].title;
        // Sections of the same title follow each other.
        for (m_next = i + 1; m_next < std::size(sections) && title == sections[m_next].title;)
            ++m_next;
        return true;
    }
    return false;
}

void Progress::WriteWaiting() {
    Write(std::exchange(m_waiting, {}));
}
