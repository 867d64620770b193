// The stage: the picture before and after with a border that is dragged, zoom to 800 percent, and other views of it.
import type { Rectangle } from './protocol.js';
import type { View } from './words.js';

const mostZoom = 8, zoomStep = 1.25, panStep = 40, mostPart = 1024, pauseOfView = 200;

export interface Layers {
  before: ImageBitmap;
  after: ImageBitmap | null;
  taken: ImageBitmap | null;
  mask: ImageBitmap | null;
}

export interface ViewWatcher {
  zoomed(zoom: number): void;
  stayed(): void; // what is seen was the same for a while
}

export class Viewer {
  private layers: Layers | null = null;
  private patched: Rectangle | null = null; // where the patch is newer than the layers
  private readonly patch = document.createElement('canvas'); // kept, for new memory costs more than what is drawn in it
  private view: View = 'split';
  private width = 0; // of the stage, which the browser would have to lay the page out for to tell
  private height = 0;
  private zoom = 1;
  private left = 0; // of the picture's corner, stage pixels
  private top = 0;
  private border = 0.5; // of the stage's width
  private isFitted = true;
  private shownZoom = 0;
  private staying = 0;
  private waiting: 'nothing' | 'patch' | 'all' = 'nothing'; // to be drawn by the next frame
  private whenShown: (() => void)[] = [];
  private readonly pointers = new Map<number, { x: number; y: number }>();
  private readonly canvas: HTMLCanvasElement;
  private readonly split: HTMLElement;

  constructor(private readonly stage: HTMLElement, private readonly watcher: ViewWatcher) {
    this.canvas = stage.querySelector('#picture')!;
    this.split = stage.querySelector('#split')!;
    new ResizeObserver(() => this.resize()).observe(stage);
    this.listen();
    this.setBorder(0.5);
  }

  show(layers: Layers | null, keepsPlace = false): void {
    this.layers = layers;
    this.patched = null;
    if (!keepsPlace) this.fit();
    this.redraw();
  }
  /** A part of the result that is newer than the rest of it; the promise is kept when a frame shows it. */
  showPatch(pixels: Uint8ClampedArray, part: Rectangle): Promise<void> {
    const { patch, patched } = this;
    const isInPlace = !patched || (patched.x === part.x && patched.y === part.y && patched.width === part.width && patched.height === part.height);
    if (patch.width !== part.width || patch.height !== part.height) [patch.width, patch.height] = [part.width, part.height];
    patch.getContext('2d')!.putImageData(new ImageData(pixels, part.width, part.height), 0, 0);
    this.patched = part;
    this.redraw(isInPlace ? 'patch' : 'all');
    return new Promise((resolve) => this.whenShown.push(resolve));
  }
  setView(view: View): void {
    this.view = view;
    this.redraw();
  }

  fit(): void {
    this.isFitted = true;
    const { before } = this.layers ?? {};
    if (!before) return;
    const { width, height } = this;
    this.zoom = Math.min(1, width / before.width, height / before.height);
    this.left = (width - before.width * this.zoom) / 2;
    this.top = (height - before.height * this.zoom) / 2;
    this.redraw();
  }
  zoomTo(zoom: number, x = this.width / 2, y = this.height / 2): void {
    if (!this.layers) return;
    const { width, height } = this.layers.before;
    const least = Math.min(1, 64 / Math.max(width, height));
    const next = Math.min(mostZoom, Math.max(least, zoom));
    this.left = x - ((x - this.left) * next) / this.zoom;
    this.top = y - ((y - this.top) * next) / this.zoom;
    this.zoom = next;
    this.isFitted = false;
    this.redraw();
  }
  zoomBy(steps: number): void {
    this.zoomTo(this.zoom * zoomStep ** steps);
  }

  /** What is seen of the picture, at most 1024 pixels both ways round the middle. */
  visiblePart(): Rectangle | null {
    if (!this.layers) return null;
    const { width, height } = this.layers.before;
    const across = seen(-this.left / this.zoom, this.width / this.zoom, width);
    const down = seen(-this.top / this.zoom, this.height / this.zoom, height);
    return { x: across.first, y: down.first, width: across.count, height: down.count };
  }

