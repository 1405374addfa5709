// Every operation on integers, and the check of its results with GMP.
#pragma once

#include <gmpxx.h>

#include <array>
#include <span>

#include "bigint/mp_int.h"

namespace hx_fuzz {

struct Values {
    mpz_class a;
    mpz_class b;
    mpz_class m;
    mp_digit digit;
};

struct Records {
    const mp_int* a;
    const mp_int* b;
    const mp_int* m;
    mp_digit digit;
    std::array<mp_int*, 3> result;
    mp_digit rest;
};

using Results = std::array<mpz_class, 3>;

struct Operation {
    int (*run)(Records& r);
    // Returns whether the results are correct; `rest` is the returned digit.
    bool (*isCorrect)(const Values& v, const Results& r, mp_digit rest);
    int (*code)(const Values& v) = [](const Values&) -> int { return MP_SUCCESS; };
};

std::span<const Operation> Operations();

}  // namespace hx_fuzz
