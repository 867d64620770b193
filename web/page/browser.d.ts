// What this compiler's library of the web does not know yet.
interface CompressionPair {
  readonly readable: ReadableStream<Uint8Array>;
  readonly writable: WritableStream<Uint8Array>;
}
declare const CompressionStream: { new (format: 'deflate'): CompressionPair };
declare const DecompressionStream: { new (format: 'deflate'): CompressionPair };
declare class OffscreenCanvas {
  constructor(width: number, height: number);
  getContext(kind: '2d'): CanvasRenderingContext2D | null;
  getContext(kind: 'webgl'): WebGLRenderingContext | null;
}
