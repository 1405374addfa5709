// Command lines of cv_install with a QueueLimits file. The library applies what the program
// accepts, and values that the guard accepts are safe.
//
// An input is one word for each line, then "====" and the file.
#include <functional>

#include "ExitStatus.h"
#include "answers/Arguments.h"
#include "fuzz/Expect.h"
#include "fuzz/RunEnd.h"
#include "fuzz/SetupRun.h"

namespace {

constexpr int Unusable = static_cast<int>(ExitStatus::UnusableArguments);

// A word such as --queue=slurm becomes two words of the library.
void ExpectPassedOn(Arguments& arguments, const hx_fuzz::Words& words) {
    HX_EXPECT(arguments.argc() >= 1 && arguments.argc() <= 2 * words.argc());
    HX_EXPECT(arguments.argv()[arguments.argc()] == nullptr);
}

void ExpectApplied(const CInstallBase& run) {
    HX_EXPECT(run.m_queueType >= CInstallBase::QueueUnset);
    HX_EXPECT(run.m_queueType <= CInstallBase::QueueNone);
    HX_EXPECT(run.m_scheduler == u"TORQUE" || run.m_scheduler == u"SLURM");
    HX_EXPECT(run.m_interactive != run.m_clusterNode);
    HX_EXPECT(run.m_coreCount >= 1 && run.m_ramMB >= 1);
}

// `answers` returns those that are not options of the library.
void Apply(int argc, char** argv, const std::string& queueLimits,
           const std::function<Answers(const CInstallBase&)>& answers) {
    const int status = hx_fuzz::RunOver(argc, argv, queueLimits, [&](CInstallBase& run) {
        ApplyAnswers(answers(run), run);
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
        Apply(arguments.argc(), arguments.argv(), sections[1],
              [&](const CInstallBase& run) { return arguments.AnswersIn(run); });
    });
    HX_EXPECT(status == -1 || status == Unusable);
    // Other programs pass their arguments to the library unchanged.
    if (status == Unusable)
        Apply(words.argc(), words.argv(), sections[1],
              [](const CInstallBase&) { return Answers(); });
    return 0;
}
