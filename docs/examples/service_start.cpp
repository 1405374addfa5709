// Starts the service that is named on the command line, and tells whether it runs.
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
    // Start has not waited, and its result tells nothing more. This object must live until the
    // tool has ended; another one is asked for the outcome.
    starter.waitForFinished(-1);

    CSystemdService asker;
    const bool runs = asker.Status(name) == 0;
    std::printf("%s %s\n", argv[1], runs ? "runs" : "does not run");
    return runs ? 0 : 1;
}