  private listen(): void {
    this.stage.addEventListener('wheel', (event) => {
      event.preventDefault();
      const box = this.stage.getBoundingClientRect();
      this.zoomTo(this.zoom * Math.exp(-event.deltaY / 400), event.clientX - box.left, event.clientY - box.top);
    }, { passive: false });
    this.stage.addEventListener('pointerdown', (event) => this.press(event));
    this.stage.addEventListener('pointermove', (event) => this.drag(event));
    for (const end of ['pointerup', 'pointercancel'] as const) {
      this.stage.addEventListener(end, (event) => this.pointers.delete(event.pointerId));
    }
    this.stage.addEventListener('keydown', (event) => {
      if (event.target === this.split ? this.borderKey(event.key) : this.stageKey(event.key)) event.preventDefault();
    });
    this.split.addEventListener('pointerdown', (event) => {
      event.stopPropagation();
      this.split.setPointerCapture(event.pointerId);
    });
    this.split.addEventListener('pointermove', (event) => {
      if (!this.split.hasPointerCapture(event.pointerId)) return;
      event.stopPropagation();
      const box = this.stage.getBoundingClientRect();
      this.setBorder((event.clientX - box.left) / box.width);
    });
  }

  private press(event: PointerEvent): void {
    if (!this.layers) return;
    this.pointers.set(event.pointerId, { x: event.clientX, y: event.clientY });
    this.stage.setPointerCapture(event.pointerId);
  }
  private drag(event: PointerEvent): void {
    const last = this.pointers.get(event.pointerId);
    if (!last) return;
    const other = [...this.pointers].find(([id]) => id !== event.pointerId)?.[1];
    if (other) {
      const box = this.stage.getBoundingClientRect();
      const apart = (point: { x: number; y: number }): number => Math.hypot(point.x - other.x, point.y - other.y);
      const ratio = apart({ x: event.clientX, y: event.clientY }) / Math.max(1, apart(last));
      this.zoomTo(this.zoom * ratio, other.x - box.left, other.y - box.top);
    } else {
      this.pan(event.clientX - last.x, event.clientY - last.y);
    }
    this.pointers.set(event.pointerId, { x: event.clientX, y: event.clientY });
  }
  private pan(x: number, y: number): void {
    this.left += x;
    this.top += y;
    this.isFitted = false;
    this.redraw();
  }

  private stageKey(key: string): boolean {
    const keys: Record<string, () => void> = {
      ArrowLeft: () => this.pan(panStep, 0), ArrowRight: () => this.pan(-panStep, 0),
      ArrowUp: () => this.pan(0, panStep), ArrowDown: () => this.pan(0, -panStep),
      '+': () => this.zoomBy(1), '=': () => this.zoomBy(1), '-': () => this.zoomBy(-1),
      '0': () => this.fit(), '1': () => this.zoomTo(1),
    };
    keys[key]?.();
    return key in keys;
  }
  private borderKey(key: string): boolean {
    const steps: Record<string, number> = { ArrowLeft: -0.02, ArrowRight: 0.02, Home: -1, End: 1 };
    const step = steps[key];
    if (step !== undefined) this.setBorder(this.border + step);
    return step !== undefined;
  }
  private setBorder(border: number): void {
    this.border = Math.min(1, Math.max(0, border));
    this.split.style.left = `${this.border * 100}%`;
    this.split.setAttribute('aria-valuenow', String(Math.round(this.border * 100)));
    this.redraw();
  }

  private resize(): void {
    const ratio = devicePixelRatio;
    [this.width, this.height] = [this.stage.clientWidth, this.stage.clientHeight];
    this.canvas.width = Math.round(this.width * ratio);
    this.canvas.height = Math.round(this.height * ratio);
    if (this.isFitted) this.fit();
    this.draw();
  }
  private redraw(what: 'patch' | 'all' = 'all'): void {
    if (this.zoom !== this.shownZoom) this.watcher.zoomed(this.shownZoom = this.zoom); // costs a layout of the page
    const isWaiting = this.waiting !== 'nothing';
    if (!isWaiting || what === 'all') this.waiting = what;
    if (what === 'all') {
      clearTimeout(this.staying);
      this.staying = setTimeout(() => this.watcher.stayed(), pauseOfView);
    }
    if (isWaiting) return;
    requestAnimationFrame(() => {
      if (this.waiting === 'all') this.draw();
      else this.drawPatch();
      this.waiting = 'nothing';
      const shown = this.whenShown.splice(0);
      setTimeout(() => shown.forEach((tell) => tell())); // a task of its own is after the frame
    });
  }

