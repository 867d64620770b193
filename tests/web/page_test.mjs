// page_test.mjs SITE TESSALINE [FOLDER FOR SCREENSHOTS]: drives the real page in a Chromium without a window, by a pipe of the DevTools protocol.
import { execFileSync, spawn } from 'node:child_process';
import { existsSync, mkdtempSync, readFileSync, readdirSync, rmSync, watch, writeFileSync } from 'node:fs';
import http from 'node:http';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { gzipSync } from 'node:zlib';
import { checkFiles } from './files_test.mjs';

const [site, program, pictures] = process.argv.slice(2);
const samples = fileURLToPath(new URL('../../samples/', import.meta.url));
const folder = mkdtempSync(path.join(os.tmpdir(), 'tessaline-web-'));
const types = { '.html': 'text/html', '.js': 'text/javascript', '.css': 'text/css', '.wasm': 'application/wasm', '.png': 'image/png', '.jpg': 'image/jpeg' };

// The site, below /short the same where the engine can have 64 MiB, below /made what the page and the program made,
// below /given the repository's pictures.
const shortMemory = `WebAssembly.Memory.prototype.grow = ((grow) => function (pages) {
  if (this.buffer.byteLength + 65536 * pages > 64 << 20) throw new RangeError('no more');
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
const address = `http://localhost:${server.address().port}/`;

