// Files in a thread of their own: what a file is by its bytes, its samples and what it says of them, and the way back.
import { startsWith } from './bytes.js';
import type { FileAnswer, FileRequest, Origin, ReadPicture } from './file_protocol.js';
import { jpegHead, readJpeg, writeJpeg } from './jpeg_file.js';
import { lightOfGamma, lightOfProfile } from './light.js';
import { readPng, writePng, pngKind } from './png_file.js';
import { carriedChunks, chunksFor, chunksOf, dataOf, profileOfChunk, resolutionOfChunks, signature } from './png_chunks.js';
import { Refusal } from './refusal.js';
import { shownUpright, upright, type Samples } from './samples.js';
import { readTiff, tiffForm, tiffKind, writeTiff } from './tiff_file.js';
import { TagFile, Tags, uprightExif } from './tiff_tags.js';
import { readWebp, webpParts } from './webp_file.js';
import { refusals } from './words.js';

interface Port {
  postMessage(answer: FileAnswer, transfer?: Transferable[]): void;
  onmessage: ((event: MessageEvent<FileRequest>) => void) | null;
}
const port = self as unknown as Port;

type Read = Pick<ReadPicture, 'orientation' | 'resolution' | 'light' | 'origin'> & { samples: Samples };
type Reader = (name: string, file: Uint8Array) => Promise<Read>;

const mostSide = 16384, mostPixels = 100e6;

function demandUsable(name: string, width: number, height: number): void {
  if (width > mostSide || height > mostSide || width * height > mostPixels) {
    throw new Refusal(refusals.tooLarge(name, width, height, mostSide));
  }
  port.postMessage({ kind: 'head', width, height });
}

function whole<Value>(name: string, value: Value | null | undefined): Value {
  if (value == null) throw new Refusal(refusals.damaged(name));
  return value;
}

/** Where a file names no profile: what its EXIF says of the colours. */
const lightOfExif = (tags: TagFile | null): ReadPicture['light'] => (tags?.colourSpace() === 1 ? 'sRGB' : null);

async function readAsPng(name: string, file: Uint8Array): Promise<Read> {
  const chunks = chunksOf(file), kind = whole(name, pngKind(chunks));
  demandUsable(name, kind.width, kind.height);
  const dataOfType = (type: string): Uint8Array | null => {
    const chunk = chunks.find((one) => one.type === type);
    return chunk ? dataOf(chunk) : null;
  };
  if (dataOfType('acTL')) throw new Refusal(refusals.animated(name));
  const samples = whole(name, await readPng(file));
  const exif = TagFile.read(dataOfType('eXIf') ?? new Uint8Array());
  const packed = dataOfType('iCCP'), gamma = dataOfType('gAMA');
  let light = lightOfExif(exif);
  if (packed) light = lightOfProfile(await profileOfChunk(packed), samples.colours);
  else if (dataOfType('sRGB')) light = 'sRGB';
  else if (gamma) light = lightOfGamma(gamma);
  return {
    samples, light, orientation: exif?.orientation() ?? 1, resolution: resolutionOfChunks(chunks) ?? exif?.resolution() ?? null,
    origin: { format: 'PNG', chunks: carriedChunks(chunks) },
  };
}

async function readAsJpeg(name: string, file: Uint8Array): Promise<Read> {
  const head = whole(name, jpegHead(name, file));
  demandUsable(name, head.width, head.height);
  const samples = whole(name, await readJpeg(head, file));
  const exif = TagFile.read(head.exif);
  const light = head.profile.length > 0 ? lightOfProfile(head.profile, head.colours) : lightOfExif(exif);
  return {
    samples, light, orientation: exif?.orientation() ?? 1, resolution: head.resolution ?? exif?.resolution() ?? null,
    origin: { format: 'JPEG', head },
  };
}

async function readAsWebp(name: string, file: Uint8Array): Promise<Read> {
  const { isAnimated, exif, profile, xmp, unturned } = webpParts(file);
  if (isAnimated) throw new Refusal(refusals.animated(name));
  const samples = await readWebp(unturned, (width, height) => demandUsable(name, width, height));
  if (samples === 'see-through') throw new Refusal(refusals.seeThrough(name));
  const tags = TagFile.read(exif), orientation = tags?.orientation() ?? 1, resolution = tags?.resolution() ?? null;
  const turned = resolution && orientation > 4 ? { horizontal: resolution.vertical, vertical: resolution.horizontal } : resolution;
  const chunks = await chunksFor({ resolution: turned, exif: tags ? uprightExif(exif) : new Uint8Array(), profile, xmp });
  const light = profile.length > 0 ? lightOfProfile(profile, 3) : lightOfExif(tags);
  return { samples: whole(name, samples), light, orientation, resolution, origin: { format: 'WebP', chunks, orientation } };
}

async function readAsTiff(name: string, file: Uint8Array): Promise<Read> {
  const kind = whole(name, tiffKind(name, file));
  demandUsable(name, kind.width, kind.height);
  const samples = whole(name, await readTiff(kind, file));
  const { tags } = kind, profile = tags.tags([Tags.profile])[0]?.bytes;
  // As for the program, the EXIF of a TIFF file says nothing of its levels.
  const light = profile ? lightOfProfile(profile, kind.colours) : null;
  return { samples, light, orientation: tags.orientation(), resolution: tags.resolution(), origin: { format: 'TIFF', form: tiffForm(kind) } };
}

function readerOf(name: string, file: Uint8Array): Reader {
  if (file.length === 0) throw new Refusal(refusals.empty(name));
  if (startsWith(file, signature)) return readAsPng;
  if (startsWith(file, '\xff\xd8\xff')) return readAsJpeg;
  if (startsWith(file, 'RIFF') && startsWith(file, 'WEBP', 8)) return readAsWebp;
  if (startsWith(file, 'II*\0') || startsWith(file, 'MM\0*')) return readAsTiff;
  if (startsWith(file, 'II+\0') || startsWith(file, 'MM\0+')) throw new Refusal(refusals.bigTiff(name));
  throw new Refusal(refusals.noPicture(name));
}

async function read(name: string, file: Uint8Array): Promise<ReadPicture> {
  const picture = await readerOf(name, file)(name, file);
  const shown = shownUpright(picture.samples, picture.orientation);
  return { name, ...picture, shown: new ImageData(new Uint8ClampedArray(shown.bytes.buffer), shown.width, shown.height) };
}

function write(samples: Samples, origin: Origin): Promise<Blob> {
  switch (origin.format) {
    case 'PNG': return writePng(samples, origin.chunks);
    case 'WebP': return writePng(upright(samples, origin.orientation), origin.chunks);
    case 'JPEG': return writeJpeg(samples, origin.head);
    case 'TIFF': return writeTiff(samples, origin.form);
  }
}

async function serve(request: FileRequest): Promise<void> {
  try {
    if (request.kind === 'write') {
      port.postMessage({ kind: 'file', file: await write(request.samples, request.origin) });
    } else {
      const picture = await read(request.name, new Uint8Array(request.file));
      port.postMessage({ kind: 'picture', picture }, [picture.samples.bytes.buffer, picture.shown.data.buffer]);
    }
  } catch (error) {
    const reason = error instanceof RangeError ? 'memory' : 'refused'; // what a browser throws when there is none
    port.postMessage({ kind: 'failed', reason, sentence: error instanceof Refusal ? error.message : refusals.broken(String(error)) });
  }
}

port.onmessage = (event) => void serve(event.data);
