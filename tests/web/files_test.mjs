// The page's files against the program's: what is made here is opened, saved and compared, sample for sample and tag for tag.
import { execFileSync } from 'node:child_process';
import { readFileSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import zlib from 'node:zlib';
import { next } from './browser.mjs';

const [width, height] = [420, 330];

/** A soft scene under a screen of dots, with noise: samples of 16 bits, as PNM has them. */
function drawScene(colours) {
  const bytes = Buffer.alloc(2 * width * height * colours);
  let noise = 1;
  for (let i = 0; i < width * height * colours; ++i) {
    const pixel = Math.floor(i / colours), x = pixel % width, y = Math.floor(pixel / width);
    noise = (noise * 1103515245 + 12345) % 2147483648;
    const dots = Math.sin(x * 0.9 + y * 0.3) + Math.sin(y * 0.9 - x * 0.3), scene = Math.sin(x / 97 + (i % colours)) * Math.cos(y / 61);
    bytes.writeUInt16BE(Math.round(32768 + 9000 * scene + 5000 * dots + (noise / 2147483648 - 0.5) * 1500), 2 * i);
  }
  return Buffer.concat([Buffer.from(`${colours === 3 ? 'P6' : 'P5'}\n${width} ${height}\n65535\n`), bytes]);
}

/** EXIF: the orientation, a description, and sRGB as its colour space. */
function exifBlock(orientation) {
  const block = Buffer.alloc(88);
  block.write('II*\0', 'latin1');
  const entry = (at, ...[tag, type, count, value]) => {
    block.writeUInt16LE(tag, at);
    block.writeUInt16LE(type, at + 2);
    block.writeUInt32LE(count, at + 4);
    block.writeUInt32LE(value, at + 8);
  };
  block.writeUInt32LE(8, 4);
  block.writeUInt16LE(3, 8);
  entry(10, 270, 2, 6, 64);
  entry(22, 274, 3, 1, orientation);
  entry(34, 34665, 4, 1, 70);
  block.write('scene\0', 64);
  block.writeUInt16LE(1, 70);
  entry(72, 40961, 3, 1, 1);
  return block;
}

function withPngChunks(file, chunks) {
  const made = Object.entries(chunks).map(([type, data]) => {
    const body = Buffer.concat([Buffer.from(type), data]), frame = Buffer.alloc(8);
    frame.writeUInt32BE(data.length);
    frame.writeUInt32BE(zlib.gzipSync(body).readUInt32LE(zlib.gzipSync(body).length - 8), 4);
    return Buffer.concat([frame.subarray(0, 4), body, frame.subarray(4)]);
  });
  return Buffer.concat([file.subarray(0, 33), ...made, file.subarray(33)]);
}

function withJpegSegments(file, segments) {
  const made = segments.map(([marker, data]) => {
    const head = Buffer.from([0xff, marker, 0, 0]);
    head.writeUInt16BE(data.length + 2, 2);
    return Buffer.concat([head, data]);
  });
  return Buffer.concat([file.subarray(0, 2), ...made, file.subarray(2)]);
}

export async function checkFiles({ folder, site, program, check, visit, saved, openMade, inPage }) {
  const at = (name) => path.join(folder, name);
  const vips = (...all) => execFileSync('vips', all.map((one) => (/^=/.test(one) ? at(one.slice(1)) : one)));
  const samplesOf = (name) => {
    vips('copy', `=${name}`, '=samples.v');
    const file = readFileSync(at('samples.v')), [across, down, bands, , format] = [0, 1, 2, 3, 4].map((i) => file.readInt32LE(4 + 4 * i));
    const isDeep = format === 2, count = across * down * bands, from = file.byteOffset + 64;
    return new (isDeep ? Uint16Array : Uint8Array)(file.buffer.slice(from, from + (isDeep ? 2 : 1) * count));
  };
  // Everything the library tells of a file, its own view of it left out.
  const told = (name) => [execFileSync('vipsheader', ['-a', at(name)]), name.endsWith('.tif') ? execFileSync('tiffinfo', [at(name)]) : ''].join('\n')
    .split('\n').slice(1).filter((line) => !/^filename|^xmp-data|vips-loader|vips-sequential|offset/i.test(line)).sort().join('\n');
  const profile = (name) => execFileSync('bash', ['-c', `vipsheader -f icc-profile-data "$1" 2>&1 || true`, '-', at(name)]).toString();

  function makeFiles() {
    writeFileSync(at('rgb.ppm'), drawScene(3));
    writeFileSync(at('grey.pgm'), drawScene(1));
    vips('msb', '=rgb.ppm', '=rgb8.v');
    vips('extract_band', '=rgb8.v', '=alpha8.v', '1');
    vips('bandjoin', `${at('rgb8.v')} ${at('alpha8.v')}`, '=rgba8.v');
    vips('bandjoin', `${at('grey.pgm')} ${at('grey.pgm')}`, '=greya.v');
    vips('copy', '=rgb.ppm', '=fine.v', '--xres', '11.811', '--yres', '11.811');
    vips('pngsave', '=fine.v', '=plain.png', '--profile', 'srgb');
    writeFileSync(at('rgb16.png'), withPngChunks(readFileSync(at('plain.png')),
      { eXIf: exifBlock(6), tEXt: Buffer.from('Title\0a scene') }));
    vips('pngsave', '=rgba8.v', '=alpha.png', '--interlace');
    vips('pngsave', '=rgb8.v', '=palette.png', '--palette');
    vips('pngsave', '=rgba8.v', '=see-through.png', '--palette');
    vips('msb', '=grey.pgm', '=grey8.v');
    vips('pngsave', '=grey8.v', '=bits.png', '--bitdepth', '4', '--interlace');
    vips('pngsave', '=greya.v', '=greya16.png');
    vips('tiffsave', '=fine.v', '=tiles.tif', '--compression', 'deflate', '--predictor', 'horizontal', '--tile', '--tile-width', '128', '--tile-height', '112', '--profile', 'srgb');
    vips('tiffsave', '=grey.pgm', '=lzw.tif', '--compression', 'lzw', '--predictor', 'horizontal');
    vips('tiffsave', '=rgba8.v', '=rgba.tif', '--compression', 'none');
    execFileSync('tiffset', ['-s', '270', 'a scene', at('tiles.tif')]);
    writeFileSync(at('white-is-zero.tif'), readFileSync(at('lzw.tif')));
    execFileSync('tiffset', ['-s', '262', '0', at('white-is-zero.tif')]);
    execFileSync('tiffcp', ['-B', '-c', 'lzw:2', at('lzw.tif'), at('big-endian.tif')]);
    execFileSync('tiffcp', ['-p', 'separate', '-c', 'packbits', at('rgba.tif'), at('planes.tif')]);
    vips('jpegsave', '=rgb8.v', '=plain.jpg', '--Q', '83', '--strip');
    vips('jpegsave', '=grey8.v', '=grey.jpg', '--Q', '88');
    vips('jpegsave', '=rgb8.v', '=progressive.jpg', '--Q', '91', '--interlace', '--subsample-mode', 'off');
    const icc = Buffer.from(profile('plain.png'), 'base64'), jfif = Buffer.from('JFIF\0\x01\x01\x01\x01\x2c\x01\x2c\0\0', 'latin1'); // 300 dpi
    writeFileSync(at('turned.jpg'), withJpegSegments(readFileSync(at('plain.jpg')),
      [[0xe0, jfif], [0xe1, Buffer.concat([Buffer.from('Exif\0\0'), exifBlock(6)])], [0xe2, Buffer.concat([Buffer.from('ICC_PROFILE\0\x01\x01'), icc])], [0xfe, Buffer.from('a scene')]]));
    writeFileSync(at('exif.jpg'), withJpegSegments(readFileSync(at('plain.jpg')), [[0xe1, Buffer.concat([Buffer.from('Exif\0\0'), exifBlock(8)])]]));
    for (const name of ['exif.tif', 'exif.png']) execFileSync(program, ['-q', '-a', '0', at('exif.jpg'), at(name)]); // 0: finds nothing
    vips('webpsave', '=rgba8.v', '=alpha.webp', '--lossless');
    vips('webpsave', '=exif.jpg', '=turned.webp', '--Q', '90');
    vips('webpsave', '=rgb8.v', '=plain.webp', '--Q', '90', '--profile', 'srgb');
  }

  // `apart`: levels of the file's own depth. A profile's curve comes from another library than the program's, and of JPEG what is
  // compared was coded once more.
  async function isSavedLikeTheProgram(name, output, apart = 0) {
    const sentence = await openMade(name);
    await saved(output, 'document.getElementById("save").click()');
    execFileSync(program, ['-q', '-f', '-a', 'auto', at(name), at(`program-${output}`)]);
    const [own, its] = [output, `program-${output}`].map(samplesOf);
    let most = own.length === its.length ? 0 : Infinity;
    for (let i = 0; i < own.length && most < Infinity; ++i) most = Math.max(most, Math.abs(own[i] - its[i]));
    const said = [output, `program-${output}`].map((one) => told(one) + profile(one));
    check(`${name} is saved as by the program`, most <= apart && sentence.includes(name === 'bits.png' ? 'No pattern' : 'taken out'), `${most} apart; ${sentence}`);
    check(`${name} keeps what it says`, said[0] === said[1], said[0] === said[1] ? undefined : said.join('\n-- the program:\n'));
  }

  function makeBadFiles() {
    const cut = (name, part) => writeFileSync(at(`cut-${name}`), readFileSync(at(name)).subarray(0, Math.round(part * readFileSync(at(name)).length)));
    for (const name of ['rgb16.png', 'progressive.jpg', 'tiles.tif', 'rgba.tif', 'plain.webp']) cut(name, 0.6);
    const huge = readFileSync(at('plain.png')).subarray(0, 33);
    huge.writeUInt32BE(20000, 16);
    huge.writeUInt32BE(20000, 20);
    huge.writeUInt32BE(zlib.gzipSync(huge.subarray(12, 29)).readUInt32LE(zlib.gzipSync(huge.subarray(12, 29)).length - 8), 29);
    writeFileSync(at('huge.png'), huge);
    writeFileSync(at('empty.png'), '');
    writeFileSync(at('words.txt'), 'no picture at all');
    for (const [name, photometric] of [['cmyk.tif', '5'], ['palette.tif', '3'], ['lab.tif', '8']]) {
      writeFileSync(at(name), readFileSync(at('rgba.tif')));
      execFileSync('tiffset', ['-s', '262', photometric, at(name)]);
    }
    vips('cast', '=grey.pgm', '=float.tif', 'float');
    writeFileSync(at('moving.webp'), Buffer.concat([readFileSync(at('plain.webp')), Buffer.from('ANIM\x06\0\0\0\0\0\0\0\0\0', 'latin1')]));
    execFileSync('tiffcp', [at('lzw.tif'), at('rgba.tif'), at('pages.tif')]);
  }

  async function refusesWhatIsBad() {
    for (const [name, why] of [
      ['words.txt', 'is no PNG, JPEG, TIFF or WebP picture'], ['empty.png', 'is empty'], ['huge.png', '20000 x 20000 pixels'],
      ['cut-rgb16.png', 'cut short'], ['cut-progressive.jpg', 'cut short'], ['cut-tiles.tif', 'cut short'], ['cut-rgba.tif', 'cut short'],
      ['cut-plain.webp', 'cut short'], ['cmyk.tif', 'CMYK'], ['palette.tif', 'palette'], ['lab.tif', 'neither grey nor RGB'],
      ['float.tif', 'floating-point'], ['moving.webp', 'animation'], ['pages.tif', 'holds 2 pages'],
    ]) {
      const sentence = await openMade(name);
      check(`${name} is refused`, sentence.startsWith(name) && sentence.includes(why), sentence);
    }
  }

  const whenEnded = () => inPage(`new Promise((resolve) => {
    const files = document.getElementById('files'), look = () => files.dataset.state === 'ended' && resolve(files.querySelector('[role=status]').textContent);
    new MutationObserver(look).observe(files, { attributes: true });
    look();
  })`);

  async function worksThroughMany() {
    await openMade('alpha.png', 'rgba.tif', 'plain.jpg', 'rgba.tif', ...Array(46).fill('words.txt'));
    const ended = await whenEnded();
    const rows = await inPage(`[...document.querySelectorAll('#files li')].map((row) => row.dataset.state).join(' ')`);
    check('50 files are worked through', ended.startsWith('4 of 50') && rows === `${'done '.repeat(4)}${'refused '.repeat(46)}`.trim(), ended);
    await saved('cleaned.zip', `document.querySelector('#files .row button').click()`);
    const inside = execFileSync('python3', ['-c', 'import sys, zipfile; z = zipfile.ZipFile(sys.argv[1]); print(z.testzip(), *z.namelist()); z.extractall(sys.argv[2])', at('cleaned.zip'), at('unzipped')]);
    const isSame = readFileSync(at('unzipped/rgba-clean.tif')).equals(readFileSync(at('rgba-clean.tif')));
    check('they are saved as one file', isSame && inside.toString().trim() === 'None alpha-clean.png rgba-clean.tif plain-clean.jpg rgba-clean-2.tif', inside);
    await inPage(`document.querySelectorAll('#files li button')[2].click()`);
    check('one of them is looked at', (await whenDone()).includes('rgba.tif'));
  }

  async function staysSeeThroughWhileASliderMoves() {
    await openMade('alpha.png');
    const alphas = () => inPage(`(() => {
      const canvas = document.getElementById('picture'), { width, height } = canvas;
      const { data } = canvas.getContext('2d').getImageData(width / 2 - 80, height / 2, 160, 1);
      return String(data.filter((_, i) => i % 4 === 3));
    })()`);
    await inPage(`document.querySelector('[data-view=after]').click()`);
    const still = await alphas();
    const followed = inPage(next('document.body', { attributes: true, attributeFilter: ['data-live-milliseconds'] }));
    await inPage(`(() => {
      const slider = document.getElementById('notchRadius');
      slider.value = 9;
      slider.dispatchEvent(new Event('input'));
    })()`);
    await followed;
    const moving = await alphas();
    await inPage(`document.querySelector('[data-view=split]').click()`);
    check('a see-through picture is that while a slider moves', still === moving && new Set(still.split(',')).size > 2, moving);
  }

  async function stopsAList() {
    await openMade(...Array(6).fill('rgba.tif'));
    await inPage(`new Promise((resolve) => {
      const rows = document.querySelector('#files ol');
      const look = () => rows.querySelector('[data-state=working]') && resolve();
      new MutationObserver(look).observe(rows, { attributes: true, subtree: true });
      look();
    }).then(() => document.querySelectorAll('#files .row button')[1].click())`);
    const ended = await whenEnded(), rows = await inPage(`[...document.querySelectorAll('#files li')].map((row) => row.dataset.state).join(' ')`);
    const again = await openMade('alpha.png');
    check('a list that is stopped leaves out the rest, and the page lives on', /^(done )*(left ?)+$/.test(rows) && again.includes('taken out'), `${ended}; ${rows}`);
  }

  async function livesOnWithoutMemory() {
    vips('replicate', '=rgb8.v', '=large.png', '5', '5');
    await visit('short/');
    const [small, large, again] = [await openMade('alpha.png'), await openMade('large.png'), await openMade('alpha.png')];
    check('memory that runs out ends one picture, not the page', small === again && small.includes('taken out') && large.startsWith('Not enough memory'), large);
  }

  // There is room for the picture, not for what follows a slider.
  async function keepsTheResultWithoutMemory() {
    vips('extract_area', '=large.png', '=medium.png', '0', '0', '1000', '1000');
    const first = await openMade('medium.png');
    await saved('medium-clean.png', 'document.getElementById("save").click()');
    const before = readFileSync(at('medium-clean.png'));
    const told = await inPage(`new Promise((resolve) => {
      const slider = document.getElementById('notchRadius'), sentence = document.getElementById('sentence');
      new MutationObserver(() => sentence.className === 'bad' && document.body.dataset.state === 'done' && resolve(sentence.textContent + slider.value))
        .observe(document.body, { attributes: true });
      slider.value = 9;
      for (const kind of ['input', 'change']) slider.dispatchEvent(new Event(kind));
    })`);
    await saved('medium-clean.png', 'document.getElementById("save").click()');
    const isSame = before.equals(readFileSync(at('medium-clean.png')));
    check('memory that runs out for a slider leaves the result and its settings', first.includes('taken out') && isSame && /^Not enough memory.*6$/.test(told), told);
  }

  // A part that is asked for upright, cut from the stored picture and turned, is the part of the turned picture.
  async function showsPartsUpright() {
    const { storedPlace, upright } = await import(`data:text/javascript,${encodeURIComponent(readFileSync(path.join(site, 'samples.js')))}`);
    const picture = { width: 5, height: 4, bits: 8, colours: 1, extras: 0, bytes: Uint8Array.from({ length: 20 }, (_, i) => i) };
    const cut = (from, { x, y, width: across, height: down }) => ({ ...from, width: across, height: down,
      bytes: Uint8Array.from({ length: across * down }, (_, i) => from.bytes[(y + Math.floor(i / across)) * from.width + x + (i % across)]) });
    const part = { x: 1, y: 0, width: 2, height: 3 };
    const isSame = [1, 2, 3, 4, 5, 6, 7, 8].map((turn) =>
      String(upright(cut(picture, storedPlace(part, turn, 5, 4)), turn).bytes) === String(cut(upright(picture, turn), part).bytes));
    check('parts of a turned picture are shown where they are', isSame.every(Boolean), isSame.join(' '));
  }

  const whenDone = () => inPage(`new Promise((resolve) => {
    const look = () => document.body.dataset.state === 'done' && resolve(document.getElementById('command').textContent);
    new MutationObserver(look).observe(document.body, { attributes: true });
    look();
  })`);

  await showsPartsUpright();
  makeFiles();
  makeBadFiles();
  await visit();
  await refusesWhatIsBad();
  for (const made of [
    ['rgb16.png', 'rgb16-clean.png', 32], ['alpha.png', 'alpha-clean.png'], ['palette.png', 'palette-clean.png'],
    ['see-through.png', 'see-through-clean.png'], ['bits.png', 'bits-clean.png'], ['greya16.png', 'greya16-clean.png'],
    ['turned.jpg', 'turned-clean.jpg', 4], ['progressive.jpg', 'progressive-clean.jpg'], ['grey.jpg', 'grey-clean.jpg'],
    ['tiles.tif', 'tiles-clean.tif', 32], ['white-is-zero.tif', 'white-is-zero-clean.tif'], ['big-endian.tif', 'big-endian-clean.tif'],
    ['exif.png', 'exif-clean.png'], ['exif.tif', 'exif-clean.tif'], ['planes.tif', 'planes-clean.tif'], ['rgba.tif', 'rgba-clean.tif'],
    ['alpha.webp', 'alpha-clean.png'], ['turned.webp', 'turned-clean.png', 1], ['plain.webp', 'plain-clean.png', 1],
  ]) await isSavedLikeTheProgram(...made);
  await worksThroughMany();
  await stopsAList();
  await staysSeeThroughWhileASliderMoves();
  await livesOnWithoutMemory();
  await keepsTheResultWithoutMemory();
}