const chromium = spawn('chromium', ['--headless', '--no-sandbox', '--disable-gpu', '--remote-debugging-pipe',
  '--disable-background-networking', `--user-data-dir=${folder}/profile`, '--window-size=1280,720', 'about:blank'],
{ stdio: ['ignore', 'ignore', 'ignore', 'pipe', 'pipe'] });
const answers = new Map(), requests = [], complaints = [];
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
const send = (method, params = {}, sessionId = session) => new Promise((resolve) => {
  answers.set(++number, resolve);
  chromium.stdio[3].write(JSON.stringify({ id: number, method, params, sessionId: sessionId ?? undefined }) + '\0');
});
async function inPage(expression) {
  const { result, exceptionDetails } = await send('Runtime.evaluate', { expression, awaitPromise: true, returnByValue: true });
  if (exceptionDetails) throw new Error(exceptionDetails.exception?.description ?? exceptionDetails.text);
  return result.value;
}
async function visit(place = '') {
  const whenLoaded = new Promise((resolve) => (loaded = resolve));
  await send('Page.navigate', { url: address + place });
  await whenLoaded;
}
const whenState = (state) => inPage(`new Promise((resolve) => {
  const look = () => document.body.dataset.state === '${state}' && resolve(document.getElementById('sentence').textContent);
  new MutationObserver(look).observe(document.body, { attributes: true });
  look();
})`);
// A picture of the repository or of the folder, by way of an event that carries files.
const give = (place, name, kind = 'drop') => inPage(`(async () => {
  const blob = await (await fetch('${place}/${name}', { cache: 'no-store' })).blob();
  const data = new DataTransfer();
  data.items.add(new File([blob], '${name}'));
  document.body.dataset.state = 'given';
  document.dispatchEvent('${kind}' === 'drop' ? new DragEvent('drop', { dataTransfer: data }) : new ClipboardEvent('paste', { clipboardData: data }));
})()`);
const middleOf = (selector) => inPage(`(() => {
  const place = document.querySelector('${selector}');
  place.scrollIntoView({ block: 'nearest' });
  const { left, top, width, height } = place.getBoundingClientRect();
  return { x: left + width / 2, y: top + height / 2, width };
})()`);
let isPressed = false;
function mouse(type, x, y) {
  if (type !== 'mouseMoved') isPressed = type === 'mousePressed';
  const button = isPressed || type !== 'mouseMoved' ? 'left' : 'none';
  return send('Input.dispatchMouseEvent', { type, x, y, button, buttons: Number(isPressed), clickCount: 1 });
}
async function click(selector) {
  const { x, y } = await middleOf(selector);
  for (const type of ['mouseMoved', 'mousePressed', 'mouseReleased']) await mouse(type, x, y);
}
async function press(key, code = key) {
  const text = { Enter: '\r', Space: ' ' }[code];
  const codes = { Tab: 9, Enter: 13, Space: 32, ArrowRight: 39 };
  for (const type of [text ? 'keyDown' : 'rawKeyDown', 'keyUp']) {
    await send('Input.dispatchKeyEvent', { type, key, code, text, windowsVirtualKeyCode: codes[code] });
  }
}
const next = (watched, options, holds = 'true') => `new Promise((resolve) => {
  const watched = ${watched};
  const eyes = new MutationObserver(() => ${holds} && (eyes.disconnect(), resolve()));
  eyes.observe(watched, ${JSON.stringify(options)});
})`;
// The page's link is clicked, and the file is there.
function saved(name, click) {
  const arrived = new Promise((resolve) => {
    const eyes = watch(folder, () => existsSync(path.join(folder, name)) && (eyes.close(), resolve()));
  });
  return Promise.all([arrived, inPage(click)]);
}
const difference = (a, b) => inPage(`(async () => {
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
const openMade = (...names) => inPage(`(async () => {
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

const counts = { passed: 0, failed: 0 };
function check(claim, holds, seen) {
  counts[holds ? 'passed' : 'failed'] += 1;
  console.log(`${holds ? 'ok    ' : 'FAILED'} ${claim}${seen === undefined ? '' : `: ${seen}`}`);
}

async function cleansLikeTheProgram(sample) {
  const name = sample.replace('.png', '-clean.png');
  execFileSync(program, ['-f', '-a', 'auto', path.join(samples, sample), path.join(folder, `program-${name}`)]);
  await give('given', sample);
  const sentence = await whenState('done');
  await saved(name, 'document.getElementById("save").click()');
  const most = await difference(name, `program-${name}`);
  check(`${sample} is cleaned as by the program`, most <= 1 && sentence.includes('taken out'), `${most} levels apart; ${sentence}`);
}

const rings = () => inPage('document.querySelectorAll("#marks [aria-pressed=true]").length');
async function leavesAPeakThatIsClicked() {
  const before = await rings();
  const turned = inPage(next('document.getElementById("marks")', { childList: true }));
  await click('#marks [aria-pressed=true]');
  await turned;
  const after = await rings();
  check('a peak that is clicked is left', after < before, `${before} rings, then ${after}`);
  await whenState('done');
}

// Of the processes that pages run in, whatever else the machine does.
async function processorMilliseconds() {
  const { processInfo } = await send('SystemInfo.getProcessInfo', {}, null);
  return 1000 * processInfo.filter(({ type }) => type === 'renderer').reduce((sum, { cpuTime }) => sum + cpuTime, 0);
}

// The thumb is dragged; every event waits for the part that shows it.
async function followsASlider(slider) {
  const { x, y, width } = await middleOf(slider);
  const times = [];
  await mouse('mouseMoved', x, y);
  const begun = await processorMilliseconds();
  for (let i = 0; i < 12; ++i) {
    const shown = inPage(next('document.body', { attributes: true, attributeFilter: ['data-live-milliseconds'] }));
    await mouse(i === 0 ? 'mousePressed' : 'mouseMoved', x + (i % 2 ? -1 : 1) * (10 + 4 * i) * width / 300, y);
    await shown;
    times.push(Number(await inPage('document.body.dataset.liveMilliseconds')));
  }
  const spent = (await processorMilliseconds() - begun) / times.length;
  await mouse('mouseReleased', x, y);
  const { width: columns, height: rows } = await inPage('JSON.parse(document.body.dataset.livePart)');
  const sorted = [...times].sort((a, b) => a - b);
  check(`${slider} is followed while it is dragged`, sorted[0] > 0, `${columns} x ${rows} pixels, milliseconds from the event to the picture: fastest ${sorted[0]}, median ${sorted[6]}, slowest ${sorted[11]}; processor ${spent.toFixed(0)} each`);
}

async function canBeCancelled() {
  await inPage('document.querySelector("[data-sample]").click()');
  await whenState('working');
  await click('#cancel');
  const sentence = await whenState('empty');
  check('Cancel ends the work at once', sentence.startsWith('Cancelled'), sentence);
}

async function capture(name, captureBeyondViewport = false) {
  if (!pictures) return;
  const { data } = await send('Page.captureScreenshot', { format: 'png', captureBeyondViewport });
  writeFileSync(path.join(pictures, `${name}.png`), Buffer.from(data, 'base64'));
}

const hashOfSpectrum = () => inPage('document.querySelector("#spectrum canvas").toDataURL()');
async function showsTheSpectrumAsASurface() {
  const flat = await hashOfSpectrum();
  const drawn = () => inPage(next('document.getElementById("spectrum")', { attributes: true, attributeFilter: ['data-shape'] }));
  const surface = drawn();
  await click('[data-shape-choice=surface]');
  await surface;
  const high = await hashOfSpectrum();
  await capture('surface');
  const hidden = await inPage('getComputedStyle(document.getElementById("marks")).display === "none"');
  const again = drawn();
  await click('[data-shape-choice=flat]');
  await again;
  check('the spectrum is shown as a surface and from above again', high !== flat && hidden && flat === await hashOfSpectrum());
}

// From the top of the page to a saved picture without a mouse.
async function worksByKeyboard() {
  const reach = async (selector) => {
    for (let i = 0; i < 200; ++i) {
      if (await inPage(`document.activeElement?.matches('${selector}')`)) return true;
      await press('Tab');
    }
    return false;
  };
  const found = [await reach('[data-sample="rosette.jpg"]')];
  await press('Enter');
  await whenState('done');
  found.push(await reach('#split'));
  const before = await inPage('document.getElementById("split").getAttribute("aria-valuenow")');
  await press('ArrowRight');
  found.push(before !== await inPage('document.getElementById("split").getAttribute("aria-valuenow")'));
  found.push(await reach('#notchRadius'));
  await press('ArrowRight');
  await whenState('done');
  found.push((await inPage('document.getElementById("command").textContent')).includes('-n 6.5'));
  found.push(await reach('#marks [aria-pressed=true]'));
  const turned = inPage(next('document.getElementById("marks")', { childList: true }));
  await press(' ', 'Space');
  await turned;
  await whenState('done');
  await inPage('document.activeElement.blur()');
  found.push(await reach('#save'));
  check('everything is reached by keyboard', found.every(Boolean), found.join(' '));
}

async function isNamedForScreenReaders() {
  const { nodes } = await send('Accessibility.getFullAXTree');
  const roles = ['button', 'slider', 'checkbox', 'application', 'img', 'canvas', 'progressbar', 'radio'];
  const nameless = nodes.filter(({ ignored, role, name }) => !ignored && roles.includes(role?.value) && !name?.value);
  const named = nodes.filter(({ ignored, role, name }) => !ignored && roles.includes(role?.value) && name?.value);
  check('every control has a name in the accessibility tree', nameless.length === 0 && named.length > 15, `${named.length} named; nameless: ${nameless.map(({ role }) => role.value).join(' ')}`);
}

async function fits(width, height, scheme, name) {
  await send('Emulation.setDeviceMetricsOverride', { width, height, deviceScaleFactor: 1, mobile: width < 500 });
  await send('Emulation.setEmulatedMedia', { features: [{ name: 'prefers-color-scheme', value: scheme }] });
  await inPage('new Promise((resolve) => requestAnimationFrame(() => requestAnimationFrame(resolve)))');
  const wide = await inPage('document.documentElement.scrollWidth');
  check(`nothing hangs over at ${width} x ${height}, ${scheme}`, wide <= width, `${wide} pixels wide`);
  await capture(name, width < 500);
}

function isSmall() {
  const files = readdirSync(site, { withFileTypes: true, recursive: true }).filter((entry) => entry.isFile())
    .map((entry) => readFileSync(path.join(entry.path ?? entry.parentPath, entry.name)));
  const sum = (sizes) => sizes.reduce((all, size) => all + size, 0);
  const raw = sum(files.map((file) => file.length)), packed = sum(files.map((file) => gzipSync(file, { level: 9 }).length));
  check('the page with everything is at most 1.5 MB', raw <= 1.5e6, `${raw} bytes as they are, ${packed} by gzip`);
}

// A coarse print of 1700 x 1200 pixels; the first picture of a page, start of its engine included.
async function keepsUpWithTheProgram() {
  const [width, height] = [1700, 1200], rows = Buffer.alloc(width * height * 3);
  for (let y = 0, i = 0; y < height; ++y) {
    for (let x = 0; x < width; ++x) {
      const tone = 0.5 + 0.4 * Math.sin(x / 210) * Math.cos(y / 170);
      const dots = 0.5 + 0.25 * (Math.cos((x + y) * 1.1) + Math.cos((x - y) * 1.1));
      for (let c = 0; c < 3; ++c) rows[i++] = dots < tone ? 225 - 20 * c : 40 + 15 * c;
    }
  }
  const [ppm, png] = ['print.ppm', 'print.png'].map((name) => path.join(folder, name));
  writeFileSync(ppm, Buffer.concat([Buffer.from(`P6 ${width} ${height} 255\n`), rows]));
  execFileSync(program, ['-f', '-a', '0', ppm, png]);
  const begun = process.hrtime.bigint();
  execFileSync(program, ['-f', '-a', 'auto', '--threads', '1', png, path.join(folder, 'print-clean.png')]);
  const native = Number(process.hrtime.bigint() - begun) / 1e9;
  await visit();
  await give('made', 'print.png');
  await whenState('done');
  const page = Number(await inPage('document.body.dataset.cleanedMilliseconds')) / 1000;
  check('a first picture of 1700 x 1200 is cleaned', page > 0, `${page.toFixed(2)} s on the page, ${native.toFixed(2)} s by the program on one thread: ${(page / native).toFixed(2)} times`);
}

async function worksOffline() {
  await inPage('navigator.serviceWorker.ready.then(() => true)');
  server.closeAllConnections();
  await new Promise((resolve) => server.close(resolve));
  await visit();
  await inPage('document.querySelector("[data-sample]").click()');
  const sentence = await whenState('done');
  check('a second visit works without a network', sentence.includes('taken out'), sentence);
}

try {
  const { targetId } = await send('Target.createTarget', { url: 'about:blank' });
  session = (await send('Target.attachToTarget', { targetId, flatten: true })).sessionId;
  for (const domain of ['Page', 'Runtime', 'Network', 'Log', 'Accessibility']) await send(`${domain}.enable`);
  await send('Browser.setDownloadBehavior', { behavior: 'allow', downloadPath: folder });
  await visit();
  isSmall();
  for (const sample of ['newsprint.png', 'line-noise.png', 'rosette.png']) await cleansLikeTheProgram(sample);
  await canBeCancelled();
  await give('given', 'newsprint.png', 'paste');
  const pasted = await whenState('done');
  check('a picture that is pasted is cleaned', pasted.includes('taken out'), pasted);
  await visit();
  await worksByKeyboard();
  await keepsUpWithTheProgram();
  for (const slider of ['#notchRadius', '#sensitivity']) await followsASlider(slider);
  await whenState('done');
  await visit();
  await inPage(`document.querySelector('[data-sample="rosette.jpg"]').click()`);
  await whenState('done');
  await leavesAPeakThatIsClicked();
  await showsTheSpectrumAsASurface();
  await isNamedForScreenReaders();
  for (const scheme of ['dark', 'light']) {
    await fits(1280, 720, scheme, `wide-${scheme}`);
    await fits(390, 844, scheme, `phone-${scheme}`);
  }
  await checkFiles({ folder, site, program, check, visit, saved, openMade, inPage });
  await worksOffline();
  const outside = requests.filter((url) => !url.startsWith(address) && !/^(blob|data|about):/.test(url));
  check('no request leaves', outside.length === 0 && requests.length > 10, outside.join(' '));
  check('nothing is complained of', complaints.length === 0, complaints.join('; '));
} catch (error) {
  check('the test runs to its end', false, error.stack);
}
const closed = new Promise((resolve) => chromium.once('exit', resolve));
session = undefined;
send('Browser.close');
await closed;
server.close();
rmSync(folder, { recursive: true, force: true });
console.log(`${counts.passed} passed, ${counts.failed} failed`);
process.exit(counts.failed > 0 ? 1 : 0);
