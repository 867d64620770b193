// The page: one picture at a time, opened, cleaned by itself, looked at, changed, saved.
import { Batch } from './batch.js';
import { Cancelled, Cleaner } from './cleaner.js';
import { sentenceOf, standardSettings, type Choice, type Settings } from './found.js';
import { cleanName, prepareForFiles, readPicture, writePicture, type Picture } from './picture_file.js';
import type { Decision } from './protocol.js';
import { NoMemory, Refusal } from './refusal.js';
import { commandFor, reportOf } from './report.js';
import type { Samples } from './samples.js';
import { choicesOf, SpectrumView } from './spectrum_view.js';
import { Viewer, type Layers } from './viewer.js';
import { labels, refusals, samples, says, shapes, sliders, views, type Label, type Shape, type View } from './words.js';

function element<T extends HTMLElement = HTMLElement>(id: string): T {
  return document.getElementById(id) as T;
}
const button = (id: string): HTMLButtonElement => element<HTMLButtonElement>(id);

interface Work {
  picture: Picture;
  begun: number;
  cleaner: Cleaner;
  layers: Layers;
  decision: Decision | null;
  choices: Choice[];
  after: ImageData | null;
  result: Samples | null;
  changes: number; // that the user made
  shownChanges: number; // those that the result is made with
  made: { settings: Settings; decision: Decision } | null; // what the result is made by
  wholeOf: Settings | null; // that the user let the sliders go with
}

/** What the user changed since the engine last answered. */
interface Wanted {
  turns: Choice[];
  decide: boolean;
  whole: boolean;
  onlyLook: boolean; // nothing but the spectrum's picture is another
  since: number; // when the first of it was, milliseconds
}

type SliderName = keyof typeof sliders;
const ranges: Record<SliderName, { min: number; max: number; step: number }> = {
  acceptance: { min: 0, max: 100, step: 0.1 },
  sensitivity: { min: 0.7, max: 1.3, step: 0.01 },
  notchRadius: { min: 1, max: 16, step: 0.5 },
  protectionRadius: { min: 1, max: 128, step: 0.5 },
};
const sliderNames = Object.keys(ranges) as SliderName[];

const pauseBeforeLooking = 100; // milliseconds
const spectrumSide = 512;

const isStale = (own: Work): boolean => own.changes !== own.shownChanges;

let settings: Settings = { ...standardSettings };
let work: Work | null = null;
let openings = 0;
let wanted: Wanted | null = null;
let isRefreshing = false;
let endPause = (): void => undefined; // of refresh(), while it lets the hand go on

const viewer = new Viewer(element('stage'), {
  zoomed: (zoom) => (element('zoom').textContent = `${Math.round(zoom * 100)} %`),
  stayed: () => prepareLive(),
});
const spectrum = new SpectrumView(element('spectrum'), element('peaks-head'), element('peaks'), (choice) =>
  want({ turns: [choice], whole: true }));

const batch = new Batch(element('files'), { settings: () => settings, open: (file) => void openFile(file), download, tell });

function say(text: string, isBad = false): void {
  element('sentence').textContent = text;
  element('sentence').classList.toggle('bad', isBad);
}

function tell(error: unknown): void {
  if (error instanceof Cancelled) say(says.cancelled);
  else say(error instanceof Refusal ? error.message : refusals.broken(String(error)), true);
}

function showProgress(part: number | null): void {
  element('work').hidden = part === null;
  element<HTMLProgressElement>('progress').value = part ?? 0;
}

function showState(): void {
  const isDone = work?.after != null && !isStale(work);
  document.body.dataset['state'] = isDone ? 'done' : work ? 'working' : 'empty';
  element('welcome').hidden = work !== null;
  for (const id of ['save', 'report']) button(id).disabled = !isDone;
  for (const id of ['tag-before', 'tag-after']) element(id).hidden = work?.after == null;
  element('command').textContent = commandFor(work?.picture.name ?? 'scan.png', work ? cleanName(work.picture) : 'scan-clean.png', settings);
  for (const name of sliderNames) {
    const hides = { acceptance: settings.isAutomatic, sensitivity: !settings.isAutomatic };
    element(`row-${name}`).hidden = name in hides && hides[name as keyof typeof hides];
  }
}

function close(): void {
  work?.cleaner.cancel();
  work = null;
  wanted = null;
  viewer.show(null);
  spectrum.clear();
  showProgress(null);
  showState();
}

// Cleaning --------------------------------------------------------------------------------------------------------------

