// The module that emscripten makes of web/exports.cpp.
export interface Engine {
  _tessaline_web_use_threads(count: number): number;
  _tessaline_web_bytes_needed(width: number, height: number, samples: number, channels: number, format: number): number;
  _tessaline_web_expect(width: number, height: number): number;
  _tessaline_web_open(width: number, height: number, samples: number, channels: number, format: number): number;
  _tessaline_web_set_light(light: number, count: number): number;
  _tessaline_web_take_floats(count: number): number;
  _tessaline_web_give_back(block: number): void;
  _tessaline_web_analyse(): number;
  _tessaline_web_decide(
    isAutomatic: number, acceptance: number, sensitivity: number, notchRadius: number, protectionRadius: number): number;
  _tessaline_web_turn_peak(dx: number, dy: number, isTakenOut: number): number;
  _tessaline_web_findings(horizontal: number, vertical: number): number;
  _tessaline_web_restore(): number;
  _tessaline_web_result(): number;
  _tessaline_web_prepare_live(x: number, y: number, width: number, height: number): number;
  _tessaline_web_draw_live(x: number, y: number, width: number, height: number): number;
  _tessaline_web_draw_spectrum(): number;
  _tessaline_web_draw_surface(): number;
  _tessaline_web_draw_mask(): number;
}
/** `wasmMemory` is shared memory; `helpers` workers are started for threads, for which it must be allowed to share it. */
export interface EngineOptions {
  tell(part: number): void;
  wasmMemory: WebAssembly.Memory;
  helpers: number;
  instantiateWasm(imports: WebAssembly.Imports, receive: (instance: WebAssembly.Instance, module: WebAssembly.Module) => void): object;
  removeRunDependency?(name: string): void; // the module's own
}
export default function makeEngine(options: EngineOptions): Promise<Engine>;
