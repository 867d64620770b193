// Keeps the page for when there is no network: what was fetched last is what is shown then.
interface FetchEvent extends Event {
  request: Request;
  respondWith(response: Promise<Response>): void;
}
interface InstallEvent extends Event {
  waitUntil(work: Promise<unknown>): void;
}

const store = 'tessaline';
const files = [
  './', 'style.css', 'batch.js', 'bytes.js', 'cleaner.js', 'engine.js', 'engine.wasm', 'engine.worker.js', 'file_worker.js', 'found.js', 'jpeg.js', 'jpeg.wasm', 'jpeg_file.js',
  'light.js', 'main.js', 'picture_file.js', 'png_chunks.js', 'png_file.js', 'refusal.js', 'report.js', 'samples.js',
  'spectrum_view.js', 'tiff_codes.js', 'tiff_file.js', 'tiff_tags.js', 'viewer.js', 'webp_file.js', 'words.js', 'worker.js', 'zip.js',
  'samples/newsprint.jpg', 'samples/rosette.jpg', 'samples/line-noise.jpg',
];

/** Shown with these, a page is isolated from other sites, and only then may its threads share memory. No file server needs to know. */
function isolated(response: Response): Response {
  if (response.status === 0) return response; // of another address, which only the browser may follow
  const { body, status, statusText } = response, headers = new Headers(response.headers);
  headers.set('Cross-Origin-Opener-Policy', 'same-origin');
  headers.set('Cross-Origin-Embedder-Policy', 'require-corp');
  return new Response(body, { status, statusText, headers });
}

async function fetchAndKeep(request: Request): Promise<Response> {
  const cache = await caches.open(store);
  try {
    const response = await fetch(request);
    if (response.ok) await cache.put(request, response.clone());
    return isolated(response);
  } catch (error) {
    const kept = await cache.match(request, { ignoreSearch: true });
    if (kept) return isolated(kept);
    throw error;
  }
}

self.addEventListener('install', (event) => {
  (event as InstallEvent).waitUntil(caches.open(store).then((cache) => cache.addAll(files)));
});
self.addEventListener('fetch', (event) => {
  const { request } = event as FetchEvent;
  const isOwn = request.method === 'GET' && new URL(request.url).origin === location.origin;
  if (isOwn) (event as FetchEvent).respondWith(fetchAndKeep(request));
});
