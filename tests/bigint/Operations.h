// The functions that compute, in one table, so that a test can check a property of all of them.
#pragma once

#include <deque>
#include <iosfwd>
#include <span>
#include <string>
#include <vector>

#include "bigint/Integer.h"

namespace hx_test {

// The arguments of a call: operands, results, the digit, bits or exponent, and where a returned
// digit is stored.
struct Arguments {
    std::vector<const mp_int*> operands;
    std::vector<mp_int*> results;
    unsigned extra = 0;
    mp_digit* digit = nullptr;
};

enum class Extra { None, Digit, Exponent, Bits };

// Restricts random operands to suitable ones.
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

// Prints the name in gtest's reports.
void PrintTo(const Operation& operation, std::ostream* out);

std::span<const Operation> Operations();
const Operation& FindOperation(const std::string& name);
// The operations that store records.
std::vector<Operation> OperationsWithResults();

// Names parameterized tests.
inline constexpr auto operationName = [](const auto& test) { return std::string(test.param.name); };

// A call with records of its own.
struct Call {
    static constexpr mp_digit digitBefore = 0xbeef;

    // Result records have exactly the digits of `before`, so that any growth shows.
    Call(const Operation& called, unsigned extra, const std::vector<std::string>& values,
         const std::string& before);
    int Run() const { return operation.call(arguments); }

    const Operation& operation;
    std::deque<Integer> operands;
    std::deque<Integer> results;
    mp_digit digit = digitBefore;
    Arguments arguments;
};

// The size to which the library rounds a record that grows to `used` digits.
uint32_t RoundedSize(uint32_t used);

// Calls the function and returns "<code> <result> ..." like reference.py. Fails the running test if
// an operand changes, if a failing call changes a result, or if a result has an unexpected size.
std::string Answer(const Operation& operation, unsigned extra,
                   const std::vector<std::string>& operands);

std::string Do(const std::string& name, const std::vector<std::string>& operands,
               unsigned extra = 0);

// "<function> <extra> <operand> ..."
std::string Question(const Operation& operation, unsigned extra,
                     const std::vector<std::string>& operands);

}  // namespace hx_test
