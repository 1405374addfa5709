#include "probes/ProcessWaits.h"

#include <dlfcn.h>

#include <QProcess>

namespace hx_test {

std::vector<int>& ProcessWaits() {
    static std::vector<int> waits;
    return waits;
}

}  // namespace hx_test

// The library calls this definition, because a program comes before its libraries in symbol lookup.
bool QProcess::waitForFinished(int msecs) {
    hx_test::ProcessWaits().push_back(msecs);
    using Function = bool (*)(QProcess*, int);
    static const auto inQt =
        reinterpret_cast<Function>(dlsym(RTLD_NEXT, "_ZN8QProcess15waitForFinishedEi"));
    return inQt(this, msecs > 10000 ? 1000 : msecs);
}
