// page_test.mjs SITE TESSALINE: drives the real page in a Chromium without a window, by a pipe of the DevTools protocol.
import { execFileSync, spawn } from 'node:child_process';
import { existsSync, mkdtempSync, readFileSync, rmSync, watch, writeFileSync } from 'node:fs';
import http from 'node:http';
import os from 'node:os';
import path from 'node:path';
import { checkFiles } from './files_test.mjs';

const [site, program, picture] = process.argv.slice(2);
const folder = mkdtempSync(path.join(os.tmpdir(), 'tessaline-web-'));
const types = { '.html': 'text/html', '.js': 'text/javascript', '.css': 'text/css', '.wasm': 'application/wasm', '.png': 'image/png' };

// The site, below /short the same where the engine can have 64 MiB, and below /made what the page and the program made.
const shortMemory = `WebAssembly.Memory.prototype.grow = ((grow) => function (pages) {
  if (this.buffer.byteLength + 65536 * pages > 64 << 20) throw new RangeError('no more');
  return grow.call(this, pages);
})(WebAssembly.Memory.prototype.grow);\n`;
const server = http.createServer((request, response) => {
  const asked = decodeURIComponent(new URL(request.url, 'http://localhost').pathname), name = asked.replace(/^\/short/, '');
  const file = name.startsWith('/made/') ? path.join(folder, name.slice(6)) : path.join(site, name === '/' ? 'index.html' : name);
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
const send = (method, params = {}) => new Promise((resolve) => {
  answers.set(++number, resolve);
  chromium.stdio[3].write(JSON.stringify({ id: number, method, params, sessionId: session }) + '\0');
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
  execFileSync(program, ['-f', '-a', 'auto', path.join(site, 'samples', sample), path.join(folder, `program-${name}`)]);
  await inPage(`document.querySelector('[data-sample="${sample}"]').click()`);
  const sentence = await whenState('done');
  await saved(name, 'document.getElementById("save").click()');
  const most = await difference(name, `program-${name}`);
  check(`${sample} is cleaned as by the program`, most <= 1 && sentence.includes('taken out'), `${most} levels apart; ${sentence}`);
}

async function followsTheUser() {
  const before = await inPage('document.querySelectorAll("#marks [aria-pressed=true]").length');
  await inPage('document.querySelector("#marks [aria-pressed=true]").click()');
  await inPage(`new Promise((resolve) => new MutationObserver(() => resolve()).observe(document.getElementById('marks'), { childList: true }))`);
  const after = await inPage('document.querySelectorAll("#marks [aria-pressed=true]").length');
  check('a peak that is clicked is left', after < before, `${before} rings, then ${after}`);
}

try {
  const { targetId } = await send('Target.createTarget', { url: 'about:blank' });
  session = (await send('Target.attachToTarget', { targetId, flatten: true })).sessionId;
  for (const domain of ['Page', 'Runtime', 'Network', 'Log']) await send(`${domain}.enable`);
  await send('Browser.setDownloadBehavior', { behavior: 'allow', downloadPath: folder });
  await visit();
  for (const sample of ['newsprint.png', 'line-noise.png', 'rosette.png']) {
    await cleansLikeTheProgram(sample);
    await visit();
  }
  await inPage(`document.querySelector('[data-sample="rosette.png"]').click()`);
  await whenState('done');
  if (picture) writeFileSync(picture, Buffer.from((await send('Page.captureScreenshot', { format: 'png' })).data, 'base64'));
  await followsTheUser();
  await checkFiles({ folder, site, program, check, visit, saved, openMade, inPage });
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
