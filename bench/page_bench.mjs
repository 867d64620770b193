// page_bench.mjs SITE TESSALINE [PAIRS [EVENTS]]: how long people wait for the page, in a Chromium without a window: for a first picture, in
// pairs with the program on one thread, and for the visible part after an event of a slider, with each stage's share.
import { execFileSync } from 'node:child_process';
import { writeFileSync } from 'node:fs';
import path from 'node:path';
import { address, click, close, drag, folder, give, inPage, numericAddress, open, send, visit, whenState } from '../tests/web/browser.mjs';

const [site, program, pairs = '7', events = '25'] = process.argv.slice(2);

const median = (numbers) => [...numbers].sort((a, b) => a - b)[numbers.length >> 1];
const shown = (number) => number.toFixed(0).padStart(6);

// A coarse print of 1700 x 1200 pixels.
function drawPrint() {
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
  execFileSync(program, ['-f', '-q', '-a', '0', ppm, png]);
  return png;
}

// Before the page's own scripts: when requests go to the engine's worker, when they are answered and when the part is shown, since the
// event that the browser had of the hand.
const stopwatch = `
  const clock = { begun: 0, marks: [], parts: [], prepared() {} };
  for (const kind of ['pointerdown', 'pointermove']) {
    addEventListener(kind, (event) => event.buttons && (clock.begun = event.timeStamp), true);
  }
  window.Worker = class extends Worker {
    constructor(...all) {
      super(...all);
      const asked = this.asked = [];
      this.addEventListener('message', ({ data }) => {
        if (['ready', 'progress', 'needs'].includes(data?.kind)) return;
        clock.marks.push([asked.shift(), performance.now()]);
        if (clock.marks.at(-1)[0] === 'prepare') clock.prepared();
      });
    }
    postMessage(request, ...rest) {
      this.asked.push(request.kind);
      clock.marks.push(['ask ' + request.kind, performance.now()]);
      super.postMessage(request, ...rest);
    }
  };
  addEventListener('DOMContentLoaded', () => new MutationObserver(() => {
    const last = (kind) => clock.marks.findLast(([other]) => other === kind)[1];
    const times = [clock.begun, last('ask decide'), last('decide'), last('live'), performance.now()];
    clock.parts.push(times.slice(1).map((time, i) => time - times[i]));
    clock.marks = [];
  }).observe(document.body, { attributes: true, attributeFilter: ['data-live-milliseconds'] }));
  window.clock = clock;`;

async function firstPictures(print, threads) {
  const ratios = [], ours = [], theirs = [];
  for (let i = 0; i < pairs; ++i) {
    await visit('', threads ? address : numericAddress);
    await give('made', 'print.png');
    await whenState('done');
    ours.push(Number(await inPage('document.body.dataset.cleanedMilliseconds')));
    const begun = process.hrtime.bigint();
    execFileSync(program, ['-f', '-q', '-a', 'auto', '--threads', '1', print, path.join(folder, 'print-clean.png')]);
    theirs.push(Number(process.hrtime.bigint() - begun) / 1e6);
    ratios.push(ours.at(-1) / theirs.at(-1));
  }
  console.log(`first picture of 1700 x 1200, threads ${await inPage('document.body.dataset.threads')}: ${shown(median(ours))} ms, the program on one ${shown(median(theirs))} ms; ratio ${median(ratios).toFixed(2)}`);
}

async function liveParts() {
  console.log(`milliseconds from a slider's event to the frame that shows the part, medians of ${events}`);
  console.log('                                      all  slowest   of them: asked  decided  drawn  shown');
  for (const zoom of ['#zoom-fit', '#zoom-one']) {
    await click(zoom);
    for (const slider of ['#notchRadius', '#sensitivity', '#protectionRadius']) {
      // A hand that goes to a slider takes longer than the page to make ready what follows it.
      await inPage('new Promise((resolve) => { clock.prepared = resolve; setTimeout(resolve, 3000); clock.parts = []; })');
      await drag(slider, Number(events));
      const parts = (await inPage('clock.parts')).slice(0, events), { width, height } = await inPage('JSON.parse(document.body.dataset.livePart)');
      const all = parts.map((stages) => stages.reduce((sum, stage) => sum + stage, 0));
      const stages = [0, 1, 2, 3].map((i) => shown(median(parts.map((part) => part[i]))));
      console.log(`${`${width} x ${height}`.padEnd(12)} ${slider.slice(1).padEnd(17)} ${shown(median(all))}   ${shown(Math.max(...all))}            ${stages.join('  ')}`);
    }
  }
}

try {
  await open(site);
  await send('Page.addScriptToEvaluateOnNewDocument', { source: stopwatch });
  const print = drawPrint();
  for (const threads of [false, true]) {
    await send('Network.setBypassServiceWorker', { bypass: !threads });
    await visit('', threads ? address : numericAddress);
    if (threads) await inPage('navigator.serviceWorker.ready.then(() => true)');
    await firstPictures(print, threads);
    await liveParts();
  }
} finally {
  await close();
}
