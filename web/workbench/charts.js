// Histograms and profiles as small drawings: of grey values with thresholds that can be dragged, of
// measurements over all images with limits, of grey values along a line.
import { h, plain } from './dom.js';

const kNamespace = 'http://www.w3.org/2000/svg';
function svg(name, attributes = {}, ...children) {
  const element = document.createElementNS(kNamespace, name);
  for (const [key, value] of Object.entries(attributes)) element.setAttribute(key, value);
  element.append(...children);
  return element;
}

const kWidth = 512, kHeight = 90;

// A line that can be dragged and moved by the arrow keys. `at` and what `moved` is given are values.
function handle({ name, at, low, high, step, isLimit }, moved, ended) {
  const toX = (value) => ((value - low) / (high - low)) * kWidth;
  const clamped = (value) => Math.min(Math.max(Math.round(value / step) * step, low), high);
  const group = svg('g', {
    class: isLimit ? 'handle limit' : 'handle', tabindex: 0, role: 'slider', 'data-key': `handle ${name}`,
    'aria-label': name, 'aria-valuemin': low, 'aria-valuemax': high, 'aria-valuenow': at,
  });
  const place = (value) => {
    group.setAttribute('transform', `translate(${toX(value)} 0)`);
    group.setAttribute('aria-valuenow', value);
  };
  group.append(svg('line', { y2: kHeight }), svg('rect', { x: -9, width: 18, height: kHeight, class: 'grip' }),
    svg('title', {}, `${name}: ${plain(at)}`));
  place(Math.min(Math.max(at, low), high));
  let value = at;
  const set = (next) => {
    if (next === value) return;
    value = next;
    place(value);
    moved(value);
  };
  group.addEventListener('pointerdown', (event) => {
    event.preventDefault();
    group.focus();
    group.setPointerCapture(event.pointerId);
    const bounds = group.ownerSVGElement.getBoundingClientRect();
    const move = (to) => set(clamped(low + ((to.clientX - bounds.left) / bounds.width) * (high - low)));
    group.onpointermove = move;
    group.onpointerup = () => {
      group.onpointermove = null;
      ended();
    };
  });
  group.addEventListener('keydown', (event) => {
    const by = { ArrowLeft: -1, ArrowRight: 1, ArrowDown: -1, ArrowUp: 1, PageUp: 10, PageDown: -10 }[event.key];
    if (!by) return;
    event.preventDefault();
    set(clamped(value + by * step));
    ended();
  });
  return group;
}

function chart(label, ...children) {
  return svg('svg', { viewBox: `0 0 ${kWidth} ${kHeight}`, preserveAspectRatio: 'none', class: 'chart', role: 'group', 'aria-label': label }, ...children);
}

// Of 256 counts. Small ones are raised, so that a few pixels show beside many.
export function greyHistogram(counts, handles, moved, ended) {
  const most = Math.max(...counts, 1);
  const points = Array.from(counts, (count, i) => `${i * 2} ${kHeight - Math.sqrt(count / most) * (kHeight - 4)} ${i * 2 + 2} ${kHeight - Math.sqrt(count / most) * (kHeight - 4)}`);
  return chart('Histogram of grey values',
    svg('polygon', { points: `0 ${kHeight} ${points.join(' ')} ${kWidth} ${kHeight}`, class: 'bars' }),
    ...handles.map((each) => handle({ low: 0, high: 255, step: 1, ...each }, (value) => moved(each, value), ended)));
}

export function lineProfile(values) {
  const points = values.map((value, i) => `${(i / Math.max(1, values.length - 1)) * kWidth} ${kHeight - (value / 255) * kHeight}`);
  return chart(`Grey values along ${values.length} pixels`, svg('polyline', { points: points.join(' '), class: 'profile' }));
}

// Of a measurement: [{value, mark}]. Good ones stand above the line, bad ones below it.
export function valueHistogram(entries, { min, max }, moved, ended) {
  const values = entries.map(({ value }) => value);
  const known = [...values, ...[min, max].filter((limit) => limit !== undefined)];
  let low = Math.min(...known), high = Math.max(...known);
  const isWhole = values.every(Number.isInteger);
  const spread = high - low || Math.max(1, Math.abs(high) * 0.1);
  low -= spread * 0.15;
  high += spread * 0.15;
  const step = isWhole ? 1 : 10 ** Math.floor(Math.log10(spread / 200));
  const bins = 40;
  const counts = { good: Array(bins).fill(0), bad: Array(bins).fill(0), none: Array(bins).fill(0) };
  for (const { value, mark } of entries) {
    ++counts[mark ?? 'none'][Math.min(bins - 1, Math.floor(((value - low) / (high - low)) * bins))];
  }
  const most = Math.max(1, ...Array.from({ length: bins }, (_, i) => counts.good[i] + counts.bad[i] + counts.none[i]));
  const bars = [];
  for (let i = 0; i < bins; ++i) {
    let top = kHeight;
    for (const mark of ['none', 'good', 'bad']) {
      const tall = (counts[mark][i] / most) * (kHeight - 6);
      top -= tall;
      if (tall) bars.push(svg('rect', { x: (i * kWidth) / bins + 1, y: top, width: kWidth / bins - 2, height: tall, class: `bar ${mark}` }));
    }
  }
  const limits = [['min', min], ['max', max]].filter(([, limit]) => limit !== undefined);
  const shade = (from, to) => svg('rect', { x: ((from - low) / (high - low)) * kWidth, width: Math.max(0, ((to - from) / (high - low)) * kWidth), height: kHeight, class: 'outside' });
  return h('div.values',
    chart('Measured values',
      ...(min === undefined ? [] : [shade(low, Math.min(min, high))]), ...(max === undefined ? [] : [shade(Math.max(max, low), high)]),
      ...bars,
      ...limits.map(([name, at]) => handle({ name, at, low, high, step, isLimit: true },
        (value) => moved(name, Number(value.toPrecision(10))), ended))),
    h('div.scale', h('span', plain(low, isWhole ? 0 : 3)), h('span', plain(high, isWhole ? 0 : 3))));
}
