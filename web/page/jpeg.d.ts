// The module that emscripten makes of web/jpeg/exports.cpp.
export interface Jpeg {
  HEAPU8: Uint8Array;
  _tessaline_jpeg_take(bytes: number): number;
  _tessaline_jpeg_open(file: number, bytes: number): void;
  _tessaline_jpeg_begin_reading(): void;
  _tessaline_jpeg_read(rows: number, count: number): void;
  _tessaline_jpeg_end_reading(): number;
  _tessaline_jpeg_begin_writing(): void;
  _tessaline_jpeg_add_segment(marker: number, data: number, bytes: number): void;
  _tessaline_jpeg_write(rows: number, count: number): void;
  _tessaline_jpeg_end_writing(): number;
  _tessaline_jpeg_written_bytes(): number;
}
export default function makeJpeg(): Promise<Jpeg>;
