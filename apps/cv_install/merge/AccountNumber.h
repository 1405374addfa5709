// Numbers of users and groups in text.
#pragma once

#include <sys/types.h>

#include <charconv>
#include <string>

// False if `text` is anything but a number.
inline bool ParseNumber(const std::string& text, id_t& number) {
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end;
}
