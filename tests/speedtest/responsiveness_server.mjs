// A responsiveness test server for the tests: the configuration, a large download and an upload sink
// each throttled to --rate bytes per second in total, and a one-byte object answered after --delay ms.
// HTTP/2 over TLS with --cert and --key (HTTP/1.1 allowed), plain HTTP/1.1 without them.
// --mode silent accepts connections and never answers; --mode garbage serves a configuration that is
// not JSON. Prints "PORT <n>" once it listens on a free loopback port.
import http from 'node:http';
import http2 from 'node:http2';
import fs from 'node:fs';
import { parseArgs } from 'node:util';

const { values: options } = parseArgs({
  options: {
    rate: { type: 'string', default: '2000000' },
    delay: { type: 'string', default: '0' },
    mode: { type: 'string', default: 'normal' },
    cert: { type: 'string' },
    key: { type: 'string' },
  },
});
const rate = Number(options.rate);
const delay = Number(options.delay);
const tickMs = 10;
const chunk = Buffer.alloc(16 * 1024, 0x5a);

const downloads = new Set();
const uploads = new Set();
let downloadTokens = 0;
let uploadTokens = 0;

// One token bucket per direction, shared by every flow, so adding flows cannot raise the total.
let lastTick = performance.now();
setInterval(() => {
  const now = performance.now();
  const earned = rate * (now - lastTick) / 1000;
  lastTick = now;
  downloadTokens = Math.min(downloadTokens + earned, rate * 0.25);
  let progressed = true;
  while (downloadTokens >= 1 && progressed) {
    progressed = false;
    for (const res of downloads) {
      // Data still queued in the server does not count as sent; a backed-up flow waits its turn.
      if ((res.stream ?? res).writableLength > 256 * 1024 || downloadTokens < 1) continue;
      const size = Math.min(chunk.length, Math.floor(downloadTokens));
      downloadTokens -= size;
      progressed = true;
      res.write(chunk.subarray(0, size));
    }
  }
  uploadTokens = Math.min(uploadTokens + earned, rate * 0.25);
  for (const req of uploads)
    if (uploadTokens > 0 && req.isPaused()) req.resume();
}, tickMs);

function handle(req, res) {
  if (options.mode === 'silent') return;
  const path = new URL(req.url, 'http://x').pathname;
  if (path === '/config') {
    if (options.mode === 'garbage') {
      res.writeHead(200, { 'content-type': 'text/html' });
      res.end('<html>not a configuration</html>');
      return;
    }
    res.writeHead(200, { 'content-type': 'application/json' });
    res.end(JSON.stringify({
      version: 1,
      urls: { large_download_url: '/large', small_download_url: '/small', upload_url: '/slurp' },
      test_endpoint: 'loopback.test',
    }));
  } else if (path === '/small') {
    setTimeout(() => {
      res.writeHead(200, { 'content-type': 'application/octet-stream', 'content-length': '1' });
      res.end('x');
    }, delay);
  } else if (path === '/large') {
    res.writeHead(200, { 'content-type': 'application/octet-stream' });
    downloads.add(res);
    res.on('close', () => downloads.delete(res));
  } else if (path === '/slurp') {
    uploads.add(req);
    // Reading stops while the bucket is empty; flow control then holds the sender back.
    req.on('data', (data) => {
      uploadTokens -= data.length;
      if (uploadTokens <= 0) req.pause();
    });
    const done = () => {
      uploads.delete(req);
      if (!res.writableEnded) res.end();
    };
    req.on('end', done);
    req.on('close', done);
    req.on('error', () => {});
  } else {
    res.writeHead(404);
    res.end();
  }
}

const server = options.cert
  ? http2.createSecureServer(
      { cert: fs.readFileSync(options.cert), key: fs.readFileSync(options.key), allowHTTP1: true }, handle)
  : http.createServer(handle);
server.on('sessionError', () => {});
server.on('clientError', (error, socket) => socket.destroy());
server.listen(0, '127.0.0.1', () => {
  process.stdout.write(`PORT ${server.address().port}\n`);
});
process.stdin.on('end', () => process.exit(0));
process.stdin.resume();
