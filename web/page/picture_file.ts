// A file as the user hands it over: read and written by a worker of its own, so that the page never waits, and its memory goes with it.
import type { FileAnswer, FileRequest, ReadPicture } from './file_protocol.js';
import type { Found } from './found.js';
import { Refusal } from './refusal.js';
import type { Samples } from './samples.js';
import { refusals } from './words.js';

/** With the file that it came in, which costs no memory while it lies on the disk. */
export type Picture = ReadPicture & { file: Blob };

// One has started already when a file comes.
let spare: Worker | null = null;
export function prepareForFiles(): void {
  spare ??= new Worker('file_worker.js', { type: 'module' });
}

type Headed = (width: number, height: number) => void;

function ask(request: FileRequest, transfer: Transferable[], headed: Headed = () => undefined): Promise<FileAnswer> {
  prepareForFiles();
  const worker = spare!;
  spare = null;
  return new Promise<FileAnswer>((resolve, reject) => {
    worker.onmessage = ({ data }: MessageEvent<FileAnswer>) => (data.kind === 'head' ? headed(data.width, data.height) : resolve(data));
    worker.onerror = (event) => reject(new Refusal(refusals.broken(event.message)));
    worker.postMessage(request, transfer);
  }).finally(() => {
    worker.terminate();
    prepareForFiles();
  });
}

function refusalOf(answer: FileAnswer, needs: number): Refusal {
  if (answer.kind !== 'failed') return new Refusal(refusals.broken(answer.kind));
  return new Refusal(answer.reason === 'memory' ? refusals.noMemory(needs) : answer.sentence);
}

/** `headed` hears how large it is before it is decoded. */
export async function readPicture(name: string, blob: Blob, headed?: Headed): Promise<Picture> {
  let file: ArrayBuffer;
  try {
    file = await blob.arrayBuffer();
  } catch {
    throw new Refusal(refusals.unreadable(name));
  }
  const answer = await ask({ kind: 'read', name, file }, [file], headed);
  if (answer.kind !== 'picture') throw refusalOf(answer, 20 * blob.size);
  return { ...answer.picture, file: blob };
}

/** The picture's file with these samples in it, of the format that it came in; WebP becomes PNG, which loses nothing. Where no
 * pattern was found it is the file that came, as it stands. */
export async function writePicture(picture: Picture, samples: Samples, found: Found): Promise<Blob> {
  if (!found.patternFound && picture.origin.format !== 'WebP') return picture.file;
  const answer = await ask({ kind: 'write', samples, origin: picture.origin }, []);
  if (answer.kind !== 'file') throw refusalOf(answer, 3 * samples.bytes.length);
  return answer.file;
}

/** The name of the result: another ending only where the old one is not its format's. */
export function cleanName({ name, origin }: Pick<Picture, 'name' | 'origin'>): string {
  const endings = { PNG: ['png'], WebP: ['png'], JPEG: ['jpg', 'jpeg'], TIFF: ['tif', 'tiff'] }[origin.format];
  const dot = name.lastIndexOf('.'), stem = dot > 0 ? name.slice(0, dot) : name, own = name.slice(dot + 1);
  return `${stem}-clean.${endings.includes(own.toLowerCase()) ? own : endings[0]}`;
}
