// Loads Qt Core; the reference of start_up.cpp.
#include <QtGlobal>

int main() {
    return qVersion()[0] == '6' ? 0 : 1;
}
