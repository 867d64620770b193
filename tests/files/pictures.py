"""Small pictures of every kind, and damaged ones made of them. All is the same in every run."""
import pathlib
import random
import struct
import zlib


def chunk(kind, data):
    return struct.pack('>I', len(data)) + kind + data + struct.pack('>I', zlib.crc32(kind + data))


def png(width, height, rows, colour=0, bits=8, interlace=0):
    """`rows`: compressed already, each behind its filter's byte."""
    head = struct.pack('>IIBBBBB', width, height, bits, colour, 0, 0, interlace)
    return b'\x89PNG\r\n\x1a\n' + chunk(b'IHDR', head) + chunk(b'IDAT', rows) + chunk(b'IEND', b'')


def read_png(path):
    """Width, height, channels and rows of an 8-bit PNG file as the samples are."""
    data, at, rows = pathlib.Path(path).read_bytes(), 8, b''
    while at < len(data):
        length, kind = struct.unpack('>I4s', data[at:at + 8])
        if kind == b'IHDR':
            width, height, _, colour = struct.unpack('>IIBB', data[at + 8:at + 18])
        rows += data[at + 8:at + 8 + length] if kind == b'IDAT' else b''
        at += 12 + length
    channels, rows, out = 3 if colour == 2 else 1, zlib.decompress(rows), []
    before, stride = bytearray(width * channels), width * channels
    for y in range(height):
        way, row = rows[y * (stride + 1)], bytearray(rows[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        for i in range(stride if way else 0):
            a, b = row[i - channels] if i >= channels else 0, before[i]
            c = before[i - channels] if i >= channels else 0
            paeth = min((abs(b - c), 0, a), (abs(a - c), 1, b), (abs(a + b - 2 * c), 2, c))[2]
            row[i] = (row[i] + (0, a, b, (a + b) // 2, paeth)[way]) & 255
        out.append(bytes(row))
        before = row
    return width, height, channels, out


def pnm(rows, channels, largest=255):
    width = len(rows[0]) // channels // (2 if largest > 255 else 1)
    return b'P%d\n%d %d\n%d\n' % (6 if channels == 3 else 5, width, len(rows), largest) + b''.join(rows)


def tiled(rows, channels, width, height):
    """A larger picture of a sample, repeated."""
    return [(rows[y % len(rows)] * (width * channels // len(rows[0]) + 1))[:width * channels] for y in range(height)]


def tiff(entries, data=b'', data_tag=273):
    """Little-endian; `entries` {tag: (type, value)} beside the strip's offset."""
    entries = dict(entries)
    entries[data_tag] = (4, 8 + 2 + 12 * (len(entries) + 1) + 4)
    fields = b''.join(struct.pack('<HHII', tag, kind, 1, value) for tag, (kind, value) in sorted(entries.items()))
    return b'II*\0\x08\0\0\0' + struct.pack('<H', len(entries)) + fields + b'\0\0\0\0' + data


def tiff_bomb(width, height, strip_rows, data, compression):
    return tiff({256: (4, width), 257: (4, height), 258: (3, 8), 259: (3, compression), 262: (3, 1), 277: (3, 1),
                 278: (4, strip_rows), 279: (4, len(data))}, data)


def pdf(width, height, data, told='/Filter /FlateDecode', space='/DeviceGray'):
    """A page with one picture."""
    objects = [b'<</Type/Catalog/Pages 2 0 R>>', b'<</Type/Pages/Kids[3 0 R]/Count 1>>',
               b'<</Type/Page/Parent 2 0 R/MediaBox[0 0 99 99]/Contents 4 0 R/Resources<</XObject<</I 5 0 R>>>>>>',
               b'<</Length 26>>stream\nq 99 0 0 99 0 0 cm /I Do Q\nendstream',
               b'<</Type/XObject/Subtype/Image/Width %d/Height %d/BitsPerComponent 8/ColorSpace%s%s/Length %d>>stream\n'
               % (width, height, space.encode(), told.encode(), len(data)) + data + b'\nendstream']
    text, places = b'%PDF-1.5\n', []
    for number, content in enumerate(objects, 1):
        places.append(len(text))
        text += b'%d 0 obj\n' % number + content + b'\nendobj\n'
    table = b'xref\n0 6\n0000000000 65535 f \n' + b''.join(b'%010d 00000 n \n' % place for place in places)
    return text + table + b'trailer<</Size 6/Root 1 0 R>>\nstartxref\n%d\n%%%%EOF' % len(text)


def wholes(rows, convert):
    """{name: bytes} of one picture of 160 x 120 in every format; `rows` of a larger RGB sample, convert(bytes, name, *options)."""
    colour = [row[480:960] for row in rows[100:220]]
    grey = [row[1::3] for row in colour]
    deep = pnm([bytes(byte for sample in row for byte in (sample, sample)) for row in grey], 1, 65535)
    made = {'g.pgm': pnm(grey, 1), 'c.ppm': pnm(colour, 3), 'd.pgm': deep}
    for name, source, *options in (
            ('g.png', 'g.pgm'), ('c.png', 'c.ppm'), ('d.png', 'd.pgm'), ('c.jpg', 'c.ppm'), ('g.jpg', 'g.pgm'),
            ('n.tif', 'c.ppm', '--compression', 'none'), ('l.tif', 'c.ppm', '--compression', 'lzw'),
            ('f.tif', 'g.pgm', '--compression', 'deflate'), ('z.tif', 'd.pgm', '--compression', 'zstd'),
            ('p.tif', 'g.pgm', '--compression', 'packbits'), ('c.webp', 'c.ppm'), ('y.webp', 'c.ppm', '--quality', '80'),
            ('c.jp2', 'c.ppm'), ('d.jp2', 'd.pgm'), ('c.jxl', 'c.ppm'), ('d.jxl', 'd.pgm')):
        made[name] = convert(made[source], source, name, *options)
    made['w.jxl'] = convert(pnm(tiled(grey, 1, 8200, 20), 1), 'w.pgm', 'w.jxl')
    made['f.pdf'] = pdf(160, 120, zlib.compress(b''.join(grey)))
    made['j.pdf'] = pdf(160, 120, made['c.jpg'], '/Filter /DCTDecode', '/DeviceRGB')
    return made


# A picture that can be decoded after a byte was turned is a picture; what has checksums never is.
CHECKED = ('.png',)
DAMAGED, ANY = {3}, {0, 3, 4}


def cuts_and_flips(whole, per_file):
    for name, data in whole.items():
        chance, stem, end = random.Random(name), *name.split('.')
        places = [len(data) - 1, len(data) - 12, 20, 6] + [chance.randrange(8, len(data)) for _ in range(per_file)]
        for number, kept in enumerate(places[:per_file]):
            yield f'cut-{stem}{number}.{end}', data[:kept], DAMAGED
        for number in range(per_file):
            at = chance.randrange(min(len(data), 64)) if number % 3 == 0 else chance.randrange(len(data))
            turned = data[:at] + bytes([data[at] ^ chance.randrange(1, 256)]) + data[at + 1:]
            yield f'flip-{stem}{number}.{end}', turned, DAMAGED if '.' + end in CHECKED else ANY


def replaced(data, old, new):
    assert data.count(old) >= 1 and len(old) == len(new), old
    return data.replace(old, new)


def wrong_sizes(whole):
    """Sizes in headers that the data do not have."""
    size = struct.pack('>II', 160, 120)
    for number, (width, height) in enumerate(((0, 120), (160, 0), (0, 0), (161, 120), (160, 121), (60000, 60000),
                                              (0x7FFFFFFF, 1), (0xFFFFFFFF, 0xFFFFFFFF), (0x80000000, 120))):
        wrong = struct.pack('>II', width, height)
        head = replaced(whole['c.png'][12:29], size, wrong)
        yield f'size-{number}.png', whole['c.png'][:12] + head + struct.pack('>I', zlib.crc32(head)) + whole['c.png'][33:], DAMAGED
        text = b'%d %d' % (width, height)
        yield f'size-{number}.ppm', whole['c.ppm'].replace(b'160 120', text), DAMAGED
        yield f'size-{number}.pgm', whole['d.pgm'].replace(b'160 120', text), DAMAGED
        at = whole['c.jp2'].index(b'\xFF\x51') + 6
        yield f'size-{number}.jp2', whole['c.jp2'][:at] + wrong + whole['c.jp2'][at + 8:], {3, 6}
        for kind, name in ((b'\xFF\xC0', 'c.jpg'), (b'\xFF\xC0', 'g.jpg')):
            at = whole[name].index(kind) + 5
            short = struct.pack('>HH', height & 0xFFFF, width & 0xFFFF)
            yield f'size-{name[0]}{number}.jpg', whole[name][:at] + short + whole[name][at + 4:], {3, 6}
        yield f'size-{number}.pdf', pdf(width, height, zlib.compress(bytes(19200))), {0, 3, 6}
    data = whole['n.tif']
    directory, = struct.unpack('<I', data[4:8])
    count, = struct.unpack('<H', data[directory:directory + 2])
    for entry in range(count):
        at = directory + 2 + 12 * entry
        tag, = struct.unpack('<H', data[at:at + 2])
        for number, value in enumerate((0, 65535, 0xFFFFFFFF)):
            yield (f'tag-{tag}-{number}.tif', data[:at + 8] + struct.pack('<I', value) + data[at + 12:], ANY | {6})
    for largest in (b'0', b'65536', b'-1', b'x'):
        yield f'largest-{largest.decode()}.pgm', whole['g.pgm'].replace(b'\n255\n', b'\n' + largest + b'\n'), DAMAGED


def strange_shapes():
    for width, height in ((65536, 1), (1, 65536), (1, 1), (2, 3), (7501, 2)):
        rows = zlib.compress((b'\0' + bytes(width)) * height, 1)
        yield f'shape-{width}x{height}.png', png(width, height, rows), {0}
        yield f'shape-{width}x{height}.pgm', b'P5 %d %d 255\n' % (width, height) + bytes(width * height), {0}
        yield f'shape-{width}x{height}.tif', tiff_bomb(width, height, height, bytes(width * height), 1), {0}


def jxl_of_size(data, width, height):
    """A codestream of another size, which its head tells in numbers of bits; what follows begins at the same bit of a byte. `data`
    are of a picture that is wider than 8192 pixels and at most 512 high."""
    at = data.index(b'\xFF\x0A') + 2
    bits, kept = int.from_bytes(data[at:], 'little'), 1 + 2 + 9 + 3 + 2 + 18
    head, used = 0, 0
    for value, count in ((0, 1), (1, 2), (height - 1, 13), (0, 3), (3, 2), (width - 1, 30)):
        head, used = head | value << used, used + count
    assert bits & 7 == 0 and (used - kept) % 8 == 0, 'another form of head'
    told = head | bits >> kept << used
    return b'\xFF\x0A' + told.to_bytes((told.bit_length() + 7) // 8, 'little')


def bombs(whole):
    """Small files that tell of gigabytes."""
    little = zlib.compress(bytes(1 << 20), 9)
    yield 'bomb-rows.png', png(60000, 60000, little), DAMAGED
    yield 'bomb-interlaced.png', png(60000, 60000, little, interlace=1), {6}
    yield 'bomb-wide.png', png(900000, 900000, little), {3, 6}
    text = zlib.compress(bytes(64 << 20), 1)
    whole_png = whole['g.png']
    for kind, name in ((b'zTXt', b'Comment\0\0'), (b'iCCP', b'profile\0\0'), (b'iTXt', b'Comment\0\1\0\0\0')):
        yield f'bomb-{kind.decode()}.png', whole_png[:33] + chunk(kind, name + text) + whole_png[33:], {0, 3}
    for number, (code, data) in enumerate(((1, bytes(100)), (8, little), (5, bytes(100)), (32773, bytes(100)), (7, whole['g.jpg']))):
        yield f'bomb-strip{number}.tif', tiff_bomb(60000, 60000, 60000, data, code), {3, 6}
        yield f'bomb-strips{number}.tif', tiff_bomb(60000, 60000, 1, data, code), {3, 6}
    loop = tiff_bomb(8, 8, 8, bytes(64), 1)
    end = loop.index(b'\0\0\0\0' + bytes(64))
    yield 'bomb-loop.tif', loop[:end] + b'\x08\0\0\0' + loop[end + 4:], {0, 3}
    for name in ('c.webp', 'y.webp'):
        at = whole[name].index(b'VP8L') + 9 if b'VP8L' in whole[name] else whole[name].index(b'\x9D\x01\x2A') + 3
        most = b'\xFF\xFF\xFF' if b'VP8L' in whole[name] else b'\xFF\x3F\xFF\x3F'
        yield 'bomb-' + name, whole[name][:at] + most + whole[name][at + len(most):], {3, 6}
    for number, (width, height) in enumerate(((60000, 6000), (1 << 30, 1))):
        yield f'bomb-{number}.jxl', jxl_of_size(whole['w.jxl'], width, height), {3, 6}
    at, size = whole['c.jp2'].index(b'\xFF\x51') + 6, struct.pack('>II', 60000, 6000)
    oneTile = whole['c.jp2'][:at] + size + bytes(8) + size + whole['c.jp2'][at + 24:]
    yield 'bomb-tile.jp2', replaced(oneTile, struct.pack('>II', 120, 160), struct.pack('>II', 6000, 60000)), {6}
    progressive = whole['g.jpg'].replace(b'\xFF\xC0', b'\xFF\xC2')
    at = progressive.index(b'\xFF\xC2') + 5
    yield 'bomb-progressive.jpg', progressive[:at] + struct.pack('>HH', 65500, 65500) + progressive[at + 4:], {3, 6}
    yield 'bomb-inflated.pdf', pdf(64, 64, zlib.compress(bytes(64 << 20), 1)), {0, 3}
    yield 'bomb-filters.pdf', pdf(64, 64, zlib.compress(zlib.compress(bytes(64 << 20), 1)), '/Filter[/FlateDecode/FlateDecode]'), {0, 3}
    for number, (width, height) in enumerate(((2000000000, 2000000000), (64, 2000000000), (2000000000, 64), (30000, 30000))):
        yield f'bomb-told{number}.pdf', pdf(width, height, little), {0, 3, 6}
