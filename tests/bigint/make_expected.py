"""Writes tests/expected/bigint/: python3 make_expected.py <directory>

operations.txt has a line per case, "<function> <extra> <operand> ... = <code> <result> ...", and
text.txt "<radix> <hexadecimal value> <text>".
"""
import os
import random
import sys

sys.dont_write_bytecode = True
import reference  # noqa: E402

BORDERS = [0, 1, 2, 15, 16, 17, 31, 32, 33, 63, 64, 65, 79, 80, 127, 128, 129, 191, 192, 193, 256,
           512, 1024, 1040]
# How many operands; the rest of what a function takes is its extra number.
OPERANDS = {name: function.__code__.co_argcount - 1
            for name, function in reference.FUNCTIONS.items()}
OPERANDS.update({"mp_mod": 2, "mp_addmod": 3, "mp_submod": 3, "mp_mulmod": 3, "mp_sqrmod": 2,
                 "mp_invmod": 2})
MODULAR = {"mp_mod", "mp_addmod", "mp_submod", "mp_mulmod", "mp_sqrmod", "mp_exptmod",
           "mp_exptmod_d", "mp_invmod"}


def number(rng):
    bits = rng.choice(BORDERS)
    value = rng.choice([
        lambda: 1 << bits,
        lambda: (1 << bits) - 1,
        lambda: (1 << bits) + 1,
        lambda: rng.getrandbits(bits + 1),
        lambda: rng.getrandbits(bits + 1) >> 8 << 8,
        lambda: ((1 << bits) - 1) << rng.choice(BORDERS[:14]),
        lambda: (1 << bits) - (1 << (bits // 2)),
    ])()
    return rng.choice([value, value, -value])


def case(rng, name):
    operands = [number(rng) for _ in range(OPERANDS[name])]
    extra = rng.choice([0, 1, 2, 9, 255, 256, 32767, 32768, 65535])
    if name in MODULAR and rng.random() < 0.95:
        operands[-1] = abs(operands[-1]) or 1
    if name == "mp_exptmod":
        operands[1] = operands[1] if rng.random() < 0.05 else abs(operands[1])
    if name in ("mp_mul_2d", "mp_div_2d", "mp_2expt"):
        extra = rng.choice(BORDERS)
    if name == "mp_expt":
        operands[1] = rng.choice([0, 1, 2, 3, 5, 8, 17, -1])
    if name == "mp_expt_d":
        extra = rng.choice([0, 1, 2, 3, 5, 8, 17])
    return extra, operands


def main(directory):
    rng = random.Random(20250116)
    with open(os.path.join(directory, "operations.txt"), "w") as file:
        for name in reference.FUNCTIONS:
            for _ in range(24):
                extra, operands = case(rng, name)
                question = " ".join([name, str(extra)] + [f"{a:x}" for a in operands])
                print(f"{question} = {reference.answer(question)}", file=file)
    with open(os.path.join(directory, "text.txt"), "w") as file:
        for radix in range(2, 65):
            values = [0, radix - 1, radix, radix**rng.randrange(5, 40),
                      radix**rng.randrange(5, 40) - 1, -rng.getrandbits(rng.randrange(20, 400)),
                      number(rng)]
            for value in values:
                print(f"{radix} {value:x} {reference.text(value, radix)}", file=file)


if __name__ == "__main__":
    main(sys.argv[1])
