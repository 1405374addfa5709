// Command lines of cv_install with a QueueLimits file. The library applies what the program
// accepts, and values that the guard accepts are safe.
//
// An input is one word for each line, then "====" and the file.
#include <algorithm>

#include "ExitStatus.h"
#include "answers/Arguments.h"
#include "fuzz/Expect.h"
#include "fuzz/RunEnd.h"
#include "fuzz/SetupRun.h"

namespace {

constexpr int Unusable = static_cast<int>(ExitStatus::UnusableArguments);

void ExpectPassedOn(Arguments& arguments, hx_fuzz::Words& words) {
    char** end = words.argv() + words.argc();
    HX_EXPECT(arguments.argc() >= 1 && arguments.argc() <= words.argc());
    HX_EXPECT(arguments.argv()[arguments.argc()] == nullptr);
    char** from = words.argv();
    for (int i = 0; i < arguments.argc(); ++i) {
        from = std::find(from, end, arguments.argv()[i]);
        HX_EXPECT(from != end);
    }
}

void ExpectApplied(const CInstallBase& run) {
    HX_EXPECT(run.m_queueType >= CInstallBase::QueueUnset);
    HX_EXPECT(run.m_queueType <= CInstallBase::QueueNone);
    HX_EXPECT(run.m_scheduler == u"TORQUE" || run.m_scheduler == u"SLURM");
    HX_EXPECT(run.m_interactive != run.m_clusterNode);
    HX_EXPECT(run.m_coreCount >= 1 && run.m_ramMB >= 1);
}

void Apply(int argc, char** argv, const std::string& queueLimits) {
    const int status = hx_fuzz::RunOver(argc, argv, queueLimits, [&](const CInstallBase& run) {
        ExpectApplied(run);
        HX_EXPECT(!run.m_userMode || CInstallBase::ParseUserModeArg(argc, argv));
        hx_fuzz::ExpectGuarded(run);
    });
    HX_EXPECT(status == -1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    const auto sections = hx_fuzz::Sections(std::string(data, data + size), 2);
    hx_fuzz::Words words(sections[0]);
    const int status = hx_fuzz::StatusOf([&] {
        Arguments arguments(words.argc(), words.argv());
        ExpectPassedOn(arguments, words);
        Apply(arguments.argc(), arguments.argv(), sections[1]);
    });
    HX_EXPECT(status == -1 || status == Unusable);
    // Other programs pass their arguments to the library unchanged.
    if (status == Unusable)
        Apply(words.argc(), words.argv(), sections[1]);
    return 0;
}
