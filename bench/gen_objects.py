#!/usr/bin/env python3
"""Writes synthetic ELF32 little-endian relocatable objects for the benchmark.

Each object is minimal but valid: an ELF header, a .text section of filler
bytes, a .symtab (null symbol, a local FILE symbol, a local SECTION symbol and
a few unique GLOBAL FUNC symbols defined in .text), a .strtab and a .shstrtab.
readelf, nm and every archiver's symbol-index builder accept them.

Names alternate between short ones (15 characters or fewer, stored in the
member header) and long ones (16 or more, stored in the name table), so both
paths of every archiver are exercised. Symbol names are unique across the whole
pool, so the index has one entry per global.

Usage: gen_objects.py DIR COUNT MIN_BYTES MAX_BYTES GLOBALS [--prefix P] [--seed N]
A pool already written with the same parameters and at least COUNT members
is left as it is (the runner then reads the first COUNT lines of its LIST).
"""

import argparse
import os
import random
import struct
import sys

EM_ARM = 40             # a 32-bit little-endian target every tool here recognises
ET_REL = 1
SHT_PROGBITS, SHT_SYMTAB, SHT_STRTAB = 1, 2, 3
SHF_ALLOC, SHF_EXECINSTR = 0x2, 0x4
STB_LOCAL, STB_GLOBAL = 0, 1
STT_FUNC, STT_SECTION, STT_FILE = 2, 3, 4
SHN_ABS = 0xFFF1

EHDR_SIZE = 52
SHDR_SIZE = 40
SYM_SIZE = 16
SHSTRTAB = b"\0.text\0.symtab\0.strtab\0.shstrtab\0"
SH_NAME = {".text": 1, ".symtab": 7, ".strtab": 15, ".shstrtab": 23}


def member_name(prefix, index):
    # Two of three short, one of three long: both header and name-table names.
    if index % 3 == 2:
        return f"{prefix}_module_source_{index:06d}.o"   # 25+ characters
    return f"{prefix}{index:06d}.o"                      # 9-11 characters


def symbol_names(prefix, index, n_globals):
    return [f"{prefix}_fn{index}_{k}" for k in range(n_globals)]


def build_object(source_name, symbols, text):
    """Returns the bytes of one object whose .text is `text`."""
    strtab = bytearray(b"\0")
    syms = [struct.pack("<IIIBBH", 0, 0, 0, 0, 0, 0)]

    def add_string(s):
        off = len(strtab)
        strtab.extend(s.encode() + b"\0")
        return off

    syms.append(struct.pack("<IIIBBH", add_string(source_name), 0, 0,
                            (STB_LOCAL << 4) | STT_FILE, 0, SHN_ABS))
    syms.append(struct.pack("<IIIBBH", 0, 0, 0, (STB_LOCAL << 4) | STT_SECTION, 0, 1))
    first_global = len(syms)
    step = max(4, (len(text) // max(1, len(symbols))) & ~3)
    for i, name in enumerate(symbols):
        value = min(i * step, max(0, len(text) - 4))
        size = min(step, len(text) - value)
        syms.append(struct.pack("<IIIBBH", add_string(name), value, size,
                                (STB_GLOBAL << 4) | STT_FUNC, 0, 1))
    symtab = b"".join(syms)

    def align4(n):
        return (n + 3) & ~3

    text_off = EHDR_SIZE
    symtab_off = align4(text_off + len(text))
    strtab_off = symtab_off + len(symtab)
    shstr_off = strtab_off + len(strtab)
    shdr_off = align4(shstr_off + len(SHSTRTAB))

    shdrs = [
        bytes(SHDR_SIZE),
        struct.pack("<IIIIIIIIII", SH_NAME[".text"], SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR,
                    0, text_off, len(text), 0, 0, 4, 0),
        struct.pack("<IIIIIIIIII", SH_NAME[".symtab"], SHT_SYMTAB, 0, 0, symtab_off,
                    len(symtab), 3, first_global, 4, SYM_SIZE),
        struct.pack("<IIIIIIIIII", SH_NAME[".strtab"], SHT_STRTAB, 0, 0, strtab_off,
                    len(strtab), 0, 0, 1, 0),
        struct.pack("<IIIIIIIIII", SH_NAME[".shstrtab"], SHT_STRTAB, 0, 0, shstr_off,
                    len(SHSTRTAB), 0, 0, 1, 0),
    ]
    ident = b"\x7fELF" + bytes([1, 1, 1, 0]) + bytes(8)   # ELFCLASS32, LSB, version 1
    ehdr = ident + struct.pack("<HHIIIIIHHHHHH", ET_REL, EM_ARM, 1, 0, 0, shdr_off, 0,
                               EHDR_SIZE, 0, 0, SHDR_SIZE, len(shdrs), 4)

    out = bytearray(ehdr)
    out += text
    out += bytes(symtab_off - len(out))
    out += symtab + strtab + SHSTRTAB
    out += bytes(shdr_off - len(out))
    out += b"".join(shdrs)
    return bytes(out)


def overhead(symbols, source_name):
    """Bytes an object needs besides .text (within 3 bytes of alignment)."""
    strtab = 1 + len(source_name) + 1 + sum(len(s) + 1 for s in symbols)
    return EHDR_SIZE + (3 + len(symbols)) * SYM_SIZE + strtab + len(SHSTRTAB) + 5 * SHDR_SIZE + 6


def generate(directory, count, min_bytes, max_bytes, n_globals, prefix, seed):
    stamp_path = os.path.join(directory, ".generated")
    params = f"{min_bytes} {max_bytes} {n_globals} {prefix} {seed}"
    list_path = os.path.join(directory, "LIST")
    # Member i depends only on the parameters and i, so a larger pool made
    # with the same parameters serves a smaller request as it is.
    if os.path.exists(stamp_path):
        old_count, _, old_params = open(stamp_path).read().strip().partition(" ")
        if old_params == params and int(old_count) >= count:
            return list_path
    os.makedirs(directory, exist_ok=True)
    if os.path.exists(stamp_path):
        os.unlink(stamp_path)
    rng = random.Random(seed)
    # One block of random filler, sliced at random offsets: fast and not
    # trivially compressible or identical between members.
    filler = rng.randbytes(max_bytes + 65536)
    names = []
    for i in range(count):
        name = member_name(prefix, i)
        symbols = symbol_names(prefix, i, n_globals)
        source = name[:-2] + ".c"
        target = rng.randint(min_bytes, max_bytes)
        text_len = max(16, target - overhead(symbols, source)) & ~3
        start = rng.randrange(0, len(filler) - text_len)
        data = build_object(source, symbols, filler[start:start + text_len])
        with open(os.path.join(directory, name), "wb") as f:
            f.write(data)
        names.append(name)
    with open(list_path, "w") as f:
        f.write("".join(n + "\n" for n in names))
    with open(stamp_path, "w") as f:
        f.write(f"{count} {params}\n")
    return list_path


def main(argv):
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    p.add_argument("directory")
    p.add_argument("count", type=int)
    p.add_argument("min_bytes", type=int)
    p.add_argument("max_bytes", type=int)
    p.add_argument("globals", type=int)
    p.add_argument("--prefix", default="m")
    p.add_argument("--seed", type=int, default=1)
    a = p.parse_args(argv)
    print(generate(a.directory, a.count, a.min_bytes, a.max_bytes, a.globals, a.prefix, a.seed))


if __name__ == "__main__":
    main(sys.argv[1:])
