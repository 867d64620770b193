// Pixels as a file has them: samples of 8 or 16 bits, in this machine's byte order, pixel after pixel.
export interface Samples {
  width: number;
  height: number;
  bits: 8 | 16;
  colours: 1 | 3;
  extras: number; // alpha and other channels, which nobody touches
  bytes: Uint8Array; // of the rows, packed
}

export const pixelBytes = ({ bits, colours, extras }: Omit<Samples, 'bytes'>): number => ((colours + extras) * bits) / 8;
export const rowBytes = (of: Omit<Samples, 'bytes'>): number => of.width * pixelBytes(of);

/** The high byte of each sample, whatever its width: this machine has it last, as all have that run browsers. */
export function shownPixels(samples: Samples): Uint8ClampedArray {
  const { width, height, bits, colours, extras, bytes } = samples;
  const shown = new Uint8ClampedArray(4 * width * height);
  const step = bits / 8, pixel = (colours + extras) * step, high = step - 1;
  const green = colours === 3 ? step : 0, blue = 2 * green, alpha = colours * step;
  for (let from = high, to = 0; to < shown.length; from += pixel, to += 4) {
    shown[to] = bytes[from]!;
    shown[to + 1] = bytes[from + green]!;
    shown[to + 2] = bytes[from + blue]!;
    shown[to + 3] = extras > 0 ? bytes[from + alpha]! : 255;
  }
  return shown;
}

/** Red, green, blue and alpha of a byte each, upright. */
export function shownUpright(samples: Samples, orientation: number): Samples {
  const bytes = new Uint8Array(shownPixels(samples).buffer);
  return upright({ ...samples, bits: 8, colours: 3, extras: 1, bytes }, orientation);
}

/** Turns big-endian samples into this machine's, or back. */
export function swapBytes(bytes: Uint8Array): void {
  for (let i = 0; i + 1 < bytes.length; i += 2) {
    const first = bytes[i]!;
    bytes[i] = bytes[i + 1]!;
    bytes[i + 1] = first;
  }
}

// Where a pixel of the upright picture stands in the stored one, by EXIF's number from 1 on: the upright axes swapped, then
// counted from the far end or not.
const turns = [
  [false, false, false], [false, true, false], [false, true, true], [false, false, true],
  [true, false, false], [true, false, true], [true, true, true], [true, true, false],
] as const;

const turnOf = (orientation: number): (typeof turns)[number] => turns[orientation - 1] ?? turns[0];

export interface Place {
  x: number;
  y: number;
  width: number;
  height: number;
}
/** Where a part of the upright picture stands in the stored one, which is so wide and high. */
export function storedPlace(part: Place, orientation: number, storedWidth: number, storedHeight: number): Place {
  const [swapsAxes, mirrorsX, mirrorsY] = turnOf(orientation);
  const { x, y, width, height } = swapsAxes ? { x: part.y, y: part.x, width: part.height, height: part.width } : part;
  return { x: mirrorsX ? storedWidth - x - width : x, y: mirrorsY ? storedHeight - y - height : y, width, height };
}

export function upright(samples: Samples, orientation: number): Samples {
  const [swapsAxes, mirrorsX, mirrorsY] = turnOf(orientation);
  if (orientation === 1) return samples;
  const { width: storedWidth, height: storedHeight } = samples;
  const width = swapsAxes ? storedHeight : storedWidth, height = swapsAxes ? storedWidth : storedHeight;
  const step = pixelBytes(samples), bytes = new Uint8Array(samples.bytes.length);
  for (let upY = 0, to = 0; upY < height; ++upY) {
    for (let upX = 0; upX < width; ++upX) {
      const along = swapsAxes ? upY : upX, across = swapsAxes ? upX : upY;
      const x = mirrorsX ? storedWidth - 1 - along : along, y = mirrorsY ? storedHeight - 1 - across : across;
      for (let i = 0, from = (y * storedWidth + x) * step; i < step; ++i) bytes[to++] = samples.bytes[from + i]!;
    }
  }
  return { ...samples, width, height, bytes };
}
