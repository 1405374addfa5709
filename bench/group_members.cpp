// Compares the lists of users to add to and remove from a large service group with two ordered sets
// of the same names.
#include <set>

#include "Timing.h"
#include "setuprun/CInstallBase.h"

namespace {

constexpr int Names = 20000;
constexpr int Rounds = 41;

// Half of the names of one list are in the other one. A step without a common factor with the
// number of names shuffles them.
QStringList ShuffledNames(int first) {
    constexpr int Step = 7919;
    QStringList names;
    for (int i = 0; i < Names; ++i)
        names.append(QStringLiteral("user%1").arg(first + (i * Step) % Names));
    return names;
}

// Returns the milliseconds of `work`, which returns a number other than 0 as proof of its work.
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
