// The integers beside those of GMP, which serve as the second way of computing.
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

// The value of a record, which must be one that its header allows.
mpz_class ValueOf(const mp_int& record);

}  // namespace hx_fuzz
