"""Computes the expected answers of the integer functions with Python's integers.

Reads one request per line and prints one answer per line:
    <function> <extra> <operand> ...   ->   <code> <result> ...
Numbers are hexadecimal with a sign; `extra` is the digit, the bits or the radix. Does not return
the cofactors of mp_xgcd, because they are not unique.
"""
import math
import sys

OK, NO, RANGE, UNDEFINED = 0, -1, -3, -5


def sign(a):
    return (a > 0) - (a < 0)


def divide(a, b):
    q = abs(a) // abs(b)
    r = abs(a) % abs(b)
    return (q if (a < 0) == (b < 0) else -q), (-r if a < 0 else r)


def modular(function):
    """Returns RANGE for a modulus below 1."""
    def checked(d, *operands):
        return (RANGE,) if operands[-1] <= 0 else function(d, *operands)
    return checked


def exptmod(exponent, base, m):
    if m <= 0 or exponent < 0:
        return (RANGE,)
    return OK, (1 if exponent == 0 else pow(base, exponent, m))


def invmod(d, a, m):
    if math.gcd(a, m) != 1:
        return (UNDEFINED,)
    inverse = pow(a, -1, m)
    return OK, (-inverse if a < 0 else inverse)


def lcm(d, a, b):
    return (RANGE,) if a == b == 0 else (OK, math.lcm(a, b))


def gcd(d, a, b):
    return (RANGE,) if a == b == 0 else (OK, math.gcd(a, b))


def shift_right(d, a):
    q, r = divmod(abs(a), 1 << d)
    return OK, q * (sign(a) or 1), r * (sign(a) or 1)


FUNCTIONS = {
    "mp_copy": lambda d, a: (OK, a),
    "mp_abs": lambda d, a: (OK, abs(a)),
    "mp_neg": lambda d, a: (OK, -a),
    "mp_add": lambda d, a, b: (OK, a + b),
    "mp_sub": lambda d, a, b: (OK, a - b),
    "mp_mul": lambda d, a, b: (OK, a * b),
    "mp_sqr": lambda d, a: (OK, a * a),
    "mp_div": lambda d, a, b: (RANGE,) if b == 0 else (OK, *divide(a, b)),
    "mp_mod": modular(lambda d, a, m: (OK, a % m)),
    "mp_expt": lambda d, a, e: (RANGE,) if e < 0 else (OK, a**e),
    "mp_sqrt": lambda d, a: (RANGE,) if a < 0 else (OK, math.isqrt(a)),
    "mp_add_d": lambda d, a: (OK, a + d),
    "mp_sub_d": lambda d, a: (OK, a - d),
    "mp_mul_d": lambda d, a: (OK, a * d),
    "mp_expt_d": lambda d, a: (OK, a**d),
    "mp_div_d": lambda d, a: (RANGE,) if d == 0 else (OK, divide(a, d)[0], abs(a) % d),
    "mp_mod_d": lambda d, a: (RANGE,) if d == 0 else (OK, a % d),
    "mp_mul_2": lambda d, a: (OK, a * 2),
    "mp_div_2": lambda d, a: (OK, divide(a, 2)[0]),
    "mp_mul_2d": lambda d, a: (OK, a << d),
    "mp_div_2d": shift_right,
    "mp_2expt": lambda d: (OK, 1 << d),
    "mp_addmod": modular(lambda d, a, b, m: (OK, (a + b) % m)),
    "mp_submod": modular(lambda d, a, b, m: (OK, (a - b) % m)),
    "mp_mulmod": modular(lambda d, a, b, m: (OK, a * b % m)),
    "mp_sqrmod": modular(lambda d, a, m: (OK, a * a % m)),
    "mp_exptmod": lambda d, a, e, m: exptmod(e, a, m),
    "mp_exptmod_d": lambda d, a, m: exptmod(d, a, m),
    "mp_invmod": modular(invmod),
    "mp_gcd": gcd,
    "mp_lcm": lcm,
    "mp_xgcd": gcd,
    "mp_cmp_z": lambda d, a: (sign(a),),
    "mp_cmp_d": lambda d, a: (sign(a - d),),
    "mp_cmp": lambda d, a, b: (sign(a - b),),
    "mp_cmp_mag": lambda d, a, b: (sign(abs(a) - abs(b)),),
    "mp_isodd": lambda d, a: (OK if a % 2 else NO,),
    "mp_iseven": lambda d, a: (NO if a % 2 else OK,),
    "mp_count_bits": lambda d, a: (a.bit_length(),),
    "mp_unsigned_bin_size": lambda d, a: (max(1, (a.bit_length() + 7) // 8),),
    "mp_signed_bin_size": lambda d, a: (max(1, (a.bit_length() + 7) // 8) + 1,),
}

ALPHABET = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz+/"


def text(a, radix):
    digits = []
    rest = abs(a)
    while rest or not digits:
        rest, digit = divmod(rest, radix)
        digits.append(ALPHABET[digit])
    return ("-" if a < 0 else "") + "".join(reversed(digits))


def answer(line):
    name, extra, *operands = line.split()
    numbers = [int(operand, 16) for operand in operands]
    if name == "text":
        return text(numbers[0], int(extra))
    code, *results = FUNCTIONS[name](int(extra), *numbers)
    return " ".join([str(code)] + [f"{result:x}" for result in results])


for request in sys.stdin:
    print(answer(request))
