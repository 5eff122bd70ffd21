// Teaching: a box on the picture becomes a template, and the finder says what it thinks of it before
// the recipe takes it. Parts that do not count are brushed out.
import { h, openDialog, plain, say } from './dom.js';
import { drawInto } from './regions.js';
import { change, emit, freeName, imageOf, sourceOf, state } from './store.js';
import { pictureShown, showTemplate } from './viewer.js';

let ask = null;  // of the live engine
export function setUpTeaching(asked) {
  ask = asked;
}

// Teaches a template for the step's argument from the image that is shown.
export function teachInto(index, argument) {
  const image = imageOf(state.current);
  if (!image) return say('Open an image first: a template is a part of one.', true);
  state.slot = null;
  emit('selected');
  drawInto('box', (box) => judge(index, argument, image, box));
}

async function judge(index, argument, image, box) {
  const step = state.recipe.steps[index];
  // Masks are kept in models, which not every step reads.
  const canMask = argument.holds === 'template';
  const by = step.by ?? 'edges';
  const [, , width, height] = box;
  let mask = null;  // 255 where a pixel counts
  let taught = null;

  const verdict = h('div.judged');
  const canvas = h('canvas.template', { width, height, 'aria-label': 'the template' });
  // Without bars beside it: the brush counts in its pixels.
  canvas.style.width = `min(100%, ${(50 * width) / height}vh)`;
  const size = h('input', { type: 'range', min: 1, max: Math.max(4, Math.round(Math.min(width, height) / 3)), value: Math.max(2, Math.round(Math.min(width, height) / 12)), 'aria-label': 'size of the brush' });
  const take = h('button.primary', { disabled: true }, 'Use this template');
  const { dialog, close } = openDialog('Teach a template', h('div.teach', canvas, verdict),
    canMask ? h('p.row', h('span', 'Brush out what does not count:'), size, h('button', { onclick: () => { mask = null; teach(); } }, 'Clear')) : null,
    h('p.row', take, h('button', { onclick: () => { close(); drawInto('box', (again) => judge(index, argument, image, again)); } }, 'Draw another box')));
  dialog.addEventListener('close', () => showTemplate(null));

  function paint() {
    const picture = pictureShown();
    const context = canvas.getContext('2d');
    const shown = new ImageData(width, height);
    const [left, top] = box;
    for (let y = 0; y < height; ++y) {
      const from = 4 * ((top + y) * picture.width + left);
      shown.data.set(picture.rgba.subarray(from, from + 4 * width), 4 * y * width);
    }
    mask?.forEach((value, i) => {
      if (!value) shown.data[4 * i] = 255;
    });
    context.putImageData(shown, 0, 0);
    context.fillStyle = '#22c55e';
    for (const [u, v] of taught?.points ?? []) {
      context.fillRect(Math.round((width - 1) / 2 + u), Math.round((height - 1) / 2 + v), 1, 1);
    }
  }

  async function teach() {
    try {
      taught = await ask('teach', { source: sourceOf(image), box, by, maskedPixels: mask });
      const score = plain(taught.likeness, 2);
      verdict.replaceChildren(
        h('p', `${taught.pointCount} ${by === 'edges' ? 'edge points' : 'pixels'}, ${width} × ${height} pixels.`),
        h('p', `Its best wrong place on itself scores ${score}: ${taught.likeness > 0.8 ? 'easily mistaken' : taught.likeness > 0.6 ? 'take a minimum score above that' : 'hard to mistake'}.`),
        taught.doubts.length ? h('ul.doubts', taught.doubts.map((doubt) => h('li', doubt))) : h('p.good', 'The finder has no doubts about it.'));
      take.disabled = false;
    } catch (error) {
      taught = null;
      verdict.replaceChildren(h('p.wrong', error.message), h('p', 'Draw a box around a part with clear edges.'));
      take.disabled = true;
    }
    showTemplate({ box, points: taught?.points, mask });
    paint();
  }

  if (canMask) {
    canvas.classList.add('brush');
    const brush = (event) => {
      if (!event.buttons) return;
      const bounds = canvas.getBoundingClientRect();
      const x = ((event.clientX - bounds.left) / bounds.width) * width, y = ((event.clientY - bounds.top) / bounds.height) * height;
      mask ??= new Uint8Array(width * height).fill(255);
      const radius = Number(size.value);
      for (let v = Math.max(0, Math.floor(y - radius)); v < Math.min(height, y + radius); ++v) {
        for (let u = Math.max(0, Math.floor(x - radius)); u < Math.min(width, x + radius); ++u) {
          if (Math.hypot(u - x, v - y) <= radius) mask[v * width + u] = 0;
        }
      }
      paint();
    };
    canvas.onpointerdown = (event) => {
      canvas.setPointerCapture(event.pointerId);
      brush(event);
    };
    canvas.onpointermove = brush;
    canvas.onpointerup = teach;
  }

  take.onclick = () => {
    change(({ steps }, files) => {
      const file = freeName(`${step.name.replace(/[^\w-]+/g, '-') || 'template'}.${taught.ending}`, [...files.keys()]);
      files.set(file, taught.file);
      steps[index][argument.name] = file;
    });
    close();
    say('Template taught: every image is searched with it.');
  };
  await teach();
}
