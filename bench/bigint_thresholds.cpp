// Measures the thresholds of src/bigint/kernel.h: compares each method with the previous one at the
// top level of growing lengths.
#include <algorithm>
#include <functional>
#include <random>

#include "Timing.h"

extern "C" {
#include "bigint/kernel.h"
}

namespace {

using Clock = std::chrono::steady_clock;

std::vector<HxLimb> Random(size_t n) {
    static std::mt19937_64 random(1);
    std::vector<HxLimb> limbs(n);
    std::generate(limbs.begin(), limbs.end(), std::ref(random));
    limbs.back() |= static_cast<HxLimb>(1) << 63;
    return limbs;
}

double TimeOf(const std::function<void()>& work) {
    const auto start = Clock::now();
    for (int i = 0; i < 100; ++i)
        work();
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Returns the median of the method's time divided by that of the previous method.
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

// Sets the threshold to the first of three successive lengths at which the method is faster.
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
    return [a = Random(n), b = Random(n), r = std::vector<HxLimb>(2 * n),
            scratch = std::vector<HxLimb>(HxMulScratchBound(n) + 16 * n)]() mutable {
        HxMulN(r.data(), a.data(), b.data(), a.size(), scratch.data());
    };
}

std::function<void()> Square(size_t n) {
    return [a = Random(n), r = std::vector<HxLimb>(2 * n),
            scratch = std::vector<HxLimb>(HxMulScratchBound(n) + 16 * n)]() mutable {
        HxSqr(r.data(), a.data(), a.size(), scratch.data());
    };
}

std::function<void()> Quotient(size_t n) {
    return [a = Random(2 * n), b = Random(n), q = std::vector<HxLimb>(n + 1),
            scratch = std::vector<HxLimb>(HxDivScratchBound(2 * n) + 16 * n)]() mutable {
        std::vector<HxLimb>& rest = a;
        HxDivNormal(q.data(), rest.data(), rest.size(), b.data(), b.size(), scratch.data());
        rest.back() |= static_cast<HxLimb>(1) << 62;
    };
}

std::function<void()> Power(size_t n) {
    return [a = Random(n), m = Random(n), r = std::vector<HxLimb>(n),
            scratch = std::vector<HxLimb>(HxPowmScratch(n))]() mutable {
        const HxLimb exponent = 5;
        a.back() = 0;
        HxPowm(r.data(), a.data(), &exponent, 1, m.data(), m.size(), scratch.data());
    };
}

std::function<void()> Text(size_t n) {
    return [a = Random(n), copy = std::vector<HxLimb>(n), n]() mutable {
        std::vector<unsigned char> digits(HxTextDigits(n, 10));
        std::vector<HxLimb> scratch(HxToTextScratch(n, 10) + 1);
        copy = a;
        HxToText(digits.data(), copy.data(), n, 10, scratch.data());
    };
}

}  // namespace

int main() {
    hxKaratsubaMul = hxKaratsubaSqr = hxToom3Mul = hxToom3Sqr = hxWholeReduction = SIZE_MAX;
    hxRecursiveDiv = SIZE_MAX;
    Find("HX_KARATSUBA_MUL", &hxKaratsubaMul, 16, 200, Product);
    Find("HX_KARATSUBA_SQR", &hxKaratsubaSqr, 16, 300, Square);
    Find("HX_TOOM3_MUL", &hxToom3Mul, 2 * hxKaratsubaMul, 1000, Product);
    Find("HX_TOOM3_SQR", &hxToom3Sqr, 2 * hxKaratsubaSqr, 1000, Square);
    Find("HX_RECURSIVE_DIV", &hxRecursiveDiv, 16, 300, Quotient);
    Find("HX_WHOLE_REDUCTION", &hxWholeReduction, 100, 1500, Power);
    // A number of chunks; the text of 1000 limbs is longer.
    std::printf("HX_RECURSIVE_TEXT, time of 1000 limbs for each (first = 1):\n");
    double reference = 0;
    for (const size_t least : {6U, 8U, 10U, 12U, 15U, 20U, 25U, 30U, 40U, 60U}) {
        hxRecursiveText = least;
        std::vector<double> times;
        for (int i = 0; i < 7; ++i)
            times.push_back(TimeOf(Text(1000)));
        const double time = hx_bench::Median(times);
        reference = reference == 0 ? time : reference;
        std::printf("  %zu: %.2f\n", least, time / reference);
    }
}
