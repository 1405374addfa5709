// Measures from which length on each method pays, for the numbers in src/bigint/kernel.h: each
// method is tried against the one before it, at the top level of growing lengths.
#include <algorithm>
#include <functional>
#include <random>

#include "Timing.h"

extern "C" {
#include "bigint/kernel.h"
}

namespace {

using Clock = std::chrono::steady_clock;

std::vector<hx_limb> Random(size_t n) {
    static std::mt19937_64 random(1);
    std::vector<hx_limb> limbs(n);
    std::generate(limbs.begin(), limbs.end(), std::ref(random));
    limbs.back() |= static_cast<hx_limb>(1) << 63;
    return limbs;
}

double TimeOf(const std::function<void()>& work) {
    const auto start = Clock::now();
    for (int i = 0; i < 100; ++i)
        work();
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// The median of the method's time over that of the one below it.
double RatioAt(size_t* threshold, size_t n, const std::function<void()>& work) {
    const size_t kept = *threshold;
    const double ratio = hx_bench::Compare(
                             15,
                             [&] {
                                 *threshold = n;
                                 return TimeOf(work);
                             },
                             [&] {
                                 *threshold = n + 1;
                                 return TimeOf(work);
                             })
                             .ratio;
    *threshold = kept;
    return ratio;
}

// Sets the threshold to the first length from which the method wins three times in a row.
void Find(const char* name, size_t* threshold, size_t from, size_t to,
          const std::function<std::function<void()>(size_t)>& workFor) {
    int wins = 0;
    size_t first = to;
    for (size_t n = from; n < to && wins < 3; n += std::max<size_t>(1, n / 16)) {
        wins = RatioAt(threshold, n, workFor(n)) < 1 ? wins + 1 : 0;
        if (wins == 1)
            first = n;
    }
    *threshold = first;
    std::printf("%-18s %zu\n", name, first);
    std::fflush(stdout);
}

std::function<void()> Product(size_t n) {
    return [a = Random(n), b = Random(n), r = std::vector<hx_limb>(2 * n),
            scratch = std::vector<hx_limb>(hx_mul_scratch_bound(n) + 16 * n)]() mutable {
        hx_mul_n(r.data(), a.data(), b.data(), a.size(), scratch.data());
    };
}

std::function<void()> Square(size_t n) {
    return [a = Random(n), r = std::vector<hx_limb>(2 * n),
            scratch = std::vector<hx_limb>(hx_mul_scratch_bound(n) + 16 * n)]() mutable {
        hx_sqr(r.data(), a.data(), a.size(), scratch.data());
    };
}

std::function<void()> Quotient(size_t n) {
    return [a = Random(2 * n), b = Random(n), q = std::vector<hx_limb>(n + 1),
            scratch = std::vector<hx_limb>(hx_div_scratch_bound(2 * n) + 16 * n)]() mutable {
        std::vector<hx_limb>& rest = a;
        hx_div_normal(q.data(), rest.data(), rest.size(), b.data(), b.size(), scratch.data());
        rest.back() |= static_cast<hx_limb>(1) << 62;
    };
}

std::function<void()> Power(size_t n) {
    return [a = Random(n), m = Random(n), r = std::vector<hx_limb>(n),
            scratch = std::vector<hx_limb>(hx_powm_scratch(n))]() mutable {
        const hx_limb exponent = 5;
        a.back() = 0;
        hx_powm(r.data(), a.data(), &exponent, 1, m.data(), m.size(), scratch.data());
    };
}

std::function<void()> Text(size_t n) {
    return [a = Random(n), copy = std::vector<hx_limb>(n), n]() mutable {
        std::vector<unsigned char> digits(hx_text_digits(n, 10));
        std::vector<hx_limb> scratch(hx_to_text_scratch(n, 10) + 1);
        copy = a;
        hx_to_text(digits.data(), copy.data(), n, 10, scratch.data());
    };
}

}  // namespace

int main() {
    hx_karatsuba_mul = hx_karatsuba_sqr = hx_toom3_mul = hx_toom3_sqr = hx_whole_reduction =
        SIZE_MAX;
    hx_recursive_div = SIZE_MAX;
    Find("HX_KARATSUBA_MUL", &hx_karatsuba_mul, 16, 200, Product);
    Find("HX_KARATSUBA_SQR", &hx_karatsuba_sqr, 16, 300, Square);
    Find("HX_TOOM3_MUL", &hx_toom3_mul, 2 * hx_karatsuba_mul, 1000, Product);
    Find("HX_TOOM3_SQR", &hx_toom3_sqr, 2 * hx_karatsuba_sqr, 1000, Square);
    Find("HX_RECURSIVE_DIV", &hx_recursive_div, 16, 300, Quotient);
    Find("HX_WHOLE_REDUCTION", &hx_whole_reduction, 100, 1500, Power);
    // The number of chunks, which the text of so many limbs just exceeds.
    std::printf("HX_RECURSIVE_TEXT, time of 1000 limbs for each (first = 1):\n");
    double reference = 0;
    for (const size_t least : {6U, 8U, 10U, 12U, 15U, 20U, 25U, 30U, 40U, 60U}) {
        hx_recursive_text = least;
        std::vector<double> times;
        for (int i = 0; i < 7; ++i)
            times.push_back(TimeOf(Text(1000)));
        const double time = hx_bench::Median(times);
        reference = reference == 0 ? time : reference;
        std::printf("  %zu: %.2f\n", least, time / reference);
    }
}
