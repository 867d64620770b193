// PNG files as a row of chunks, and those of them that say how the picture is meant.
import { bytesOf, checksum, deflated, inflatedWhole, joined, startsWith, viewOf } from './bytes.js';
import type { Resolution } from './found.js';

export interface Chunk {
  type: string;
  bytes: Uint8Array; // whole: length, type, data, checksum
}

export const signature = '\x89PNG\r\n\x1a\n';
const headBytes = 8, frameBytes = 12, inchesPerMetre = 0.0254;
const carried = new Set(['cHRM', 'gAMA', 'iCCP', 'sRGB', 'cICP', 'mDCv', 'cLLi', 'pHYs', 'oFFs', 'sCAL', 'eXIf', 'tEXt', 'zTXt', 'iTXt', 'tIME']);

export const dataOf = ({ bytes }: Chunk): Uint8Array => bytes.subarray(headBytes, bytes.length - 4);
export const isWhole = ({ bytes }: Chunk): boolean =>
  checksum(bytes.subarray(4, bytes.length - 4)) === viewOf(bytes).getUint32(bytes.length - 4);

/** As far as they are there. */
export function chunksOf(file: Uint8Array): Chunk[] {
  const view = viewOf(file);
  const chunks: Chunk[] = [];
  for (let at = signature.length; at + frameBytes <= file.length;) {
    const length = frameBytes + view.getUint32(at);
    if (at + length > file.length) break;
    const type = String.fromCharCode(...file.subarray(at + 4, at + 8));
    chunks.push({ type, bytes: file.subarray(at, at + length) });
    at += length;
  }
  return chunks;
}

/** Colours, resolution, texts, EXIF. */
export function carriedChunks(chunks: Chunk[]): Uint8Array[] {
  return chunks.filter((chunk) => carried.has(chunk.type)).map(({ bytes }) => bytes.slice());
}

export function resolutionOfChunks(chunks: Chunk[]): Resolution | null {
  const physical = chunks.find((chunk) => chunk.type === 'pHYs');
  if (!physical || physical.bytes.length < frameBytes + 9 || physical.bytes[16] !== 1) return null;
  const view = viewOf(physical.bytes);
  const [horizontal, vertical] = [view.getUint32(8) * inchesPerMetre, view.getUint32(12) * inchesPerMetre];
  return horizontal > 0 && vertical > 0 ? { horizontal, vertical } : null;
}

export function chunkOf(type: string, data: Uint8Array): Uint8Array {
  const bytes = joined([new Uint8Array(4), bytesOf(type), data, new Uint8Array(4)]);
  const view = viewOf(bytes);
  view.setUint32(0, data.length);
  view.setUint32(bytes.length - 4, checksum(bytes.subarray(4, bytes.length - 4)));
  return bytes;
}

/** What describes a picture that came from a file of another format. */
export async function chunksFor(about: {
  resolution: Resolution | null; exif: Uint8Array; profile: Uint8Array; xmp: Uint8Array;
}): Promise<Uint8Array[]> {
  const chunks: Uint8Array[] = [];
  if (about.resolution) {
    const physical = new Uint8Array(9), view = viewOf(physical);
    view.setUint32(0, Math.round(about.resolution.horizontal / inchesPerMetre));
    view.setUint32(4, Math.round(about.resolution.vertical / inchesPerMetre));
    physical[8] = 1;
    chunks.push(chunkOf('pHYs', physical));
  }
  if (about.exif.length > 0) chunks.push(chunkOf('eXIf', about.exif));
  if (startsWith(about.profile, 'RGB ', 16)) {
    chunks.push(chunkOf('iCCP', joined([bytesOf('icc\0\0'), ...(await deflated([about.profile]))])));
  }
  if (about.xmp.length > 0) chunks.push(chunkOf('iTXt', joined([bytesOf('XML:com.adobe.xmp\0\0\0\0\0'), about.xmp])));
  return chunks;
}

/** Out of an iCCP chunk's data. Null: damaged. */
export async function profileOfChunk(data: Uint8Array): Promise<Uint8Array | null> {
  const name = data.indexOf(0);
  return name < 0 ? null : inflatedWhole(data.subarray(name + 2));
}
