// PNG files, read and written sample for sample: a browser's own decoder cuts 16 bits to 8 and multiplies colours by alpha.
import { inflated, joined, bytesOf, deflated, viewOf } from './bytes.js';
import { chunkOf, chunksOf, dataOf, isWhole, signature, type Chunk } from './png_chunks.js';
import { rowBytes, swapBytes, type Samples } from './samples.js';

interface Kind {
  width: number;
  height: number;
  bits: number; // of a sample or of an index
  samples: number; // of a pixel
  isPalette: boolean;
  isInterlaced: boolean;
}

const samplesOfType: Record<number, number> = { 0: 1, 2: 3, 3: 1, 4: 2, 6: 4 };
// First column and row of each pass, and the steps to the next.
const passes = [[0, 0, 8, 8], [4, 0, 8, 8], [0, 4, 4, 8], [2, 0, 4, 4], [0, 2, 2, 4], [1, 0, 2, 2], [0, 1, 1, 2]] as const;
const filters = 5, pieceBytes = 1 << 20;

/** Null: the header is damaged or cut short. */
export function pngKind(chunks: Chunk[]): Kind | null {
  const header = chunks[0];
  if (header?.type !== 'IHDR' || header.bytes.length !== 25 || !isWhole(header)) return null;
  const data = dataOf(header), view = viewOf(data);
  const [bits, type, interlace] = [data[8]!, data[9]!, data[12]!];
  const samples = samplesOfType[type], isPalette = type === 3;
  const allowed = isPalette ? [1, 2, 4, 8] : type === 0 ? [1, 2, 4, 8, 16] : [8, 16];
  if (samples === undefined || !allowed.includes(bits) || interlace > 1) return null;
  const [width, height] = [view.getUint32(0), view.getUint32(4)];
  return width > 0 && height > 0 ? { width, height, bits, samples, isPalette, isInterlaced: interlace === 1 } : null;
}

function paeth(left: number, up: number, corner: number): number {
  const guess = left + up - corner;
  const toLeft = Math.abs(guess - left), toUp = Math.abs(guess - up), toCorner = Math.abs(guess - corner);
  return toLeft <= toUp && toLeft <= toCorner ? left : toUp <= toCorner ? up : corner;
}

/** Rows with their filters' numbers become bare rows, at the beginning of the same bytes. False: no such filter. */
function unfilter(raw: Uint8Array, rows: number, bytes: number, back: number): boolean {
  for (let y = 0, from = 0, to = 0; y < rows; ++y, from += bytes + 1, to += bytes) {
    const filter = raw[from]!, above = to - bytes;
    if (filter >= filters) return false;
    for (let i = 0; i < bytes; ++i) {
      const value = raw[from + 1 + i]!;
      const left = i >= back ? raw[to + i - back]! : 0;
      const up = y > 0 ? raw[above + i]! : 0;
      switch (filter) {
        case 0: raw[to + i] = value; break;
        case 1: raw[to + i] = value + left; break;
        case 2: raw[to + i] = value + up; break;
        case 3: raw[to + i] = value + ((left + up) >> 1); break;
        default: raw[to + i] = value + paeth(left, up, y > 0 && i >= back ? raw[above + i - back]! : 0);
      }
    }
  }
  return true;
}

const packedBytes = (kind: Kind, width: number): number => Math.ceil((width * kind.samples * kind.bits) / 8);

/** Samples of less than 8 bits get a byte each; the others stay. */
function unpacked(kind: Kind, width: number, height: number, packed: Uint8Array): Uint8Array {
  if (kind.bits >= 8) return packed;
  const bytes = new Uint8Array(width * height), row = packedBytes(kind, width), most = (1 << kind.bits) - 1;
  const scale = kind.isPalette ? 1 : 255 / most;
  for (let y = 0, to = 0; y < height; ++y) {
    for (let x = 0, bit = 0; x < width; ++x, bit += kind.bits) {
      bytes[to++] = ((packed[y * row + (bit >> 3)]! >> (8 - kind.bits - (bit & 7))) & most) * scale;
    }
  }
  return bytes;
}

async function decode(kind: Kind, data: Uint8Array[]): Promise<Uint8Array | null> {
  const { width, height } = kind;
  const back = Math.max(1, (kind.samples * kind.bits) / 8), pixel = kind.samples * Math.max(1, kind.bits / 8);
  const sizes = (kind.isInterlaced ? passes : [[0, 0, 1, 1] as const]).map(([left, top, across, down]) => ({
    left, top, across, down, columns: Math.ceil((width - left) / across), rows: Math.ceil((height - top) / down),
  })).filter(({ columns, rows }) => columns > 0 && rows > 0);
  const all = sizes.reduce((sum, { columns, rows }) => sum + rows * (packedBytes(kind, columns) + 1), 0);
  const raw = await inflated(data, all);
  if (!raw) return null;
  const whole = kind.isInterlaced ? new Uint8Array(width * height * pixel) : null;
  for (let i = 0, at = 0; i < sizes.length; ++i) {
    const { left, top, across, down, columns, rows } = sizes[i]!;
    const bytes = packedBytes(kind, columns), pass = raw.subarray(at, at + rows * (bytes + 1));
    at += pass.length;
    if (!unfilter(pass, rows, bytes, back)) return null;
    const samples = unpacked(kind, columns, rows, pass.subarray(0, rows * bytes));
    if (!whole) return samples;
    for (let y = 0, from = 0; y < rows; ++y) {
      for (let x = 0; x < columns; ++x, from += pixel) {
        whole.set(samples.subarray(from, from + pixel), ((top + y * down) * width + left + x * across) * pixel);
      }
    }
  }
  return whole;
}

