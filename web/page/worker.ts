// The engine in a thread of its own, so that the page never waits.
import makeEngine, { type Engine, type EngineOptions } from './engine.js';
import type { Light } from './file_protocol.js';
import type { Found, Resolution } from './found.js';
import type { Answer, Decision, Request } from './protocol.js';
import { pixelBytes, shownUpright, storedPlace, upright, type Samples } from './samples.js';
import type { Shape } from './words.js';

interface Port {
  postMessage(answer: Answer, transfer?: Transferable[]): void;
  onmessage: ((event: MessageEvent<Request>) => void) | null;
}
const port = self as unknown as Port;

const byteFormat = 0, editorFormat = 1, spectrumSide = 512, outOfMemory = -108;

class OutOfMemory extends Error {}

type Layout = Omit<Samples, 'bytes'>;
let layout: Layout = { width: 0, height: 0, bits: 8, colours: 1, extras: 0 };
let resolution: Resolution | null = null;
let orientation = 1;
let isPatternFound = false;
let isDecided = false;
let failure: Answer | null = null; // without a picture or a first decision, which later requests would need
let lowestBits = new Uint8Array(); // of 16-bit colours, a bit each: the engine's scale has no room for them

const firstMemory = 256, mostMemory = 65536, mostThreads = 8; // pages of 64 KiB

/** As large as the browser lets it grow; some have room for less than the 4 GiB that the engine could use. */
function sharedMemory(): WebAssembly.Memory {
  for (let maximum = mostMemory; ; maximum /= 2) {
    try {
      return new WebAssembly.Memory({ initial: firstMemory, maximum, shared: true });
    } catch (error) {
      if (maximum <= firstMemory) throw error;
    }
  }
}
let memory: WebAssembly.Memory;

/** Every browser makes shared memory, but lets other threads have it only where the page is isolated from other sites. */
async function makeReady(): Promise<Engine> {
  const threads = self.crossOriginIsolated ? Math.min(navigator.hardwareConcurrency, mostThreads) : 1;
  memory = sharedMemory();
  const engine = await new Promise<Engine>((resolve, reject) => {
    const options: EngineOptions = {
      tell: (part) => port.postMessage({ kind: 'progress', part }),
      wasmMemory: memory,
      helpers: threads - 1,
      instantiateWasm(imports, receive) {
        WebAssembly.instantiateStreaming(fetch('engine.wasm'), imports).then(({ instance, module }) => {
          receive(instance, module);
          // The last helper that is ready ends the module's waiting; without any nobody else does.
          if (threads === 1) options.removeRunDependency!('wasm-instantiate');
        }).catch(reject);
        return {};
      },
    };
    makeEngine(options).then(resolve, reject);
  });
  port.postMessage({ kind: 'ready', threads: engine._tessaline_web_use_threads(threads) });
  return engine;
}
const engineReady = makeReady();
engineReady.catch(() => undefined); // whoever asks it for something tells

function demand(code: number): void {
  if (code === outOfMemory) throw new OutOfMemory();
  if (code !== 0) throw new Error(`code ${code}`);
}

/** The memory as it is now; it grows. */
const bytesNow = (): Uint8Array => new Uint8Array(memory.buffer);

/** A copy, which is shared with nobody; in memory that is at hand, if it is as large. */
function bytesAt(address: number, count: number, into: ArrayBuffer | null = null): Uint8Array {
  if (address === 0) throw new OutOfMemory();
  const copy = new Uint8Array(into?.byteLength === count ? into : new ArrayBuffer(count));
  copy.set(new Uint8Array(memory.buffer, address, count));
  return copy;
}

function textAt(address: number): string {
  if (address === 0) throw new OutOfMemory();
  const bytes = bytesNow();
  return new TextDecoder().decode(bytes.slice(address, bytes.indexOf(0, address)));
}

/** The picture as the engine takes it: 16-bit samples go over to its scale of 0 to 32768. */
function described(): [number, number, number, number, number] {
  const { width, height, bits, colours, extras } = layout;
  return [width, height, colours + extras, colours, bits === 16 ? editorFormat : byteFormat];
}
const bytesNeeded = (engine: Engine): number => engine._tessaline_web_bytes_needed(...described());

/** As the program has it: half, to the nearest; the way back is exact with the lowest bit. */
function toEngine(samples: Uint16Array): void {
  const { colours, extras } = layout, pixel = colours + extras;
  lowestBits = new Uint8Array((samples.length + 7) >> 3);
  for (let i = 0; i < samples.length; ++i) {
    if (i % pixel >= colours) continue;
    const sample = samples[i]!;
    lowestBits[i >> 3] |= (sample & 1) << (i & 7);
    samples[i] = Math.floor((sample * 32768 + 32767) / 65535);
  }
}
function fromEngine(samples: Uint16Array): void {
  const { colours, extras } = layout, pixel = colours + extras;
  for (let i = 0; i < samples.length; ++i) {
    if (i % pixel >= colours) continue;
    const level = samples[i]!;
    samples[i] = isPatternFound ? (level * 65535 + 16384) / 32768 : 2 * level - ((lowestBits[i >> 3]! >> (i & 7)) & 1);
  }
}

