#include "Progress.h"

#include <QFile>
#include <cstdio>
#include <limits>
#include <string>

namespace {

struct Landmark {
    const char* line;  // how the section's first line begins
    const char* title;
};

// In the script's order; a section that is not in the script is passed over.
constexpr Landmark landmarks[] = {
    {"# Only create CORVSRVC_GROUP", "Service account"},
    {"${ECHO_CMD} \"Adding/Removing users", "Members of the service group"},
    {"CORV_INSTALL_DIR=", "Directories"},
    {"if [ ! -d \"${CORV_INSTALL_DIR}/corvanerc/corvane26server/resources\" ]",
     "Pages and icons of the compute service"},
    {"# Write the Corvane'26 run script", "Run script"},
    {"MAKE_LINK=", "Command link"},
    {"${SED_CMD} -e \"s|%CORV_ROOT%|${CORV_BINARIES_DIR}|g\" \\\n           -e "
     "\"s|%CORV_CORVANERC%|${CORV_INSTALL_DIR}|g\" \\\n    ",
     "Snapshot script"},
    {"MAKE_LINK=", "Command link of the snapshot script"},
    {"${CHOWN_CMD} ", "Owner of the tree"},
    {"# Write the QueueEntries", "Queue files"},
    {"# Remove the Corvane Compute Service", "Services of earlier versions"},
    {"# Write the Corvane Compute Service Script", "Compute service"},
};

// Where bash stands in the script that it reads, or -1.
long long OffsetOf(pid_t bash) {
    const std::string path = "/proc/" + std::to_string(bash) + "/fdinfo/255";
    FILE* file = std::fopen(path.c_str(), "r");
    if (file == nullptr)
        return -1;
    long long offset = -1;
    if (std::fscanf(file, "pos: %lld", &offset) != 1)
        offset = -1;
    std::fclose(file);
    return offset;
}

}  // namespace

Progress::Progress(const QString& scriptPath) {
    QFile file(scriptPath);
    if (!file.open(QIODevice::ReadOnly))
        return;
    const QByteArray script = file.readAll();
    qsizetype from = 0;
    for (const Landmark& landmark : landmarks) {
        const qsizetype found = script.indexOf(QByteArray("\n") + landmark.line, from);
        if (found == -1)
            continue;
        m_sections.push_back({found + 1, landmark.title});
        from = found + 1;
    }
}

void Progress::Tell(pid_t bash) {
    TellUpTo(OffsetOf(bash));
}

void Progress::TellRest() {
    TellUpTo(std::numeric_limits<long long>::max());
}

void Progress::TellUpTo(long long offset) {
    for (; m_told < m_sections.size() && m_sections[m_told].offset < offset; ++m_told)
        std::printf("==> %s\n", m_sections[m_told].title);
    std::fflush(stdout);
}
