// page_test.mjs SITE TESSALINE [FOLDER FOR SCREENSHOTS]: drives the real page.
import { execFileSync } from 'node:child_process';
import { readFileSync, readdirSync, renameSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { gzipSync } from 'node:zlib';
import {
  address, click, close, complaints, difference, drag, folder, give, inPage, next, numericAddress, open, openMade, press, requests, samples, saved, send,
  stopServer, visit, whenState,
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

// What is saved is what the shell's command for the sliders makes.
async function isAsCommanded(claim, options) {
  await whenState('done');
  const command = await inPage('document.getElementById("command").textContent');
  await saved('newsprint-clean.png', 'document.getElementById("save").click()');
  execFileSync(program, ['-f', ...command.split(' ').slice(1, -2), path.join(samples, 'newsprint.png'), path.join(folder, 'by-command.png')]);
  const most = await difference('newsprint-clean.png', 'by-command.png');
  check(claim, most <= 1 && options.test(command), `${most} levels apart; ${command}`);
}

async function followsTheSliders() {
  await give('given', 'newsprint.png');
  await whenState('working');
  await inPage(`(() => {
    const slider = document.getElementById('notchRadius');
    slider.value = 2;
    for (const kind of ['input', 'change']) slider.dispatchEvent(new Event(kind));
  })()`);
  await isAsCommanded('a slider that is moved before the first result counts', / -n 2 /);
  const parts = [];
  for (const [zoom, slider] of [['#zoom-fit', '#notchRadius'], ['#zoom-in', '#sensitivity']]) {
    await click(zoom);
    await drag(slider, 5);
    parts.push(await inPage('document.body.dataset.livePart'));
  }
  check('another part of the picture follows the mouse after another zoom', parts[0] !== parts[1], parts.join(' '));
  await isAsCommanded('sliders are followed while they are dragged', / --sensitivity .* -n 11 /);
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
  await followsTheSliders();
  await visit();
  await worksByKeyboard();
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