async function openBlob(name: string, fetchBlob: () => Promise<Blob>): Promise<void> {
  const opening = ++openings;
  const begun = performance.now();
  close();
  Cleaner.prepare();
  say(says.reading(name));
  try {
    const headed = (width: number, height: number): void => {
      if (opening === openings) Cleaner.expect(width, height);
    };
    const picture = await readPicture(name, await fetchBlob(), headed);
    if (opening !== openings) return;
    const cleaner = Cleaner.take({ progress: showProgress, needs: (bytes) => say(says.looking(bytes)) });
    const opened = cleaner.open(picture);
    opened.catch(() => undefined); // clean() tells
    const before = await createImageBitmap(picture.shown);
    if (opening !== openings) return cleaner.cancel();
    await clean(begin(picture, cleaner, before, begun), opened);
  } catch (error) {
    if (opening === openings) giveUp(error);
  }
}

function giveUp(reason: unknown): void {
  close();
  Cleaner.expectNothing();
  tell(reason);
}

function begin(picture: Picture, cleaner: Cleaner, before: ImageBitmap, begun: number): Work {
  work = {
    picture, begun, cleaner, layers: { before, after: null, taken: null, mask: null }, decision: null, choices: [], after: null,
    result: null, changes: 0, shownChanges: 0, made: null, wholeOf: null,
  };
  viewer.show(work.layers);
  showProgress(0);
  showState();
  return work;
}

/** All is asked at once, so that the engine never waits for the page. */
async function clean(own: Work, opened: Promise<void>): Promise<void> {
  const begun = settings, decided = own.cleaner.decide(begun), looked = own.cleaner.look(shape()), restored = own.cleaner.restore();
  restored.catch(() => undefined); // where looked fails, nobody waits for it
  const shown = looked.then((decision) => takeDecision(own, decision));
  await Promise.all([opened, decided, shown, looked.then(() => showRestored(own, begun, restored, 0))]);
  if (work === own && isStale(own)) wantWhole(); // before there was a decision nothing else could be
}

async function takeDecision(own: Work, decision: Decision): Promise<void> {
  own.choices = choicesOf(decision.found, own.choices);
  own.decision = decision;
  own.layers.mask = await createImageBitmap(new ImageData(new Uint8ClampedArray(decision.mask), spectrumSide));
  spectrum.show(decision, own.choices);
}

/** When the decision is known. */
async function showRestored(own: Work, by: Settings, restored = own.cleaner.restore(), changes = own.changes): Promise<void> {
  say(says.removing);
  showProgress(0);
  const { width, height } = own.picture.shown;
  const { samples, shown } = await restored;
  own.result = samples;
  own.after = new ImageData(shown, width, height);
  own.layers.after = await createImageBitmap(own.after);
  own.layers.taken = null;
  if (currentView() === 'taken') await drawTaken(own);
  viewer.show(own.layers, true);
  showProgress(null);
  if (own.decision) {
    say(sentenceOf(own.decision.found));
    own.made = { settings: by, decision: own.decision };
  }
  own.shownChanges = changes;
  document.body.dataset['cleanedMilliseconds'] = String(Math.round(performance.now() - own.begun));
  showState();
}

async function drawTaken(own: Work): Promise<void> {
  if (!own.after || own.layers.taken) return;
  const middle = 128, before = own.picture.shown.data, after = own.after.data;
  const taken = new ImageData(own.after.width, own.after.height);
  for (let i = 0; i < before.length; ++i) taken.data[i] = i % 4 === 3 ? 255 : middle + before[i]! - after[i]!;
  own.layers.taken = await createImageBitmap(taken);
}

// Changes ---------------------------------------------------------------------------------------------------------------

function want(change: Partial<Wanted>): void {
  if (work && !change.onlyLook) ++work.changes;
  showState();
  if (!work?.decision) return;
  const { turns = [], decide = false, whole = false, onlyLook = false } = change;
  wanted = {
    turns: [...(decide ? [] : wanted?.turns ?? []), ...turns],
    decide: decide || (wanted?.decide ?? false),
    whole: whole || (wanted?.whole ?? false),
    onlyLook: onlyLook && (wanted?.onlyLook ?? true),
    since: wanted?.since ?? performance.now(),
  };
  endPause();
  if (!isRefreshing) void refresh(work);
}

/** For the settings as they are; of a thumb that is let go the browser may tell twice. */
function wantWhole(): void {
  if (work?.wholeOf === settings) return;
  if (work?.decision) work.wholeOf = settings;
  want({ decide: true, whole: true });
}

