// Who enters and leaves a service group of many names, against putting the same names into two
// ordered sets.
#include <set>

#include "Timing.h"
#include "setuprun/CInstallBase.h"

namespace {

constexpr int Names = 20000;
constexpr int Rounds = 41;

// Every second name of one list stands in the other one, too. A step that shares no factor with the
// number of names spreads them.
QStringList ShuffledNames(int first) {
    constexpr int Step = 7919;
    QStringList names;
    for (int i = 0; i < Names; ++i)
        names.append(QStringLiteral("user%1").arg(first + (i * Step) % Names));
    return names;
}

// Milliseconds of `work`, which returns a number that must not be 0: it did something.
template <typename Work>
double TimeOfWork(Work work) {
    const auto start = std::chrono::steady_clock::now();
    const auto result = work();
    const auto end = std::chrono::steady_clock::now();
    if (result == 0) {
        std::fprintf(stderr, "nothing was computed\n");
        std::exit(1);
    }
    return std::chrono::duration<double, std::milli>(end - start).count();
}

}  // namespace

int main(int argc, char** argv) {
    CInstallBase run(true, argc, argv);
    run.m_serviceMembers = ShuffledNames(0);
    run.m_serviceCurrentMembers = ShuffledNames(Names / 2);
    const hx_bench::Comparison times = hx_bench::Compare(
        Rounds,
        [&] {
            return TimeOfWork([&] {
                return run.AddServiceGroupUsers().size() * run.RemoveServiceGroupUsers().size();
            });
        },
        [&] {
            return TimeOfWork([&] {
                const std::set<QString> wanted(run.m_serviceMembers.begin(),
                                               run.m_serviceMembers.end());
                const std::set<QString> present(run.m_serviceCurrentMembers.begin(),
                                                run.m_serviceCurrentMembers.end());
                return wanted.size() + present.size();
            });
        });
    std::printf(
        "members in and out, %d wanted and %d present / two ordered sets: %.2f "
        "(%.1f ms / %.1f ms, medians of %d)\n",
        Names, Names, times.ratio, times.subject, times.reference, Rounds);
}
