// Loads the library; measured by start_up.cpp.
#include "setuprun/CInstallBase.h"

int main() {
    return g_hx_gui_installer;
}