/** Follows the user: the visible part at once, the whole picture when nothing newer is wanted. */
async function refresh(own: Work): Promise<void> {
  isRefreshing = true;
  let by = own.made?.settings ?? settings;
  try {
    while (wanted && work === own) {
      const { turns, decide, whole, onlyLook, since }: Wanted = wanted;
      wanted = null;
      if (decide) by = settings;
      const asked = [
        ...(decide ? [own.cleaner.decide(settings)] : []),
        ...turns.map(({ dx, dy, takenOut }) => own.cleaner.turn(dx, dy, !takenOut)),
        ...(onlyLook ? [] : [showVisiblePart(own, since)]),
      ];
      await Promise.all(asked);
      await new Promise<void>((resolve) => {
        endPause = resolve;
        setTimeout(resolve, pauseBeforeLooking);
      });
      if (wanted && !whole) continue; // the hand is faster than the spectrum's picture
      await takeDecision(own, await own.cleaner.look(shape()));
      const newer = wanted as Wanted | null;
      if (whole && !newer) await showRestored(own, by);
      else if (whole && newer?.onlyLook) want({ onlyLook: true, whole: true });
    }
  } catch (error) {
    if (work === own) await goBack(own, error);
  } finally {
    isRefreshing = false;
    if (wanted && work && work !== own) void refresh(work);
  }
}

/** Where memory ran out for a change, the result before it stays, with the settings that made it. */
async function goBack(own: Work, reason: unknown): Promise<void> {
  wanted = null;
  if (!(reason instanceof NoMemory) || !own.made) {
    close();
    return tell(reason);
  }
  settings = own.made.settings;
  putSettings();
  own.cleaner.decide(settings).catch(() => undefined); // the next change's will tell
  await takeDecision(own, own.made.decision);
  viewer.show(own.layers, true);
  own.shownChanges = own.changes;
  own.wholeOf = null;
  showProgress(null);
  tell(reason);
  showState();
}

function putSettings(): void {
  for (const name of sliderNames) {
    const input = element<HTMLInputElement>(name);
    input.value = input.previousElementSibling!.textContent = String(settings[name]);
  }
  element<HTMLInputElement>('automatic').checked = settings.isAutomatic;
}

async function showVisiblePart(own: Work, since: number): Promise<void> {
  const part = viewer.visiblePart();
  if (!part || !own.layers.after) return;
  const pixels = await own.cleaner.live(part);
  await viewer.showPatch(pixels, part);
  own.cleaner.giveBack(pixels);
  document.body.dataset['livePart'] = JSON.stringify(part);
  document.body.dataset['liveMilliseconds'] = String(Math.round(performance.now() - since));
}

/** Before a slider moves: the part that will follow it. */
function prepareLive(): void {
  const part = viewer.visiblePart();
  if (part && work?.after && !isRefreshing) work.cleaner.prepare(part).catch(() => undefined); // live() tells
}

// Saving ----------------------------------------------------------------------------------------------------------------

function download(name: string, blob: Blob): void {
  const link = document.createElement('a');
  link.href = URL.createObjectURL(blob);
  link.download = name;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 60000);
}

async function savePicture(): Promise<void> {
  if (!work?.result || !work.decision) return;
  const { picture, result, decision } = work, name = cleanName(picture), before = element('sentence').textContent ?? '';
  button('save').disabled = true;
  say(says.saving(name));
  try {
    download(name, await writePicture(picture, result, decision.found));
    say(before);
  } finally {
    showState();
  }
}

function saveReport(): void {
  if (!work?.decision) return;
  const report = reportOf(work.picture, settings, work.decision.found);
  download(`${work.picture.name}.json`, new Blob([report], { type: 'application/json' }));
}

async function copyCommand(): Promise<void> {
  await navigator.clipboard.writeText(element('command').textContent ?? '');
  say(says.copied);
}

// Building the page -----------------------------------------------------------------------------------------------------

function putWords(): void {
  for (const place of document.querySelectorAll<HTMLElement>('[data-text]')) {
    place.textContent = labels[place.dataset['text'] as Label];
  }
  for (const place of document.querySelectorAll<HTMLElement>('[data-label]')) {
    place.setAttribute('aria-label', labels[place.dataset['label'] as Label]);
  }
}

