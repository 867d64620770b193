// page_test.mjs SITE TESSALINE [FOLDER FOR SCREENSHOTS]: drives the real page.
import { execFileSync } from 'node:child_process';
import { readFileSync, readdirSync, renameSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { gzipSync } from 'node:zlib';
import {
  address, click, close, complaints, difference, folder, give, inPage, middleOf, mouse, next, numericAddress, open, openMade, press, requests, samples,
  saved, send, stopServer, visit, whenState,
} from './browser.mjs';
import { checkFiles } from './files_test.mjs';

const [site, program, pictures] = process.argv.slice(2);

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

// A file server that knows nothing of threads: they come with the service worker.
async function usesThreadsFromTheSecondVisit() {
  const threads = () => inPage('document.body.dataset.threads');
  const [first, one] = [await threads(), path.join(folder, 'by-one-thread.png')];
  renameSync(path.join(folder, 'rosette-clean.png'), one);
  await inPage('navigator.serviceWorker.ready.then(() => true)');
  await visit();
  await give('given', 'rosette.png');
  await whenState('done');
  const [second, processors] = [await threads(), await inPage('navigator.hardwareConcurrency')];
  await saved('rosette-clean.png', 'document.getElementById("save").click()');
  const isSame = readFileSync(one).equals(readFileSync(path.join(folder, 'rosette-clean.png')));
  check('from the second visit on threads share the work, with the same bytes', isSame && first === '1' && (processors === 1 || second > 1), `${first}, then ${second} of ${processors}`);
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

// A coarse print of 1700 x 1200 pixels; the first picture of a page. Where it was never visited, one thread does it.
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
  for (const at of [numericAddress, address]) {
    await visit('', at);
    await inPage('navigator.serviceWorker.ready.then(() => true)');
    await give('made', 'print.png');
    await whenState('done');
    const page = Number(await inPage('document.body.dataset.cleanedMilliseconds')) / 1000;
    check('a first picture of 1700 x 1200 is cleaned', page > 0, `${page.toFixed(2)} s on the page, threads: ${await inPage('document.body.dataset.threads')}; ${native.toFixed(2)} s by the program on one: ${(page / native).toFixed(2)} times`);
  }
}

async function worksOffline() {
  await inPage('navigator.serviceWorker.ready.then(() => true)');
  await stopServer();
  await visit();
  await inPage('document.querySelector("[data-sample]").click()');
  const sentence = await whenState('done');
  check('a second visit works without a network', sentence.includes('taken out'), sentence);
}

try {
  await open(site);
  await visit();
  isSmall();
  for (const sample of ['newsprint.png', 'line-noise.png', 'rosette.png']) await cleansLikeTheProgram(sample);
  await usesThreadsFromTheSecondVisit();
  await canBeCancelled();
  await give('given', 'newsprint.png', 'paste');
  const pasted = await whenState('done');
  check('a picture that is pasted is cleaned', pasted.includes('taken out'), pasted);
  await visit();
  await worksByKeyboard();
  await keepsUpWithTheProgram();
  for (const zoom of ['#zoom-fit', '#zoom-one']) {
    await click(zoom);
    for (const slider of ['#notchRadius', '#sensitivity', '#protectionRadius']) {
      await followsASlider(slider);
      await whenState('done');
    }
  }
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
  const outside = requests.filter((url) => !url.startsWith(address) && !url.startsWith(numericAddress) && !/^(blob|data|about):/.test(url));
  check('no request leaves', outside.length === 0 && requests.length > 10, outside.join(' '));
  check('nothing is complained of', complaints.length === 0, complaints.join('; '));
} catch (error) {
  check('the test runs to its end', false, error.stack);
}
await close();
console.log(`${counts.passed} passed, ${counts.failed} failed`);
process.exit(counts.failed > 0 ? 1 : 0);
