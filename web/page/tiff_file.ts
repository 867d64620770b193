// TIFF files of one page, grey or RGB of 8 or 16 bits, read and written sample for sample.
import { deflated, inflated, joined } from './bytes.js';
import { Refusal } from './refusal.js';
import { pixelBytes, rowBytes, swapBytes, type Samples } from './samples.js';
import { lzwDecoded, lzwEncoded, packBitsDecoded, packBitsEncoded } from './tiff_codes.js';
import { directoryBytes, numbersTag, TagFile, Tags, tiffHeader, types, type Descriptive, type Tag } from './tiff_tags.js';
import { refusals, tiffKinds } from './words.js';

const none = 1, lzw = 5, deflate = 8, oldDeflate = 32946, packBits = 32773;
const whiteIsZero = 0, blackIsZero = 1, rgb = 2;
const unassociatedAlpha = 2, unspecified = 0, mostSamples = 4;
const stripBytes = 1 << 18, largestTile = 4096;

const knowsPredictor = (compression: number): boolean => compression !== none && compression !== packBits;

/** How the file stored its samples, and what it says of them: all that the result needs of it. */
export interface TiffForm {
  compression: number;
  predicts: boolean;
  tile: { width: number; height: number } | null;
  own: Tag[];
  descriptive: Descriptive;
}

export interface TiffKind {
  tags: TagFile;
  width: number;
  height: number;
  bits: 8 | 16;
  colours: 1 | 3;
  extras: number;
}

/** Refuses what is not taken. Null: damaged. */
export function tiffKind(name: string, file: Uint8Array): TiffKind | null {
  const tags = TagFile.read(file);
  if (!tags) return null;
  const refuse = (what: string): never => {
    throw new Refusal(refusals.tiffKind(name, what));
  };
  const pages = tags.pages.filter((_, page) => (tags.value(Tags.reduced, 0, page) & 1) === 0).length;
  if (pages > 1) refuse(tiffKinds.pages(pages));
  const [width, height] = [tags.value(Tags.width, 0), tags.value(Tags.height, 0)];
  const samples = tags.value(Tags.samples, 1), photometric = tags.value(Tags.photometric, blackIsZero);
  const bits = tags.values(Tags.bits), formats = tags.values(Tags.sampleFormat), colours = photometric === rgb ? 3 : 1;
  if (photometric === 3) refuse(tiffKinds.palette);
  if (photometric === 5) refuse(tiffKinds.cmyk);
  if (![whiteIsZero, blackIsZero, rgb].includes(photometric)) refuse(tiffKinds.colours);
  if (formats.includes(3)) refuse(tiffKinds.floats);
  if (formats.some((format) => format !== 1 && format !== 4)) refuse(tiffKinds.signed);
  const most = bits[0] ?? 1;
  if ((most !== 8 && most !== 16) || bits.some((other) => other !== most)) refuse(tiffKinds.depth(most));
  if (![none, lzw, deflate, oldDeflate, packBits].includes(tags.value(Tags.compression, none))) refuse(tiffKinds.compression);
  if (samples > mostSamples || tags.value(Tags.fillOrder, 1) !== 1 || tags.value(Tags.predictor, 1) > 2) refuse(tiffKinds.other);
  if (width < 1 || height < 1 || samples < colours) return null;
  return { tags, width, height, bits: most as 8 | 16, colours, extras: samples - colours };
}

export function tiffForm({ tags }: TiffKind): TiffForm {
  const compression = tags.value(Tags.compression, none);
  const tile = { width: tags.value(Tags.tileWidth, 0), height: tags.value(Tags.tileHeight, 0) };
  const isTiled = tile.width > 0 && tile.height > 0 && tile.width <= largestTile && tile.height <= largestTile;
  const own = [Tags.orientation, Tags.xResolution, Tags.yResolution, Tags.resolutionUnit, Tags.xmp, Tags.photoshop, Tags.profile, Tags.extraSamples];
  return {
    compression: compression === oldDeflate ? deflate : compression, predicts: tags.value(Tags.predictor, 1) !== 1,
    tile: isTiled ? tile : null, own: tags.tags(own), descriptive: tags.descriptive(),
  };
}

