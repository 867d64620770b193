// The spectrum with a ring for every peak that can be taken out or left, and the table of the same.
import type { Choice, Found } from './found.js';
import type { Decision } from './protocol.js';
import { peakColumns, says, verdicts } from './words.js';

const side = 512, centre = side / 2, mostMarks = 60, mostRows = 24;

export type Turn = (choice: Choice) => void;

export class SpectrumView {
  private readonly canvas: HTMLCanvasElement;
  private readonly marks: HTMLElement;
  private standing = ''; // what the marks and rows were made of

  constructor(private readonly box: HTMLElement, head: HTMLElement, private readonly rows: HTMLElement, private readonly turn: Turn) {
    this.canvas = box.querySelector('canvas')!;
    this.marks = box.querySelector('#marks')!;
    this.marks.addEventListener('keydown', (event) => this.walk(event));
    this.marks.addEventListener('focusin', (event) => this.letIn(event.target as Element));
    head.replaceChildren(rowOf('th', peakColumns));
  }

  clear(): void {
    this.standing = '';
    this.canvas.getContext('2d')!.clearRect(0, 0, side, side);
    this.marks.replaceChildren();
    this.rows.replaceChildren();
  }

  show({ spectrum, shape }: Decision, choices: Choice[]): void {
    this.canvas.getContext('2d')!.putImageData(new ImageData(new Uint8ClampedArray(spectrum), side, side), 0, 0);
    if (this.box.dataset['shape'] !== shape) this.box.dataset['shape'] = shape;
    const standing = JSON.stringify(choices.map(({ dx, dy, takenOut }) => [dx, dy, takenOut]));
    if (standing === this.standing) return;
    this.standing = standing;
    const focused = this.focused();
    const shown = choices.slice(0, mostMarks);
    this.marks.replaceChildren(...shown.flatMap((choice) => [this.mark(choice, 1), this.mark(choice, -1)]));
    this.rows.replaceChildren(...choices.slice(0, mostRows).map((choice) => this.row(choice)));
    this.letIn(this.marks.firstElementChild);
    if (focused) document.querySelector<HTMLElement>(focused)?.focus();
  }

  /** The mark or box that has the keyboard, to give it back after it was made anew. */
  private focused(): string | null {
    const key = (document.activeElement as HTMLElement | null)?.dataset['peak'];
    return key ? `[data-peak="${key}"]` : null;
  }

  /** The Tab key comes to one mark only; the arrow keys go from there to the others. */
  private letIn(mark: Element | null): void {
    for (const other of this.marks.children) (other as HTMLElement).tabIndex = other === mark ? 0 : -1;
  }

  private walk(event: KeyboardEvent): void {
    const step = { ArrowRight: 2, ArrowDown: 2, ArrowLeft: -2, ArrowUp: -2 }[event.key]; // every peak stands there twice
    const marks = [...this.marks.children] as HTMLElement[];
    const place = marks.indexOf(document.activeElement as HTMLElement);
    if (step === undefined || place < 0) return;
    event.preventDefault();
    const next = marks[(place + step + marks.length) % marks.length]!;
    this.letIn(next);
    next.focus();
  }

  private mark(choice: Choice, way: 1 | -1): HTMLButtonElement {
    const mark = document.createElement('button');
    mark.style.left = `${((centre + way * choice.dx) / side) * 100}%`;
    mark.style.top = `${((centre + way * choice.dy) / side) * 100}%`;
    mark.setAttribute('aria-pressed', String(choice.takenOut));
    mark.title = says.peak(choice.periodPixels.toFixed(2), choice.angleDegrees.toFixed(1), choice.why);
    mark.setAttribute('aria-label', mark.title);
    mark.dataset['peak'] = `${choice.dx},${choice.dy},${way}`;
    mark.tabIndex = -1;
    mark.onclick = () => this.turn(choice);
    return mark;
  }

  private row(choice: Choice): HTMLTableRowElement {
    const box = document.createElement('input');
    box.type = 'checkbox';
    box.checked = choice.takenOut;
    box.dataset['peak'] = `${choice.dx},${choice.dy},row`;
    box.setAttribute('aria-label', says.peak(choice.periodPixels.toFixed(2), choice.angleDegrees.toFixed(1), choice.why));
    box.onchange = () => this.turn(choice);
    const lines = choice.linesPerInch === null ? '–' : choice.linesPerInch.toFixed(1);
    const row = rowOf('td', ['', `${choice.periodPixels.toFixed(2)} px`, `${choice.angleDegrees.toFixed(1)}°`, lines]);
    row.title = choice.why;
    row.firstElementChild!.append(box);
    return row;
  }
}

function rowOf(cell: 'td' | 'th', texts: string[]): HTMLTableRowElement {
  const row = document.createElement('tr');
  row.append(...texts.map((text) => Object.assign(document.createElement(cell), { textContent: text })));
  return row;
}

/** What the user can take out or leave, the most striking first. */
export function choicesOf(found: Found, known: Choice[]): Choice[] {
  if (found.peaks.length > 0) return found.peaks.map((peak) => ({ ...peak, why: verdicts[peak.verdict] ?? peak.verdict }));
  const choices = found.notches.map((notch) => ({ ...notch, takenOut: true, why: verdicts['used'] ?? '' }));
  const isLeft = (choice: Choice): boolean => !choices.some((other) => other.dx === choice.dx && other.dy === choice.dy);
  return [...choices, ...known.filter(isLeft).map((choice) => ({ ...choice, takenOut: false }))];
}
