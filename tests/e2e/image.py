"""make OUT EXEADDR EXESIZE RESADDR RESSIZE [SEED]: an AELF image of pseudo-random bytes. expect IMAGE OUT: the
256 KiB flash after flashing IMAGE: erased but for the 256-byte blocks written, taken from the image area
header | program | resources (zeros after), so a partial block carries what follows it."""
import random, struct, sys

if sys.argv[1] == "make":
    fields = [int(a, 0) for a in sys.argv[3:7]]  # exe address and size, resource address and size
    data = bytearray(random.Random(int(sys.argv[7]) if len(sys.argv) > 7 else 1).randbytes(64 + fields[1] + fields[3]))
    for offset, value in zip((28, 32, 40, 44), fields):
        struct.pack_into("<I", data, offset, value)
    open(sys.argv[2], "wb").write(b"AELF" + data)
else:
    image = open(sys.argv[2], "rb").read()
    assert image[:4] == b"AELF"
    exe, exeSize, res, resSize = (struct.unpack_from("<I", image, 4 + o)[0] for o in (28, 32, 40, 44))
    area, flash = image[4:].ljust(0x48000, b"\0"), bytearray(b"\xff" * 0x40000)
    for address, start, size in ((exe, 64, exeSize), (res, 64 + exeSize, resSize), (0x0803FE00, 0, 64)):
        for i in range(max(1, -(-size // 256)) * 256):  # at least one block
            if 0 <= address + i - 0x08000000 < len(flash):
                flash[address + i - 0x08000000] = area[start + i] if start + i < len(area) else 0xFF
    open(sys.argv[3], "wb").write(flash)
