// Compares the integers with GMP, OpenSSL and Python's integers in the same run, in turn. Prints
// the table of docs/performance.md: the time of the mp_ function divided by that of the other
// library.
#include <gmp.h>
#include <openssl/bn.h>

#include <cinttypes>
#include <functional>

#include "Timing.h"
#include "bigint/mp_int.h"

namespace {

using Clock = std::chrono::steady_clock;
using Work = std::function<void()>;

// A number in the form of each library.
struct Number {
    Number() {
        mpz_init(gmp);
        mp_init(&ours);
    }
    ~Number() {
        mpz_clear(gmp);
        mp_clear(&ours);
        BN_free(openssl);
    }
    Number(const Number&) = delete;
    Number& operator=(const Number&) = delete;

    // Sets a random number with its top bit set.
    void Fill(unsigned bits, gmp_randstate_t random) {
        mpz_urandomb(gmp, random, bits);
        mpz_setbit(gmp, bits - 1);
        Spread();
    }

    void Spread() {
        std::vector<unsigned char> bytes(mpz_sizeinbase(gmp, 256));
        mpz_export(bytes.data(), nullptr, 1, 1, 1, 0, gmp);
        const int length = static_cast<int>(bytes.size());
        mp_read_unsigned_bin(&ours, bytes.data(), length);
        BN_bin2bn(bytes.data(), length, openssl);
    }

