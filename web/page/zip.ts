// Several files as one, as they are: pictures are compressed already.
import { bytesOf, checksum, joined, viewOf } from './bytes.js';

const mostBytes = 0xffffffff, version = 20, utf8Names = 1 << 11, fileHead = 'PK\x03\x04', entryHead = 'PK\x01\x02', endHead = 'PK\x05\x06';

/** Numbers of so many bytes each, little-endian. */
function numbers(...pairs: [number, 2 | 4][]): Uint8Array {
  const bytes = new Uint8Array(pairs.reduce((sum, [, size]) => sum + size, 0)), view = viewOf(bytes);
  let at = 0;
  for (const [value, size] of pairs) {
    if (size === 2) view.setUint16(at, value, true);
    else view.setUint32(at, value, true);
    at += size;
  }
  return bytes;
}

function dosTime(date: Date): [number, number] {
  const time = (date.getHours() << 11) | (date.getMinutes() << 5) | (date.getSeconds() >> 1);
  return [time, ((date.getFullYear() - 1980) << 9) | ((date.getMonth() + 1) << 5) | date.getDate()];
}

/** One file at a time is in memory. Null: more than the format holds. */
export async function zipOf(files: { name: string; file: Blob }[], now: Date): Promise<Blob | null> {
  const parts: (Uint8Array | Blob)[] = [], entries: Uint8Array[] = [], [time, day] = dosTime(now);
  let at = 0;
  for (const { name, file } of files) {
    const sum = checksum(new Uint8Array(await file.arrayBuffer())), bytes = new TextEncoder().encode(name);
    const common = numbers([version, 2], [utf8Names, 2], [0, 2], [time, 2], [day, 2], [sum, 4], [file.size, 4], [file.size, 4], [bytes.length, 2], [0, 2]);
    parts.push(bytesOf(fileHead), common, bytes, file);
    entries.push(joined([bytesOf(entryHead), numbers([version, 2]), common, numbers([0, 2], [0, 2], [0, 2], [0, 4], [at, 4]), bytes]));
    at += fileHead.length + common.length + bytes.length + file.size;
  }
  const directory = joined(entries);
  if (at + directory.length > mostBytes || files.length > 0xffff) return null;
  const count = files.length, end = numbers([0, 2], [0, 2], [count, 2], [count, 2], [directory.length, 4], [at, 4], [0, 2]);
  return new Blob([...parts, directory, bytesOf(endHead), end], { type: 'application/zip' });
}
