// Conversion between the integers and those of GMP, which compute the expected results.
#pragma once

#include <gmpxx.h>

#include "bigint/mp_int.h"

namespace hx_fuzz {

class Integer {
public:
    explicit Integer(const mpz_class& value);
    ~Integer() { mp_clear(&m_record); }
    Integer(const Integer&) = delete;
    Integer& operator=(const Integer&) = delete;

    mp_int* get() { return &m_record; }

private:
    mp_int m_record = {};
};

// Returns the value of a record. Expects the record to follow the rules of its header.
mpz_class ValueOf(const mp_int& record);

}  // namespace hx_fuzz
