// The page in a Chromium without a window, driven by a pipe of the DevTools protocol, and the server that shows it: for tests and benchmarks.
import { spawn } from 'node:child_process';
import { existsSync, mkdtempSync, readFileSync, rmSync, statSync, watch } from 'node:fs';
import http from 'node:http';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

export const samples = fileURLToPath(new URL('../../samples/', import.meta.url));
export const folder = mkdtempSync(path.join(os.tmpdir(), 'tessaline-web-'));
const types = { '.html': 'text/html', '.js': 'text/javascript', '.css': 'text/css', '.wasm': 'application/wasm', '.png': 'image/png', '.jpg': 'image/jpeg' };

let site;

// The site, below /short the same where the engine can have 96 MiB, below /made what the page and the program made,
// below /given the repository's pictures.
const shortMemory = `WebAssembly.Memory.prototype.grow = ((grow) => function (pages) {
  if (this.buffer.byteLength + 65536 * pages > 96 << 20) throw new RangeError('no more');
  return grow.call(this, pages);
})(WebAssembly.Memory.prototype.grow);\n`;
const server = http.createServer((request, response) => {
  const asked = decodeURIComponent(new URL(request.url, 'http://localhost').pathname), name = asked.replace(/^\/short/, '');
  const places = { made: folder, given: samples };
  const [, first, rest] = name.match(/^\/(made|given)\/(.*)$/) ?? [];
  const file = first ? path.join(places[first], rest) : path.join(site, name === '/' ? 'index.html' : name);
  if (!existsSync(file)) return response.writeHead(404).end();
  response.writeHead(200, { 'Content-Type': types[path.extname(file)] ?? 'application/octet-stream' })
    .end(asked === '/short/worker.js' ? shortMemory + readFileSync(file) : readFileSync(file));
});
await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
export const address = `http://localhost:${server.address().port}/`;
export const numericAddress = address.replace('localhost', '127.0.0.1'); // for browsers another site

