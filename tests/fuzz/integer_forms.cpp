// Compares texts and bytes of integers with conversions digit by digit.
//
// An input consists of a byte for the radix and the text. All its bytes are also read as a number.
#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "fuzz/Expect.h"
#include "fuzz/Integer.h"

namespace {

using hx_fuzz::Integer;
using hx_fuzz::ValueOf;

constexpr std::string_view Alphabet =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz+/";

// Returns the value of a digit, or -1.
int DigitValue(char character, int radix) {
    if (radix < 37 && character >= 'a' && character <= 'z')
        character = static_cast<char>(character - 'a' + 'A');
    const size_t value = Alphabet.substr(0, static_cast<size_t>(radix)).find(character);
    return value == std::string_view::npos ? -1 : static_cast<int>(value);
}

mpz_class Read(const char* text, int radix) {
    while (*text != '\0' && *text != '+' && *text != '-' && DigitValue(*text, radix) < 0)
        ++text;
    const bool negative = *text == '-';
    if (*text == '+' || *text == '-')
        ++text;
    mpz_class value;
    for (; *text != '\0' && DigitValue(*text, radix) >= 0; ++text)
        value = value * radix + DigitValue(*text, radix);
    return negative ? mpz_class(-value) : value;
}

std::string Written(mpz_class value, int radix) {
    const bool negative = value < 0;
    std::string reversed;
    do {
        const unsigned long digit =
            mpz_tdiv_q_ui(value.get_mpz_t(), value.get_mpz_t(), static_cast<unsigned long>(radix));
        reversed += Alphabet[digit];
    } while (value != 0);
    if (negative)
        reversed += '-';
    return {reversed.rbegin(), reversed.rend()};
}

int Bits(const mpz_class& value) {
    return value == 0 ? 0 : static_cast<int>(mpz_sizeinbase(value.get_mpz_t(), 2));
}

// Returns memory of exactly `bytes` bytes, so that sanitizers detect a write after its end.
template <typename Byte>
std::unique_ptr<Byte[]> Exactly(int bytes) {
    return std::make_unique<Byte[]>(static_cast<size_t>(bytes));
}

void ExpectWritten(const mp_int* number, const mpz_class& value, int radix) {
    const auto text = Exactly<char>(Bits(value) + 2 + (value < 0 ? 1 : 0));
    HX_EXPECT(mp_toradix(number, text.get(), radix) == MP_SUCCESS);
    HX_EXPECT(text.get() == Written(value, radix));
    const double estimate = Bits(value) / std::log2(radix) + (value < 0 ? 2 : 1);
    HX_EXPECT(std::abs(mp_radix_size(number, radix) - estimate) < 1.01);
}

void TryText(const std::string& text, int radix) {
    Integer number(7);
    const int code = mp_read_radix(number.get(), text.c_str(), radix);
    if (radix < 2 || radix > 64) {
        HX_EXPECT(code == MP_INVALID_PARAMETER && ValueOf(*number.get()) == 7);
        char unused = 'x';
        HX_EXPECT(mp_toradix(number.get(), &unused, radix) == MP_OUT_OF_RANGE && unused == 'x');
        return;
    }
    const mpz_class value = Read(text.c_str(), radix);
    HX_EXPECT(code == MP_SUCCESS && ValueOf(*number.get()) == value);
    ExpectWritten(number.get(), value, radix);
}

mpz_class Magnitude(const unsigned char* bytes, size_t length) {
    mpz_class value;
    for (size_t i = 0; i < length; ++i)
        value = value * 256 + bytes[i];
    return value;
}

void ExpectBytes(const mp_int* number, const mpz_class& value) {
    const int size = Bits(value) == 0 ? 1 : (Bits(value) + 7) / 8;
    HX_EXPECT(mp_count_bits(number) == Bits(value));
    HX_EXPECT(mp_unsigned_bin_size(number) == size && mp_signed_bin_size(number) == size + 1);
    const auto bytes = Exactly<unsigned char>(size);
    HX_EXPECT(mp_to_unsigned_bin(number, bytes.get()) == MP_SUCCESS);
    HX_EXPECT(Magnitude(bytes.get(), static_cast<size_t>(size)) == abs(value));
    const auto withSign = Exactly<unsigned char>(size + 1);
    HX_EXPECT(mp_to_signed_bin(number, withSign.get()) == MP_SUCCESS);
    HX_EXPECT(withSign[0] == (value < 0 ? 1 : 0));
    HX_EXPECT(Magnitude(withSign.get() + 1, static_cast<size_t>(size)) == abs(value));
}

void TryBytes(const unsigned char* bytes, size_t length) {
    Integer number(7);
    const auto count = static_cast<int>(length);
    HX_EXPECT(mp_read_unsigned_bin(number.get(), bytes, count) == MP_SUCCESS);
    HX_EXPECT(ValueOf(*number.get()) == Magnitude(bytes, length));
    ExpectBytes(number.get(), Magnitude(bytes, length));
    HX_EXPECT(mp_read_signed_bin(number.get(), bytes, count) == MP_SUCCESS);
    const mpz_class rest = Magnitude(bytes + 1, length - 1);
    const mpz_class value = bytes[0] != 0 ? mpz_class(-rest) : rest;
    HX_EXPECT(ValueOf(*number.get()) == value);
    ExpectBytes(number.get(), value);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    if (size == 0)
        return 0;
    // Includes unsupported radixes: 0, 1 and above 64.
    TryText(std::string(data + 1, data + size), data[0] % 70);
    TryBytes(data, size);
    return 0;
}
