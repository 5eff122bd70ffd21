// Regions of steps, drawn on the picture: rectangles, polygons, circles as polygons.
import { h, say } from './dom.js';
import { useTool } from './viewer.js';

const kHints = {
  box: 'Drag a box over the picture. Escape gives up.',
  circle: 'Drag from the middle of the circle to its edge. Escape gives up.',
  polygon: 'Click the corners; Enter or a double click ends. Escape gives up.',
};

export function drawInto(kind, done) {
  document.body.dataset.pane = 'picture';
  useTool({ kind, hint: kHints[kind], done });
}

const cornersOf = ([left, top, width, height]) =>
  [[left, top], [left + width - 1, top], [left + width - 1, top + height - 1], [left, top + height - 1]];

// A box about its centre, not turned.
const turnedBox = ([left, top, width, height]) => [left + (width - 1) / 2, top + (height - 1) / 2, width, height, 0];

// A ring on both sides of a circle.
const kRing = 0.25;  // of the radius, to either side
function ringAround(points) {
  const [xs, ys] = [0, 1].map((axis) => points.map((point) => point[axis]));
  const middle = (values) => (Math.min(...values) + Math.max(...values)) / 2;
  const radius = Math.max(2, (Math.max(...xs) - Math.min(...xs)) / 2);
  return [middle(xs), middle(ys), Math.round(radius * (1 - kRing)), Math.round(radius * (1 + kRing))];
}

// Buttons that draw a value of the argument, after `prepare` has shown the picture that it is of.
export function regionTools(argument, prepare, set) {
  const tool = (label, kind, make) => h('button', {
    onclick: () => {
      prepare();
      drawInto(kind, (drawn) => {
        set(make(drawn));
        say('Region drawn.');
      });
    },
  }, label);
  if (argument.type === 'box') return [tool('Draw a box', 'box', turnedBox)];
  if (argument.type === 'ring') return [tool('Draw a circle', 'circle', ringAround)];
  if (argument.type === 'rectangle') return [tool('Draw a rectangle', 'box', (box) => box)];
  return [tool('Rectangle', 'box', cornersOf), tool('Polygon', 'polygon', (points) => points), tool('Circle', 'circle', (points) => points)];
}
