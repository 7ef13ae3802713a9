#!/usr/bin/env python3
"""Makes archives around found.exe in the current folder; with the argument "growing" also files that grow without end when
they are opened."""
import bz2
import gzip
import io
import struct
import sys
import tarfile
import zipfile
import zlib

program = open("found.exe", "rb").read()


def make_zip(members, method=zipfile.ZIP_DEFLATED):
    stream = io.BytesIO()
    with zipfile.ZipFile(stream, "w", method) as archive:
        for name, content in members:
            archive.writestr(zipfile.ZipInfo(name, (2020, 2, 3, 4, 5, 6)), content, method)
    return stream.getvalue()


def make_tar(members):
    stream = io.BytesIO()
    with tarfile.open(fileobj=stream, mode="w") as archive:
        for name, content in members:
            info = tarfile.TarInfo(name)
            info.size, info.mtime = len(content), 1_000_000_000
            archive.addfile(info, io.BytesIO(content))
        link = tarfile.TarInfo("link")
        link.type, link.linkname = tarfile.SYMTYPE, "/etc/passwd"
        archive.addfile(link)
    return stream.getvalue()


def make_rar(members, main_flags=0, locked=()):
    """RAR 4 with stored members; those that are locked say that they are encrypted."""
    def block(kind, flags, rest):
        head = struct.pack("<BHH", kind, flags, 7 + len(rest)) + rest
        return struct.pack("<H", zlib.crc32(head) & 0xFFFF) + head
    archive = b"Rar!\x1a\x07\x00" + block(0x73, main_flags, bytes(6))
    for name, content in members:
        fields = struct.pack("<IIBIIBBHI", len(content), len(content), 2, zlib.crc32(content), 0x50430000, 20, 0x30,
                             len(name), 0x20)
        archive += block(0x74, 0x8004 if name in locked else 0x8000, fields + name.encode()) + content
    return archive + block(0x7B, 0x4000, b"")


def make_rar5(members, locked=(), first=b"\1\0\0"):
    """RAR 5 with stored members; those that are locked have a record of encryption. `first` is the first header."""
    def number(value):
        return bytes([value & 0x7F | 0x80]) + number(value >> 7) if value > 0x7F else bytes([value])

    def block(header, data=b""):
        sized = number(len(header)) + header
        return struct.pack("<I", zlib.crc32(sized)) + sized + data

    archive = b"Rar!\x1a\x07\x01\x00" + block(first)
    for name, content in members:
        extra = bytes([36, 1, 0, 0, 15]) + bytes(32) if name in locked else b""
        archive += block(b"\2" + (b"\3" + number(len(extra)) if extra else b"\2") + number(len(content)) + b"\4"
                         + number(len(content)) + b"\x20" + struct.pack("<I", zlib.crc32(content)) + b"\0\1"
                         + number(len(name)) + name.encode() + extra, content)
    return archive + block(b"\5\0\0")


def make_cabinet(members):
    """A cabinet in Microsoft's variant of deflate: blocks of 32 KiB, here each on its own."""
    files, offset = b"", 0
    for name, content in members:
        files += struct.pack("<IIHHHH", len(content), offset, 0, 0x5043, 0, 0x20) + name.encode() + b"\0"
        offset += len(content)
    data = b"".join(content for _, content in members)
    blocks = [data[at:at + 32768] for at in range(0, len(data), 32768)]
    packed = b""
    for block in blocks:
        deflate = zlib.compressobj(wbits=-15)
        small = b"CK" + deflate.compress(block) + deflate.flush()
        packed += struct.pack("<IHH", 0, len(small), len(block)) + small
    first_data = 36 + 8 + len(files)
    return (struct.pack("<4sIIIIIBBHHHHH", b"MSCF", 0, first_data + len(packed), 0, 44, 0, 3, 1, 1, len(members), 0, 0, 0)
            + struct.pack("<IHH", first_data, len(blocks), 1) + files + packed)


def write(name, content):
    with open(name, "wb") as file:
        file.write(content)


pair = [("in/found.exe", program), ("read\u00e9.txt", b"text")]
plain = [("found.exe", program), ("readme.txt", b"text")]
write("a.zip", make_zip(pair))
write("a.tar", make_tar(pair))
write("a.tar.gz", gzip.compress(make_tar(pair)))
write("found.exe.gz", gzip.compress(program))
write("a.cab", make_cabinet(plain))
write("a.rar", make_rar(plain))
write("a5.rar", make_rar5(plain))
locked = plain + [("secret.exe", program)]
write("locked.rar", make_rar(locked, locked=["secret.exe"]))
write("locked5.rar", make_rar5(locked, ["secret.exe"]))
write("names.rar", make_rar([], main_flags=0x80) + bytes(64))
write("names5.rar", make_rar5([], first=b"\4\0\0\0\x0f" + bytes(16)) + bytes(64))
write("nested.zip", make_zip([("deep/a.rar", make_rar([("b.tar", make_tar(pair))])), ("note.txt", b"")]))
damaged = bytearray(make_zip([("x.exe", program), ("found.exe", program)]))
damaged[60] ^= 0xFF
write("damaged.zip", damaged)
encrypted = bytearray(make_zip([("secret.exe", program)]))
encrypted[6] |= 1
encrypted[encrypted.rindex(b"PK\1\2") + 8] |= 1
write("encrypted.zip", encrypted)
write("names.zip", make_zip([(name, b"x") for name in
                             ("../../up", "/etc/abs", "C:\\drive", "same", "SAME", "con.txt", "a\x1b[31mred")]))

# A million names.
write("names.tgz", gzip.compress(make_tar([(str(number), b"") for number in range(1000)])[:512 * 1000]) * 1000)

if sys.argv[1:] != ["growing"]:
    sys.exit()
# Compressed streams may be put one after the other: 10 GiB of zeros each.
write("zeros.gz", gzip.compress(bytes(64 << 20)) * 160)
write("zeros.bz2", bz2.compress(bytes(64 << 20)) * 160)
# Every layer holds sixteen of the one below.
layer = bz2.compress(bytes(64 << 20)) * 16
for _ in range(6):
    layer = make_zip([(f"{number}.zip", layer) for number in range(16)])
write("layers.zip", layer)
# Three thousand names of 16 KB.
long_names = b"".join(tarfile.TarInfo(f"{number:016000}").tobuf(tarfile.GNU_FORMAT) for number in range(50))
write("long.tgz", gzip.compress(long_names) * 60)
