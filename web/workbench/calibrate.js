// Calibrating a camera: the board is found in the images of the filmstrip, a camera is fitted to those
// that are ticked, and its file becomes part of the recipe, which then measures in millimetres.
import { byId, download, h, openDialog, plain, say } from './dom.js';
import { useCamera } from './steps.js';
import { sourceOf, state } from './store.js';

const kLonger = 100;  // of arrows, beside the residuals they stand for

let engine = null;
// What was typed and found stays when the dialog is opened again: {corners, width, height} or {error}
// by image.
const board = { columns: 9, rows: 6, square: 25 };
let found = new Map();
const left = new Set();   // images that the fit leaves out
let plane = null;         // id of the image whose board lies where is measured

function field(label, key, attributes, changed) {
  const box = h('input', { type: 'number', value: board[key], 'data-key': `calibrate ${key}`, 'aria-label': label, ...attributes });
  box.onchange = () => {
    board[key] = Number(box.value);
    changed();
  };
  return box;
}

// The images that a camera can be fitted to: those with the board, of the size of the first of them.
function usable() {
  const seen = state.images.filter(({ id }) => found.get(id)?.corners);
  const size = found.get(seen[0]?.id);
  return { size, seen: seen.filter(({ id }) => found.get(id).width === size.width && found.get(id).height === size.height) };
}

function ticked() {
  const { size, seen } = usable();
  const chosen = seen.filter(({ id }) => !left.has(id));
  const first = chosen.find(({ id }) => id === plane);
  return { size, chosen: first ? [first, ...chosen.filter((image) => image !== first)] : chosen };
}

