// The picture, drawings over it, and what the pointer does to both: moving, zooming, reading pixels,
// drawing boxes, polygons and circles, a line to read grey values along.
import { byId, h, plain } from './dom.js';
import { emit, on, state } from './store.js';

const kTones = ['#22d3ee', '#fbbf24', '#f472d0', '#4ade80', '#a78bfa', '#fb923c'];
const kMostZoom = 64;
const kNear = 9;  // screen pixels from a drawing that still mean it

const canvas = h('canvas', { tabIndex: 0, role: 'img', 'data-key': 'canvas' });
const context = canvas.getContext('2d');
const readout = h('output.readout');

let picture = null;                       // {width, height, isColour, rgba}
let bitmap = null;                        // the same on a canvas of its own
let view = { x: 0, y: 0, zoom: 1, isFitted: true };
let things = [];                          // {step, row, thing, tone}
let hidden = new Set();                   // steps whose layer is off
let focused = null;                       // thing under the pointer, or of the row
let tool = { kind: 'move' };
let drawn = null;                         // what is being drawn: {points}
let overlay = null;                       // edges of a taught template: {box, points}
let preview = null;                       // {width, height, part, bitmap, things}, until the whole is there
let line = null;                          // of the profile: [x0, y0, x1, y1]

const ratio = () => window.devicePixelRatio || 1;
/** @type {(event: MouseEvent) => [number, number]} */
const toPicture = (event) => {
  const bounds = canvas.getBoundingClientRect();
  return [
    (event.clientX - bounds.left - view.x) / view.zoom - 0.5,
    (event.clientY - bounds.top - view.y) / view.zoom - 0.5,
  ];
};
/** @type {(at: [number, number]) => [number, number]} */
const clampInto = ([x, y]) => [
  Math.min(Math.max(Math.round(x), 0), picture.width - 1),
  Math.min(Math.max(Math.round(y), 0), picture.height - 1),
];

export function fit() {
  if (!picture) return;
  const { clientWidth, clientHeight } = canvas;
  const zoom = Math.min(clientWidth / picture.width, clientHeight / picture.height, 8);
  view = {
    zoom, isFitted: true,
    x: (clientWidth - picture.width * zoom) / 2,
    y: (clientHeight - picture.height * zoom) / 2,
  };
  draw();
}

export function zoomBy(factor, at = [canvas.clientWidth / 2, canvas.clientHeight / 2]) {
  if (!picture) return;
  const zoom = Math.min(Math.max(view.zoom * factor, 0.02), kMostZoom);
  const by = zoom / view.zoom;
  view = { zoom, isFitted: false, x: at[0] - (at[0] - view.x) * by, y: at[1] - (at[1] - view.y) * by };
  draw();
}
const zoomTo = (zoom) => zoomBy(zoom / view.zoom);

export function show(shown) {
  const isNewSize = !picture || picture.width !== shown.width || picture.height !== shown.height;
  picture = shown;
  bitmap ??= document.createElement('canvas');
  bitmap.width = shown.width;
  bitmap.height = shown.height;
  bitmap.getContext('2d').putImageData(new ImageData(shown.rgba, shown.width, shown.height), 0, 0);
  if (isNewSize) line = null;
  if (isNewSize || view.isFitted) fit();
  else draw();
}
// The part of the image that can be seen, where the picture has its positions; null before there is one.
export function visiblePart() {
  if (!picture) return null;
  const { clientWidth, clientHeight } = canvas;
  const [left, top] = [-view.x / view.zoom, -view.y / view.zoom].map((at) => Math.max(0, Math.floor(at)));
  const right = Math.min(picture.width, Math.ceil((clientWidth - view.x) / view.zoom));
  const bottom = Math.min(picture.height, Math.ceil((clientHeight - view.y) / view.zoom));
  if (right - left < 1 || bottom - top < 1) return null;
  const isAll = right - left === picture.width && bottom - top === picture.height;
  return { left, top, width: right - left, height: bottom - top, isAll, of: { width: picture.width, height: picture.height } };
}

// Shows a first result for a part of the picture, over it; null takes it away.
export function showPreview(shown) {
  preview = shown;
  if (shown) {
    preview.bitmap = document.createElement('canvas');
    preview.bitmap.width = shown.width;
    preview.bitmap.height = shown.height;
    preview.bitmap.getContext('2d').putImageData(new ImageData(shown.rgba, shown.width, shown.height), 0, 0);
  }
  draw();
}

export const pictureShown = () => picture;

export function showThings(inspection) {
  const kinds = (inspection?.steps ?? []).filter((step) => step.things);
  const frame = inspection?.steps.find(({ name }) => name === state.slot)?.frame ?? 0;
  things = kinds.flatMap((step, number) => step.things.map((thing, row) => ({
    step: step.name, row, thing, tone: kTones[number % kTones.length], isHere: step.frame === frame,
  })));
  focused = null;
  canvas.setAttribute('aria-label', `${state.slot ?? 'image'}, ${things.length} things found`);
  drawLegend(kinds);
  draw();
}

