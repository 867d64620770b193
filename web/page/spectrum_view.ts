// The spectrum with a ring for every peak that can be taken out or left, and the table of the same.
import type { Choice } from './found.js';
import { peakColumns, says } from './words.js';

const side = 512, centre = side / 2, mostMarks = 60, mostRows = 24;

export type Turn = (choice: Choice) => void;

export class SpectrumView {
  private readonly canvas: HTMLCanvasElement;
  private readonly marks: HTMLElement;

  constructor(box: HTMLElement, head: HTMLElement, private readonly rows: HTMLElement, private readonly turn: Turn) {
    this.canvas = box.querySelector('canvas')!;
    this.marks = box.querySelector('#marks')!;
    head.replaceChildren(rowOf('th', peakColumns));
  }

  clear(): void {
    this.canvas.getContext('2d')!.clearRect(0, 0, side, side);
    this.marks.replaceChildren();
    this.rows.replaceChildren();
  }

  show(pixels: ArrayBuffer, choices: Choice[]): void {
    this.canvas.getContext('2d')!.putImageData(new ImageData(new Uint8ClampedArray(pixels), side, side), 0, 0);
    const focused = this.focused();
    const shown = choices.slice(0, mostMarks);
    this.marks.replaceChildren(...shown.flatMap((choice) => [this.mark(choice, 1), this.mark(choice, -1)]));
    this.rows.replaceChildren(...choices.slice(0, mostRows).map((choice) => this.row(choice)));
    if (focused) document.querySelector<HTMLElement>(focused)?.focus();
  }

  /** The mark or box that has the keyboard, to give it back after it was made anew. */
  private focused(): string | null {
    const key = (document.activeElement as HTMLElement | null)?.dataset['peak'];
    return key ? `[data-peak="${key}"]` : null;
  }

  private mark(choice: Choice, way: 1 | -1): HTMLButtonElement {
    const mark = document.createElement('button');
    mark.style.left = `${((centre + way * choice.dx) / side) * 100}%`;
    mark.style.top = `${((centre + way * choice.dy) / side) * 100}%`;
    mark.setAttribute('aria-pressed', String(choice.takenOut));
    mark.title = says.peak(choice.periodPixels.toFixed(2), choice.angleDegrees.toFixed(1), choice.why);
    mark.setAttribute('aria-label', mark.title);
    mark.dataset['peak'] = `${choice.dx},${choice.dy},${way}`;
    if (way < 0) mark.tabIndex = -1; // the same peak again
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
