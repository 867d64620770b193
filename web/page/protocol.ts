// What the page and its worker tell each other. Every request has one answer, in their order; progress comes between.
import type { Light } from './file_protocol.js';
import type { Found, Resolution, Settings } from './found.js';
import type { Samples } from './samples.js';
import type { Shape } from './words.js';

/** Of the upright picture, as it is shown. */
export interface Rectangle {
  x: number;
  y: number;
  width: number;
  height: number;
}

export type Request =
  | { kind: 'expect'; width: number; height: number }
  | { kind: 'open'; samples: Samples; orientation: number; light: Light; resolution: Resolution | null }
  | { kind: 'decide'; settings: Settings }
  | { kind: 'turn'; dx: number; dy: number; takenOut: boolean }
  | { kind: 'look'; shape: Shape }
  | { kind: 'restore' }
  | { kind: 'prepare'; part: Rectangle }
  | { kind: 'live'; part: Rectangle; into: ArrayBuffer | null }; // memory for the answer, if it is as large

export interface Decision {
  found: Found;
  shape: Shape; // of the spectrum
  spectrum: ArrayBuffer;
  mask: ArrayBuffer;
}

export type Answer =
  | { kind: 'ready'; threads: number } // of itself, before all others
  | { kind: 'progress'; part: number }
  | { kind: 'done' }
  | { kind: 'needs'; bytes: number }
  | { kind: 'decision'; decision: Decision }
  | { kind: 'result'; samples: Samples; shown: ArrayBuffer }
  | { kind: 'part'; shown: ArrayBuffer }
  | { kind: 'failed'; reason: 'memory' | 'engine'; detail: string; bytes: number };