/** Horizontal differences of 8 or 16 bits, taken or undone. */
function differ(bytes: Uint8Array, row: number, bits: number, back: number, isUndone: boolean): void {
  const all = bits === 16 ? new Uint16Array(bytes.buffer, bytes.byteOffset, bytes.length >> 1) : bytes;
  const length = bits === 16 ? row >> 1 : row;
  for (let top = 0; top + length <= all.length; top += length) {
    if (isUndone) for (let i = top + back; i < top + length; ++i) all[i] += all[i - back]!;
    else for (let i = top + length - 1; i >= top + back; --i) all[i] -= all[i - back]!;
  }
}

async function unpack(compression: number, packed: Uint8Array, count: number): Promise<Uint8Array | null> {
  switch (compression) {
    case none: return packed.length >= count ? packed.slice(0, count) : null;
    case lzw: return lzwDecoded(packed, count);
    case packBits: return packBitsDecoded(packed, count);
    default: return inflated([packed], count);
  }
}

/** Null: damaged or cut short. */
export async function readTiff(kind: TiffKind, file: Uint8Array): Promise<Samples | null> {
  const { tags, width, height, bits, colours, extras } = kind;
  const samples: Samples = { width, height, bits, colours, extras, bytes: new Uint8Array(width * height * pixelBytes(kind)) };
  const isTiled = tags.value(Tags.tileWidth, 0) > 0, isSplit = tags.value(Tags.planes, 1) === 2 && colours + extras > 1;
  const offsets = tags.values(isTiled ? Tags.tileOffsets : Tags.stripOffsets), lengths = tags.values(isTiled ? Tags.tileBytes : Tags.stripBytes);
  const block = {
    width: isTiled ? tags.value(Tags.tileWidth, 0) : width,
    height: isTiled ? tags.value(Tags.tileHeight, 0) : Math.min(height, tags.value(Tags.rowsPerStrip, height) || height),
  };
  const isSane = block.height > 0 && Math.max(block.width, block.height) <= 65536;
  if (!isSane) return null;
  const across = Math.ceil(width / block.width), down = Math.ceil(height / block.height);
  const pixel = isSplit ? bits / 8 : pixelBytes(kind), whole = pixelBytes(kind), compression = tags.value(Tags.compression, none);
  for (let index = 0; index < across * down * (isSplit ? colours + extras : 1); ++index) {
    const [offset, length] = [offsets[index], lengths[index] ?? (compression === none ? file.length : 0)];
    const left = (index % across) * block.width, top = (Math.floor(index / across) % down) * block.height;
    const rows = isTiled ? block.height : Math.min(block.height, height - top), row = block.width * pixel;
    if (offset === undefined || offset >= file.length) return null;
    const bytes = await unpack(compression, file.subarray(offset, offset + length), rows * row);
    if (!bytes) return null;
    if (bits === 16 && tags.isBigEndian) swapBytes(bytes);
    if (tags.value(Tags.predictor, 1) === 2 && knowsPredictor(compression)) differ(bytes, row, bits, isSplit ? 1 : colours + extras, true);
    const channel = isSplit ? Math.floor(index / (across * down)) * pixel : 0, columns = Math.min(block.width, width - left);
    for (let y = 0; y < Math.min(rows, height - top); ++y) {
      const from = y * row, to = ((top + y) * width + left) * whole + channel;
      if (!isSplit) samples.bytes.set(bytes.subarray(from, from + columns * pixel), to);
      else for (let x = 0; x < columns; ++x) for (let i = 0; i < pixel; ++i) samples.bytes[to + x * whole + i] = bytes[from + x * pixel + i]!;
    }
  }
  if (tags.value(Tags.photometric, blackIsZero) === whiteIsZero) invert(samples);
  return samples;
}

function invert({ bytes, bits, extras }: Samples): void {
  const all = bits === 16 ? new Uint16Array(bytes.buffer, bytes.byteOffset, bytes.length >> 1) : bytes;
  for (let i = 0; i < all.length; i += 1 + extras) all[i] = ~all[i]!;
}

