// The functions that compute, in one table, so that a property can be tested for all of them.
#pragma once

#include <iosfwd>
#include <span>
#include <string>
#include <vector>

#include "bigint/mp_int.h"

namespace hx_test {

// What a function is called with: its record operands, its record results, its digit, bits or
// small exponent, and the place for a digit that it returns.
struct Arguments {
    std::vector<const mp_int*> operands;
    std::vector<mp_int*> results;
    unsigned extra = 0;
    mp_digit* digit = nullptr;
};

enum class Extra { None, Digit, Exponent, Bits };

// What a function takes, so that random operands make sense.
enum class Domain { Any, Modulus, ModularPower, SmallPower };

struct Operation {
    const char* name;
    size_t operands;
    size_t results;
    Extra extra;
    bool returnsDigit;
    Domain domain;
    int (*call)(const Arguments&);
};

// The name, in gtest's reports.
void PrintTo(const Operation& operation, std::ostream* out);

std::span<const Operation> Operations();
const Operation* FindOperation(const std::string& name);

// Calls the function with records of its own and gives "<code> <result> ..." as reference.py does.
// Fails the running test if an operand changed, or the results did in spite of a failure.
std::string Answer(const Operation& operation, unsigned extra,
                   const std::vector<std::string>& operands);

std::string Do(const std::string& name, const std::vector<std::string>& operands,
               unsigned extra = 0);

// "<function> <extra> <operand> ..."
std::string Question(const Operation& operation, unsigned extra,
                     const std::vector<std::string>& operands);

}  // namespace hx_test