const chromium = spawn('chromium', ['--headless', '--no-sandbox', '--disable-gpu', '--remote-debugging-pipe',
  '--disable-background-networking', `--user-data-dir=${folder}/profile`, '--window-size=1280,720', 'about:blank'],
{ stdio: ['ignore', 'ignore', 'ignore', 'pipe', 'pipe'] });
const answers = new Map();
export const requests = [], complaints = [];
let number = 0, unread = '', session, loaded;
chromium.stdio[4].on('data', (bytes) => {
  const messages = (unread + bytes).split('\0');
  unread = messages.pop();
  for (const { id, result, error, method, params } of messages.map((text) => JSON.parse(text))) {
    if (id) answers.get(id)(error ? Promise.reject(new Error(error.message)) : result);
    if (method === 'Page.loadEventFired') loaded?.();
    if (method === 'Network.requestWillBeSent') requests.push(params.request.url);
    if (method === 'Runtime.exceptionThrown') complaints.push(params.exceptionDetails.exception?.description);
    if (method === 'Log.entryAdded' && params.entry.level === 'error') complaints.push(params.entry.text);
  }
});
export const send = (method, params = {}, sessionId = session) => new Promise((resolve) => {
  answers.set(++number, resolve);
  chromium.stdio[3].write(JSON.stringify({ id: number, method, params, sessionId: sessionId ?? undefined }) + '\0');
});
export async function inPage(expression) {
  const { result, exceptionDetails } = await send('Runtime.evaluate', { expression, awaitPromise: true, returnByValue: true });
  if (exceptionDetails) throw new Error(exceptionDetails.exception?.description ?? exceptionDetails.text);
  return result.value;
}
export async function visit(place = '', at = address) {
  const whenLoaded = new Promise((resolve) => (loaded = resolve));
  await send('Page.navigate', { url: at + place });
  await whenLoaded;
}
export const whenState = (state) => inPage(`new Promise((resolve) => {
  const look = () => document.body.dataset.state === '${state}' && resolve(document.getElementById('sentence').textContent);
  new MutationObserver(look).observe(document.body, { attributes: true });
  look();
})`);
// A picture of the repository or of the folder, by way of an event that carries files.
export const give = (place, name, kind = 'drop') => inPage(`(async () => {
  const blob = await (await fetch('${place}/${name}', { cache: 'no-store' })).blob();
  const data = new DataTransfer();
  data.items.add(new File([blob], '${name}'));
  document.body.dataset.state = 'given';
  document.dispatchEvent('${kind}' === 'drop' ? new DragEvent('drop', { dataTransfer: data }) : new ClipboardEvent('paste', { clipboardData: data }));
})()`);
export const middleOf = (selector) => inPage(`(() => {
  const place = document.querySelector('${selector}');
  place.scrollIntoView({ block: 'nearest' });
  const { left, top, width, height } = place.getBoundingClientRect();
  return { x: left + width / 2, y: top + height / 2, width };
})()`);
let isPressed = false;
export function mouse(type, x, y) {
  if (type !== 'mouseMoved') isPressed = type === 'mousePressed';
  const button = isPressed || type !== 'mouseMoved' ? 'left' : 'none';
  return send('Input.dispatchMouseEvent', { type, x, y, button, buttons: Number(isPressed), clickCount: 1 });
}
export async function click(selector) {
  const { x, y } = await middleOf(selector);
  for (const type of ['mouseMoved', 'mousePressed', 'mouseReleased']) await mouse(type, x, y);
}
// The thumb is dragged to and fro; every event waits for the part that shows it.
export async function drag(slider, events) {
  const { x, y, width } = await middleOf(slider);
  await mouse('mouseMoved', x, y);
  for (let i = 0; i < events; ++i) {
    const shown = inPage(next('document.body', { attributes: true, attributeFilter: ['data-live-milliseconds'] }));
    await mouse(i === 0 ? 'mousePressed' : 'mouseMoved', x + (i % 2 ? -1 : 1) * (10 + 48 * i / events) * width / 300, y);
    await shown;
  }
  await mouse('mouseReleased', x, y);
  await whenState('done');
}
export async function press(key, code = key) {
  const text = { Enter: '\r', Space: ' ' }[code];
  const codes = { Tab: 9, Enter: 13, Space: 32, ArrowRight: 39 };
  for (const type of [text ? 'keyDown' : 'rawKeyDown', 'keyUp']) {
    await send('Input.dispatchKeyEvent', { type, key, code, text, windowsVirtualKeyCode: codes[code] });
  }
}
export const next = (watched, options, holds = 'true') => `new Promise((resolve) => {
  const watched = ${watched};
  const eyes = new MutationObserver(() => ${holds} && (eyes.disconnect(), resolve()));
  eyes.observe(watched, ${JSON.stringify(options)});
})`;
// The page's link is clicked, and the file is there: until then its name may be taken by an empty one.
export function saved(name, click) {
  rmSync(path.join(folder, name), { force: true });
  const arrived = new Promise((resolve) => {
    const isWhole = () => statSync(path.join(folder, name), { throwIfNoEntry: false })?.size > 0;
    const eyes = watch(folder, () => isWhole() && (eyes.close(), resolve()));
  });
  return Promise.all([arrived, inPage(click)]);
}
export const difference = (a, b) => inPage(`(async () => {
  const [first, second] = await Promise.all(['${a}', '${b}'].map(async (name) => {
    const blob = await (await fetch('made/' + name, { cache: 'no-store' })).blob();
    const bitmap = await createImageBitmap(blob, { colorSpaceConversion: 'none', premultiplyAlpha: 'none' });
    const canvas = Object.assign(document.createElement('canvas'), { width: bitmap.width, height: bitmap.height });
    const context = canvas.getContext('2d');
    context.drawImage(bitmap, 0, 0);
    return context.getImageData(0, 0, bitmap.width, bitmap.height).data;
  }));
  return first.length === second.length ? first.reduce((most, value, i) => Math.max(most, Math.abs(value - second[i])), 0) : 256;
})()`);

// A file of the test's folder is dropped; the sentence, when it is cleaned or refused.
export const openMade = (...names) => inPage(`(async () => {
  const data = new DataTransfer();
  for (const name of ${JSON.stringify(names)}) {
    data.items.add(new File([await (await fetch('/made/' + name, { cache: 'no-store' })).arrayBuffer()], name));
  }
  const sentence = document.getElementById('sentence');
  sentence.className = '';
  document.dispatchEvent(new DragEvent('drop', { dataTransfer: data, bubbles: true }));
  return new Promise((resolve) => {
    const look = () => (sentence.classList.contains('bad') || document.body.dataset.state === 'done') && resolve(sentence.textContent);
    const eyes = new MutationObserver(look);
    eyes.observe(document.body, { attributes: true });
    eyes.observe(sentence, { attributes: true });
  });
})()`);

export async function open(itsSite) {
  site = itsSite;
  const { targetId } = await send('Target.createTarget', { url: 'about:blank' });
  session = (await send('Target.attachToTarget', { targetId, flatten: true })).sessionId;
  for (const domain of ['Page', 'Runtime', 'Network', 'Log', 'Accessibility']) await send(`${domain}.enable`);
  await send('Browser.setDownloadBehavior', { behavior: 'allow', downloadPath: folder });
}

export async function stopServer() {
  server.closeAllConnections();
  await new Promise((resolve) => server.close(resolve));
}

export async function close() {
  const closed = new Promise((resolve) => chromium.once('exit', resolve));
  session = undefined;
  send('Browser.close');
  await closed;
  server.close();
  rmSync(folder, { recursive: true, force: true });
}
