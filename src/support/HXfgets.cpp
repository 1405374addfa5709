#include "support/HXfgets.h"

#include <cstdio>

char* HXfgets(char* buffer, int size, FILE* stream) {
    if (size < 1)
        return nullptr;
    if (std::fgets(buffer, size, stream) == nullptr) {
        buffer[0] = '\0';
        return nullptr;
    }
    return buffer;
}
