// The worker as the page sees it: requests as promises, one picture's life long.
import { NoMemory, Refusal } from './refusal.js';
import { refusals } from './words.js';
import type { Answer, Decision, Rectangle, Request } from './protocol.js';
import type { ReadPicture } from './file_protocol.js';
import type { Settings } from './found.js';
import type { Samples } from './samples.js';
import type { Shape } from './words.js';

export class Cancelled extends Error {}

interface Waiting {
  resolve(answer: Answer): void;
  reject(error: Error): void;
}

export interface Watcher {
  progress(part: number): void;
  needs(bytes: number): void;
}

export const nobody: Watcher = { progress: () => undefined, needs: () => undefined };
let spare: Cleaner | null = null;

export class Cleaner {
  private readonly worker = new Worker('worker.js', { type: 'module' });
  private readonly waiting: Waiting[] = [];
  private used: ArrayBuffer | null = null; // of a part that was shown, for the next one

  constructor(private watcher: Watcher = nobody) {
    this.worker.onmessage = (event: MessageEvent<Answer>) => this.take(event.data);
    this.worker.onerror = (event) => {
      if (spare === this) spare = null;
      this.end(new Refusal(refusals.broken(event.message)));
    };
  }

  /** The one that prepare() made, or a new one. */
  static take(watcher: Watcher): Cleaner {
    const cleaner = spare ?? new Cleaner();
    spare = null;
    cleaner.watcher = watcher;
    return cleaner;
  }
  /** Starts an engine for whoever takes one next. */
  static prepare(): void {
    spare ??= new Cleaner();
  }

  /** Lets it take memory while a picture of that size is still read. */
  static expect(width: number, height: number): void {
    Cleaner.prepare();
    spare?.ask({ kind: 'expect', width, height }).catch(() => undefined); // open() tells
  }
  /** Where there will be no such picture after all. */
  static expectNothing(): void {
    spare?.cancel();
    spare = null;
  }

  /** Ends all work at once; the cleaner is of no use afterwards. */
  cancel(): void {
    this.end(new Cancelled());
  }

  /** The picture's samples go over, and are the page's no more. */
  async open({ samples, orientation, light, resolution }: ReadPicture): Promise<void> {
    await this.ask({ kind: 'open', samples, orientation, light, resolution }, [samples.bytes.buffer]);
  }
  async decide(settings: Settings): Promise<void> {
    await this.ask({ kind: 'decide', settings });
  }
  async turn(dx: number, dy: number, takenOut: boolean): Promise<void> {
    await this.ask({ kind: 'turn', dx, dy, takenOut });
  }
  /** What was decided last, with its pictures. */
  async look(shape: Shape): Promise<Decision> {
    return decisionOf(await this.ask({ kind: 'look', shape }));
  }
  /** The result as it goes into a file, and as it is shown. */
  async restore(): Promise<{ samples: Samples; shown: Uint8ClampedArray }> {
    const answer = await this.ask({ kind: 'restore' });
    if (answer.kind !== 'result') throw new Refusal(refusals.broken(answer.kind));
    return { samples: answer.samples, shown: new Uint8ClampedArray(answer.shown) };
  }
  /** Does beforehand what the first live() of a part would have to. */
  async prepare(part: Rectangle): Promise<void> {
    await this.ask({ kind: 'prepare', part });
  }
  /** The part as it will be, but for the last polish. */
  async live(part: Rectangle): Promise<Uint8ClampedArray> {
    const into = this.used;
    this.used = null;
    const answer = await this.ask({ kind: 'live', part, into }, into ? [into] : []);
    if (answer.kind !== 'part') throw new Refusal(refusals.broken(answer.kind));
    return new Uint8ClampedArray(answer.shown);
  }

  /** Pixels of live() that nobody looks at any more: new memory for each part would cost more than drawing it. */
  giveBack(pixels: Uint8ClampedArray): void {
    this.used = pixels.buffer as ArrayBuffer;
  }

  private ask(request: Request, transfer: Transferable[] = []): Promise<Answer> {
    return new Promise((resolve, reject) => {
      this.waiting.push({ resolve, reject });
      this.worker.postMessage(request, transfer);
    });
  }

  private take(answer: Answer): void {
    if (answer.kind === 'ready') return void (document.body.dataset['threads'] = String(answer.threads));
    if (answer.kind === 'progress') return this.watcher.progress(answer.part);
    if (answer.kind === 'needs') return this.watcher.needs(answer.bytes);
    const next = this.waiting.shift();
    if (answer.kind !== 'failed') return next?.resolve(answer);
    next?.reject(answer.reason === 'memory' ? new NoMemory(refusals.noMemory(answer.bytes)) : new Refusal(refusals.broken(answer.detail)));
  }

  private end(error: Error): void {
    this.worker.terminate();
    for (const waiting of this.waiting.splice(0)) waiting.reject(error);
  }
}

function decisionOf(answer: Answer): Decision {
  if (answer.kind !== 'decision') throw new Refusal(refusals.broken(answer.kind));
  return answer.decision;
}
