// Writes the two Q-Chem files, in the directory that the run script exports as CORV_QCHEMRC.
#include <unistd.h>

#include <cstdio>

#include "generated/FileWriter.h"
#include "setuprun/CInstallBase.h"
#include "setuprun/Require.h"

namespace {

constexpr hx::RunTimeFile qchemrc = {"/qchemrc/qchemrc", 0644, hx::qchemFailures};
constexpr hx::RunTimeFile qcscratch = {"/qchemrc/qcscratch", 0644, hx::qchemFailures};

// The writer of the first file creates the directory. An existing one is not changed.
void EnsureDirectory(const CInstallBase& run) {
    const QString path = run.m_installDir + QStringLiteral("/qchemrc");
    if (access(path.toUtf8().constData(), F_OK) != 0)
        hx::MakeDirectory(path, "Unable to create \"");
}

// Replaces backslashes first: those before the quotes must not be doubled.
QByteArray Escaped(QString text) {
    text.replace(u'\\', QStringLiteral("\\\\"));
    text.replace(u'"', QStringLiteral("\\\""));
    return text.toUtf8();
}

}  // namespace

int CInstallBase::WriteQChemRC() {
    EnsureDirectory(*this);
    hx::WriteRunTimeFile(*this, qchemrc, [this](FILE* file) {
        // Compatibility: gigabytes in the first line, megabytes in the second.
        std::fprintf(file,
                     R"($rem
AO2MO_DISK %8d
MEM_TOTAL  %8d
$end
)",
                     m_scratchLimitGB, m_memoryLimitMB);
    });
    hx::Report(*this,
               [this] { std::printf("  Scratch limit per job: %d GB\n", m_scratchLimitGB); });
    hx::Report(*this, [this] { std::printf("  Memory limit per job: %d MB\n", m_memoryLimitMB); });
    return 1;
}

int CInstallBase::WriteQCScratch() {
    EnsureDirectory(*this);
    hx::WriteRunTimeFile(*this, qcscratch, [this](FILE* file) {
        std::fputs(Escaped(m_scratchDir).constData(), file);
    });
    hx::Report(*this, [this] {
        std::printf("  Scratch storage directory: %s\n", qUtf8Printable(m_scratchDir));
    });
    return 1;
}
