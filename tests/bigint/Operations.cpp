#include "bigint/Operations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <ostream>

namespace hx_test {

namespace {

using A = const Arguments&;

mp_digit Digit(A a) {
    return static_cast<mp_digit>(a.extra);
}

// Wrappers for each number of operands and results.
template <int (*Function)(const mp_int*)>
int Ask1(A a) {
    return Function(a.operands[0]);
}
template <int (*Function)(const mp_int*, const mp_int*)>
int Ask2(A a) {
    return Function(a.operands[0], a.operands[1]);
}
template <int (*Function)(const mp_int*, mp_int*)>
int Call1(A a) {
    return Function(a.operands[0], a.results[0]);
}
template <int (*Function)(const mp_int*, const mp_int*, mp_int*)>
int Call2(A a) {
    return Function(a.operands[0], a.operands[1], a.results[0]);
}
template <int (*Function)(const mp_int*, const mp_int*, const mp_int*, mp_int*)>
int Call3(A a) {
    return Function(a.operands[0], a.operands[1], a.operands[2], a.results[0]);
}
template <int (*Function)(const mp_int*, mp_digit, mp_int*)>
int CallDigit(A a) {
    return Function(a.operands[0], Digit(a), a.results[0]);
}

int DivideDigit(A a) {
    return mp_div_d(a.operands[0], Digit(a), a.results[0], a.digit);
}

constexpr Operation table[] = {
    {"mp_copy", 1, 1, Extra::None, false, Domain::Any, Call1<mp_copy>},
    {"mp_abs", 1, 1, Extra::None, false, Domain::Any, Call1<mp_abs>},
    {"mp_neg", 1, 1, Extra::None, false, Domain::Any, Call1<mp_neg>},
    {"mp_add", 2, 1, Extra::None, false, Domain::Any, Call2<mp_add>},
    {"mp_sub", 2, 1, Extra::None, false, Domain::Any, Call2<mp_sub>},
    {"mp_mul", 2, 1, Extra::None, false, Domain::Any, Call2<mp_mul>},
    {"mp_sqr", 1, 1, Extra::None, false, Domain::Any, Call1<mp_sqr>},
    {"mp_div", 2, 2, Extra::None, false, Domain::Any,
     [](A a) { return mp_div(a.operands[0], a.operands[1], a.results[0], a.results[1]); }},
    {"mp_mod", 2, 1, Extra::None, false, Domain::Modulus, Call2<mp_mod>},
    {"mp_expt", 2, 1, Extra::None, false, Domain::SmallPower, Call2<mp_expt>},
    {"mp_sqrt", 1, 1, Extra::None, false, Domain::Any, Call1<mp_sqrt>},
    {"mp_add_d", 1, 1, Extra::Digit, false, Domain::Any, CallDigit<mp_add_d>},
    {"mp_sub_d", 1, 1, Extra::Digit, false, Domain::Any, CallDigit<mp_sub_d>},
    {"mp_mul_d", 1, 1, Extra::Digit, false, Domain::Any, CallDigit<mp_mul_d>},
    {"mp_expt_d", 1, 1, Extra::Exponent, false, Domain::SmallPower, CallDigit<mp_expt_d>},
    {"mp_div_d", 1, 1, Extra::Digit, true, Domain::Any, DivideDigit},
    {"mp_mod_d", 1, 0, Extra::Digit, true, Domain::Any,
     [](A a) { return mp_mod_d(a.operands[0], Digit(a), a.digit); }},
    {"mp_mul_2", 1, 1, Extra::None, false, Domain::Any, Call1<mp_mul_2>},
    {"mp_div_2", 1, 1, Extra::None, false, Domain::Any, Call1<mp_div_2>},
    {"mp_mul_2d", 1, 1, Extra::Bits, false, Domain::Any,
     [](A a) { return mp_mul_2d(a.operands[0], a.extra, a.results[0]); }},
    {"mp_div_2d", 1, 2, Extra::Bits, false, Domain::Any,
     [](A a) { return mp_div_2d(a.operands[0], a.extra, a.results[0], a.results[1]); }},
    {"mp_2expt", 0, 1, Extra::Bits, false, Domain::Any,
     [](A a) { return mp_2expt(a.extra, a.results[0]); }},
    {"mp_addmod", 3, 1, Extra::None, false, Domain::Modulus, Call3<mp_addmod>},
    {"mp_submod", 3, 1, Extra::None, false, Domain::Modulus, Call3<mp_submod>},
    {"mp_mulmod", 3, 1, Extra::None, false, Domain::Modulus, Call3<mp_mulmod>},
    {"mp_sqrmod", 2, 1, Extra::None, false, Domain::Modulus, Call2<mp_sqrmod>},
    {"mp_exptmod", 3, 1, Extra::None, false, Domain::ModularPower, Call3<mp_exptmod>},
    {"mp_exptmod_d", 2, 1, Extra::Digit, false, Domain::Modulus,
     [](A a) { return mp_exptmod_d(a.operands[0], Digit(a), a.operands[1], a.results[0]); }},
    {"mp_invmod", 2, 1, Extra::None, false, Domain::Modulus, Call2<mp_invmod>},
    {"mp_gcd", 2, 1, Extra::None, false, Domain::Any, Call2<mp_gcd>},
    {"mp_lcm", 2, 1, Extra::None, false, Domain::Any, Call2<mp_lcm>},
    {"mp_xgcd", 2, 3, Extra::None, false, Domain::Any,
     [](A a) {
         return mp_xgcd(a.operands[0], a.operands[1], a.results[0], a.results[1], a.results[2]);
     }},
    {"mp_cmp_z", 1, 0, Extra::None, false, Domain::Any, Ask1<mp_cmp_z>},
    {"mp_cmp_d", 1, 0, Extra::Digit, false, Domain::Any,
     [](A a) { return mp_cmp_d(a.operands[0], Digit(a)); }},
    {"mp_cmp", 2, 0, Extra::None, false, Domain::Any, Ask2<mp_cmp>},
    {"mp_cmp_mag", 2, 0, Extra::None, false, Domain::Any, Ask2<mp_cmp_mag>},
    {"mp_isodd", 1, 0, Extra::None, false, Domain::Any, Ask1<mp_isodd>},
    {"mp_iseven", 1, 0, Extra::None, false, Domain::Any, Ask1<mp_iseven>},
    {"mp_count_bits", 1, 0, Extra::None, false, Domain::Any, Ask1<mp_count_bits>},
    {"mp_unsigned_bin_size", 1, 0, Extra::None, false, Domain::Any, Ask1<mp_unsigned_bin_size>},
    {"mp_signed_bin_size", 1, 0, Extra::None, false, Domain::Any, Ask1<mp_signed_bin_size>},
};

// Checks a * x + b * y = g, since the cofactors are not unique.
void ExpectCofactors(const Call& call) {
    Integer left;
    Integer right;
    mp_mul(call.operands[0], call.results[1], left);
    mp_mul(call.operands[1], call.results[2], right);
    mp_add(left, right, left);
    EXPECT_EQ(Hex(left), Hex(call.results[0]))
        << "a x + b y, for x = " << Hex(call.results[1]) << " and y = " << Hex(call.results[2]);
}

std::string HexDigit(mp_digit digit) {
    char hex[8];
    std::snprintf(hex, sizeof hex, "%x", static_cast<unsigned>(digit));
    return hex;
}

}  // namespace

void PrintTo(const Operation& operation, std::ostream* out) {
    *out << operation.name;
}

std::span<const Operation> Operations() {
    return table;
}

const Operation& FindOperation(const std::string& name) {
    return *std::find_if(std::begin(table), std::end(table),
                         [&](const Operation& o) { return name == o.name; });
}

std::vector<Operation> OperationsWithResults() {
    std::vector<Operation> found;
    std::copy_if(std::begin(table), std::end(table), std::back_inserter(found),
                 [](const Operation& o) { return o.results > 0; });
    return found;
}

Call::Call(const Operation& called, unsigned extra, const std::vector<std::string>& values,
           const std::string& before)
    : operation(called) {
    for (const std::string& value : values)
        arguments.operands.push_back(operands.emplace_back(value));
    for (size_t i = 0; i < called.results; ++i)
        arguments.results.push_back(results.emplace_back(before));
    arguments.extra = extra;
    arguments.digit = &digit;
}

uint32_t RoundedSize(uint32_t used) {
    const uint32_t precision = mp_get_prec();
    return (used + precision - 1) / precision * precision;
}

std::string Answer(const Operation& operation, unsigned extra,
                   const std::vector<std::string>& operands) {
    const std::string before = "-badcafe123456789";
    const uint32_t size = 4;
    const Call call(operation, extra, operands, before);
    const int code = call.Run();
    SCOPED_TRACE(operation.name);
    for (size_t i = 0; i < operands.size(); ++i)
        EXPECT_EQ(Hex(call.operands[i]), operands[i]);
    std::string answer = std::to_string(code);
    if (code != MP_SUCCESS) {
        for (const Integer& result : call.results) {
            EXPECT_EQ(Hex(result), before);
            EXPECT_EQ(result->alloc, size);
        }
        EXPECT_EQ(call.digit, Call::digitBefore);
        return answer;
    }
    for (const Integer& result : call.results)
        EXPECT_EQ(result->alloc, result->used > size ? RoundedSize(result->used) : size);
    const bool hasCofactors = std::string("mp_xgcd") == operation.name;
    for (size_t i = 0; i < (hasCofactors ? 1 : operation.results); ++i)
        answer += " " + Hex(call.results[i]);
    if (hasCofactors)
        ExpectCofactors(call);
    if (operation.returnsDigit)
        answer += " " + HexDigit(call.digit);
    return answer;
}

std::string Do(const std::string& name, const std::vector<std::string>& operands, unsigned extra) {
    return Answer(FindOperation(name), extra, operands);
}

std::string Question(const Operation& operation, unsigned extra,
                     const std::vector<std::string>& operands) {
    std::string question = operation.name + (" " + std::to_string(extra));
    for (const std::string& operand : operands)
        question += " " + operand;
    return question;
}

}  // namespace hx_test
