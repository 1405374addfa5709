// Loads the library and ends; timed by start_up.
#include "setuprun/CInstallBase.h"

int main() {
    return g_hx_gui_installer;
}