function drawLegend(kinds) {
  byId('legend').replaceChildren(...kinds.map(({ name, things: found }, number) => {
    const box = h('input', { type: 'checkbox', checked: !hidden.has(name) });
    box.onchange = () => {
      if (box.checked) hidden.delete(name);
      else hidden.add(name);
      draw();
    };
    const label = h('label', box, h('i'), `${name} (${found.length})`);
    label.style.setProperty('--tone', kTones[number % kTones.length]);
    return label;
  }));
}

export function showTemplate(shown) {
  overlay = shown;
  draw();
}

export function focusThing(step, row) {
  focused = things.find((other) => other.step === step && other.row === row) ?? null;
  draw();
}

// ---- drawing -------------------------------------------------------------------------------------

const sx = (x) => view.x + (x + 0.5) * view.zoom;
const sy = (y) => view.y + (y + 0.5) * view.zoom;

function tracePoints(points, isClosed = true) {
  context.beginPath();
  points.forEach(([x, y], i) => context[i ? 'lineTo' : 'moveTo'](sx(x), sy(y)));
  if (isClosed) context.closePath();
}

function outlineOf({ thing }) {
  const c = thing.corners;
  const isTurned = c.some((value) => value !== 0);
  if (isTurned) return [[c[0], c[1]], [c[2], c[3]], [c[4], c[5]], [c[6], c[7]]];
  const { left, top, right, bottom } = thing;
  return [[left - 0.5, top - 0.5], [right + 0.5, top - 0.5], [right + 0.5, bottom + 0.5], [left - 0.5, bottom + 0.5]];
}

function stroke(tone, width) {
  context.lineJoin = 'round';
  context.strokeStyle = '#000a';
  context.lineWidth = width + 2;
  context.stroke();
  context.strokeStyle = tone;
  context.lineWidth = width;
  context.stroke();
}

let isAsked = false;
export function draw() {
  if (isAsked) return;
  isAsked = true;
  requestAnimationFrame(() => {
    isAsked = false;
    paint();
  });
}

function paint() {
  const { clientWidth, clientHeight } = canvas;
  const scale = ratio();
  if (canvas.width !== Math.round(clientWidth * scale) || canvas.height !== Math.round(clientHeight * scale)) {
    canvas.width = Math.round(clientWidth * scale);
    canvas.height = Math.round(clientHeight * scale);
  }
  context.setTransform(scale, 0, 0, scale, 0, 0);
  context.clearRect(0, 0, clientWidth, clientHeight);
  if (!picture) return;
  context.imageSmoothingEnabled = view.zoom * scale < 1;
  context.imageSmoothingQuality = 'high';
  context.drawImage(bitmap, view.x, view.y, picture.width * view.zoom, picture.height * view.zoom);
  if (preview) paintPreview();
  else for (const entry of things) {
    if (hidden.has(entry.step) || !entry.isHere || entry === focused) continue;
    tracePoints(outlineOf(entry));
    stroke(entry.tone, 1.6);
  }
  if (focused?.isHere) {
    tracePoints(outlineOf(focused));
    stroke('#fff', 3);
  }
  if (overlay) paintTemplate();
  if (drawn?.points.length) {
    tracePoints(drawn.points, drawn.isClosed);
    stroke('#fbbf24', 1.8);
  }
  if (line) {
    tracePoints([[line[0], line[1]], [line[2], line[3]]], false);
    stroke('#4ade80', 1.6);
  }
  emit('drawn');
}

function paintPreview() {
  const { left, top, width, height, of } = preview.part;
  if (of.width !== picture.width || of.height !== picture.height) {
    // Of another image than the one before, which is still in place: fitted over all of it.
    const { clientWidth, clientHeight } = canvas;
    const zoom = Math.min(clientWidth / width, clientHeight / height, 8);
    context.clearRect(0, 0, clientWidth, clientHeight);
    context.drawImage(preview.bitmap, (clientWidth - width * zoom) / 2, (clientHeight - height * zoom) / 2, width * zoom, height * zoom);
    return;
  }
  context.drawImage(preview.bitmap, view.x + left * view.zoom, view.y + top * view.zoom, width * view.zoom, height * view.zoom);
  for (const thing of preview.things) {
    tracePoints(outlineOf({ thing }).map(([x, y]) => [x + left, y + top]));
    stroke(kTones[0], 1.6);
  }
}

