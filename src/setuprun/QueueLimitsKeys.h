// The lines of a QueueLimits file in its key form.
#pragma once

#include <QByteArray>
#include <array>
#include <string>

#include "setuprun/CInstallBase.h"
#include "setuprun/CQueueLimits.h"

namespace hx {

// One line, "key: value". Its value is a number or a text: the other field pointers are null.
struct QueueLimitsLine {
    const char* key;  // compared without regard to case
    int CQueueLimits::*number;
    std::string CQueueLimits::*text;
    int CInstallBase::*answeredNumber;
    QString CInstallBase::*answeredText;
    bool (*isCommitted)(const CInstallBase&);  // whether the commit script writes the line

    // Returns the value of this setup as UTF-8.
    QByteArray Answer(const CInstallBase& run) const {
        return answeredText == nullptr ? QByteArray::number(run.*answeredNumber)
                                       : (run.*answeredText).toUtf8();
    }
};

inline bool IsAlwaysCommitted(const CInstallBase& /*run*/) {
    return true;
}

// Threads per molecule of the previous setup have no meaning with another job limit.
inline bool AreThreadsPerMoleculeCommitted(const CInstallBase& run) {
    return run.m_prevJobLimit == run.m_jobLimit && run.m_threadsPerMolecule > 0;
}

// All lines, in the order in which they are written. A reader accepts any order.
inline constexpr std::array queueLimitsLines = {
    QueueLimitsLine{"MaxThreads", &CQueueLimits::MaxThreads, nullptr, &CInstallBase::m_jobLimit,
                    nullptr, IsAlwaysCommitted},
    QueueLimitsLine{"MemoryPerThreadMB", &CQueueLimits::MemoryPerThreadMB, nullptr,
                    &CInstallBase::m_memoryLimitMB, nullptr, IsAlwaysCommitted},
    QueueLimitsLine{"Scratch", nullptr, &CQueueLimits::Scratch, nullptr,
                    &CInstallBase::m_scratchDir, IsAlwaysCommitted},
    QueueLimitsLine{"DiskPerThreadGB", &CQueueLimits::DiskPerThreadGB, nullptr,
                    &CInstallBase::m_scratchLimitGB, nullptr, IsAlwaysCommitted},
    QueueLimitsLine{"ThreadsPerMolecule", &CQueueLimits::ThreadsPerMolecule, nullptr,
                    &CInstallBase::m_threadsPerMolecule, nullptr, AreThreadsPerMoleculeCommitted},
};

}  // namespace hx