    mpz_t gmp;
    mp_int ours = {};
    BIGNUM* openssl = BN_new();
};

double MillisecondsOf(const Work& work, int times) {
    const auto start = Clock::now();
    for (int i = 0; i < times; ++i)
        work();
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Returns the number of calls that take about a millisecond.
int TimesFor(const Work& work) {
    int times = 1;
    while (times < (1 << 20) && MillisecondsOf(work, times) < 1)
        times *= 2;
    return times;
}

double RatioOf(const Work& subject, const Work& reference, int rounds = 41) {
    const int times = TimesFor(reference);
    return hx_bench::Compare(
               rounds, [&] { return MillisecondsOf(subject, times); },
               [&] { return MillisecondsOf(reference, times); })
        .ratio;
}

void Row(const std::string& what, const char* reference, double goal, double ratio) {
    if (goal > 0)
        std::printf("| %-44s | %-7s | %5.2f | %5.2f |\n", what.c_str(), reference, goal, ratio);
    else
        std::printf("| %-44s | %-7s | %5s | %5.2f |\n", what.c_str(), reference, "", ratio);
    std::fflush(stdout);
}

void Arithmetic(gmp_randstate_t random) {
    Number a;
    Number b;
    Number wide;
    Number q;
    Number r;
    for (const unsigned bits : {1024U, 2048U, 4096U, 8192U}) {
        const std::string size = ", " + std::to_string(bits) + " bits";
        a.Fill(bits, random);
        b.Fill(bits, random);
        wide.Fill(2 * bits, random);
        Row("mp_mul" + size, "GMP", 1.5,
            RatioOf([&] { mp_mul(&a.ours, &b.ours, &r.ours); },
                    [&] { mpz_mul(r.gmp, a.gmp, b.gmp); }));
        Row("mp_sqr" + size, "GMP", 1.5,
            RatioOf([&] { mp_sqr(&a.ours, &r.ours); }, [&] { mpz_mul(r.gmp, a.gmp, a.gmp); }));
        Row("mp_div" + size + " into twice as many", "GMP", 2,
            RatioOf([&] { mp_div(&wide.ours, &a.ours, &q.ours, &r.ours); },
                    [&] { mpz_tdiv_qr(q.gmp, r.gmp, wide.gmp, a.gmp); }));
    }
}

// Returns the milliseconds that Python measures for one power, or 0 without Python.
double PythonPower(const Number& base, const Number& exponent, const Number& modulus) {
    char* arguments = nullptr;
    gmp_asprintf(&arguments, "0x%Zx, 0x%Zx, 0x%Zx", base.gmp, exponent.gmp, modulus.gmp);
    const std::string command =
        "python3 -c 'import time; n = (" + std::string(arguments) +
        "); t = time.perf_counter(); pow(*n); print((time.perf_counter() - t) * 1e3)' 2>/dev/null";
    std::free(arguments);
    FILE* python = popen(command.c_str(), "r");
    double milliseconds = 0;
    const bool hasTime = python != nullptr && std::fscanf(python, "%lf", &milliseconds) == 1;
    if (python != nullptr)
        pclose(python);
    return hasTime ? milliseconds : 0;
}

void Powers(gmp_randstate_t random) {
    BN_CTX* context = BN_CTX_new();
    Number base;
    Number exponent;
    Number modulus;
    Number r;
    for (const unsigned bits : {1024U, 2048U, 4096U}) {
        const std::string what = "mp_exptmod, " + std::to_string(bits) + " bits";
        exponent.Fill(bits, random);
        modulus.Fill(bits, random);
        mpz_setbit(modulus.gmp, 0);
        modulus.Spread();
        base.Fill(bits - 1, random);
        const Work subject = [&] {
            mp_exptmod(&base.ours, &exponent.ours, &modulus.ours, &r.ours);
        };
        Row(what, "OpenSSL", bits > 1024 ? 2 : 0,
            RatioOf(
                subject,
                [&] {
                    BN_mod_exp(r.openssl, base.openssl, exponent.openssl, modulus.openssl, context);
                },
                bits < 4096 ? 41 : 15));
        if (PythonPower(base, exponent, modulus) > 0)
            Row(what, "Python", 0.25,
                hx_bench::Compare(
                    5, [&] { return MillisecondsOf(subject, 1); },
                    [&] { return PythonPower(base, exponent, modulus); })
                    .ratio);
    }
    BN_CTX_free(context);
}

void Text(gmp_randstate_t random) {
    Number a;
    for (const unsigned digits : {100U, 1000U, 10000U, 100000U, 1000000U}) {
        const std::string size = ", " + std::to_string(digits) + " digits";
        const double goal = digits <= 10000 ? 3 : 0;
        const int rounds = digits <= 10000 ? 41 : 5;
        mpz_ui_pow_ui(a.gmp, 10, digits);
        mpz_urandomm(a.gmp, random, a.gmp);
        a.Spread();
        std::vector<char> text(digits + 8);
        Row("mp_toradix" + size, "GMP", goal,
            RatioOf([&] { mp_toradix(&a.ours, text.data(), 10); },
                    [&] { mpz_get_str(text.data(), 10, a.gmp); }, rounds));
        Row("mp_read_radix" + size, "GMP", goal,
            RatioOf([&] { mp_read_radix(&a.ours, text.data(), 10); },
                    [&] { mpz_set_str(a.gmp, text.data(), 10); }, rounds));
    }
}

// Measures the growth of the time with ten times as many digits; for a quadratic method it is 100.
void Growth(gmp_randstate_t random) {
    Number small;
    Number large;
    mpz_ui_pow_ui(small.gmp, 10, 100000);
    mpz_urandomm(small.gmp, random, small.gmp);
    small.Spread();
    mpz_ui_pow_ui(large.gmp, 10, 1000000);
    mpz_urandomm(large.gmp, random, large.gmp);
    large.Spread();
    std::vector<char> text(1000008);
    Number r;
    const auto growth = [](const Work& ten, const Work& one) {
        return hx_bench::Compare(
                   5, [&] { return MillisecondsOf(ten, 1); },
                   [&] { return MillisecondsOf(one, 10) / 10; })
            .ratio;
    };
    Row("mp_toradix, 10^6 digits", "10^5", 0,
        growth([&] { mp_toradix(&large.ours, text.data(), 10); },
               [&] { mp_toradix(&small.ours, text.data(), 10); }));
    Row("mp_sqr, 10^6 digits", "10^5", 0,
        growth([&] { mp_sqr(&large.ours, &r.ours); }, [&] { mp_sqr(&small.ours, &r.ours); }));
}

}  // namespace

int main() {
    gmp_randstate_t random;
    gmp_randinit_default(random);
    gmp_randseed_ui(random, 20250116);
    std::printf("| %-44s | %-7s | %5s | %5s |\n", "Operation", "against", "goal", "ratio");
    std::printf("| -------------------------------------------- | ------- | ----- | ----- |\n");
    Arithmetic(random);
    Powers(random);
    Text(random);
    Growth(random);
    gmp_randclear(random);
}
