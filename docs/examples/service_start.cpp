// Starts a service and prints whether it is running.
#include <QString>
#include <cstdio>

#include "services/CSystemdService.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s SERVICE\n", argv[0]);
        return 2;
    }
    const QString name = QString::fromUtf8(argv[1]);

    CSystemdService starter;
    if (starter.Start(name) == 127) {
        std::fprintf(stderr, "There is no systemctl on this machine.\n");
        return 127;
    }
    // Start does not wait, and any other result has no meaning. Keep this object until systemctl
    // has ended, and ask another object for the result.
    starter.waitForFinished(-1);

    CSystemdService asker;
    const bool runs = asker.Status(name) == 0;
    std::printf("%s %s\n", argv[1], runs ? "runs" : "does not run");
    return runs ? 0 : 1;
}
