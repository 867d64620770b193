// The report, with the members of the program's own, and the command that does the same in the shell.
import { standardSettings, type Found, type Settings } from './found.js';
import { cleanName, type Picture } from './picture_file.js';

function quoted(name: string): string {
  if (/^[A-Za-z0-9_.,:/+@%][A-Za-z0-9_.,:/+@%-]*$/.test(name)) return name;
  return `'${name.replaceAll("'", "'\\''")}'`;
}

/** Peaks that the user turned have no option; the settings have. */
export function commandFor(name: string, output: string, settings: Settings): string {
  const options = settings.isAutomatic
    ? ['-a auto', ...optionOf('--sensitivity', settings.sensitivity, standardSettings.sensitivity)]
    : [`-a ${settings.acceptance}`];
  options.push(...optionOf('-n', settings.notchRadius, standardSettings.notchRadius));
  options.push(...optionOf('-p', settings.protectionRadius, standardSettings.protectionRadius));
  const safe = (file: string): string => quoted(file.startsWith('-') ? `./${file}` : file);
  return ['tessaline', ...options, safe(name), safe(output)].join(' ');
}

function optionOf(option: string, value: number, standard: number): string[] {
  return value === standard ? [] : [`${option} ${value}`];
}

function parametersOf(settings: Settings): object {
  const { isAutomatic, acceptance, sensitivity, notchRadius, protectionRadius } = settings;
  const both = { acceptance: isAutomatic ? 'auto' : acceptance, notchRadius, protectionRadius };
  return isAutomatic ? { ...both, sensitivity } : both;
}

export function reportOf(picture: Picture, settings: Settings, found: Found): string {
  const { width, height, bits, colours, extras } = picture.samples;
  const { pattern: _, ...members } = found; // the program's report has no names
  const entry = {
    input: picture.name, output: cleanName(picture), status: 0, format: picture.origin.format, width, height,
    colours: colours === 3 ? 'rgb' : 'grey', bitsPerSample: bits, extraChannels: extras,
    pixelsPerInch: picture.resolution ? [picture.resolution.horizontal, picture.resolution.vertical] : null,
    parameters: parametersOf(settings), ...members,
  };
  return JSON.stringify({ report: 'tessaline', reportVersion: 1, pictures: [entry] }, null, 2) + '\n';
}
