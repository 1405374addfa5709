#include "WriteAll.h"

#include <unistd.h>

#include <cerrno>

int WriteAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t length = write(descriptor, text.data(), text.size());
        if (length < 0 && errno != EINTR)
            return errno;
        text.remove_prefix(length < 0 ? 0 : static_cast<size_t>(length));
    }
    return 0;
}
