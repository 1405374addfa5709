// Runs the constructor of a setup; measured by start_up.cpp.
#include "setuprun/CInstallBase.h"

int main(int argc, char** argv) {
    const CInstallBase run(true, argc, argv);
    return run.m_ramMB > 0 ? 0 : 1;
}
