"""Prints the binary interface of a shared library: symbols with their types, vtables, class layouts.

    gdb --batch --nx --command tests/library/interface.py LIBRARY

The symbols come from nm, the types from the debug information, and the vtables from the relocations.
"""
import re
import subprocess

import gdb


def lines_of(*command):
    done = subprocess.run(command, check=True, capture_output=True, text=True)
    return done.stdout.splitlines()


typedefs = set()


def text_of(kind):
    """Returns the type as in a declaration, and keeps what mp_digit stands for."""
    aliased = kind
    while aliased.code in (gdb.TYPE_CODE_PTR, gdb.TYPE_CODE_REF):
        aliased = aliased.target()
    aliased = aliased.unqualified()
    if aliased.code == gdb.TYPE_CODE_TYPEDEF and aliased.name == "mp_digit":
        typedefs.add(f"{aliased.name} is {aliased.strip_typedefs()}")
    return re.sub(r"\b(class|struct|enum) ", "", str(kind))


def declaration(name, address, kind):
    """Returns the symbol with its type. The names of C++ functions include their parameters."""
    if kind != "T":
        variable = gdb.lookup_global_symbol(name)
        return f"{text_of(variable.type)} {name}" if variable else name
    function = gdb.block_for_pc(address).function.type
    if "(" not in name:
        name += "(" + ", ".join(text_of(field.type) for field in function.fields()) + ")"
    return f"{text_of(function.target())} {name}"


def vtable(first, size, functions):
    """Returns the library's own functions with their places; the others are inherited from Qt."""
    slots = {slot: functions.get(first + 8 * slot, "") for slot in range(size // 8)}
    own = [f"    {slot} {name}" for slot, name in slots.items() if re.match(r"C[A-Z]\w+::", name)]
    return [f"    {len(slots)} entries", *own]


def layout(name):
    record = gdb.lookup_type(name).strip_typedefs()
    fields = [field for field in record.fields() if hasattr(field, "bitpos")]
    return [f"layout of {name}", f"    {record.sizeof} bytes"] + [
        f"    {field.bitpos // 8} {text_of(field.type)}"
        f"{'' if field.is_base_class else ' ' + field.name}" for field in fields]


def describe(library):
    functions = {}
    for line in lines_of("readelf", "--relocs", "--wide", "--demangle", library):
        target = re.match(r"([0-9a-f]{16})  \S+ +R_\S+ +[0-9a-f]+ (.+) \+ 0$", line)
        if target:
            functions[int(target[1], 16)] = target[2]
    symbols, vtables, classes = set(), set(), {"mp_int"}
    for line in lines_of("nm", "--dynamic", "--defined-only", "--print-size", "--demangle", library):
        address, size, kind, name = line.split(maxsplit=3)
        symbols.add(declaration(name, int(address, 16), kind))
        if name.startswith("vtable for "):
            vtables.add("\n".join([name, *vtable(int(address, 16), int(size, 16), functions)]))
        constructor = re.match(r"(\w+)::\1\(", name)
        if constructor:
            classes.add(constructor[1])
    layouts = ["\n".join(layout(name)) for name in sorted(classes)]
    print("\n".join(sorted(symbols) + sorted(typedefs) + sorted(vtables) + layouts))


describe(gdb.current_progspace().filename)
