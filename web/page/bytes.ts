// Bytes that are put together or taken apart, and the web's own deflate.
export function startsWith(bytes: Uint8Array, text: string, at = 0): boolean {
  for (let i = 0; i < text.length; ++i) if (bytes[at + i] !== text.charCodeAt(i)) return false;
  return true;
}

export const bytesOf = (text: string): Uint8Array => Uint8Array.from(text, (letter) => letter.charCodeAt(0));
export const viewOf = (bytes: Uint8Array): DataView => new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);

export function joined(parts: Uint8Array[]): Uint8Array {
  const all = new Uint8Array(parts.reduce((sum, part) => sum + part.length, 0));
  let at = 0;
  for (const part of parts) {
    all.set(part, at);
    at += part.length;
  }
  return all;
}

const checksums = Uint32Array.from({ length: 256 }, (_, byte) => {
  for (let bit = 0; bit < 8; ++bit) byte = byte & 1 ? (byte >>> 1) ^ 0xedb88320 : byte >>> 1;
  return byte;
});
/** CRC-32, as PNG and ZIP have it; of further bytes with the one of those before. */
export function checksum(bytes: Uint8Array, before = 0): number {
  let sum = ~before;
  for (let i = 0; i < bytes.length; ++i) sum = (sum >>> 8) ^ checksums[(sum ^ bytes[i]!) & 255]!;
  return ~sum >>> 0;
}

async function* readAll(stream: ReadableStream<Uint8Array>): AsyncGenerator<Uint8Array> {
  const reader = stream.getReader();
  for (;;) {
    const { done, value } = await reader.read();
    if (done) return;
    yield value;
  }
}

async function writeAll(stream: WritableStream<Uint8Array>, pieces: Iterable<Uint8Array>): Promise<void> {
  const writer = stream.getWriter();
  for (const piece of pieces) {
    await writer.ready;
    await writer.write(piece);
  }
  await writer.close();
}

/** So many bytes out of what was deflated; null where there are fewer, or damaged ones. What follows them does not matter. */
export async function inflated(pieces: Iterable<Uint8Array>, count: number): Promise<Uint8Array | null> {
  const pair = new DecompressionStream('deflate');
  const all = new Uint8Array(count);
  let at = 0;
  const written = writeAll(pair.writable, pieces).catch(() => undefined);
  try {
    for await (const piece of readAll(pair.readable)) {
      all.set(piece.subarray(0, count - at), at);
      at = Math.min(count, at + piece.length);
    }
  } catch {
    if (at < count) return null;
  }
  await written;
  return at === count ? all : null;
}

/** All that was deflated. Null: damaged. */
export async function inflatedWhole(packed: Uint8Array): Promise<Uint8Array | null> {
  const pair = new DecompressionStream('deflate');
  const written = writeAll(pair.writable, [packed]).catch(() => undefined);
  const parts: Uint8Array[] = [];
  try {
    for await (const part of readAll(pair.readable)) parts.push(part);
  } catch {
    return null;
  }
  await written;
  return joined(parts);
}

export async function deflated(pieces: Iterable<Uint8Array>): Promise<Uint8Array[]> {
  const pair = new CompressionStream('deflate');
  const written = writeAll(pair.writable, pieces);
  const parts: Uint8Array[] = [];
  for await (const part of readAll(pair.readable)) parts.push(part);
  await written;
  return parts;
}
