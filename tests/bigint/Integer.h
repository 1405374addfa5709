// A record that is filled and read digit by digit, without the functions under test.
#pragma once

#include <cstdint>
#include <string>

#include "bigint/mp_int.h"

namespace hx_test {

class Integer {
public:
    // Takes the value in hexadecimal with an optional sign. Without a size, allocates only the
    // digits of the value, so that any growth shows.
    explicit Integer(const std::string& hex = "0", uint32_t alloc = 0);
    ~Integer() { mp_clear(&m_mp); }
    Integer(const Integer&) = delete;
    Integer& operator=(const Integer&) = delete;

    operator mp_int*() { return &m_mp; }
    operator const mp_int*() const { return &m_mp; }
    mp_int* operator->() { return &m_mp; }
    const mp_int* operator->() const { return &m_mp; }

private:
    mp_int m_mp = {};
};

// Returns the value in lower case with a sign for negative values. Fails the running test if the
// record breaks a rule of the representation.
std::string Hex(const mp_int* mp);

}  // namespace hx_test
