// Several pictures, one after another beside the one on the stage. Of each only its result's file is kept.
import { Cancelled, Cleaner, nobody } from './cleaner.js';
import { sentenceOf, type Settings } from './found.js';
import { cleanName, readPicture, writePicture } from './picture_file.js';
import { Refusal } from './refusal.js';
import { batchWords, refusals } from './words.js';
import { zipOf } from './zip.js';

interface Entry {
  file: File;
  row: HTMLElement;
  result: { name: string; file: Blob } | null;
}

export interface BatchHost {
  settings(): Settings;
  open(file: File): void;
  download(name: string, file: Blob): void;
  tell(error: unknown): void;
}

export class Batch {
  private entries: Entry[] = [];
  private run = 0; // which one of them is the present; an older one ends when it looks
  private cleaner: Cleaner | null = null;
  private readonly list: HTMLElement;
  private readonly state: HTMLElement;
  private readonly saveAll: HTMLButtonElement;
  private readonly stopAll: HTMLButtonElement;

  constructor(private readonly place: HTMLElement, private readonly host: BatchHost) {
    this.list = place.querySelector('ol')!;
    this.state = place.querySelector('[role=status]')!;
    [this.saveAll, this.stopAll] = place.querySelectorAll('.row button') as unknown as [HTMLButtonElement, HTMLButtonElement];
    this.saveAll.onclick = () => void this.save().catch((error) => this.host.tell(error));
    this.stopAll.onclick = () => this.stop();
  }

  /** Begins when `before` is over. Takes the place of what was in work; results that were not saved go. */
  async start(files: File[], before: Promise<void>): Promise<void> {
    this.stop();
    const run = ++this.run, settings = this.host.settings();
    this.place.hidden = false;
    this.place.dataset['state'] = 'working';
    this.entries = files.map((file) => ({ file, row: this.rowOf(file), result: null }));
    this.list.replaceChildren(...this.entries.map(({ row }) => row));
    this.stopAll.disabled = false;
    await before;
    for (const [index, entry] of this.entries.entries()) {
      if (run !== this.run) return;
      this.tellState(index);
      await this.clean(entry, settings, run);
    }
    if (run === this.run) this.end();
  }

  private stop(): void {
    if (this.stopAll.disabled) return;
    ++this.run;
    this.cleaner?.cancel();
    for (const { row } of this.entries) if (!['done', 'refused'].includes(row.dataset['state'] ?? '')) this.setState(row, 'left');
    this.end();
  }

  private end(): void {
    this.stopAll.disabled = true;
    this.tellState(null);
    this.place.dataset['state'] = 'ended';
  }

  private async clean(entry: Entry, settings: Settings, run: number): Promise<void> {
    const mark = (state: keyof typeof batchWords.states, sentence = ''): void => {
      if (run === this.run) this.setState(entry.row, state, sentence);
    };
    mark('working');
    let cleaner: Cleaner | null = null;
    try {
      const picture = await readPicture(entry.file.name, entry.file);
      if (run !== this.run) return;
      cleaner = this.cleaner = Cleaner.take(nobody);
      await cleaner.open(picture);
      await cleaner.decide(settings);
      const { found } = await cleaner.look('flat');
      const { samples } = await cleaner.restore();
      cleaner.cancel(); // its memory goes before the file is made
      const file = await writePicture(picture, samples, found);
      if (run !== this.run) return;
      entry.result = { name: this.freeName(cleanName(picture)), file };
      mark('done', sentenceOf(found));
    } catch (error) {
      if (!(error instanceof Cancelled)) mark('refused', error instanceof Refusal ? error.message : refusals.broken(String(error)));
    } finally {
      cleaner?.cancel();
    }
  }

  /** Two pictures of one name, from two folders, have two results. */
  private freeName(name: string): string {
    const isTaken = (one: string): boolean => this.entries.some(({ result }) => result?.name === one);
    for (let number = 2, one = name; ; ++number) {
      if (!isTaken(one)) return one;
      one = name.replace(/(\.[^.]*)$/, `-${number}$1`);
    }
  }

  private rowOf(file: File): HTMLElement {
    const row = document.createElement('li'), open = document.createElement('button'), save = document.createElement('button');
    const [state, sentence] = [document.createElement('span'), document.createElement('p')];
    open.textContent = file.name;
    open.title = batchWords.open(file.name);
    open.onclick = () => this.host.open(file);
    save.textContent = batchWords.save;
    save.setAttribute('aria-label', batchWords.saveOne(file.name));
    save.hidden = true;
    save.onclick = () => {
      const result = this.entries.find((entry) => entry.row === row)?.result;
      if (result) this.host.download(result.name, result.file);
    };
    state.textContent = batchWords.states.waiting;
    row.append(open, state, save, sentence);
    return row;
  }

  private setState(row: HTMLElement, state: keyof typeof batchWords.states, sentence = ''): void {
    row.dataset['state'] = state;
    row.querySelector('span')!.textContent = batchWords.states[state];
    row.querySelector('p')!.textContent = sentence;
    row.querySelectorAll('button')[1]!.hidden = state !== 'done';
  }

  private tellState(working: number | null): void {
    const count = this.entries.length, done = this.entries.filter(({ result }) => result).length;
    this.state.textContent = working === null ? batchWords.ended(done, count) : batchWords.working(working + 1, count);
    this.saveAll.disabled = working !== null || done === 0;
  }

  private async save(): Promise<void> {
    const results = this.entries.flatMap(({ result }) => result ?? []);
    const zip = await zipOf(results, new Date());
    if (!zip) throw new Refusal(batchWords.tooMuch);
    this.host.download('cleaned.zip', zip);
  }
}
