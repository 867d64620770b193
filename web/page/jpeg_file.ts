// JPEG files by libjpeg-turbo, as the program reads and writes them: the same pixels, the same tables, the same segments.
import { joined, startsWith, viewOf } from './bytes.js';
import type { Resolution } from './found.js';
import makeJpeg, { type Jpeg } from './jpeg.js';
import { Refusal } from './refusal.js';
import { rowBytes, type Samples } from './samples.js';
import { refusals } from './words.js';

export interface JpegHead {
  width: number;
  height: number;
  colours: 1 | 3;
  bytes: Uint8Array; // of the file, up to its first scan
  segments: { marker: number; data: Uint8Array }[]; // that describe the picture
  resolution: Resolution | null;
  exif: Uint8Array;
  profile: Uint8Array;
}

const startOfScan = 0xda, comment = 0xfe, codingMark = 0xee, application = 0xe0;
const rowsAtOnce = 64;

/** Pixels per inch of a JFIF segment, whose unit is 1: inches, 2: centimetres. */
function jfifResolution(data: Uint8Array): Resolution | null {
  const unit = data[7], view = viewOf(data);
  if (data.length < 12 || (unit !== 1 && unit !== 2)) return null;
  const perInch = unit === 1 ? 1 : 2.54;
  const [horizontal, vertical] = [view.getUint16(8) * perInch, view.getUint16(10) * perInch];
  return horizontal > 0 && vertical > 0 ? { horizontal, vertical } : null;
}

function describes(marker: number, data: Uint8Array): boolean {
  if (marker === comment) return true;
  const speaksOfOthers = marker === application + 2 && startsWith(data, 'MPF\0'); // further pictures, which do not come along
  return marker >= application && marker <= application + 15 && marker !== codingMark && !speaksOfOthers;
}

/** Refuses what is not taken. Null: damaged or cut short. */
export function jpegHead(name: string, file: Uint8Array): JpegHead | null {
  const view = viewOf(file);
  const head: JpegHead = { width: 0, height: 0, colours: 3, bytes: file, segments: [], resolution: null, exif: new Uint8Array(), profile: new Uint8Array() };
  const profile: Uint8Array[] = [];
  for (let at = 2; at + 4 <= file.length;) {
    if (file[at] !== 0xff) return null;
    const marker = file[at + 1]!;
    if (marker === 0xff) { // padding
      ++at;
      continue;
    }
    const length = view.getUint16(at + 2), data = file.slice(at + 4, at + 2 + length);
    if (length < 2 || at + 2 + length > file.length) return null;
    at += 2 + length;
    if (marker === startOfScan) {
      head.bytes = file.slice(0, at);
      head.profile = joined(profile.filter(Boolean)); // its parts count from 1
      return head.width > 0 && head.height > 0 ? head : null;
    }
    if (describes(marker, data)) {
      const isJfif = marker === application && startsWith(data, 'JFIF\0');
      head.segments.splice(isJfif ? 0 : head.segments.length, 0, { marker, data });
      if (isJfif) head.resolution = jfifResolution(data);
      if (marker === application + 2 && startsWith(data, 'ICC_PROFILE\0')) profile[data[12]!] = data.subarray(14);
      if (marker === application + 1 && startsWith(data, 'Exif\0\0') && head.exif.length === 0) head.exif = data.slice(6);
    }
    const isFrame = marker >= 0xc0 && marker <= 0xcf && ![0xc4, 0xc8, 0xcc].includes(marker);
    if (!isFrame || data.length < 6) continue;
    const components = data[5];
    if (marker > 0xc2 || data[0] !== 8 || (components !== 1 && components !== 3)) {
      throw new Refusal(components === 4 ? refusals.cmykJpeg(name) : refusals.oddJpeg(name));
    }
    const frame = viewOf(data);
    Object.assign(head, { height: frame.getUint16(1), width: frame.getUint16(3), colours: components });
  }
  return null;
}

function place(jpeg: Jpeg, bytes: Uint8Array): number {
  const address = room(jpeg, bytes.length);
  jpeg.HEAPU8.set(bytes, address);
  return address;
}
function room(jpeg: Jpeg, bytes: number): number {
  const address = jpeg._tessaline_jpeg_take(bytes);
  if (address === 0) throw new RangeError('no memory');
  return address;
}

/** Null: damaged or cut short. */
export async function readJpeg(head: JpegHead, file: Uint8Array): Promise<Samples | null> {
  const { width, height, colours } = head;
  const samples: Samples = { width, height, bits: 8, colours, extras: 0, bytes: new Uint8Array(width * height * colours) };
  const jpeg = await makeJpeg(), row = rowBytes(samples);
  const [address, rows] = [place(jpeg, file), room(jpeg, rowsAtOnce * row)];
  try {
    jpeg._tessaline_jpeg_open(address, file.length);
    jpeg._tessaline_jpeg_begin_reading();
    for (let y = 0; y < height; y += rowsAtOnce) {
      const count = Math.min(rowsAtOnce, height - y);
      jpeg._tessaline_jpeg_read(rows, count);
      samples.bytes.set(jpeg.HEAPU8.subarray(rows, rows + count * row), y * row);
    }
    return jpeg._tessaline_jpeg_end_reading() ? samples : null;
  } catch (error) {
    if (error instanceof Error && error.message.startsWith('JPEG ')) return null;
    throw error;
  }
}

export async function writeJpeg(samples: Samples, head: JpegHead): Promise<Blob> {
  const jpeg = await makeJpeg(), row = rowBytes(samples);
  jpeg._tessaline_jpeg_open(place(jpeg, head.bytes), head.bytes.length);
  jpeg._tessaline_jpeg_begin_writing();
  for (const { marker, data } of head.segments) jpeg._tessaline_jpeg_add_segment(marker, place(jpeg, data), data.length);
  const rows = room(jpeg, rowsAtOnce * row);
  for (let y = 0; y < samples.height; y += rowsAtOnce) {
    const count = Math.min(rowsAtOnce, samples.height - y);
    jpeg.HEAPU8.set(samples.bytes.subarray(y * row, (y + count) * row), rows);
    jpeg._tessaline_jpeg_write(rows, count);
  }
  const address = jpeg._tessaline_jpeg_end_writing();
  return new Blob([jpeg.HEAPU8.slice(address, address + jpeg._tessaline_jpeg_written_bytes())], { type: 'image/jpeg' });
}
