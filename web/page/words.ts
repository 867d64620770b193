// Every English text of the page.
export const labels = {
  cancel: 'Cancel', open: 'Open …', save: 'Save', before: 'before', after: 'after',
  dropHere: 'Drop pictures here, paste one, or open them',
  staysHere: 'Printed dots, line noise and textures that repeat are taken out. The picture never leaves this machine.',
  takes: 'PNG and TIFF of 8 and 16 bits, JPEG and WebP. Depth, alpha, colour profile, EXIF and resolution stay.',
  settings: 'Settings', automatic: 'find the pattern from the picture itself', spectrum: 'Spectrum',
  clickPeaks: 'Yellow rings are taken out. Click one to leave it, a dotted one to take it out too.',
  inTheShell: 'The same in the shell', copy: 'Copy', saveReport: 'Save the report (JSON)',
  pictures: 'Pictures', saveAll: 'Save all (ZIP)', stopAll: 'Stop',
  zoomOut: '−', zoomIn: '+', zoomFit: 'Fit', zoomOne: '100 %',
  stageLabel: 'Picture. Arrow keys move it, plus and minus zoom, 0 fits it, 1 shows it at 100 percent.',
  splitLabel: 'Border between before and after, in percent', viewLabel: 'View', shapeLabel: 'Spectrum', zoomLabel: 'Zoom',
  spectrumLabel: 'Spectrum of the picture: what is taken out is red, the protected middle is blue',
};
export type Label = keyof typeof labels;

export const views = { split: 'Before | after', after: 'After', taken: 'What was taken out', mask: 'Mask' };
export type View = keyof typeof views;

export const shapes = { flat: 'From above', surface: 'As a surface' };
export type Shape = keyof typeof shapes;

export const samples: Record<string, string> = {
  'newsprint.jpg': 'Newsprint', 'rosette.jpg': 'Four-ink print', 'line-noise.jpg': 'Line noise',
};

export const sliders = {
  acceptance: 'Acceptance, percent', sensitivity: 'Sensitivity',
  notchRadius: 'Notch radius, cells', protectionRadius: 'Protected radius, pixels',
};

export const peakColumns = ['taken out', 'period', 'angle', 'lines/inch'];

const mebibytes = (bytes: number): string => `${Math.ceil(bytes / 2 ** 20)} MiB`;

export const says = {
  ready: 'Ready.',
  reading: (name: string) => `Reading ${name} …`,
  looking: (needs: number) => `Looking for patterns (needs about ${mebibytes(needs)}) …`,
  removing: 'Taking the pattern out …',
  nothing: 'No pattern was found; the picture is as it was.',
  takenOut: (pattern: string, isPlural: boolean) => `${capital(pattern)} ${isPlural ? 'were' : 'was'} taken out.`,
  cancelled: 'Cancelled. Open a picture to begin again.',
  saving: (name: string) => `Making ${name} …`,
  copied: 'The command is on the clipboard.',
  peak: (period: string, angle: string, why: string) => `Peak of period ${period} pixels at ${angle} degrees: ${why}`,
};

export const refusals = {
  empty: (name: string) => `${name} is empty (no byte in it); choose another file.`,
  unreadable: (name: string) => `${name} cannot be read any more; was it moved or changed? Open it again.`,
  noPicture: (name: string) => `${name} is no PNG, JPEG, TIFF or WebP picture; choose one of those.`,
  bigTiff: (name: string) => `${name} is a TIFF file of the form for more than 4 GiB (BigTIFF), which this page does not take; the program does: tessaline -a auto IN.tif OUT.tif`,
  tiffKind: (name: string, what: string) => `${name} ${what}, which this page does not take; the program tells what it can do: tessaline -a auto IN.tif OUT.tif`,
  cmykJpeg: (name: string) => `${name} holds the four inks of print (CMYK), which this page does not take; the program does: tessaline -a auto IN.jpg OUT.jpg`,
  oddJpeg: (name: string) => `${name} is a JPEG of a rare kind (12 bits, lossless or with arithmetic codes); save it as an ordinary JPEG or as TIFF first.`,
  animated: (name: string) => `${name} is an animation; take its frames apart first and open one of them.`,
  seeThrough: (name: string) => `${name} has see-through parts, whose colours this browser would change; save it as PNG first.`,
  tooLarge: (name: string, width: number, height: number, most: number) =>
    `${name} has ${width} x ${height} pixels, more than this page takes (${most} a side, 100 million in all); the program takes any size: tessaline -a auto IN OUT`,
  damaged: (name: string) => `${name} is damaged or cut short; get a whole copy of the file, or scan it again.`,
  noMemory: (needs: number) => `Not enough memory: about ${mebibytes(needs)} are needed. Close other pages, or use a smaller picture or the program.`,
  broken: (why: string) => `The work broke off (${why}). Open the picture again.`,
};

/** What a TIFF file has that is not taken. */
export const tiffKinds = {
  pages: (count: number) => `holds ${count} pages`,
  palette: 'has a palette instead of colours',
  cmyk: 'holds the inks of print (CMYK)',
  colours: 'holds colours that are neither grey nor RGB',
  floats: 'holds floating-point samples',
  signed: 'holds signed samples',
  depth: (bits: number) => `has samples of ${bits} ${bits === 1 ? 'bit' : 'bits'}`,
  compression: 'is compressed by other means than LZW, deflate and PackBits',
  other: 'stores its samples in a rare way',
};

export const batchWords = {
  states: { waiting: 'waiting', working: 'in work', done: 'cleaned', refused: 'not taken', left: 'left out' },
  working: (number: number, count: number) => `Picture ${number} of ${count} is in work.`,
  ended: (done: number, count: number) => `${done} of ${count} pictures were cleaned.`,
  open: (name: string) => `Look at ${name}`,
  save: 'Save', saveOne: (name: string) => `Save what ${name} became`,
  tooMuch: 'The results are more than one ZIP file holds (4 GiB); save them one by one.',
};

export const verdicts: Record<string, string> = { used: 'part of the pattern' };

function capital(text: string): string {
  return text.charAt(0).toUpperCase() + text.slice(1);
}
