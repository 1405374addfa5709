#include "fuzz/Integer.h"

#include "fuzz/Expect.h"

namespace hx_fuzz {
namespace {

constexpr int LeastFirst = -1;
constexpr int Native = 0;

}  // namespace

Integer::Integer(const mpz_class& value) {
    const size_t digits = (mpz_sizeinbase(value.get_mpz_t(), 2) + 15) / 16;
    HX_EXPECT(mp_init_size(&m_record, static_cast<uint32_t>(digits)) == MP_SUCCESS);
    // Nothing is exported for 0, which is the new record's value.
    mpz_export(m_record.dp, nullptr, LeastFirst, sizeof(mp_digit), Native, 0, value.get_mpz_t());
    m_record.used = static_cast<uint32_t>(digits);
    m_record.sign = value < 0 ? 1 : 0;
}

mpz_class ValueOf(const mp_int& record) {
    HX_EXPECT(record.used >= 1 && record.used <= record.alloc && record.sign <= 1);
    HX_EXPECT(record.dp[record.used - 1] != 0 || (record.used == 1 && record.sign == 0));
    mpz_class value;
    mpz_import(value.get_mpz_t(), record.used, LeastFirst, sizeof(mp_digit), Native, 0, record.dp);
    return record.sign != 0 ? mpz_class(-value) : value;
}

}  // namespace hx_fuzz