export function openCalibration() {
  let isOpen = true, camera = null, fitted = new Map(), shownId = null, fits = 0;
  const list = h('tbody');
  const progress = h('progress', { hidden: true, 'aria-label': 'images searched' });
  const told = h('div.told', { role: 'status' });
  const canvas = h('canvas.board', { role: 'img', 'aria-label': 'the board that was found' });
  const caption = h('p.quiet');
  const find = h('button.primary', { onclick: () => search() }, 'Find the board');
  const use = h('button.primary', { disabled: true, onclick: () => useIt() }, 'Use it in the recipe');
  const save = h('button', { disabled: true, onclick: () => download('camera.json', camera.file, 'application/json') }, 'Save camera.json');

  const { dialog, close } = openDialog('Calibrate a camera',
    h('p', 'Several pictures of one chessboard, from different sides, tell how the camera bends and slants what it sees. The recipe then measures in millimetres.'),
    h('p.row',
      h('span', 'Inner corners'), field('inner corners across', 'columns', { min: 3, max: 1000, step: 1 }, forget),
      h('span', '×'), field('inner corners down', 'rows', { min: 3, max: 1000, step: 1 }, forget),
      h('span', 'side of a square, mm'), field('side of a square, mm', 'square', { min: 0, step: 'any' }, () => fit()), find),
    h('p.quiet', 'Inner corners are where four squares meet: a board of 10 × 7 squares has 9 × 6.'),
    progress,
    h('div.views', h('div', h('table', h('thead', h('tr', ['use', 'picture', 'corners', 'RMS, px', 'worst, px', 'measure here'].map((text) => h('th', text)))), list)),
      h('div', canvas, caption)),
    told, h('p.row', use, save));
  dialog.classList.add('wide');
  dialog.addEventListener('close', () => (isOpen = false));

  function useIt() {
    useCamera(new TextEncoder().encode(camera.file));
    close();
    say('The recipe begins with the calibrated plane: choose mm as the unit of a measurement.');
  }

  // What was found is of a board of another size.
  function forget() {
    found = new Map();
    fit();
  }

  async function search() {
    const searched = found;
    find.disabled = true;
    progress.hidden = false;
    progress.max = state.images.length;
    for (const [done, image] of [...state.images].entries()) {
      if (!isOpen || searched !== found) break;
      progress.value = done;
      told.replaceChildren(h('p', `Looking for the board: ${done + 1} of ${state.images.length}.`));
      if (searched.has(image.id)) continue;
      try {
        searched.set(image.id, await engine.ask('findBoard', { source: sourceOf(image), ...board }));
      } catch (error) {
        searched.set(image.id, { error: error.message });
      }
      draw();
    }
    progress.hidden = true;
    find.disabled = false;
    if (isOpen) await fit();
  }

  async function fit() {
    const mine = ++fits;
    camera = null;
    fitted = new Map();
    const { size, chosen } = ticked();
    let problem = found.size ? 'No picture that is ticked shows this board: open pictures of one, or change the number of its corners.' : null;
    if (chosen.length) {
      try {
        const views = chosen.map(({ id, name }) => ({ name, corners: found.get(id).corners }));
        const made = await engine.ask('fitCamera', { views, width: size.width, height: size.height, square: board.square });
        if (mine !== fits) return;
        camera = made;
        chosen.forEach(({ id }, i) => fitted.set(id, camera.views[i]));
      } catch (error) {
        if (mine !== fits) return;
        problem = error.message;
      }
    }
    if (!state.images.some(({ id }) => id === shownId)) shownId = chosen[0]?.id ?? null;
    tell(problem);
    draw();
    await drawPicture();
  }

  function tell(problem) {
    use.disabled = save.disabled = !camera || Boolean(camera.doubt);
    if (!camera) return told.replaceChildren(...(problem ? [h('p.wrong', problem)] : []));
    const { rms, worst, mmPerPixel } = camera;
    told.replaceChildren(
      h('p', h('b', `${plain(rms, 3)} pixels`), ` from where the fit has the corners (RMS), the worst ${plain(worst, 2)}: ${plain(rms * mmPerPixel, 3)} mm and ${plain(worst * mmPerPixel, 2)} mm in the plane, where a pixel is ${plain(mmPerPixel, 4)} mm.`),
      ...[camera.doubt ? h('p.wrong', camera.doubt) : null,
        fitted.size < 3 ? h('p.quiet', 'Three pictures or more, from different sides, tell the whole lens.') : null].filter(Boolean));
  }

  function rowOf(image) {
    const { id, name } = image;
    const view = found.get(id);
    const isUsable = usable().seen.includes(image);
    const one = fitted.get(id);
    const tick = h('input', { type: 'checkbox', checked: isUsable && !left.has(id), disabled: !isUsable, 'aria-label': `use ${name}` });
    tick.onchange = () => {
      if (tick.checked) left.delete(id);
      else left.add(id);
      fit();
    };
    const isPlane = ticked().chosen[0]?.id === id;
    const here = h('input', { type: 'radio', name: 'plane', checked: isPlane, disabled: !isUsable || left.has(id), 'aria-label': `measure where the board of ${name} lies` });
    here.onchange = () => {
      plane = id;
      fit();
    };
    const about = !view ? '' : view.error ? h('span.wrong', view.error.replace(`'${name}' shows `, ''))
      : isUsable ? String(view.corners.length) : h('span.wrong', `${view.width} × ${view.height} pixels, unlike the first`);
    const row = h('tr', { 'data-view': id, onclick: (event) => event.target.closest('input') || showImage(id) },
      h('td', tick), h('td', name), h('td', about), h('td', one ? plain(one.rms, 3) : ''), h('td', one ? plain(one.worst, 2) : ''), h('td', here));
    row.classList.toggle('on', id === shownId);
    return row;
  }
  function showImage(id) {
    shownId = id;
    draw();
    drawPicture();
  }
  function draw() {
    list.replaceChildren(...state.images.map(rowOf));
  }

  // The picture with its corners, and an arrow from each to where the fit has it.
  async function drawPicture() {
    const image = state.images.find(({ id }) => id === shownId);
    if (!image) return;
    const { picture } = await engine.ask('look', { recipe: { name: '', steps: [], measurements: [] }, source: sourceOf(image), slot: null, ofInput: null }).catch(() => ({}));
    if (!picture || shownId !== image.id || !isOpen) return;
    canvas.width = picture.width;
    canvas.height = picture.height;
    const context = canvas.getContext('2d');
    context.putImageData(new ImageData(picture.rgba, picture.width, picture.height), 0, 0);
    const scale = Math.max(1, picture.width / 640);
    const stroke = (tone, width, path) => {
      for (const [style, by] of [['#000c', width + 2], [tone, width]]) {
        context.strokeStyle = style;
        context.lineWidth = by * scale;
        context.beginPath();
        path();
        context.stroke();
      }
    };
    const view = fitted.get(image.id);
    (found.get(image.id)?.corners ?? []).forEach(([, , x, y], i) => {
      stroke('#22d3ee', 1.5, () => context.arc(x, y, 3 * scale, 0, 7));
      if (!view) return;
      const [u, v] = view.fitted[i].map((at, axis) => kLonger * (at - [x, y][axis]));
      const turn = Math.atan2(v, u), barb = 4 * scale;
      stroke('#f472d0', 1.5, () => {
        context.moveTo(x, y);
        context.lineTo(x + u, y + v);
        for (const side of [2.6, -2.6]) {
          context.moveTo(x + u, y + v);
          context.lineTo(x + u + barb * Math.cos(turn + side), y + v + barb * Math.sin(turn + side));
        }
      });
    });
    caption.textContent = view ? `${image.name}: corners, and residuals ${kLonger} times as long` : image.name;
  }

  draw();
  if (!state.images.length) told.replaceChildren(h('p.wrong', 'Open pictures of a chessboard first.'));
  else if (found.size) fit();
}

export function setUpCalibration(ownEngine) {
  engine = ownEngine;
  byId('calibrate').onclick = openCalibration;
}