function paintTemplate() {
  const [left, top, width, height] = overlay.box;
  tracePoints([[left - 0.5, top - 0.5], [left + width - 0.5, top - 0.5], [left + width - 0.5, top + height - 0.5], [left - 0.5, top + height - 0.5]]);
  stroke('#fbbf24', 1.8);
  const size = Math.max(1.5, view.zoom * 0.7);
  if (overlay.mask) {
    context.fillStyle = '#f43f5e99';
    overlay.mask.forEach((value, i) => {
      if (value) return;
      const x = left + (i % width), y = top + Math.floor(i / width);
      context.fillRect(sx(x - 0.5), sy(y - 0.5), view.zoom + 0.5, view.zoom + 0.5);
    });
  }
  context.fillStyle = '#4ade80';
  for (const [u, v] of overlay.points ?? []) {
    const x = left + (width - 1) / 2 + u, y = top + (height - 1) / 2 + v;
    context.fillRect(sx(x) - size / 2, sy(y) - size / 2, size, size);
  }
}

// ---- pixels --------------------------------------------------------------------------------------

function valueAt(x, y) {
  const i = 4 * (y * picture.width + x);
  const [red, green, blue] = picture.rgba.subarray(i, i + 3);
  return picture.isColour ? `red ${red}, green ${green}, blue ${blue}` : `grey ${red}`;
}

function showReadout(event) {
  const [x, y] = toPicture(event).map(Math.round);
  const isInside = picture && x >= 0 && y >= 0 && x < picture.width && y < picture.height;
  readout.textContent = isInside
    ? `x ${x}, y ${y}: ${valueAt(x, y)} · ${plain(view.zoom * 100, 0)} %`
    : picture ? `${picture.width} × ${picture.height} · ${plain(view.zoom * 100, 0)} %` : '';
}

// Grey values along the line of the profile.
export function profile() {
  if (!line || !picture) return null;
  const [x0, y0, x1, y1] = line;
  const count = Math.max(Math.abs(x1 - x0), Math.abs(y1 - y0)) + 1;
  return Array.from({ length: count }, (_, i) => {
    const at = count > 1 ? i / (count - 1) : 0;
    const p = 4 * (Math.round(y0 + (y1 - y0) * at) * picture.width + Math.round(x0 + (x1 - x0) * at));
    const [red, green, blue] = picture.rgba.subarray(p, p + 3);
    return picture.isColour ? 0.299 * red + 0.587 * green + 0.114 * blue : red;
  });
}

// ---- tools ---------------------------------------------------------------------------------------

// A tool is { kind: 'move' }, or one that draws: 'box', 'polygon', 'circle', 'line', with
// `done`, which is given the points; `hint` is shown meanwhile.
export function useTool(next) {
  tool = next;
  drawn = null;
  canvas.dataset.tool = tool.kind;
  byId('hint').textContent = tool.hint ?? '';
  byId('line').setAttribute('aria-pressed', String(tool.kind === 'line'));
  draw();
}

function circleAround([x, y], radius) {
  const count = 36;
  return Array.from({ length: count }, (_, i) => {
    const angle = (2 * Math.PI * i) / count;
    return [Math.round(x + radius * Math.cos(angle)), Math.round(y + radius * Math.sin(angle))];
  });
}

/** @type {(from: number[], to: number[]) => [number, number, number, number]} */
function boxOf([x0, y0], [x1, y1]) {
  return [Math.min(x0, x1), Math.min(y0, y1), Math.abs(x1 - x0) + 1, Math.abs(y1 - y0) + 1];
}
const cornersOf = ([left, top, width, height]) =>
  [[left, top], [left + width - 1, top], [left + width - 1, top + height - 1], [left, top + height - 1]];

function finish(result) {
  const { done, stays } = tool;
  if (!stays) useTool({ kind: 'move' });
  drawn = null;
  done(result);
  draw();
}

const pointers = new Map();
let from = null, moved = false;

canvas.addEventListener('pointerdown', (event) => {
  if (!picture) return;
  canvas.focus({ preventScroll: true });
  canvas.setPointerCapture(event.pointerId);
  pointers.set(event.pointerId, [event.clientX, event.clientY]);
  moved = false;
  from = clampInto(toPicture(event));
  if (tool.kind === 'polygon') {
    drawn ??= { points: [], isClosed: false };
    drawn.points.push(from);
    draw();
  }
});

canvas.addEventListener('pointermove', (event) => {
  showReadout(event);
  if (!picture) return;
  const last = pointers.get(event.pointerId);
  if (!last) {
    if (tool.kind === 'move') pointAt(event);
    return;
  }
  const now = [event.clientX, event.clientY];
  moved ||= Math.hypot(now[0] - last[0], now[1] - last[1]) > 2;
  if (pointers.size === 2) return pinch(event.pointerId, now);
  pointers.set(event.pointerId, now);
  const to = clampInto(toPicture(event));
  if (tool.kind === 'move') {
    view = { ...view, isFitted: false, x: view.x + now[0] - last[0], y: view.y + now[1] - last[1] };
  } else if (tool.kind === 'box') {
    drawn = { points: cornersOf(boxOf(from, to)), isClosed: true };
  } else if (tool.kind === 'circle') {
    drawn = { points: circleAround(from, Math.hypot(to[0] - from[0], to[1] - from[1])), isClosed: true };
  } else if (tool.kind === 'line') {
    line = [...from, ...to];
    emit('line');
  }
  draw();
});

