// What the page and the worker that reads and writes files tell each other.
import type { Resolution } from './found.js';
import type { JpegHead } from './jpeg_file.js';
import type { Samples } from './samples.js';
import type { TiffForm } from './tiff_file.js';

/** What the result's file gets from the one that was read. */
export type Origin =
  | { format: 'PNG'; chunks: Uint8Array[] }
  | { format: 'WebP'; chunks: Uint8Array[]; orientation: number }
  | { format: 'JPEG'; head: JpegHead }
  | { format: 'TIFF'; form: TiffForm };

/** How much light a level stands for: as sRGB has it, or the light of evenly spaced levels; null: the file does not say. */
export type Light = 'sRGB' | Float32Array | null;

export interface ReadPicture {
  name: string;
  samples: Samples;
  shown: ImageData; // upright
  orientation: number; // 1 .. 8 as EXIF counts them: of the samples
  resolution: Resolution | null;
  light: Light;
  origin: Origin;
}

export type FileRequest =
  | { kind: 'read'; name: string; file: ArrayBuffer }
  | { kind: 'write'; samples: Samples; origin: Origin };

export type FileAnswer =
  | { kind: 'head'; width: number; height: number } // before the picture, as soon as it is known
  | { kind: 'picture'; picture: ReadPicture }
  | { kind: 'file'; file: Blob }
  | { kind: 'failed'; reason: 'memory' | 'refused'; sentence: string };
