// The page's files against the program's: what is made here is opened, saved and compared, sample for sample and tag for tag.
import { execFileSync } from 'node:child_process';
import { readFileSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import zlib from 'node:zlib';

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
  const afterJfif = 4 + file.readUInt16BE(4);
  return Buffer.concat([file.subarray(0, afterJfif), ...made, file.subarray(afterJfif)]);
}

export async function checkFiles({ folder, program, check, visit, saved, openMade }) {
  const at = (name) => path.join(folder, name);
  const vips = (...all) => execFileSync('vips', all.map((one) => (/^=/.test(one) ? at(one.slice(1)) : one)));
  const samplesOf = (name) => {
    vips('copy', `=${name}`, '=samples.v');
    const file = readFileSync(at('samples.v')), [across, down, bands, , format] = [0, 1, 2, 3, 4].map((i) => file.readInt32LE(4 + 4 * i));
    const isDeep = format === 2, count = across * down * bands, from = file.byteOffset + 64;
    return new (isDeep ? Uint16Array : Uint8Array)(file.buffer.slice(from, from + (isDeep ? 2 : 1) * count));
  };
  // Everything the library tells of a file, its own view of it left out.
  const told = (name) => execFileSync('vipsheader', ['-a', at(name)]).toString().split('\n').slice(1)
    .filter((line) => !/^filename|^xmp-data|vips-loader|vips-sequential/.test(line)).sort().join('\n');
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
    vips('pngsave', '=greya.v', '=greya16.png');
    vips('tiffsave', '=fine.v', '=tiles.tif', '--compression', 'deflate', '--predictor', 'horizontal', '--tile', '--tile-width', '128', '--tile-height', '112', '--profile', 'srgb');
    vips('tiffsave', '=grey.pgm', '=lzw.tif', '--compression', 'lzw', '--predictor', 'horizontal');
    vips('tiffsave', '=rgba8.v', '=rgba.tif', '--compression', 'none');
    execFileSync('tiffset', ['-s', '270', 'a scene', at('tiles.tif')]);
    execFileSync('tiffcp', ['-B', '-c', 'lzw:2', at('lzw.tif'), at('big-endian.tif')]);
    execFileSync('tiffcp', ['-p', 'separate', '-c', 'packbits', at('rgba.tif'), at('planes.tif')]);
    vips('jpegsave', '=rgb8.v', '=plain.jpg', '--Q', '83', '--profile', 'srgb');
    vips('jpegsave', '=rgb8.v', '=progressive.jpg', '--Q', '91', '--interlace', '--subsample-mode', 'off');
    writeFileSync(at('turned.jpg'), withJpegSegments(readFileSync(at('plain.jpg')),
      [[0xe1, Buffer.concat([Buffer.from('Exif\0\0'), exifBlock(6)])], [0xfe, Buffer.from('a scene')]]));
    vips('webpsave', '=rgba8.v', '=alpha.webp', '--lossless');
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
    check(`${name} is saved as by the program`, most <= apart && sentence.includes('taken out'), `${most} apart; ${sentence}`);
    check(`${name} keeps what it says`, said[0] === said[1], said[0] === said[1] ? undefined : said.join('\n-- the program:\n'));
  }

  makeFiles();
  await visit();
  for (const made of [
    ['rgb16.png', 'rgb16-clean.png', 32], ['alpha.png', 'alpha-clean.png'], ['palette.png', 'palette-clean.png'],
    ['greya16.png', 'greya16-clean.png'], ['turned.jpg', 'turned-clean.jpg', 4], ['progressive.jpg', 'progressive-clean.jpg'],
    ['tiles.tif', 'tiles-clean.tif', 32], ['big-endian.tif', 'big-endian-clean.tif'], ['planes.tif', 'planes-clean.tif'],
    ['rgba.tif', 'rgba-clean.tif'], ['alpha.webp', 'alpha-clean.png'], ['plain.webp', 'plain-clean.png', 1],
  ]) await isSavedLikeTheProgram(...made);
}
