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
  './', 'style.css', 'main.js', 'cleaner.js', 'found.js', 'pattern.js', 'picture_file.js', 'png_chunks.js', 'protocol.js',
  'report.js', 'spectrum_view.js', 'viewer.js', 'words.js', 'worker.js', 'engine.js', 'engine.wasm',
  'samples/newsprint.png', 'samples/rosette.png', 'samples/line-noise.png',
];

async function fetchAndKeep(request: Request): Promise<Response> {
  const cache = await caches.open(store);
  try {
    const response = await fetch(request);
    if (response.ok) await cache.put(request, response.clone());
    return response;
  } catch (error) {
    const kept = await cache.match(request, { ignoreSearch: true });
    if (kept) return kept;
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