function open(engine: Engine, request: Extract<Request, { kind: 'open' }>): void {
  const { bytes, ...rest } = request.samples;
  layout = rest;
  ({ resolution, orientation } = request);
  port.postMessage({ kind: 'needs', bytes: bytesNeeded(engine) });
  const address = engine._tessaline_web_open(...described());
  if (address === 0) throw new OutOfMemory();
  if (layout.bits === 16) toEngine(new Uint16Array(bytes.buffer, bytes.byteOffset, bytes.length / 2));
  bytesNow().set(bytes, address);
  setLight(engine, request.light);
  demand(engine._tessaline_web_analyse());
}

function setLight(engine: Engine, light: Light): void {
  if (light === null) return;
  if (light === 'sRGB') return demand(engine._tessaline_web_set_light(0, 0));
  const address = engine._tessaline_web_take_floats(light.length);
  if (address === 0) throw new OutOfMemory();
  bytesNow().set(new Uint8Array(light.buffer, light.byteOffset, light.byteLength), address);
  demand(engine._tessaline_web_set_light(address, light.length));
  engine._tessaline_web_give_back(address);
}

/** Samples of the picture, as a file has them. */
function samplesAt(address: number, width: number, height: number): Samples {
  const samples: Samples = { ...layout, width, height, bytes: bytesAt(address, width * height * pixelBytes(layout)) };
  if (layout.bits === 16) fromEngine(new Uint16Array(samples.bytes.buffer));
  return samples;
}

function decision(engine: Engine, shape: Shape): Decision {
  const text = textAt(engine._tessaline_web_findings(resolution?.horizontal ?? 0, resolution?.vertical ?? 0));
  const bytes = 4 * spectrumSide * spectrumSide;
  const found = JSON.parse(text) as Found;
  isPatternFound = found.patternFound;
  return {
    found,
    shape,
    spectrum: bytesAt(shape === 'flat' ? engine._tessaline_web_draw_spectrum() : engine._tessaline_web_draw_surface(), bytes).buffer,
    mask: bytesAt(engine._tessaline_web_draw_mask(), bytes).buffer,
  };
}

function answerOf(engine: Engine, request: Request): Answer {
  switch (request.kind) {
    case 'expect':
      engine._tessaline_web_expect(request.width, request.height); // open() tells what is missing
      return { kind: 'done' };
    case 'open':
      open(engine, request);
      return { kind: 'done' };
    case 'decide': {
      const { isAutomatic, acceptance, sensitivity, notchRadius, protectionRadius } = request.settings;
      demand(engine._tessaline_web_decide(Number(isAutomatic), acceptance, sensitivity, notchRadius, protectionRadius));
      isDecided = true;
      return { kind: 'done' };
    }
    case 'turn':
      demand(engine._tessaline_web_turn_peak(request.dx, request.dy, Number(request.takenOut)));
      return { kind: 'done' };
    case 'look':
      return { kind: 'decision', decision: decision(engine, request.shape) };
    case 'restore': {
      demand(engine._tessaline_web_restore());
      const samples = samplesAt(engine._tessaline_web_result(), layout.width, layout.height);
      return { kind: 'result', samples, shown: shownUpright(samples, orientation).bytes.buffer };
    }
    case 'prepare': {
      const { x, y, width, height } = storedPlace(request.part, orientation, layout.width, layout.height);
      demand(engine._tessaline_web_prepare_live(x, y, width, height));
      return { kind: 'done' };
    }
    case 'live': {
      const { x, y, width, height } = storedPlace(request.part, orientation, layout.width, layout.height);
      const bytes = bytesAt(engine._tessaline_web_draw_live(x, y, width, height), 4 * width * height, request.into);
      const drawn: Samples = { width, height, bits: 8, colours: 3, extras: 1, bytes };
      return { kind: 'part', shown: upright(drawn, orientation).bytes.buffer };
    }
  }
}

function buffersOf(answer: Answer): Transferable[] {
  if (answer.kind === 'result') return [answer.samples.bytes.buffer, answer.shown];
  if (answer.kind === 'part') return [answer.shown];
  if (answer.kind === 'decision') return [answer.decision.spectrum, answer.decision.mask];
  return [];
}

async function serve(request: Request): Promise<void> {
  if (failure) return port.postMessage(failure);
  let engine: Engine | null = null;
  try {
    engine = await engineReady;
    const answer = answerOf(engine, request);
    port.postMessage(answer, buffersOf(answer));
  } catch (error) {
    const reason = error instanceof OutOfMemory || error instanceof RangeError ? 'memory' : 'engine';
    const answer: Answer = { kind: 'failed', reason, detail: String(error), bytes: engine ? bytesNeeded(engine) : 64 * firstMemory * 1024 };
    if (request.kind === 'open' || (request.kind === 'decide' && !isDecided)) failure = answer;
    port.postMessage(answer);
  }
}

port.onmessage = (event) => void serve(event.data);
