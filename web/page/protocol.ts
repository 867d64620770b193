// What the page and its worker tell each other. Every request has one answer, in their order; progress comes between.
import type { Found, Resolution, Settings } from './found.js';

export interface Rectangle {
  x: number;
  y: number;
  width: number;
  height: number;
}

export type Request =
  | { kind: 'open'; width: number; height: number; pixels: ArrayBuffer; resolution: Resolution | null }
  | { kind: 'decide'; settings: Settings }
  | { kind: 'turn'; dx: number; dy: number; takenOut: boolean }
  | { kind: 'restore' }
  | { kind: 'part'; part: Rectangle };

export interface Decision {
  found: Found;
  spectrum: ArrayBuffer;
  mask: ArrayBuffer;
}

export type Answer =
  | { kind: 'progress'; part: number }
  | { kind: 'done' }
  | { kind: 'needs'; bytes: number }
  | { kind: 'decision'; decision: Decision }
  | { kind: 'pixels'; pixels: ArrayBuffer }
  | { kind: 'failed'; reason: 'memory' | 'engine'; detail: string; bytes: number };