  private draw(): void {
    const context = this.canvas.getContext('2d')!;
    context.resetTransform();
    context.clearRect(0, 0, this.canvas.width, this.canvas.height);
    const layers = this.layers;
    this.split.hidden = this.view !== 'split' || !layers?.after;
    if (!layers) return;
    this.setPlace(context);
    if (this.view === 'mask' && layers.mask) return this.drawMask(context, layers.mask, layers.before);
    if (this.view === 'taken' && layers.taken) return context.drawImage(layers.taken, 0, 0);
    context.drawImage(layers.before, 0, 0);
    if (!layers.after) return;
    this.drawAfter(layers.after, { x: 0, y: 0, width: layers.after.width, height: layers.after.height });
    this.drawPatch();
  }
  private drawPatch(): void {
    const { patched, layers, view } = this;
    if (!patched || !layers?.after || (view === 'mask' && layers.mask) || (view === 'taken' && layers.taken)) return;
    this.drawAfter(this.patch, patched);
  }
  /** In place of what is there, by whole pixels of the screen: at its edges nothing mixes, however often it is drawn. */
  private drawAfter(image: CanvasImageSource, { x, y, width, height }: Rectangle): void {
    const context = this.canvas.getContext('2d')!, ratio = devicePixelRatio, picture = this.layers!.before;
    const onScreen = (corner: number, place: number): number => (corner + place * this.zoom) * ratio;
    const [left, right] = wholePixels(onScreen(this.left, x), onScreen(this.left, x + width), x > 0, x + width < picture.width);
    const [top, bottom] = wholePixels(onScreen(this.top, y), onScreen(this.top, y + height), y > 0, y + height < picture.height);
    const first = Math.max(left, this.view === 'split' ? Math.round(this.border * this.canvas.width) : 0);
    if (first >= right || top >= bottom) return;
    context.save();
    context.resetTransform();
    context.beginPath();
    context.rect(first, top, right - first, bottom - top);
    context.clip();
    context.clearRect(first, top, right - first, bottom - top); // where the picture is see-through, nothing that was there before shows
    this.setPlace(context);
    context.drawImage(image, x, y);
    context.restore();
  }
  private setPlace(context: CanvasRenderingContext2D): void {
    const ratio = devicePixelRatio;
    context.setTransform(this.zoom * ratio, 0, 0, this.zoom * ratio, this.left * ratio, this.top * ratio);
    context.imageSmoothingEnabled = this.zoom < 1;
    context.imageSmoothingQuality = 'high';
  }
  private drawMask(context: CanvasRenderingContext2D, mask: ImageBitmap, picture: ImageBitmap): void {
    const side = Math.min(picture.width, picture.height);
    context.drawImage(mask, (picture.width - side) / 2, (picture.height - side) / 2, side, side);
  }
}

/** Those that a part has for itself, and at the picture's edges also those that it shares with nothing else. */
function wholePixels(first: number, end: number, isAfterOthers: boolean, isBeforeOthers: boolean): [number, number] {
  return [isAfterOthers ? Math.ceil(first) : Math.floor(first), isBeforeOthers ? Math.floor(end) : Math.ceil(end)];
}

function seen(first: number, count: number, all: number): { first: number; count: number } {
  const begin = Math.min(Math.max(0, Math.floor(first)), all - 1);
  const end = Math.max(begin + 1, Math.min(all, Math.ceil(first + count)));
  if (end - begin <= mostPart) return { first: begin, count: end - begin };
  return { first: Math.floor((begin + end - mostPart) / 2), count: mostPart };
}
