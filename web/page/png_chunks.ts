// PNG files as a row of chunks: what a browser's own writer leaves out is put in again.
import type { Resolution } from './found.js';

export interface Chunk {
  type: string;
  bytes: Uint8Array; // whole: length, type, data, checksum
}

const signatureBytes = 8, frameBytes = 12, inchesPerMetre = 0.0254;
const carried = new Set(['cHRM', 'gAMA', 'iCCP', 'sRGB', 'pHYs', 'tEXt', 'zTXt', 'iTXt', 'eXIf']);

/** As far as they are whole. */
export function chunksOf(file: Uint8Array): Chunk[] {
  const view = new DataView(file.buffer, file.byteOffset, file.byteLength);
  const chunks: Chunk[] = [];
  for (let at = signatureBytes; at + frameBytes <= file.length;) {
    const length = frameBytes + view.getUint32(at);
    if (at + length > file.length) break;
    const type = String.fromCharCode(...file.subarray(at + 4, at + 8));
    chunks.push({ type, bytes: file.subarray(at, at + length) });
    at += length;
  }
  return chunks;
}

/** What says how the picture is meant: its colours, its resolution, its texts. */
export function carriedChunks(chunks: Chunk[]): Chunk[] {
  return chunks.filter((chunk) => carried.has(chunk.type)).map(({ type, bytes }) => ({ type, bytes: bytes.slice() }));
}

export function resolutionOfChunks(chunks: Chunk[]): Resolution | null {
  const physical = chunks.find((chunk) => chunk.type === 'pHYs');
  if (!physical || physical.bytes.length < frameBytes + 9 || physical.bytes[16] !== 1) return null;
  const view = new DataView(physical.bytes.buffer, physical.bytes.byteOffset);
  return { horizontal: view.getUint32(8) * inchesPerMetre, vertical: view.getUint32(12) * inchesPerMetre };
}

function checksum(bytes: Uint8Array): number {
  let sum = 0xffffffff;
  for (const byte of bytes) {
    sum ^= byte;
    for (let bit = 0; bit < 8; ++bit) sum = sum & 1 ? (sum >>> 1) ^ 0xedb88320 : sum >>> 1;
  }
  return ~sum >>> 0;
}

export function physicalChunk(resolution: Resolution): Chunk {
  const bytes = new Uint8Array(frameBytes + 9);
  const view = new DataView(bytes.buffer);
  view.setUint32(0, 9);
  bytes.set([...'pHYs'].map((letter) => letter.charCodeAt(0)), 4);
  view.setUint32(8, Math.round(resolution.horizontal / inchesPerMetre));
  view.setUint32(12, Math.round(resolution.vertical / inchesPerMetre));
  bytes[16] = 1;
  view.setUint32(17, checksum(bytes.subarray(4, 17)));
  return { type: 'pHYs', bytes };
}

/** The file with these chunks right behind its header, in place of its own that say how it is meant. */
export function withChunks(file: Uint8Array, chunks: Chunk[]): Blob {
  const [header, ...rest] = chunksOf(file);
  if (!header) return new Blob([file], { type: 'image/png' });
  const own = rest.filter((chunk) => !carried.has(chunk.type));
  const parts = [file.subarray(0, signatureBytes), ...[header, ...chunks, ...own].map((chunk) => chunk.bytes)];
  return new Blob(parts, { type: 'image/png' });
}
