// What the engine found, as web/found_json.cpp writes it.
import { says } from './words.js';

export interface Repeat {
  dx: number;
  dy: number;
  periodPixels: number;
  angleDegrees: number;
  linesPerInch: number | null;
}
export interface Peak extends Repeat {
  height: number;
  licensed: boolean;
  used: boolean;
  verdict: string;
  takenOut: boolean;
}
export interface Notch extends Repeat {
  level: number;
  cells: number;
}
export interface Found {
  transformSize: number;
  patternFound: boolean;
  patternCells: number;
  pattern: { text: string; isPlural: boolean };
  threshold: number | null;
  notches: Notch[];
  peaks: Peak[];
}

export interface Settings {
  isAutomatic: boolean;
  acceptance: number;
  sensitivity: number;
  notchRadius: number;
  protectionRadius: number;
}
export const standardSettings: Settings = {
  isAutomatic: true, acceptance: 60, sensitivity: 1, notchRadius: 6, protectionRadius: 8,
};

export interface Resolution {
  horizontal: number;
  vertical: number;
}

/** A peak that can be taken out or left: of an automatic decision all that stand out, by number what was found. */
export interface Choice extends Repeat {
  takenOut: boolean;
  why: string;
}

export function sentenceOf({ patternFound, pattern }: Found): string {
  return patternFound ? says.takenOut(pattern.text, pattern.isPlural) : says.nothing;
}
