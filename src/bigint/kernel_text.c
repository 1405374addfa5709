/* Digits of a radix from 2 to 64, as values in bytes. A chunk is the highest power of the radix
 * that fits into a limb. Long numbers are split at a power of the chunk whose exponent is a power
 * of two, which turns most of the work into products and quotients of half the length. */
#include "kernel.h"

enum { Levels = 64 };

typedef struct {
    unsigned radix;
    unsigned bits;   /* bits of a digit for a power of two; otherwise 0 */
    unsigned digits; /* digits of a chunk */
    HxLimb chunk;
} Radix;

/* The chunk to the powers least, 2 least, 4 least ... */
typedef struct {
    size_t count;
    HxLimb* power[Levels];
    size_t length[Levels];
} Powers;

static Radix Describe(unsigned radix) {
    /* Radix 10 is the most frequent. */
    if (radix == 10)
        return (Radix){10, 0, 19, 10000000000000000000U};
    Radix r = {radix, 0, 1, radix};
    if ((radix & (radix - 1)) == 0)
        r.bits = HxBitLength(radix) - 1;
    for (const HxLimb most = HX_LIMB_MAX / radix; r.chunk <= most;) {
        r.chunk *= radix;
        ++r.digits;
    }
    return r;
}

/* Returns the number of chunks up to which chunks are converted one by one. */
static size_t Least(void) {
    return HX_RECURSIVE_TEXT > 1 ? HX_RECURSIVE_TEXT : 1;
}

static size_t Chunks(size_t digits, const Radix* r) {
    return (digits + r->digits - 1) / r->digits;
}

size_t HxTextLimbs(size_t digits, unsigned radix) {
    const Radix r = Describe(radix);
    if (r.bits != 0)
        return HxLimbsOfBits((uint64_t)digits * r.bits) + 1;
    return Chunks(digits, &r) + 1;
}

/* Returns the largest number of chunks for n limbs: a chunk has at least `bits` bits. */
static size_t ChunksOfLimbs(size_t n, const Radix* r) {
    const unsigned bits = HxBitLength(r->chunk) - 1;
    return (size_t)(((uint64_t)n * HX_LIMB_BITS + bits - 1) / bits);
}

/* Returns the level of the smallest power of at least `chunks` chunks. */
static size_t LevelsFor(size_t chunks) {
    size_t level = 0;
    while (Least() << level < chunks)
        ++level;
    return level;
}

size_t HxTextDigits(size_t n, unsigned radix) {
    const Radix r = Describe(radix);
    if (r.bits != 0)
        return (size_t)(((uint64_t)n * HX_LIMB_BITS + r.bits - 1) / r.bits);
    const size_t chunks = ChunksOfLimbs(n, &r);
    const size_t levels = LevelsFor(chunks);
    return (levels == 0 ? chunks : Least() << levels) * r.digits;
}

/* Returns the number of limbs of all powers below the level. */
static size_t PowersSize(size_t levels) {
    return (Least() << levels) + levels + 1;
}

static Powers MakePowers(const Radix* r, size_t levels, HxLimb* memory, HxLimb* rest) {
    Powers p = {.count = levels};
    for (size_t i = 0; i < levels; ++i) {
        p.power[i] = memory;
        if (i == 0) {
            memory[0] = r->chunk;
            p.length[0] = 1;
            for (size_t j = 1; j < Least(); ++j) {
                memory[p.length[0]] = HxMul1(memory, memory, p.length[0], r->chunk, 0);
                p.length[0] += memory[p.length[0]] != 0;
            }
        } else {
            const size_t n = p.length[i - 1];
            HxSqr(memory, p.power[i - 1], n, rest);
            p.length[i] = HxNormal(memory, 2 * n);
        }
        memory += Least() << i;
    }
    return p;
}

/* --- Reading ------------------------------------------------------------------------------ */

