// Directories of tags: of a TIFF file, and of the EXIF block that other formats hold in its form.
import { bytesOf, joined, startsWith, viewOf } from './bytes.js';
import type { Resolution } from './found.js';

export interface Tag {
  tag: number;
  type: number;
  count: number;
  bytes: Uint8Array; // little-endian whatever the file was
  at: number; // of the value in the file
}

export const Tags = {
  width: 256, height: 257, bits: 258, compression: 259, photometric: 262, fillOrder: 266, stripOffsets: 273, orientation: 274,
  samples: 277, rowsPerStrip: 278, stripBytes: 279, xResolution: 282, yResolution: 283, planes: 284, resolutionUnit: 296,
  predictor: 317, tileWidth: 322, tileHeight: 323, tileOffsets: 324, tileBytes: 325, extraSamples: 338, sampleFormat: 339,
  reduced: 254, xmp: 700, iptc: 33723, photoshop: 34377, exif: 34665, profile: 34675, gps: 34853, colourSpace: 40961, interoperability: 40965,
} as const;

/** Document, description, maker, model, page, software, date, artist, computer, copyright, IPTC. */
const descriptive = [269, 270, 271, 272, 285, 305, 306, 315, 316, 33432, Tags.iptc];

// Of a value of each type: its bytes, and those of them that stand in the file's byte order.
const sizes: Record<number, [number, number]> = {
  1: [1, 1], 2: [1, 1], 3: [2, 2], 4: [4, 4], 5: [8, 4], 6: [1, 1], 7: [1, 1], 8: [2, 2], 9: [4, 4], 10: [8, 4], 11: [4, 4],
  12: [8, 8], 13: [4, 4],
};
const mostEntries = 4096, mostPages = 1000;
export const types = { byte: 1, short: 3, long: 4, undefined: 7 };

type Directory = Map<number, Tag>;

export interface Descriptive {
  main: Tag[];
  exif: Tag[];
  gps: Tag[];
  interoperability: Tag[];
}

export class TagFile {
  readonly pages: Directory[] = [];
  private constructor(private readonly file: Uint8Array, readonly isBigEndian: boolean) {}

  /** Null: no such file, or its directories cannot be followed, or values lie behind its end. */
  static read(file: Uint8Array): TagFile | null {
    const isBigEndian = startsWith(file, 'MM\0*');
    if (file.length < 8 || !(isBigEndian || startsWith(file, 'II*\0'))) return null;
    const tags = new TagFile(file, isBigEndian);
    const seen = new Set<number>();
    for (let at = tags.number(4, 4); at !== 0; ) {
      if (seen.has(at) || tags.pages.length >= mostPages) break;
      seen.add(at);
      const page = tags.directory(at);
      if (!page) return null;
      tags.pages.push(page.tags);
      at = page.next;
    }
    return tags.pages.length > 0 ? tags : null;
  }

  values(tag: number, page = 0): number[] {
    const found = this.pages[page]?.get(tag);
    if (!found) return [];
    const view = viewOf(found.bytes), [size, unit] = sizes[found.type]!;
    const read = unit === 1 ? view.getUint8 : unit === 2 ? view.getUint16 : unit === 4 ? view.getUint32 : null;
    return read ? Array.from({ length: found.count }, (_, i) => read.call(view, i * size, true)) : [];
  }
  value(tag: number, fallback: number, page = 0): number {
    return this.values(tag, page)[0] ?? fallback;
  }
  tags(wanted: readonly number[], page = 0): Tag[] {
    return wanted.flatMap((tag) => this.pages[page]?.get(tag) ?? []);
  }

  /** Pixels per inch. */
  resolution(page = 0): Resolution | null {
    const of = (tag: number): number => {
      const found = this.pages[page]?.get(tag);
      if (found?.type !== 5 || found.count !== 1) return 0;
      const view = viewOf(found.bytes);
      return view.getUint32(0, true) / view.getUint32(4, true);
    };
    const unit = { 2: 1, 3: 2.54 }[this.value(Tags.resolutionUnit, 2, page)] ?? 0;
    const [horizontal, vertical] = [of(Tags.xResolution) * unit, of(Tags.yResolution) * unit];
    return horizontal > 0 && vertical > 0 && isFinite(horizontal + vertical) ? { horizontal, vertical } : null;
  }
  /** 1 .. 8 as EXIF counts them, 1: upright. */
  orientation(page = 0): number {
    const value = this.value(Tags.orientation, 1, page);
    return value >= 1 && value <= 8 ? value : 1;
  }

  /** As EXIF names it; 1: sRGB. */
  colourSpace(page = 0): number {
    const tag = this.behind(this.pages[page]?.get(Tags.exif)).get(Tags.colourSpace);
    return tag?.type === types.short ? viewOf(tag.bytes).getUint16(0, true) : 0;
  }