/** Colours instead of numbers, with alpha where the palette has it. */
function painted(indices: Uint8Array, palette: Uint8Array, alphas: Uint8Array | null): Uint8Array {
  const samples = alphas ? 4 : 3, bytes = new Uint8Array(indices.length * samples);
  for (let i = 0, to = 0; i < indices.length; ++i, to += samples) {
    const index = indices[i]!;
    for (let c = 0; c < 3; ++c) bytes[to + c] = palette[3 * index + c] ?? 0;
    if (alphas) bytes[to + 3] = alphas[index] ?? 255;
  }
  return bytes;
}

/** Alpha of 0 where a pixel has the see-through colour (16 bits a sample, big-endian in the chunk), all elsewhere. */
function keyed(bytes: Uint8Array, kind: Kind, key: Uint8Array): Uint8Array {
  const size = kind.bits === 16 ? 2 : 1, pixel = kind.samples * size, scale = kind.bits < 8 ? 255 / ((1 << kind.bits) - 1) : 1;
  const wanted = Array.from({ length: pixel }, (_, i) => (size === 2 ? key[i]! : key[2 * i + 1]! * scale));
  const all = new Uint8Array((bytes.length / pixel) * (pixel + size));
  for (let from = 0, to = 0; from < bytes.length; from += pixel, to += pixel + size) {
    let isKey = true;
    for (let i = 0; i < pixel; ++i) {
      all[to + i] = bytes[from + i]!;
      isKey &&= bytes[from + i] === wanted[i];
    }
    if (!isKey) all.fill(255, to + pixel, to + pixel + size);
  }
  return all;
}

/** Null: damaged or cut short. */
export async function readPng(file: Uint8Array): Promise<Samples | null> {
  const chunks = chunksOf(file), kind = pngKind(chunks);
  const dataOfType = (type: string): Uint8Array | null => {
    const chunk = chunks.find((one) => one.type === type);
    return chunk ? dataOf(chunk) : null;
  };
  const data = chunks.filter((chunk) => chunk.type === 'IDAT'), palette = dataOfType('PLTE'), see = dataOfType('tRNS');
  const isThere = kind && chunks[chunks.length - 1]?.type === 'IEND' && data.every(isWhole) && (palette || !kind.isPalette);
  const decoded = isThere ? await decode(kind, data.map(dataOf)) : null;
  if (!decoded || !kind) return null;
  const bits = kind.bits === 16 ? 16 : 8;
  const { width, height, samples } = kind;
  let bytes: Uint8Array = decoded, extras = 1 - (samples % 2);
  if (kind.isPalette) {
    bytes = painted(decoded, palette!, see);
    extras = see ? 1 : 0;
  } else if (see && extras === 0 && see.length >= 2 * samples) {
    bytes = keyed(decoded, kind, see);
    extras = 1;
  }
  if (bits === 16) swapBytes(bytes);
  return { width, height, bits, colours: kind.isPalette || samples > 2 ? 3 : 1, extras, bytes };
}

/** Rows, each behind the filter that leaves the least to it. */
function* filtered(samples: Samples): Generator<Uint8Array> {
  const bytes = rowBytes(samples), back = bytes / samples.width;
  const rowsOfPiece = Math.max(1, Math.floor(pieceBytes / (bytes + 1)));
  const tries = Array.from({ length: filters }, () => new Uint8Array(bytes));
  let row = new Uint8Array(bytes), above = new Uint8Array(bytes);
  for (let top = 0; top < samples.height; top += rowsOfPiece) {
    const rows = Math.min(rowsOfPiece, samples.height - top), piece = new Uint8Array(rows * (bytes + 1));
    for (let y = 0; y < rows; ++y) {
      [row, above] = [above, row];
      row.set(samples.bytes.subarray((top + y) * bytes, (top + y + 1) * bytes));
      if (samples.bits === 16) swapBytes(row);
      const best = filterRow(row, above, back, tries);
      piece[y * (bytes + 1)] = best;
      piece.set(tries[best]!, y * (bytes + 1) + 1);
    }
    yield piece;
  }
}

function filterRow(row: Uint8Array, above: Uint8Array, back: number, tries: Uint8Array[]): number {
  const [none, sub, up, mean, guess] = tries as [Uint8Array, Uint8Array, Uint8Array, Uint8Array, Uint8Array];
  const sums = [0, 0, 0, 0, 0];
  const size = (byte: number): number => (byte < 128 ? byte : 256 - byte);
  for (let i = 0; i < row.length; ++i) {
    const value = row[i]!, over = above[i]!, left = i >= back ? row[i - back]! : 0, corner = i >= back ? above[i - back]! : 0;
    sums[0] += size((none[i] = value));
    sums[1] += size((sub[i] = (value - left) & 255));
    sums[2] += size((up[i] = (value - over) & 255));
    sums[3] += size((mean[i] = (value - ((left + over) >> 1)) & 255));
    sums[4] += size((guess[i] = (value - paeth(left, over, corner)) & 255));
  }
  return sums.indexOf(Math.min(...sums));
}

export async function writePng(samples: Samples, chunks: Uint8Array[]): Promise<Blob> {
  const header = new Uint8Array(13), view = viewOf(header);
  view.setUint32(0, samples.width);
  view.setUint32(4, samples.height);
  header[8] = samples.bits;
  header[9] = (samples.colours === 3 ? 2 : 0) + (samples.extras > 0 ? 4 : 0);
  const parts = await deflated(filtered(samples));
  const data: Uint8Array[] = [];
  for (let first = 0; first < parts.length; first += 32) data.push(chunkOf('IDAT', joined(parts.slice(first, first + 32))));
  const all = [bytesOf(signature), chunkOf('IHDR', header), ...chunks, ...data, chunkOf('IEND', new Uint8Array())];
  return new Blob(all, { type: 'image/png' });
}