static size_t ReadBits(HxLimb* r, const unsigned char* values, size_t digits, unsigned bits) {
    const size_t n = HxLimbsOfBits((uint64_t)digits * bits);
    HxZero(r, n);
    uint64_t at = 0;
    for (size_t i = digits; i > 0; --i, at += bits) {
        const size_t limb = (size_t)(at / HX_LIMB_BITS);
        const unsigned shift = (unsigned)(at % HX_LIMB_BITS);
        r[limb] |= (HxLimb)values[i - 1] << shift;
        if (shift + bits > HX_LIMB_BITS)
            r[limb + 1] |= (HxLimb)values[i - 1] >> (HX_LIMB_BITS - shift);
    }
    return HxNormal(r, n);
}

static inline HxLimb ReadChunk(const unsigned char* values, size_t digits, unsigned radix) {
    HxLimb chunk = 0;
    for (size_t i = 0; i < digits; ++i)
        chunk = chunk * radix + values[i];
    return chunk;
}

static size_t ReadChunks(HxLimb* r, const unsigned char* values, size_t digits,
                         const Radix* radix) {
    size_t n = 0;
    /* The first chunk may be shorter. */
    for (size_t end = (digits - 1) % radix->digits + 1, start = 0; start < digits;) {
        /* A constant radix makes the loop faster. */
        const HxLimb chunk = radix->radix == 10
                                 ? ReadChunk(values + start, end - start, 10)
                                 : ReadChunk(values + start, end - start, radix->radix);
        r[n] = HxMul1(r, r, n, radix->chunk, chunk);
        n += r[n] != 0;
        start = end;
        end += radix->digits;
    }
    return n;
}

static size_t ReadHalves(HxLimb* r, const unsigned char* values, size_t digits, const Radix* radix,
                         const Powers* p, HxLimb* scratch) {
    if (digits <= Least() * radix->digits)
        return ReadChunks(r, values, digits, radix);
    const size_t level = LevelsFor(Chunks(digits, radix)) - 1;
    const size_t low = (Least() << level) * radix->digits;
    const size_t high = digits - low;
    const HxLimb* power = p->power[level];
    const size_t pn = p->length[level];
    HxLimb* part = scratch;
    const size_t hn = ReadHalves(part, values, high, radix, p, part + Chunks(high, radix) + 1);
    size_t n = 0;
    if (hn > 0) {
        n = pn + hn;
        HxMul(r, power, pn, part, hn, part + hn);
    }
    const size_t ln = ReadHalves(part, values + high, low, radix, p, part + Chunks(low, radix) + 1);
    if (n < ln) {
        HxZero(r + n, ln - n);
        n = ln;
    }
    HxAdd(r, r, n, part, ln);
    return HxNormal(r, n);
}

size_t HxFromTextScratch(size_t digits, unsigned radix) {
    const Radix r = Describe(radix);
    const size_t chunks = Chunks(digits, &r);
    if (r.bits != 0 || chunks <= Least())
        return 0;
    /* Except at the first level, parts have at most half the length of those above. */
    return PowersSize(LevelsFor(chunks)) + 3 * chunks + (size_t)2 * Levels +
           HxMulScratchBound(chunks);
}

size_t HxFromText(HxLimb* r, const unsigned char* values, size_t digits, unsigned radix,
                  HxLimb* scratch) {
    const Radix described = Describe(radix);
    if (described.bits != 0)
        return ReadBits(r, values, digits, described.bits);
    const size_t chunks = Chunks(digits, &described);
    if (chunks <= Least())
        return ReadChunks(r, values, digits, &described);
    const size_t levels = LevelsFor(chunks);
    HxLimb* rest = scratch + PowersSize(levels);
    const Powers p = MakePowers(&described, levels, scratch, rest);
    return ReadHalves(r, values, digits, &described, &p, rest);
}

/* --- Writing ------------------------------------------------------------------------------ */

