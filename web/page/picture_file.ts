// A file as the user hands it over: what it is by its bytes, and its pixels as they stand in it.
import type { Resolution } from './found.js';
import { Refusal } from './cleaner.js';
import { carriedChunks, chunksOf, physicalChunk, resolutionOfChunks, type Chunk } from './png_chunks.js';
import { refusals } from './words.js';

export interface Picture {
  name: string;
  format: 'PNG' | 'JPEG' | 'WebP';
  image: ImageData;
  resolution: Resolution | null;
  chunks: Chunk[]; // that go into the PNG that is saved
}

interface Header {
  format: Picture['format'];
  width: number; // 0: not said where it was looked for
  height: number;
  bits: number;
  resolution: Resolution | null;
  chunks: Chunk[];
}

const mostSide = 16384, mostPixels = 100e6;

function startsWith(bytes: Uint8Array, text: string, at = 0): boolean {
  return [...text].every((letter, i) => bytes[at + i] === letter.charCodeAt(0));
}

function pngHeader(bytes: Uint8Array): Header {
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  const chunks = chunksOf(bytes);
  const isWhole = bytes.length >= 29;
  return {
    format: 'PNG', width: isWhole ? view.getUint32(16) : 0, height: isWhole ? view.getUint32(20) : 0,
    bits: bytes[24] ?? 8, resolution: resolutionOfChunks(chunks), chunks: carriedChunks(chunks),
  };
}

/** Pixels per inch of a JFIF block, whose unit is 1: inches, 2: centimetres. */
function jfifResolution(bytes: Uint8Array, view: DataView, at: number): Resolution | null {
  const unit = bytes[at + 11];
  if (!startsWith(bytes, 'JFIF', at + 4) || (unit !== 1 && unit !== 2)) return null;
  const perInch = unit === 1 ? 1 : 2.54;
  const [horizontal, vertical] = [view.getUint16(at + 12) * perInch, view.getUint16(at + 14) * perInch];
  return horizontal > 1 && vertical > 1 ? { horizontal, vertical } : null;
}

function jpegHeader(bytes: Uint8Array): Header {
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  const header: Header = { format: 'JPEG', width: 0, height: 0, bits: 8, resolution: null, chunks: [] };
  for (let at = 2; at + 18 < bytes.length && bytes[at] === 0xff; at += 2 + view.getUint16(at + 2)) {
    const marker = bytes[at + 1]!;
    if (marker === 0xe0) header.resolution = jfifResolution(bytes, view, at);
    const isFrame = marker >= 0xc0 && marker <= 0xcf && ![0xc4, 0xc8, 0xcc].includes(marker);
    if (!isFrame) continue;
    header.height = view.getUint16(at + 5);
    header.width = view.getUint16(at + 7);
    break;
  }
  return header;
}

function headerOf(name: string, bytes: Uint8Array): Header {
  if (bytes.length === 0) throw new Refusal(refusals.empty(name));
  if (startsWith(bytes, '\x89PNG\r\n\x1a\n')) return pngHeader(bytes);
  if (startsWith(bytes, '\xff\xd8\xff')) return jpegHeader(bytes);
  if (startsWith(bytes, 'RIFF') && startsWith(bytes, 'WEBP', 8)) {
    return { format: 'WebP', width: 0, height: 0, bits: 8, resolution: null, chunks: [] };
  }
  if (startsWith(bytes, 'II*\0') || startsWith(bytes, 'MM\0*') || startsWith(bytes, 'II+\0') || startsWith(bytes, 'MM\0+')) {
    throw new Refusal(refusals.tiff(name));
  }
  throw new Refusal(refusals.noPicture(name));
}

function demandUsable(name: string, width: number, height: number): void {
  if (width > mostSide || height > mostSide || width * height > mostPixels) {
    throw new Refusal(refusals.tooLarge(name, width, height, mostSide));
  }
}

export function canvasOf(width: number, height: number): HTMLCanvasElement {
  return Object.assign(document.createElement('canvas'), { width, height });
}

/** Samples as they are in the file: no colour conversion, no multiplication by alpha. */
async function decode(name: string, blob: Blob): Promise<ImageData> {
  let bitmap: ImageBitmap;
  try {
    bitmap = await createImageBitmap(blob, { colorSpaceConversion: 'none', premultiplyAlpha: 'none' });
  } catch {
    throw new Refusal(refusals.damaged(name));
  }
  const { width, height } = bitmap;
  demandUsable(name, width, height);
  const context = canvasOf(width, height).getContext('2d', { willReadFrequently: true });
  if (!context) throw new Refusal(refusals.noMemory(width * height * 4));
  context.drawImage(bitmap, 0, 0);
  bitmap.close();
  return context.getImageData(0, 0, width, height);
}

function isOpaque(image: ImageData): boolean {
  for (let i = 3; i < image.data.length; i += 4) if (image.data[i] !== 255) return false;
  return true;
}

export async function readPicture(name: string, blob: Blob): Promise<Picture> {
  const bytes = new Uint8Array(await blob.arrayBuffer());
  const header = headerOf(name, bytes);
  if (header.bits > 8) throw new Refusal(refusals.deep(name));
  demandUsable(name, header.width, header.height);
  const image = await decode(name, new Blob([bytes]));
  if (!isOpaque(image)) throw new Refusal(refusals.seeThrough(name));
  const { format, resolution } = header;
  const chunks = format === 'JPEG' && resolution ? [physicalChunk(resolution)] : header.chunks;
  return { name, format, image, resolution, chunks };
}
