// Loads Qt Core and ends; the reference of start_up.
#include <QtGlobal>

int main() {
    return qVersion()[0] == '6' ? 0 : 1;
}