static void WriteBits(unsigned char* values, size_t digits, const HxLimb* a, size_t n,
                      unsigned bits) {
    const unsigned char mask = (unsigned char)((1U << bits) - 1);
    uint64_t at = 0;
    for (size_t i = digits; i > 0; --i, at += bits) {
        const size_t limb = (size_t)(at / HX_LIMB_BITS);
        const unsigned shift = (unsigned)(at % HX_LIMB_BITS);
        HxLimb value = a[limb] >> shift;
        if (shift + bits > HX_LIMB_BITS && limb + 1 < n)
            value |= a[limb + 1] << (HX_LIMB_BITS - shift);
        values[i - 1] = (unsigned char)(value & mask);
    }
}

/* Writes the digits of one chunk. A constant divisor makes the loop faster. */
static void WriteChunk(unsigned char* values, HxLimb chunk, const Radix* radix) {
    if (radix->radix == 10) {
        for (size_t i = radix->digits; i > 0; --i, chunk /= 10)
            values[i - 1] = (unsigned char)(chunk % 10);
        return;
    }
    for (size_t i = radix->digits; i > 0; --i, chunk /= radix->radix)
        values[i - 1] = (unsigned char)(chunk % radix->radix);
}

/* Writes exactly `chunks` chunks, with leading zeros. */
static void WriteChunks(unsigned char* values, size_t chunks, HxLimb* a, size_t n,
                        const Radix* radix) {
    const HxDivisor divisor = HxDivisorOf(radix->chunk);
    size_t i = chunks;
    for (; i > 0 && n > 0; --i) {
        const HxLimb chunk = HxDivBy(a, a, n, divisor);
        n = HxNormal(a, n);
        WriteChunk(values + (i - 1) * radix->digits, chunk, radix);
    }
    memset(values, 0, i * radix->digits);
}

/* Writes exactly as many digits as a power of the level has, with leading zeros. */
static void WriteHalves(unsigned char* values, HxLimb* a, size_t n, size_t level,
                        const Radix* radix, const Powers* p, HxLimb* scratch) {
    const size_t chunks = Least() << level;
    n = HxNormal(a, n);
    if (n == 0) {
        memset(values, 0, chunks * radix->digits);
        return;
    }
    if (level == 0) {
        WriteChunks(values, chunks, a, n, radix);
        return;
    }
    const HxLimb* power = p->power[level - 1];
    const size_t pn = p->length[level - 1];
    const size_t half = chunks / 2 * radix->digits;
    if (n < pn) {
        memset(values, 0, half);
    } else {
        HxLimb* q = scratch;
        HxLimb* inner = q + n - pn + 1;
        HxDiv(q, a, a, n, power, pn, inner);
        WriteHalves(values, q, n - pn + 1, level - 1, radix, p, inner);
        n = pn;
    }
    WriteHalves(values + half, a, n, level - 1, radix, p, scratch);
}

size_t HxToTextScratch(size_t n, unsigned radix) {
    const Radix r = Describe(radix);
    const size_t levels = LevelsFor(ChunksOfLimbs(n, &r));
    if (r.bits != 0 || levels == 0)
        return 0;
    return PowersSize(levels) + HxMulScratchBound(n) + 2 * n + Levels + HxDivScratchBound(n);
}

size_t HxToText(unsigned char* values, HxLimb* a, size_t n, unsigned radix, HxLimb* scratch) {
    const Radix described = Describe(radix);
    const size_t digits = HxTextDigits(n, radix);
    if (described.bits != 0) {
        WriteBits(values, digits, a, n, described.bits);
    } else if (digits <= Least() * described.digits) {
        WriteChunks(values, digits / described.digits, a, n, &described);
    } else {
        const size_t levels = LevelsFor(ChunksOfLimbs(n, &described));
        HxLimb* rest = scratch + PowersSize(levels);
        const Powers p = MakePowers(&described, levels, scratch, rest);
        WriteHalves(values, a, n, levels, &described, &p, rest);
    }
    size_t zeros = 0;
    while (zeros < digits && values[zeros] == 0)
        ++zeros;
    memmove(values, values + zeros, digits - zeros);
    return digits - zeros;
}