/** A block as the compression is handed it: a strip's rows, or a tile, which is 0 beyond the picture. */
function blockOf(samples: Samples, form: TiffForm, left: number, top: number, width: number, height: number): Uint8Array {
  const pixel = pixelBytes(samples), row = rowBytes(samples), columns = Math.min(width, samples.width - left);
  const bytes = new Uint8Array(width * height * pixel);
  for (let y = 0; y < Math.min(height, samples.height - top); ++y) {
    const from = (top + y) * row + left * pixel;
    bytes.set(samples.bytes.subarray(from, from + columns * pixel), y * width * pixel);
  }
  if (form.predicts && knowsPredictor(form.compression)) differ(bytes, width * pixel, samples.bits, samples.colours + samples.extras, false);
  return bytes;
}

async function pack(compression: number, bytes: Uint8Array, row: number): Promise<Uint8Array> {
  switch (compression) {
    case lzw: return lzwEncoded(bytes);
    case packBits: return packBitsEncoded(bytes, row);
    case deflate: return joined(await deflated([bytes]));
    default: return bytes;
  }
}

export async function writeTiff(samples: Samples, form: TiffForm): Promise<Blob> {
  const { width, height, bits, colours, extras } = samples;
  const rowsPerStrip = Math.min(height, Math.max(1, Math.min(65535, Math.floor(stripBytes / rowBytes(samples)))));
  const block = form.tile ?? { width, height: rowsPerStrip };
  const blocks: Uint8Array[] = [], offsets: number[] = [];
  let end = 8;
  for (let top = 0; top < height; top += block.height) {
    for (let left = 0; left < width; left += block.width) {
      const rows = form.tile ? block.height : Math.min(block.height, height - top);
      const bytes = blockOf(samples, form, left, top, block.width, rows);
      const packed = await pack(form.compression, bytes, block.width * pixelBytes(samples));
      offsets.push(end);
      blocks.push(packed, new Uint8Array(packed.length % 2));
      end += packed.length + (packed.length % 2);
    }
  }
  const numbers = (tag: number, type: number, ...values: number[]): Tag => numbersTag(tag, type, values);
  const lengths = blocks.filter((_, i) => i % 2 === 0).map((bytes) => bytes.length);
  const all = colours + extras, isTiled = form.tile !== null;
  const storage = [
    numbers(Tags.width, types.long, width), numbers(Tags.height, types.long, height),
    numbers(Tags.bits, types.short, ...Array(all).fill(bits)), numbers(Tags.compression, types.short, form.compression),
    numbers(Tags.photometric, types.short, colours === 3 ? rgb : blackIsZero), numbers(Tags.samples, types.short, all),
    numbers(Tags.planes, types.short, 1), numbers(Tags.sampleFormat, types.short, ...Array(all).fill(1)),
    numbers(isTiled ? Tags.tileOffsets : Tags.stripOffsets, types.long, ...offsets),
    numbers(isTiled ? Tags.tileBytes : Tags.stripBytes, types.long, ...lengths),
    ...(isTiled
      ? [numbers(Tags.tileWidth, types.long, block.width), numbers(Tags.tileHeight, types.long, block.height)]
      : [numbers(Tags.rowsPerStrip, types.long, block.height)]),
    ...(form.predicts && knowsPredictor(form.compression) ? [numbers(Tags.predictor, types.short, 2)] : []),
  ];
  const own = form.own.filter(({ tag, count }) => tag !== Tags.extraSamples || count === extras);
  if (extras > 0 && !own.some(({ tag }) => tag === Tags.extraSamples)) {
    storage.push(numbers(Tags.extraSamples, types.short, unassociatedAlpha, ...Array(extras - 1).fill(unspecified)));
  }
  const { bytes, offset } = directoryBytes(end, [...storage, ...own], form.descriptive);
  return new Blob([tiffHeader(offset), ...blocks, bytes], { type: 'image/tiff' });
}
