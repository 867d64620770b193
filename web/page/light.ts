// How much light a level stands for, as a file says it: along the greys of an ICC profile of curves and a matrix, or by a power.
import { startsWith, viewOf } from './bytes.js';

const levels = 1024;
type Curve = (level: number) => number;

const ramp = (curve: Curve): Float32Array => Float32Array.from({ length: levels }, (_, i) => curve(i / (levels - 1)));

/** From a gAMA chunk, which has 100000 times the exponent of the coding. */
export function lightOfGamma(chunk: Uint8Array): Float32Array | null {
  const power = chunk.length === 4 ? 100000 / viewOf(chunk).getUint32(0) : 0;
  return power >= 0.1 && power <= 10 ? ramp((level) => level ** power) : null;
}

function curveOf(data: Uint8Array): Curve | null {
  const view = viewOf(data), fixed = (at: number): number => view.getInt32(at) / 65536;
  if (startsWith(data, 'curv')) {
    const count = view.getUint32(8);
    if (data.length < 12 + 2 * count) return null;
    if (count === 0) return (level) => level;
    if (count === 1) return (level) => level ** (view.getUint16(12) / 256);
    return (level) => {
      const at = level * (count - 1), index = Math.min(count - 2, Math.floor(at));
      const [low, high] = [view.getUint16(12 + 2 * index), view.getUint16(14 + 2 * index)];
      return (low + (high - low) * (at - index)) / 65535;
    };
  }
  const kind = view.getUint16(8), counts = [1, 3, 4, 5, 7];
  if (!startsWith(data, 'para') || kind > 4 || data.length < 12 + 4 * counts[kind]!) return null;
  const number = (index: number): number => (index < counts[kind]! ? fixed(12 + 4 * index) : 0);
  const g = number(0), a = kind === 0 ? 1 : number(1), b = number(2), c = number(3);
  const power: Curve = (level) => Math.max(0, a * level + b) ** g;
  switch (kind) {
    case 0: return power;
    case 1: return (level) => (level >= -b / a ? power(level) : 0);
    case 2: return (level) => (level >= -b / a ? power(level) + c : c);
    case 3: return (level) => (level >= number(4) ? power(level) : c * level);
    default: return (level) => (level >= number(4) ? power(level) + number(5) : c * level + number(6));
  }
}

/** The luminance of the greys; null where the profile has a table of colours instead, or cannot be read. */
export function lightOfProfile(profile: Uint8Array | null, colours: number): Float32Array | null {
  if (!profile || profile.length < 132) return null;
  const view = viewOf(profile), tags = new Map<string, Uint8Array>();
  for (let i = 0, at = 132; i < view.getUint32(128) && at + 12 <= profile.length; ++i, at += 12) {
    const [offset, length] = [view.getUint32(at + 4), view.getUint32(at + 8)];
    if (length < 12 || offset + length > profile.length) continue;
    tags.set(String.fromCharCode(...profile.subarray(at, at + 4)), profile.subarray(offset, offset + length));
  }
  const curve = (name: string): Curve | null => {
    const data = tags.get(name);
    return data ? curveOf(data) : null;
  };
  const grey = curve('kTRC');
  if (grey && startsWith(profile, 'GRAY', 16) && colours === 1) return ramp(grey);
  const parts = ['r', 'g', 'b'].map((name) => ({ curve: curve(`${name}TRC`), matrix: tags.get(`${name}XYZ`) }));
  if (tags.has('A2B0') || tags.has('A2B1') || !parts.every(({ curve: own, matrix }) => own && matrix && matrix.length >= 20)) return null;
  return ramp((level) => parts.reduce((sum, { curve: own, matrix }) => sum + (viewOf(matrix!).getInt32(12) / 65536) * own!(level), 0));
}
