// The compressions of TIFF that browsers do not have: LZW and PackBits, both ways.
const clear = 256, end = 257, firstFree = 258, mostCodes = 4096;

/** Null: damaged or too short. */
export function lzwDecoded(packed: Uint8Array, count: number): Uint8Array | null {
  const all = new Uint8Array(count);
  const before = new Uint16Array(mostCodes), last = new Uint8Array(mostCodes), first = new Uint8Array(mostCodes);
  const length = new Uint16Array(mostCodes).fill(1);
  for (let i = 0; i < clear; ++i) last[i] = first[i] = i;
  let width = 9, next = firstFree, previous = -1, at = 0, held = 0, bits = 0;
  for (let from = 0; at < count;) {
    while (bits < width) {
      if (from >= packed.length) return null;
      held = ((held << 8) | packed[from++]!) & 0xffffff;
      bits += 8;
    }
    const code = (held >> (bits - width)) & ((1 << width) - 1);
    bits -= width;
    if (code === end) return null;
    if (code === clear) {
      [width, next, previous] = [9, firstFree, -1];
      continue;
    }
    if (code > next || code === (previous < 0 ? next : -1) || next >= mostCodes) return null;
    if (previous >= 0) {
      before[next] = previous;
      first[next] = first[previous]!;
      last[next] = code === next ? first[previous]! : first[code]!;
      length[next] = length[previous]! + 1;
      ++next;
      if (next === (1 << width) - 1 && width < 12) ++width;
    }
    at += length[code]!;
    for (let to = at, one = code, left = length[code]!; left > 0; --left, one = before[one]!) {
      if (--to < count) all[to] = last[one]!;
    }
    previous = code;
  }
  return all;
}

class BitsOut {
  private bytes = new Uint8Array(1 << 16);
  private count = 0;
  private held = 0;
  private bits = 0;

  put(code: number, width: number): void {
    this.held = ((this.held << width) | code) & 0xffffff;
    for (this.bits += width; this.bits >= 8; this.bits -= 8) this.add(this.held >> (this.bits - 8));
  }
  taken(): Uint8Array {
    if (this.bits > 0) this.add(this.held << (8 - this.bits));
    return this.bytes.slice(0, this.count);
  }
  private add(byte: number): void {
    if (this.count === this.bytes.length) {
      const more = new Uint8Array(2 * this.count);
      more.set(this.bytes);
      this.bytes = more;
    }
    this.bytes[this.count++] = byte;
  }
}

export function lzwEncoded(bytes: Uint8Array): Uint8Array {
  const slots = 1 << 14, keys = new Int32Array(slots).fill(-1), codes = new Uint16Array(slots);
  const out = new BitsOut();
  let width = 9, next = firstFree, prefix = bytes[0] ?? 0;
  // A reader is one code behind: this counts what it will have made of what was put.
  const putPrefix = (): void => {
    out.put(prefix, width);
    ++next;
    if (next === mostCodes - 2) {
      out.put(clear, width);
      keys.fill(-1);
      [width, next] = [9, firstFree];
    } else if (next > (1 << width) - 1) {
      ++width;
    }
  };
  out.put(clear, width);
  for (let i = 1; i < bytes.length; ++i) {
    const key = (prefix << 8) | bytes[i]!;
    let slot = (key * 0x9e5) & (slots - 1);
    while (keys[slot] !== -1 && keys[slot] !== key) slot = (slot + 1) & (slots - 1);
    if (keys[slot] === key) {
      prefix = codes[slot]!;
      continue;
    }
    keys[slot] = key;
    codes[slot] = next;
    putPrefix();
    prefix = bytes[i]!;
  }
  if (bytes.length > 0) putPrefix();
  out.put(end, width);
  return out.taken();
}

/** Null: damaged or too short. */
export function packBitsDecoded(packed: Uint8Array, count: number): Uint8Array | null {
  const all = new Uint8Array(count);
  let at = 0;
  for (let from = 0; at < count && from < packed.length;) {
    const head = packed[from++]!;
    if (head === 128) continue;
    const length = Math.min(head < 128 ? head + 1 : 257 - head, count - at);
    if (head < 128) {
      all.set(packed.subarray(from, from + length), at);
      if (from + length > packed.length) return null;
      from += head + 1;
    } else {
      all.fill(packed[from++] ?? 0, at, at + length);
    }
    at += length;
  }
  return at === count ? all : null;
}

/** Rows each for itself, as the format asks for. */
export function packBitsEncoded(bytes: Uint8Array, row: number): Uint8Array {
  const most = 128, out = new Uint8Array(bytes.length + Math.ceil(row / most) * Math.ceil(bytes.length / row));
  let to = 0;
  for (let top = 0; top < bytes.length; top += row) {
    const bottom = Math.min(top + row, bytes.length);
    const runAt = (at: number): number => {
      let length = 1;
      while (length < most && at + length < bottom && bytes[at + length] === bytes[at]) ++length;
      return length;
    };
    for (let at = top; at < bottom;) {
      const run = runAt(at);
      if (run > 2) {
        out.set([257 - run, bytes[at]!], to);
        [at, to] = [at + run, to + 2];
        continue;
      }
      const first = at;
      while (at < bottom && at - first < most && runAt(at) <= 2) ++at;
      out[to] = at - first - 1;
      out.set(bytes.subarray(first, at), to + 1);
      to += 1 + at - first;
    }
  }
  return out.slice(0, to);
}
