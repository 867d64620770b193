// The engine in a thread of its own, so that the page never waits.
import makeEngine, { type Engine } from './engine.js';
import type { Found, Resolution } from './found.js';
import type { Answer, Decision, Request } from './protocol.js';

interface Port {
  postMessage(answer: Answer, transfer?: Transferable[]): void;
  onmessage: ((event: MessageEvent<Request>) => void) | null;
}
const port = self as unknown as Port;

const samplesOfPixel = 4, colours = 3, bytesFormat = 0, spectrumSide = 512, outOfMemory = -108;

class OutOfMemory extends Error {}

let resolution: Resolution | null = null;
let width = 0;
let height = 0;

const engineReady: Promise<Engine> = makeEngine({ tell: (part) => port.postMessage({ kind: 'progress', part }) });

function demand(code: number): void {
  if (code === outOfMemory) throw new OutOfMemory();
  if (code !== 0) throw new Error(`code ${code}`);
}

function bytesAt(engine: Engine, address: number, pixels: number): ArrayBuffer {
  if (address === 0) throw new OutOfMemory();
  return engine.HEAPU8.slice(address, address + pixels * samplesOfPixel).buffer;
}

function bytesNeeded(engine: Engine): number {
  return engine._tessaline_web_bytes_needed(width, height, samplesOfPixel, colours, bytesFormat);
}

function open(engine: Engine, request: Extract<Request, { kind: 'open' }>): void {
  ({ width, height, resolution } = request);
  port.postMessage({ kind: 'needs', bytes: bytesNeeded(engine) });
  const address = engine._tessaline_web_open(width, height, samplesOfPixel, colours, bytesFormat);
  if (address === 0) throw new OutOfMemory();
  engine.HEAPU8.set(new Uint8Array(request.pixels), address);
  demand(engine._tessaline_web_analyse());
}

function decision(engine: Engine): Decision {
  const text = engine._tessaline_web_findings(resolution?.horizontal ?? 0, resolution?.vertical ?? 0);
  if (text === 0) throw new OutOfMemory();
  const cells = spectrumSide * spectrumSide;
  return {
    found: JSON.parse(engine.UTF8ToString(text)) as Found,
    spectrum: bytesAt(engine, engine._tessaline_web_draw_spectrum(), cells),
    mask: bytesAt(engine, engine._tessaline_web_draw_mask(), cells),
  };
}

function answerOf(engine: Engine, request: Request): Answer {
  switch (request.kind) {
    case 'open':
      open(engine, request);
      return { kind: 'done' };
    case 'decide': {
      const { isAutomatic, acceptance, sensitivity, notchRadius, protectionRadius } = request.settings;
      demand(engine._tessaline_web_decide(Number(isAutomatic), acceptance, sensitivity, notchRadius, protectionRadius));
      return { kind: 'decision', decision: decision(engine) };
    }
    case 'turn':
      demand(engine._tessaline_web_turn_peak(request.dx, request.dy, Number(request.takenOut)));
      return { kind: 'decision', decision: decision(engine) };
    case 'restore':
      demand(engine._tessaline_web_restore());
      return { kind: 'pixels', pixels: bytesAt(engine, engine._tessaline_web_result(), width * height) };
    case 'part': {
      const { x, y, width: columns, height: rows } = request.part;
      demand(engine._tessaline_web_restore_part(x, y, columns, rows));
      return { kind: 'pixels', pixels: bytesAt(engine, engine._tessaline_web_part(), columns * rows) };
    }
  }
}

function buffersOf(answer: Answer): Transferable[] {
  if (answer.kind === 'pixels') return [answer.pixels];
  if (answer.kind === 'decision') return [answer.decision.spectrum, answer.decision.mask];
  return [];
}

async function serve(request: Request): Promise<void> {
  const engine = await engineReady;
  try {
    const answer = answerOf(engine, request);
    port.postMessage(answer, buffersOf(answer));
  } catch (error) {
    const reason = error instanceof OutOfMemory ? 'memory' : 'engine';
    port.postMessage({ kind: 'failed', reason, detail: String(error), bytes: bytesNeeded(engine) });
  }
}

port.onmessage = (event) => void serve(event.data);
