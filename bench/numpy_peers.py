#!/usr/bin/python3
"""Times the numpy operation that does the job of each row of a qvt_bench run.

    /usr/bin/python3 bench/numpy_peers.py BENCH.json OUT.json

The rows and sizes are those that BENCH.json (qvt_bench's output) has
method times for, so a filtered run gets the same filtered peers. Each peer
below is a regular expression over row names, what it runs, the arrays it
needs and the call; a row that no expression matches has no numpy peer and
is listed as such. Data are of the row's kind (random bytes, English-like
text, a needle at the end, ...), though not byte for byte the benchmark's.

How the calls are made, so that numpy is not handicapped:
- where the method writes into a block it was given or works in place, the
  numpy call writes into arrays made before the timing (out=, np.copyto);
  numpy has no in-place reversal, so reversals write into such an array;
- where the method returns a new block or string, numpy makes one as well;
- where numpy has no out= (np.unpackbits, np.packbits, np.concatenate) the
  allocation is part of the job;
- scaling works in float32, which holds every product of an 8- or 16-bit
  value by these factors exactly, and saves numpy a float64 temporary.
Times are CPU times (time.process_time), the median of the repetitions, each
repetition long enough to reach QVT_BENCH_MIN_TIME, as qvt_bench reports
them; QVT_BENCH_REPETITIONS sets their number. Run it with Debian's numpy
(python3-numpy): /usr/bin/python3.
"""
import json
import os
import random
import re
import statistics
import sys
import time
from functools import lru_cache

import numpy as np

# The sweep overflows to infinity and NaN for long tables, as the method does.
np.seterr(all="ignore")

# ---- Contents --------------------------------------------------------------------


@lru_cache(maxsize=3)
def made_random(n, seed):
    return np.random.default_rng(seed).integers(0, 256, n, dtype=np.uint8)


def random_bytes(n, seed=1):
    """A fresh copy: the calls write into their arrays, and copying is ten times faster than drawing."""
    return made_random(n, seed).copy()


SYLLABLES = [
    "the", "and", "in", "for", "re", "con", "ing", "er", "at", "ion", "ly", "ed", "to", "of",
    "a", "is", "it", "on", "with", "as", "be", "de", "pro", "com", "ex", "st", "ent", "ous",
    "al", "ment", "ter", "est", "ab", "man", "pre", "un", "dis", "over", "day", "light"]


@lru_cache(maxsize=1)
def text_chunk():
    """1 MiB of words of one to three syllables, the odd full stop; tiled for larger sizes."""
    draw = random.Random(7)
    words = []
    size = 0
    while size < 1 << 20:
        word = "".join(draw.choice(SYLLABLES) for _ in range(draw.randint(1, 3)))
        word += ". " if draw.randrange(12) == 0 else " "
        words.append(word)
        size += len(word)
    return "".join(words).encode()[:1 << 20]


def text(n):
    chunk = np.frombuffer(text_chunk(), np.uint8)
    return np.resize(chunk, n)


def needle_at_end(n):
    a = random_bytes(n)
    a[a == 0xEE] = 0
    a[-1] = 0xEE
    return a


def target_in(data, length, seed):
    """A target drawn from the data's own bytes (spaces left out), put last after
    every earlier occurrence is broken with a byte the target lacks."""
    draw = random.Random(seed)
    body = bytearray(data)
    target = bytearray()
    while len(target) < length:
        byte = body[draw.randrange(len(body) - length)]
        if byte != ord(" "):
            target.append(byte)
    target = bytes(target)
    absent = next((b for b in range(ord("a"), 256) if b not in target), None)
    if length == 1:
        body = body.replace(target, bytes([absent]))
    elif absent is not None:
        at = body.find(target)
        while at >= 0:
            body[at] = absent
            at = body.find(target, at)
    body[len(body) - length:] = target
    return bytes(body), target


def uniform(n):
    a = np.full(n, ord("x"), np.uint8)
    a[-1] = ord("y")
    return a


def pixels(n):
    return (95 + random_bytes(n) % 18).astype(np.uint8)