function makeSlider(name: SliderName): HTMLElement {
  const row = document.createElement('label');
  row.id = `row-${name}`;
  const value = document.createElement('output');
  const { min, max, step } = ranges[name];
  const input = Object.assign(document.createElement('input'), { type: 'range', id: name });
  Object.assign(input, { min, max, step });
  input.setAttribute('aria-label', sliders[name]);
  input.value = String(settings[name]);
  value.textContent = input.value;
  input.oninput = () => {
    settings = { ...settings, [name]: Number(input.value) };
    value.textContent = input.value;
    want({ decide: true });
  };
  input.onchange = wantWhole;
  // For the browser a thumb that is let go where it began has changed nothing, yet what is shown is not what it was.
  for (const end of ['pointerup', 'pointercancel']) {
    input.addEventListener(end, () => {
      if (work && isStale(work)) wantWhole();
    });
  }
  row.append(sliders[name], value, input);
  return row;
}

/** Buttons of which one is pressed, the first to begin with; tells which it is. */
function makeChoices<Name extends string>(place: string, key: string, names: Record<Name, string>, choose: (name: Name) => void): () => Name {
  const all = Object.keys(names) as Name[];
  let pressed = all[0]!;
  const buttons = all.map((name) => {
    const choice = Object.assign(document.createElement('button'), { textContent: names[name] });
    choice.dataset[key] = name;
    choice.onclick = () => {
      pressed = name;
      showPressed();
      choose(name);
    };
    return choice;
  });
  const showPressed = (): void => buttons.forEach((choice) => choice.setAttribute('aria-pressed', String(choice.dataset[key] === pressed)));
  showPressed();
  element(place).append(...buttons);
  return () => pressed;
}

const shape = makeChoices<Shape>('shapes', 'shapeChoice', shapes, () => {
  if (work?.decision) want({ onlyLook: true });
});
const currentView = makeChoices<View>('views', 'view', views, async (view) => {
  if (view === 'taken' && work) await drawTaken(work);
  viewer.setView(view);
});

function makeSample(file: string, title: string): HTMLElement {
  const choice = document.createElement('button');
  const image = Object.assign(new Image(), { src: `samples/${file}`, alt: '' });
  choice.append(image, title);
  choice.dataset['sample'] = file;
  choice.onclick = () => void openBlob(file, async () => (await fetch(`samples/${file}`)).blob());
  return choice;
}

const openFile = (file: File): Promise<void> => openBlob(file.name, async () => file);

/** Of several the first comes onto the stage, and then all are worked through. */
async function openFiles(files: Iterable<File> | null | undefined): Promise<void> {
  const all = [...(files ?? [])];
  const first = all[0] ? openFile(all[0]) : Promise.resolve();
  if (all.length > 1) await batch.start(all, first);
}

function listenForFiles(): void {
  const stage = element('stage');
  const input = element<HTMLInputElement>('file');
  button('open').onclick = () => input.click();
  input.onchange = () => {
    void openFiles(input.files);
    input.value = '';
  };
  document.addEventListener('paste', (event) => void openFiles(event.clipboardData?.files));
  document.addEventListener('dragover', (event) => {
    event.preventDefault();
    stage.classList.add('dropping');
  });
  document.addEventListener('dragleave', () => stage.classList.remove('dropping'));
  document.addEventListener('drop', (event) => {
    event.preventDefault();
    stage.classList.remove('dropping');
    void openFiles(event.dataTransfer?.files);
  });
}

function listenForButtons(): void {
  button('cancel').onclick = () => {
    ++openings;
    giveUp(new Cancelled());
  };
  button('save').onclick = () => void savePicture();
  button('report').onclick = saveReport;
  button('copy').onclick = () => void copyCommand();
  button('zoom-in').onclick = () => viewer.zoomBy(1);
  button('zoom-out').onclick = () => viewer.zoomBy(-1);
  button('zoom-fit').onclick = () => viewer.fit();
  button('zoom-one').onclick = () => viewer.zoomTo(1);
  element<HTMLInputElement>('automatic').onchange = (event) => {
    settings = { ...settings, isAutomatic: (event.target as HTMLInputElement).checked };
    if (work) work.choices = [];
    wantWhole();
  };
}

prepareForFiles();
Cleaner.prepare();
putWords();
element('sliders').append(...sliderNames.map(makeSlider));
for (const approach of ['pointerenter', 'focusin']) element('sliders').addEventListener(approach, prepareLive);
element('samples').append(...Object.entries(samples).map(([file, title]) => makeSample(file, title)));
listenForFiles();
listenForButtons();
addEventListener('unhandledrejection', (event) => tell(event.reason));
showState();
say(says.ready);
if ('serviceWorker' in navigator) void navigator.serviceWorker.register('service_worker.js');
