/* Greatest common divisors by Lehmer's method: finds most quotients of Euclid's sequence from the
 * top bits of two neighbors alone, then applies several steps to the whole numbers at once. */
#include "kernel.h"

/* Two neighbors of the sequence, r0 >= r1, and the magnitudes of their cofactors s0 and s1. Each
 * step changes the signs of the cofactors. */
typedef struct {
    HxLimb* r0;
    HxLimb* r1;
    size_t n0;
    size_t n1;
    HxLimb* s0; /* null if the caller needs no cofactor */
    HxLimb* s1;
    size_t sn;  /* limbs of both cofactors */
    HxLimb* t0; /* work memory of the size of r0, r1 */
    HxLimb* t1;
    HxLimb* u0; /* of the size of s0, s1 */
    HxLimb* u1;
    HxLimb* work; /* for a division */
    int odd;      /* whether the number of steps is odd */
} Euclid;

/* Several steps at once: the new r0 is |p0 r0 - q0 r1|, the new r1 is |p1 r0 - q1 r1|. */
typedef struct {
    HxLimb p0;
    HxLimb q0;
    HxLimb p1;
    HxLimb q1;
    int odd;
} Steps;

static void Exchange(HxLimb** a, HxLimb** b) {
    HxLimb* const first = *a;
    *a = *b;
    *b = first;
}

/* Returns the top 63 bits of a below the leading `shift` zeros. */
static HxLimb TopBits(const HxLimb* a, size_t n, unsigned shift) {
    HxLimb top = a[n - 1] << shift;
    if (shift > 0 && n > 1)
        top |= a[n - 2] >> (HX_LIMB_BITS - shift);
    return top >> 1;
}

/* Takes as many steps as the top bits alone determine, by Collins's condition. */
static Steps Simulate(HxLimb x, HxLimb y) {
    Steps s = {1, 0, 0, 1, 0};
    while (y != 0) {
        const HxLimb quotient = x / y;
        const HxLimb rest = x % y;
        const HxLimb q2 = s.q0 + quotient * s.q1;
        if (rest < q2 || y - rest < q2 + s.q1)
            break;
        const HxLimb p2 = s.p0 + quotient * s.p1;
        s = (Steps){s.p1, s.q1, p2, q2, !s.odd};
        x = y;
        y = rest;
    }
    return s;
}

/* r = p * a - q * b, which is not negative. */
static void Combine(HxLimb* r, const HxLimb* a, HxLimb p, const HxLimb* b, HxLimb q, size_t n) {
    HxMul1(r, a, n, p, 0);
    HxSubmul1(r, b, n, q);
}

/* r = p * a + q * b of n + 1 limbs. */
static void CombineCofactors(HxLimb* r, const HxLimb* a, HxLimb p, const HxLimb* b, HxLimb q,
                             size_t n) {
    r[n] = HxMul1(r, a, n, p, 0);
    r[n] += HxAddmul1(r, b, n, q);
}

static void Apply(Euclid* e, Steps s) {
    const size_t n = e->n0;
    HxZero(e->r1 + e->n1, n - e->n1);
    if (s.odd) {
        Combine(e->t0, e->r1, s.q0, e->r0, s.p0, n);
        Combine(e->t1, e->r0, s.p1, e->r1, s.q1, n);
    } else {
        Combine(e->t0, e->r0, s.p0, e->r1, s.q0, n);
        Combine(e->t1, e->r1, s.q1, e->r0, s.p1, n);
    }
    Exchange(&e->r0, &e->t0);
    Exchange(&e->r1, &e->t1);
    e->n0 = HxNormal(e->r0, n);
    e->n1 = HxNormal(e->r1, n);
    e->odd ^= s.odd;
    if (e->s0 == NULL)
        return;
    CombineCofactors(e->u0, e->s0, s.p0, e->s1, s.q0, e->sn);
    CombineCofactors(e->u1, e->s0, s.p1, e->s1, s.q1, e->sn);
    Exchange(&e->s0, &e->u0);
    Exchange(&e->s1, &e->u1);
    e->sn += e->s0[e->sn] != 0 || e->s1[e->sn] != 0;
}

/* s0 + q * s1 becomes the second cofactor. */
static void StepCofactors(Euclid* e, const HxLimb* q, size_t qn) {
    const size_t n1 = HxNormal(e->s1, e->sn);
    size_t n2 = 0;
    if (n1 > 0) {
        HxMulBasecase(e->u0, e->s1, n1, q, qn);
        n2 = n1 + qn;
    }
    if (n2 < e->sn) {
        HxZero(e->u0 + n2, e->sn - n2);
        n2 = e->sn;
    }
    e->u0[n2] = HxAdd(e->u0, e->u0, n2, e->s0, e->sn);
    const size_t n = HxNormal(e->u0, n2 + 1);
    if (n > e->sn) {
        HxZero(e->s1 + e->sn, n - e->sn);
        e->sn = n;
    }
    Exchange(&e->s0, &e->s1);
    Exchange(&e->s1, &e->u0);
}

/* One step by a division of the whole numbers. */
static void Divide(Euclid* e) {
    const size_t qn = e->n0 - e->n1 + 1;
    HxLimb* q = e->t0;
    HxDiv(q, e->r0, e->r0, e->n0, e->r1, e->n1, e->work);
    const size_t rest = HxNormal(e->r0, e->n1);
    Exchange(&e->r0, &e->r1);
    e->n0 = e->n1;
    e->n1 = rest;
    e->odd = !e->odd;
    if (e->s0 != NULL)
        StepCofactors(e, q, HxNormal(q, qn));
}

size_t HxGcdScratch(size_t an, size_t bn) {
    return 2 * (an + 1) + 4 * (bn + 3) + HxDivScratchBound(an);
}

/* NOLINTNEXTLINE(readability-non-const-parameter): divided in place through e */
size_t HxGcd(HxLimb* g, HxLimb* u, size_t* un, int* negative, HxLimb* a, size_t an, HxLimb* b,
             size_t bn, HxLimb* scratch) {
    Euclid e = {.r0 = a, .r1 = b, .n0 = an, .n1 = bn};
    e.t0 = scratch;
    e.t1 = e.t0 + an + 1;
    HxLimb* cofactors = e.t1 + an + 1;
    e.work = cofactors + 4 * (bn + 3);
    if (u != NULL) {
        e.s0 = cofactors;
        e.s1 = e.s0 + bn + 3;
        e.u0 = e.s1 + bn + 3;
        e.u1 = e.u0 + bn + 3;
        e.s0[0] = 1;
        e.s1[0] = 0;
        e.sn = 1;
    }
    /* After the first division both numbers fit into both buffers and can change places. */
    Divide(&e);
    while (e.n1 > 0) {
        Steps s = {1, 0, 0, 1, 0};
        if (e.n0 == e.n1 && e.n0 > 1) {
            const unsigned shift = HX_LIMB_BITS - HxBitLength(e.r0[e.n0 - 1]);
            s = Simulate(TopBits(e.r0, e.n0, shift), TopBits(e.r1, e.n0, shift));
        }
        if (s.p1 == 0)
            Divide(&e);
        else
            Apply(&e, s);
    }
    HxCopy(g, e.r0, e.n0);
    if (u != NULL) {
        *un = HxNormal(e.s0, e.sn);
        HxCopy(u, e.s0, *un);
        *negative = e.odd;
    }
    return e.n0;
}
