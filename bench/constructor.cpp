// Constructs a setup run and ends; timed by start_up.
#include "setuprun/CInstallBase.h"

int main(int argc, char** argv) {
    const CInstallBase run(true, argc, argv);
    return run.m_ramMB > 0 ? 0 : 1;
}
