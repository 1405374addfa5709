// Compares one operation on integers with GMP. The input selects operands and result records.
//
// An input consists of the operation, the record of the first result, a digit of two bytes, and
// three operands. An operand consists of its kind, a length and bytes.
#include <algorithm>
#include <array>
#include <string_view>

#include "fuzz/Expect.h"
#include "fuzz/Integer.h"
#include "fuzz/IntegerOperations.h"

namespace {

using hx_fuzz::Integer;
using hx_fuzz::Operation;
using hx_fuzz::Records;
using hx_fuzz::Results;
using hx_fuzz::ValueOf;
using hx_fuzz::Values;

// Splits the input; missing bytes are 0.
class Input {
public:
    Input(const unsigned char* data, size_t size)
        : m_rest(reinterpret_cast<const char*>(data), size) {}

    unsigned Byte() {
        if (m_rest.empty())
            return 0;
        const auto byte = static_cast<unsigned char>(m_rest.front());
        m_rest.remove_prefix(1);
        return byte;
    }

    // Returns the bytes of the input, one repeated byte, or all ones, with either sign.
    mpz_class Operand() {
        const unsigned kind = Byte();
        const size_t length = Byte();
        const auto pattern = static_cast<unsigned char>(kind % 3 == 1 ? Byte() : 0xff);
        mpz_class value;
        if (kind % 3 == 0) {
            const std::string_view bytes = m_rest.substr(0, length);
            m_rest.remove_prefix(bytes.size());
            mpz_import(value.get_mpz_t(), bytes.size(), 1, 1, 0, 0, bytes.data());
        } else {
            for (size_t i = 0; i < length; ++i)
                value = value * 256 + pattern;
        }
        return kind >= 128 ? mpz_class(-value) : value;
    }

private:
    std::string_view m_rest;
};

int Sign(int comparison) {
    return (comparison > 0) - (comparison < 0);
}

void ExpectCompared(const Values& v, const Records& r) {
    HX_EXPECT(mp_cmp(r.a, r.b) == Sign(cmp(v.a, v.b)));
    HX_EXPECT(mp_cmp_mag(r.a, r.b) == Sign(cmp(abs(v.a), abs(v.b))));
    HX_EXPECT(mp_cmp_d(r.a, r.digit) == Sign(cmp(v.a, v.digit)));
    HX_EXPECT(mp_cmp_int(r.a, -static_cast<long>(r.digit)) ==
              Sign(cmp(v.a, -static_cast<long>(v.digit))));
    HX_EXPECT(mp_cmp_z(r.a) == sgn(v.a));
    HX_EXPECT(mp_isodd(r.a) == (mpz_odd_p(v.a.get_mpz_t()) ? MP_YES : MP_NO));
    HX_EXPECT(mp_iseven(r.a) == (mpz_odd_p(v.a.get_mpz_t()) ? MP_NO : MP_YES));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    Input input(data, size);
    const auto operations = hx_fuzz::Operations();
    const Operation& operation = operations[input.Byte() % operations.size()];
    const unsigned place = input.Byte() % 4;
    const unsigned high = input.Byte();
    const auto digit = static_cast<mp_digit>(high * 256 + input.Byte());
    const Values values = {input.Operand(), input.Operand(), input.Operand(), digit};
    Integer a(values.a), b(values.b), m(values.m), first(7), second(8), third(9);
    const std::array places = {first.get(), a.get(), b.get(), m.get()};
    Records records = {a.get(), b.get(), m.get(), digit, {places[place], second.get(), third.get()},
                       0};
    const Results before = {ValueOf(*records.result[0]), 8, 9};

    ExpectCompared(values, records);
    const int code = operation.run(records);
    const Results results = {ValueOf(*records.result[0]), ValueOf(*records.result[1]),
                             ValueOf(*records.result[2])};
    HX_EXPECT(code == operation.code(values));
    if (code == MP_SUCCESS)
        HX_EXPECT(operation.isCorrect(values, results, records.rest));
    else
        HX_EXPECT(results == before);
    return 0;
}