  descriptive(page = 0): Descriptive {
    const exif = this.behind(this.pages[page]?.get(Tags.exif));
    const own = (directory: Directory): Tag[] => [...directory.values()].filter(({ tag }) => tag !== Tags.interoperability);
    return {
      main: this.tags(descriptive, page), exif: own(exif), gps: own(this.behind(this.pages[page]?.get(Tags.gps))),
      interoperability: own(this.behind(exif.get(Tags.interoperability))),
    };
  }

  private behind(tag: Tag | undefined): Directory {
    return (tag && tag.bytes.length >= 4 ? this.directory(viewOf(tag.bytes).getUint32(0, true), true)?.tags : null) ?? new Map();
  }
  private number(at: number, bytes: number): number {
    if (at + bytes > this.file.length) return 0;
    const view = viewOf(this.file);
    return bytes === 2 ? view.getUint16(at, !this.isBigEndian) : view.getUint32(at, !this.isBigEndian);
  }
  private directory(at: number, leavesOut = false): { tags: Directory; next: number } | null {
    const count = this.number(at, 2), end = at + 2 + 12 * count;
    if (count === 0 || count > mostEntries || end + 4 > this.file.length) return null;
    const tags: Directory = new Map();
    for (let entry = at + 2; entry < end; entry += 12) {
      const [tag, type, values] = [this.number(entry, 2), this.number(entry + 2, 2), this.number(entry + 4, 4)];
      const size = sizes[type];
      if (!size || values === 0) continue; // a type of later times
      const length = values * size[0], place = length > 4 ? this.number(entry + 8, 4) : entry + 8;
      if (place + length > this.file.length) {
        if (leavesOut) continue;
        return null;
      }
      if (!tags.has(tag)) tags.set(tag, { tag, type, count: values, bytes: this.littleEndian(place, length, size[1]), at: place });
    }
    return { tags, next: this.number(end, 4) };
  }
  private littleEndian(at: number, length: number, unit: number): Uint8Array {
    const bytes = this.file.slice(at, at + length);
    for (let i = 0; this.isBigEndian && i < length; i += unit) bytes.subarray(i, i + unit).reverse();
    return bytes;
  }
}

export function numbersTag(tag: number, type: number, values: number[]): Tag {
  const size = sizes[type]![0], bytes = new Uint8Array(values.length * size), view = viewOf(bytes);
  values.forEach((value, i) => (size === 2 ? view.setUint16(2 * i, value, true) : view.setUint32(4 * i, value, true)));
  return { tag, type, count: values.length, bytes, at: 0 };
}

/** The directory with its values and sub-directories, to stand at `start` (even), and where in the file it begins. */
export function directoryBytes(start: number, main: Tag[], more: Descriptive | null): { bytes: Uint8Array; offset: number } {
  const parts: Uint8Array[] = [];
  let end = start;
  const put = (bytes: Uint8Array): number => {
    const at = end, padding = bytes.length % 2;
    parts.push(bytes, new Uint8Array(padding));
    end += bytes.length + padding;
    return at;
  };
  const putDirectory = (tags: Tag[]): number => {
    const bytes = new Uint8Array(6 + 12 * tags.length), view = viewOf(bytes);
    view.setUint16(0, tags.length, true);
    [...tags].sort((a, b) => a.tag - b.tag).forEach((tag, i) => {
      const entry = 2 + 12 * i;
      view.setUint16(entry, tag.tag, true);
      view.setUint16(entry + 2, tag.type, true);
      view.setUint32(entry + 4, tag.count, true);
      if (tag.bytes.length <= 4) bytes.set(tag.bytes, entry + 8);
      else view.setUint32(entry + 8, put(tag.bytes), true);
    });
    return put(bytes);
  };
  const pointer = (tag: number, tags: Tag[]): Tag[] => (tags.length > 0 ? [numbersTag(tag, types.long, [putDirectory(tags)])] : []);
  const all = [...main];
  if (more) {
    const exif = [...more.exif, ...pointer(Tags.interoperability, more.interoperability)];
    all.push(...more.main, ...pointer(Tags.exif, exif), ...pointer(Tags.gps, more.gps));
  }
  const offset = putDirectory(all);
  return { bytes: joined(parts), offset };
}

export const tiffHeader = (offset: number): Uint8Array => joined([bytesOf('II*\0'), numbersTag(0, types.long, [offset]).bytes]);

/** An EXIF block whose picture was turned upright: its orientation is 1, and the two resolutions change places with the axes. */
export function uprightExif(block: Uint8Array): Uint8Array {
  const tags = TagFile.read(block), bytes = block.slice(), orientation = tags?.pages[0]?.get(Tags.orientation);
  if (!tags || !orientation) return bytes;
  const [x, y] = tags.tags([Tags.xResolution, Tags.yResolution]);
  if (tags.orientation() > 4 && x?.bytes.length === 8 && y?.bytes.length === 8) {
    bytes.set(block.subarray(x.at, x.at + 8), y.at);
    bytes.set(block.subarray(y.at, y.at + 8), x.at);
  }
  bytes.set(tags.isBigEndian ? [0, 1] : [1, 0], orientation.at);
  return bytes;
}
