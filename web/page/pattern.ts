// What the decision took for its pattern, in words: as the program says it.
import type { Choice, Found, Notch, Peak, Repeat } from './found.js';
import { patterns, says, verdicts } from './words.js';

interface Wave {
  period: number;
  angle: number;
  lines: number | null;
}

const mostApart = 0.04, mostOffSquare = 3, sameScreen = 2; // share of a period; degrees; degrees

/** A peak is known to its cell; the notch round it to a fraction of that. */
function waveOf(peak: Peak, notches: Notch[]): Wave {
  const isNear = (notch: Notch, side: number): boolean =>
    Math.abs(side * notch.dx - peak.dx) <= 1 && Math.abs(side * notch.dy - peak.dy) <= 1;
  const finer: Repeat = notches.find((notch) => isNear(notch, 1) || isNear(notch, -1)) ?? peak;
  return { period: finer.periodPixels, angle: finer.angleDegrees % 180, lines: finer.linesPerInch };
}

function areOfOneRuling(a: Wave, b: Wave): boolean {
  return Math.abs(b.period / a.period - 1) < mostApart;
}

function isScreen(wave: Wave, all: Wave[]): boolean {
  return all.some((other) => areOfOneRuling(wave, other) && Math.abs(Math.abs(wave.angle - other.angle) - 90) < mostOffSquare);
}

function screenAngles(waves: Wave[]): number[] {
  const angles: number[] = [];
  for (const wave of waves) {
    if (!areOfOneRuling(waves[0]!, wave) || !isScreen(wave, waves)) continue;
    const angle = Math.round(wave.angle) % 90;
    const isKnown = angles.some((other) => Math.min(Math.abs(angle - other), 90 - Math.abs(angle - other)) <= sameScreen);
    if (!isKnown) angles.push(angle);
  }
  return angles.sort((a, b) => a - b);
}

function listed(numbers: number[]): string {
  const texts = numbers.map(String);
  return texts.length > 1 ? texts.slice(0, -1).join(', ') + patterns.and + texts[texts.length - 1]! : texts.join('');
}

function withArticle(text: string): string {
  const whole = text.split('.')[0]!;
  return (whole.startsWith('8') || whole === '11' || whole === '18' ? 'an ' : 'a ') + text;
}

function nameOf(waves: Wave[]): { text: string; isPlural: boolean } {
  const highest = waves[0];
  if (!highest) return { text: patterns.unknown, isPlural: false };
  const ruling = highest.lines === null ? '' : patterns.lpi(highest.lines.toFixed(1));
  const period = highest.lines === null ? patterns.period(highest.period.toFixed(2)) : '';
  const hasScreen = isScreen(highest, waves);
  const angles = hasScreen ? screenAngles(waves) : [Math.round(highest.angle) % 180];
  const at = period + patterns.at(listed(angles));
  if (angles.length > 1) return { text: ruling + patterns.screens + at, isPlural: true };
  return { text: withArticle(ruling + (hasScreen ? patterns.screen : patterns.line)) + at, isPlural: false };
}

export function sentenceOf(found: Found): string {
  if (!found.patternFound) return says.nothing;
  const licensed = found.peaks.filter((peak) => peak.licensed && peak.takenOut);
  const name = nameOf(licensed.map((peak) => waveOf(peak, found.notches)));
  return says.takenOut(name.text, name.isPlural);
}

/** What the user can take out or leave, the most striking first. */
export function choicesOf(found: Found, known: Choice[]): Choice[] {
  if (found.peaks.length > 0) return found.peaks.map((peak) => ({ ...peak, why: verdicts[peak.verdict] ?? peak.verdict }));
  const choices = found.notches.map((notch) => ({ ...notch, takenOut: true, why: verdicts['used'] ?? '' }));
  const isLeft = (choice: Choice): boolean => !choices.some((other) => other.dx === choice.dx && other.dy === choice.dy);
  return [...choices, ...known.filter(isLeft).map((choice) => ({ ...choice, takenOut: false }))];
}
