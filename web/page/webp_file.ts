// WebP files: their pixels by the browser's decoder, what they say by their chunks.
import { startsWith, viewOf } from './bytes.js';
import type { Samples } from './samples.js';

export interface WebpParts {
  isAnimated: boolean;
  exif: Uint8Array;
  profile: Uint8Array;
  xmp: Uint8Array;
  unturned: Uint8Array; // the file without its EXIF, by which a browser would turn the picture
}

export function webpParts(file: Uint8Array): WebpParts {
  const parts: WebpParts = { isAnimated: false, exif: new Uint8Array(), profile: new Uint8Array(), xmp: new Uint8Array(), unturned: file.slice() };
  const view = viewOf(file);
  for (let at = 12; at + 8 <= file.length;) {
    const length = view.getUint32(at + 4, true), data = file.slice(at + 8, at + 8 + length);
    if (startsWith(file, 'ANIM', at)) parts.isAnimated = true;
    if (startsWith(file, 'ICCP', at)) parts.profile = data;
    if (startsWith(file, 'XMP ', at)) parts.xmp = data;
    if (startsWith(file, 'EXIF', at)) {
      parts.exif = startsWith(data, 'Exif\0\0') ? data.slice(6) : data;
      parts.unturned.fill(0x20, at, at + 4); // a chunk of no known name
    }
    at += 8 + length + (length % 2);
  }
  return parts;
}

function isOpaque(bytes: ArrayLike<number>): boolean {
  for (let i = 3; i < bytes.length; i += 4) if (bytes[i] !== 255) return false;
  return true;
}

/** A plain canvas multiplies colours by alpha and loses some; a texture does not. Null: this browser has none so large. */
function seeThroughPixels(bitmap: ImageBitmap): Uint8Array | null {
  const gl = new OffscreenCanvas(1, 1).getContext('webgl'), { width, height } = bitmap;
  if (!gl || Math.max(width, height) > gl.getParameter(gl.MAX_TEXTURE_SIZE)) return null;
  gl.pixelStorei(gl.UNPACK_PREMULTIPLY_ALPHA_WEBGL, false);
  gl.pixelStorei(gl.UNPACK_COLORSPACE_CONVERSION_WEBGL, gl.NONE);
  const texture = gl.createTexture();
  gl.bindTexture(gl.TEXTURE_2D, texture);
  gl.texImage2D(gl.TEXTURE_2D, 0, gl.RGBA, gl.RGBA, gl.UNSIGNED_BYTE, bitmap);
  gl.bindFramebuffer(gl.FRAMEBUFFER, gl.createFramebuffer());
  gl.framebufferTexture2D(gl.FRAMEBUFFER, gl.COLOR_ATTACHMENT0, gl.TEXTURE_2D, texture, 0);
  const bytes = new Uint8Array(4 * width * height);
  gl.readPixels(0, 0, width, height, gl.RGBA, gl.UNSIGNED_BYTE, bytes);
  return gl.getError() === gl.NO_ERROR ? bytes : null;
}

/** Null: damaged. 'see-through': with alpha, which this browser cannot give as it is. */
export async function readWebp(file: Uint8Array, demandUsable: (width: number, height: number) => void): Promise<Samples | 'see-through' | null> {
  let bitmap: ImageBitmap;
  try {
    bitmap = await createImageBitmap(new Blob([file], { type: 'image/webp' }), { colorSpaceConversion: 'none', premultiplyAlpha: 'none' });
  } catch {
    return null;
  }
  const { width, height } = bitmap;
  demandUsable(width, height);
  const context = new OffscreenCanvas(width, height).getContext('2d');
  if (!context) throw new RangeError('no canvas');
  context.drawImage(bitmap, 0, 0);
  const shown = context.getImageData(0, 0, width, height).data;
  if (!isOpaque(shown)) {
    const bytes = seeThroughPixels(bitmap);
    return bytes ? { width, height, bits: 8, colours: 3, extras: 1, bytes } : 'see-through';
  }
  const bytes = new Uint8Array(3 * width * height);
  for (let from = 0, to = 0; to < bytes.length; from += 4, to += 3) {
    bytes[to] = shown[from]!;
    bytes[to + 1] = shown[from + 1]!;
    bytes[to + 2] = shown[from + 2]!;
  }
  return { width, height, bits: 8, colours: 3, extras: 0, bytes };
}