function pinch(id, now) {
  const [other] = [...pointers].filter(([key]) => key !== id).map(([, at]) => at);
  const before = pointers.get(id);
  pointers.set(id, now);
  const bounds = canvas.getBoundingClientRect();
  const length = ([x, y]) => Math.hypot(x - other[0], y - other[1]);
  zoomBy(length(now) / Math.max(1, length(before)), [(now[0] + other[0]) / 2 - bounds.left, (now[1] + other[1]) / 2 - bounds.top]);
}

canvas.addEventListener('pointerup', (event) => {
  const wasDown = pointers.delete(event.pointerId);
  if (!wasDown || !picture) return;
  const to = clampInto(toPicture(event));
  if (tool.kind === 'box' && moved) finish(boxOf(from, to));
  else if (tool.kind === 'circle' && drawn) finish(drawn.points);
  else if (tool.kind === 'move' && !moved && focused) emit('pick', focused);
});
canvas.addEventListener('pointercancel', (event) => pointers.delete(event.pointerId));
canvas.addEventListener('dblclick', () => {
  if (tool.kind === 'polygon' && drawn?.points.length > 3) finish(drawn.points.slice(0, -1));
});

canvas.addEventListener('wheel', (event) => {
  event.preventDefault();
  const bounds = canvas.getBoundingClientRect();
  zoomBy(Math.exp(-event.deltaY / (event.deltaMode ? 12 : 300)), [event.clientX - bounds.left, event.clientY - bounds.top]);
}, { passive: false });

canvas.addEventListener('keydown', (event) => {
  const step = 60;
  const moves = { ArrowLeft: [step, 0], ArrowRight: [-step, 0], ArrowUp: [0, step], ArrowDown: [0, -step] };
  if (moves[event.key]) {
    view = { ...view, isFitted: false, x: view.x + moves[event.key][0], y: view.y + moves[event.key][1] };
    draw();
  } else if (event.key === '+' || event.key === '=') zoomBy(1.25);
  else if (event.key === '-') zoomBy(0.8);
  else if (event.key === '0') fit();
  else if (event.key === '1') zoomTo(1);
  else if (event.key === 'Escape') useTool({ kind: 'move' });
  else if (event.key === 'Enter' && tool.kind === 'polygon' && drawn?.points.length > 2) finish(drawn.points);
  else return;
  event.preventDefault();
});

// The thing nearest to the pointer lights up, and its row.
function pointAt(event) {
  const [x, y] = toPicture(event);
  const isIn = (points) => points.reduce((inside, [x0, y0], i) => {
    const [x1, y1] = points[(i + 1) % points.length];
    return (y0 > y) !== (y1 > y) && x < ((x1 - x0) * (y - y0)) / (y1 - y0) + x0 ? !inside : inside;
  }, false);
  const size = ({ thing }) => (thing.right - thing.left) * (thing.bottom - thing.top);
  const reach = kNear / view.zoom;
  const near = things
    .filter((entry) => entry.isHere && !hidden.has(entry.step))
    .filter((entry) => isIn(outlineOf(entry)) || Math.hypot(entry.thing.x - x, entry.thing.y - y) < reach)
    .sort((a, b) => size(a) - size(b))[0] ?? null;
  if (near === focused) return;
  focused = near;
  emit('point', focused);
  draw();
}

export function setUpViewer() {
  const button = (label, title, onclick) => h('button', { onclick, title, 'aria-label': title }, label);
  byId('zoom').append(
    button('−', 'Zoom out (-)', () => zoomBy(0.8)),
    button('Fit', 'Fit (0)', fit),
    button('1:1', 'One screen pixel a pixel (1)', () => zoomTo(1 / ratio())),
    button('+', 'Zoom in (+)', () => zoomBy(1.25)),
  );
  byId('canvas').append(canvas);
  byId('status').append(readout);
  new ResizeObserver(() => (view.isFitted ? fit() : draw())).observe(canvas);
  byId('line').onclick = () => {
    if (tool.kind === 'line') {
      line = null;
      useTool({ kind: 'move' });
      emit('line');
    } else {
      useTool({ kind: 'line', stays: true, hint: 'Drag a line over the picture: its grey values are drawn below.' });
    }
  };
  on('recipe', draw);
}