def floats(n):
    draw = np.random.default_rng(11)
    pairs = np.empty((n // 8, 2), np.float32)
    pairs[:, 0] = draw.uniform(0.0, 10.0, n // 8)
    pairs[:, 1] = draw.uniform(-3.14, 3.14, n // 8)
    return pairs


def zeros(n, dtype=np.uint8):
    return np.zeros(n // np.dtype(dtype).itemsize, dtype)


MIRRORED = np.array([int(f"{v:08b}"[::-1], 2) for v in range(256)], np.uint8)

# ---- Peers -------------------------------------------------------------------------
# Each: (rows, what numpy runs, make(n, match) -> arguments, run(*arguments)).


def find_peer(n, m):
    length = int(m.group(1))
    data = random_bytes(n) if "random" in m.group(2) else text(n)
    return target_in(data, length, length)


def multiply_peer(n, m):
    dtype = np.uint8 if m.group(1) == "8" else np.uint16
    a = random_bytes(n).view(dtype)
    over = int(m.group(3)) if m.group(3) else -1
    return a, np.empty(a.size, np.float32), np.empty_like(a), np.empty(a.size, bool), float(m.group(2)), \
        float(np.iinfo(dtype).max), over


def multiply(a, scaled, product, mask, factor, largest, over):
    np.multiply(a, factor, out=scaled, dtype=np.float32)
    np.minimum(scaled, largest, out=scaled)
    if over < 0:
        np.copyto(a, scaled, casting="unsafe")
    else:
        # a + (a > over) * (product - a): np.copyto(where=) and np.where are
        # several times slower here.
        np.copyto(product, scaled, casting="unsafe")
        np.greater(a, over, out=mask)
        np.subtract(product, a, out=product)
        np.multiply(product, mask, out=product)
        np.add(a, product, out=a)


def minmax_peer(n, m):
    dtype = np.dtype(("int" if m.group(1) else "uint") + m.group(2))
    return random_bytes(n, 3).view(dtype), random_bytes(n, 2).view(dtype), random_bytes(n, 1).view(dtype)


def calc3te_peer(n, m):
    px = pixels(n).reshape(-1, 4)
    return px, np.empty(px.shape, bool), np.empty(px.shape, bool), np.empty(len(px), bool)


def calc3te(px, low, high, match):
    np.greater_equal(px, 90, out=low)
    np.less_equal(px, 110, out=high)
    np.logical_and(low, high, out=low)
    np.all(low, axis=1, out=match)
    px[match] = (100, 101, 102, 103)


def calc2te_peer(n, m):
    px = random_bytes(n).reshape(-1, 4)
    return px, 3 if m.group(1) == "" else 4, np.empty(len(px), np.int32), \
        np.empty(len(px), bool), np.empty(len(px), bool)


def calc2te(px, channels, total, full, empty):
    np.sum(px[:, :channels], axis=1, dtype=np.int32, out=total)
    np.greater_equal(total, 255, out=full)
    np.equal(total, 0, out=empty)
    np.logical_or(full, empty, out=full)
    np.subtract(255, total, out=total)
    total[full] = 0
    np.copyto(px[:, 3], total, casting="unsafe")


def rgb12_peer(n, m):
    steps = n // 9
    return random_bytes(n)[: 9 * steps].reshape(-1, 3), zeros(6 * steps).reshape(-1, 2), \
        np.empty(3 * steps, np.uint8)


def rgb12(source, out, high):
    np.copyto(out[:, 0], source[:, 0])
    np.left_shift(source[:, 1], 4, out=high)
    np.right_shift(source[:, 2], 4, out=out[:, 1])
    np.bitwise_or(out[:, 1], high, out=out[:, 1])


def sweep_peer(n, m):
    count = n // 8
    return np.arange(count, dtype=np.float64) / 1000.0, np.empty(count), zeros(n, np.float32).reshape(-1, 2)


def sweep(x, work, out):
    length = np.log(20000 / 20)
    np.multiply(x, length, out=work)
    np.exp(work, out=work)
    np.subtract(work, 1.0, out=work)
    np.multiply(work, 20 * 6.28318530718 / length, out=work)
    np.sin(work, out=work)
    np.multiply(work, 0.944, out=out[:, 0], casting="same_kind")
    np.multiply(x, 100.53096491488, out=out[:, 1], casting="same_kind")


def polar_to_cartesian(polar, out):
    np.cos(polar[:, 1], out=out[:, 0])
    np.multiply(out[:, 0], polar[:, 0], out=out[:, 0])
    np.sin(polar[:, 1], out=out[:, 1])
    np.multiply(out[:, 1], polar[:, 0], out=out[:, 1])


def cartesian_to_polar(cartesian, out):
    np.hypot(cartesian[:, 0], cartesian[:, 1], out=out[:, 0])
    np.arctan2(cartesian[:, 1], cartesian[:, 0], out=out[:, 1])


def and_bits(a, b, d, mask):
    np.bitwise_and(a, b, out=d)
    if mask != 0xFF:
        np.bitwise_and(d, mask, out=d)
    np.bitwise_xor(a, d, out=a)  # a & ~t, t being a's bits
    np.bitwise_xor(b, d, out=b)


def two(n, m):
    return random_bytes(n), zeros(n)


def three(n, m):
    return random_bytes(n), random_bytes(n, 2), zeros(n)


PEERS = [
    # copies and slices
    (r"CopyBytesQVT in one block", "np.copyto(a[n:], a[:n])",
     lambda n, m: (random_bytes(2 * n), n), lambda a, n: np.copyto(a[n:], a[:n])),
    (r"CopyBytesQVT to a block|CopyBytesToMacPtrQVT|CopyBytesFromMacPtrQVT|SetStringQVT",
     "np.copyto(out, a)", two, lambda a, d: np.copyto(d, a)),
    (r"GetStringQVT", "a.tobytes()", lambda n, m: (text(n),), lambda a: a.tobytes()),
    (r"LeftQVT|RightQVT|MidQVT.*|NewMemoryBlockWithBytesQVT", "a[i:j].copy()",
     lambda n, m: (random_bytes(n),), lambda a: a.copy()),
    (r"AppendQVT", "np.concatenate((a, b))",
     lambda n, m: (random_bytes(n // 2), random_bytes(n // 2, 2)), lambda a, b: np.concatenate((a, b))),
    # fill and invert
    (r"FillBytesQVT", "a.fill(v)", lambda n, m: (zeros(n),), lambda a: a.fill(0x5A)),
    (r"InvertBytesQVT", "np.invert(a, out=a)", lambda n, m: (random_bytes(n),),
     lambda a: np.invert(a, out=a)),
    # search and compare
    (r"FindByteQVT.*", "np.equal(a, v, out=mask).argmax()",
     lambda n, m: (needle_at_end(n), np.empty(n, bool)), lambda a, mask: np.equal(a, 0xEE, out=mask).argmax()),
    (r"FindNotByteQVT", "np.not_equal(a, v, out=mask).argmax()",
     lambda n, m: (uniform(n), np.empty(n, bool)),
     lambda a, mask: np.not_equal(a, ord("x"), out=mask).argmax()),
    (r"BytesZeroQVT", "a.any()", lambda n, m: (zeros(n),), lambda a: a.any()),
    (r"BytesEqualQVT", "np.array_equal(a, b)",
     lambda n, m: (random_bytes(n), random_bytes(n)), np.array_equal),
    (r"Find(?:String|Bytes)QVT (\d+)-byte target(.*)", "bytes.find(target)", find_peer,
     lambda data, target: data.find(target)),
    (r"Find(?:String|Bytes)QVT adversarial", "bytes.find(target)",
     lambda n, m: (b"a" * (n - 1001) + b"a" * 1000 + b"b", b"a" * 1000 + b"b"),
     lambda data, target: data.find(target)),
    # byte order and mirroring
    (r"SwapBytes16QVT|Endian[SU]16_.*|EndianSwap16QVT", "a.view(uint16).byteswap(inplace=True)",
     lambda n, m: (random_bytes(n).view(np.uint16),), lambda a: a.byteswap(inplace=True)),
    (r"SwapBytes32QVT|Endian[SU]32_.*|EndianSwap32QVT", "a.view(uint32).byteswap(inplace=True)",
     lambda n, m: (random_bytes(n).view(np.uint32),), lambda a: a.byteswap(inplace=True)),
    (r"SwapBytesQVT|MirrorBytesQVT", "np.copyto(out, np.flip(a))", two,
     lambda a, d: np.copyto(d, np.flip(a))),
    (r"MirrorBitsInBytesQVT", "np.take(mirrored, a, out=out)", two,
     lambda a, d: np.take(MIRRORED, a, out=d)),
    (r"MirrorBitsQVT", "np.take(mirrored, np.flip(a), out=out)", two,
     lambda a, d: np.take(MIRRORED, np.flip(a), out=d)),
    # strided copy and bit expansion
    (r"CopyNthBytesQVT (\d+) of (\d+)", "np.copyto(out.reshape(-1, k), b.reshape(-1, step)[:, :k])",
     lambda n, m: (random_bytes(n).reshape(-1, int(m.group(2))),
                   zeros(n * int(m.group(1)) // int(m.group(2))).reshape(-1, int(m.group(1)))),
     lambda b, a: np.copyto(a, b[:, : a.shape[1]])),
    (r"CopyNthBitsQVT 1 of 2", "np.packbits(np.unpackbits(b)[::2])",
     lambda n, m: (random_bytes(n),), lambda b: np.packbits(np.unpackbits(b)[::2])),
    (r"ExpandBitsQVT", "np.multiply(np.unpackbits(a), 255, out=out)",
     lambda n, m: (random_bytes(n // 8), zeros(n)), lambda a, d: np.multiply(np.unpackbits(a), 255, out=d)),
    # width conversion
    (r"CopyByteToUShortQVT x(\d+)", "np.multiply(a, k, out=out16, dtype=uint16)",
     lambda n, m: (random_bytes(n // 2), zeros(n, np.uint16), int(m.group(1))),
     lambda a, d, k: np.multiply(a, k, out=d, dtype=np.uint16)),
    (r"CopyUShortToByteQVT /(\d+)", "np.floor_divide(a16, k, out=out8, casting='unsafe')",
     lambda n, m: (random_bytes(n).view(np.uint16), zeros(n // 2), int(m.group(1))),
     lambda a, d, k: np.floor_divide(a, k, out=d, dtype=np.uint16, casting="unsafe")),
    # masks and bitwise operations
    (r"ExtractBitsQVT", "np.bitwise_and(a, mask, out=out)", two,
     lambda a, d: np.bitwise_and(a, 0x0F, out=d)),
    (r"AndBitsQVT( with mask)?", "t = a & b & mask; a ^= t; b ^= t, each with out=",
     lambda n, m: (*three(n, m), 0x3C if m.group(1) else 0xFF), and_bits),
    (r"BitwiseAndQVT", "np.bitwise_and(a, b, out=out)", three, lambda a, b, d: np.bitwise_and(a, b, out=d)),
    (r"BitwiseOrQVT", "np.bitwise_or(a, b, out=out)", three, lambda a, b, d: np.bitwise_or(a, b, out=d)),
    (r"BitwiseXOrQVT", "np.bitwise_xor(a, b, out=out)", three, lambda a, b, d: np.bitwise_xor(a, b, out=d)),
    # scaling, minimum and maximum
    (r"MultiplyUInt(8|16)QVT x([\d.]+)(?: over (\d+))?",
     "np.multiply and np.minimum in float32, a + (a > over) * (product - a)", multiply_peer, multiply),
    (r"MaxQVT (signed )?(\d+)", "np.maximum(a, b, out=out)", minmax_peer,
     lambda d, a, b: np.maximum(a, b, out=d)),
    (r"MinQVT (signed )?(\d+)", "np.minimum(a, b, out=out)", minmax_peer,
     lambda d, a, b: np.minimum(a, b, out=d)),
    # colour
    (r"_Calc3te", "np.all((lo <= px) & (px <= hi), axis=1); px[match] = dest", calc3te_peer, calc3te),
    (r"_Calc2teCMY(K?)", "np.sum(px[:, :k], axis=1); 255 - sum where 0 < sum < 255", calc2te_peer, calc2te),
    (r"ConvertRGB12BitTo8BitQVT", "np.copyto, np.left_shift, np.right_shift, np.bitwise_or with out=",
     rgb12_peer, rgb12),
    # sweep and polar tables
    (r"_CalcLogSweepTableQVT", "np.exp, np.sin and np.multiply with out=", sweep_peer, sweep),
    (r"_ConvertPolarToCartesian", "np.cos, np.sin and np.multiply with out=",
     lambda n, m: (floats(n), zeros(n, np.float32).reshape(-1, 2)), polar_to_cartesian),
    (r"_ConvertCartesianToPolar", "np.hypot and np.arctan2 with out=",
     lambda n, m: (floats(n), zeros(n, np.float32).reshape(-1, 2)), cartesian_to_polar),
]

# ---- Timing --------------------------------------------------------------------------


def timed(run, arguments, min_time, repetitions):
    """Median CPU seconds per call; the iteration count grows until a repetition lasts min_time."""
    run(*arguments)  # the first touch of every page is not the operation's cost
    iterations = 1
    while True:
        start = time.process_time()
        for _ in range(iterations):
            run(*arguments)
        spent = time.process_time() - start
        if spent >= min_time or iterations >= 1 << 24:
            break
        iterations = iterations * 10 if spent < min_time / 10 else int(iterations * min_time * 1.4 / spent) + 1
    times = [spent / iterations]
    for _ in range(repetitions - 1):
        start = time.process_time()
        for _ in range(iterations):
            run(*arguments)
        times.append((time.process_time() - start) / iterations)
    return statistics.median(times)


def wanted(bench_path):
    """The (row, size) pairs that the benchmark run timed a method for."""
    with open(bench_path) as f:
        data = json.load(f)
    pairs = set()
    for entry in data["benchmarks"]:
        name = re.sub(r"/(iterations|repeats|min_time):[^/]*", "", entry.get("run_name", entry["name"]))
        parts = name.split("|")
        if len(parts) == 3 and parts[0] == "qvt" and parts[2].isdigit():
            pairs.add((parts[1], int(parts[2])))
    return sorted(pairs, key=lambda rn: (rn[1], rn[0]))


def main():
    if len(sys.argv) != 3:
        print(__doc__, file=sys.stderr)
        return 2
    min_time = float(os.environ.get("QVT_BENCH_MIN_TIME", "0.03"))
    repetitions = int(os.environ.get("QVT_BENCH_REPETITIONS", "3"))
    peers, none, done = [], set(), {}
    for row, n in wanted(sys.argv[1]):
        for pattern, what, make, run in PEERS:
            m = re.fullmatch(pattern, row)
            if m:
                break
        else:
            none.add(row)
            continue
        # Rows that share a peer and its arguments share its time.
        key = (pattern, m.groups(), n)
        if key not in done:
            arguments = make(n, m)
            done[key] = timed(run, arguments, min_time, repetitions)
            del arguments
        # What tells one row's data or parameters from another's under one call.
        variant = " ".join(g.strip() for g in m.groups() if g and g.strip())
        peers.append({"row": row, "n": n, "what": what, "variant": variant, "time": done[key]})
    with open(sys.argv[2], "w") as f:
        json.dump({"context": {"numpy": np.__version__, "python": sys.version.split()[0],
                               "min_time": min_time, "repetitions": repetitions},
                   "peers": peers, "none": sorted(none)}, f, indent=1)
    print(f"numpy_peers: {len(done)} numpy timings for {len(peers)} rows; {len(none)} rows without a peer")
    return 0


if __name__ == "__main__":
    sys.exit(main())
