#!/usr/bin/env python3
# Computes reference values for core/hash_test.cc straight from the published MurmurHash2
# and SuperFastHash algorithms (64-bit accumulator variants), independently of the C++ code.
M64 = (1<<64)-1
def murmur(data: bytes):
    m = 0x5bd1e995
    n = len(data); h = n
    i = 0
    while n - i >= 4:
        k = int.from_bytes(data[i:i+4], 'little')
        k = (k*m) & 0xffffffff
        k ^= k >> 24
        k = (k*m) & 0xffffffff
        h = (h*m) & M64
        h ^= k
        i += 4
    r = n - i
    if r == 3: h ^= data[i+2] << 16
    if r >= 2: h ^= data[i+1] << 8
    if r >= 1:
        h ^= data[i]; h = (h*m) & M64
    h ^= h >> 13; h = (h*m) & M64; h ^= h >> 15
    return h
def wide(s):  # first n bytes of UTF-32LE storage, n = characters
    b = s.encode('utf-32-le') + b'\0\0\0\0'
    return b[:len(s)]
def sc(b): return (b - 256 if b > 127 else b) & M64
def sfh(data: bytes):
    n = len(data)
    if n == 0: return 0
    h = n
    g16 = lambda p: data[p] | data[p+1] << 8
    i = 0
    for _ in range(n >> 2):
        h = (h + g16(i)) & M64
        tmp = ((g16(i+2) << 11) ^ h) & 0xffffffff
        h = ((h << 16) ^ tmp) & M64
        i += 4
        h = (h + (h >> 11)) & M64
    r = n & 3
    if r == 3:
        h = (h + g16(i)) & M64; h ^= (h << 16) & M64; h ^= (sc(data[i+2]) << 18) & M64; h = (h + (h >> 11)) & M64
    elif r == 2:
        h = (h + g16(i)) & M64; h ^= (h << 11) & M64; h = (h + (h >> 17)) & M64
    elif r == 1:
        h = (h + sc(data[i])) & M64; h ^= (h << 10) & M64; h = (h + (h >> 1)) & M64
    h ^= (h << 3) & M64; h = (h + (h >> 5)) & M64; h ^= (h << 4) & M64
    h = (h + (h >> 17)) & M64; h ^= (h << 25) & M64; h = (h + (h >> 6)) & M64
    return h
for s in ["", "a", "ab", "abc", "abcd", "abcde", "root", "$$$$$_____empty_key", "$$$$$_____deleted_key", "en-us", "Meter", "h\u00e9llo w\u00f6rld"]:
    print("W", repr(s), hex(murmur(wide(s))))
for b in [b"", b"a", b"ab", b"abc", b"abcd", b"root", b"int32", b"matrix4x4", b"$$$$$_____empty_key", b"\xff", b"ab\xc3", b"\xe9t\xe9"]:
    print("R", b, hex(murmur(b)), hex(sfh(b)))
print("void8", hex(murmur(bytes(range(1,9)))))
