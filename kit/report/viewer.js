// A picture in a frame, with drawings over it: wheel, pinch, buttons and keys magnify it, a drag moves
// it, or magnifies what it spans while the whole picture is seen. Drawings keep their thickness.
//
//   const viewer = new Viewer(frame, picture, layers, {moved, resized, pointed, picked});
//
// The frame holds an <img>. picture.drawings are lists of layer, row, kind and coordinates, as the page
// holds them; (0, 0) is the centre of the top left pixel. A layer has a colour and `shown`.
const kKinds = {box: 0, polygon: 1, dots: 2, cross: 3, label: 4};
const kMostScale = 64;  // pixels of the page for one of the picture
const kArm = 5, kLeastArm = 1.5, kSlack = 4, kLabelWidth = 34, kLabelHeight = 14;  // in pixels of the page

const kAtOnce = 100, kFrameTime = 12;  // drawings between looks at the clock; milliseconds of drawing in a frame

const kFirst = 3;  // the place of the first coordinate in a drawing
const layerOf = (drawing) => drawing[0], rowOf = (drawing) => drawing[1], kindOf = (drawing) => drawing[2];
const endOf = (drawing) => drawing.length - (kindOf(drawing) === kKinds.label);  // of its coordinates

function boundsOf(drawing) {
  let left = Infinity, top = Infinity, right = -Infinity, bottom = -Infinity;
  for (let i = kFirst; i < endOf(drawing); i += 2) {
    left = Math.min(left, drawing[i]), right = Math.max(right, drawing[i]);
    top = Math.min(top, drawing[i + 1]), bottom = Math.max(bottom, drawing[i + 1]);
  }
  return {left, top, right, bottom};
}

export class Viewer {
  constructor(frame, picture, layers, events = {}) {
    Object.assign(this, {frame, picture, layers, events, width: picture.width, height: picture.height});
    this.image = frame.querySelector("img");
    // All drawings, which fade while some rows are shown before them.
    this.canvas = frame.appendChild(document.createElement("canvas"));
    this.front = frame.appendChild(document.createElement("canvas"));
    this.rowsOn = [];
    this.scale = this.left = this.top = 0;  // the picture's place in the frame
    this.pointers = new Map();
    frame.tabIndex = 0;
    new ResizeObserver(() => { this.resized(); this.events.resized?.(); }).observe(frame);
    this.listen();
  }

  // The drawings of each layer and of each row with their bounds, from when they are first asked for.
  get byLayer() { return this.sorted.byLayer; }
  get byRow() { return this.sorted.byRow; }
  get sorted() {
    const byLayer = this.layers.map(() => []), byRow = new Map();
    for (const drawing of this.picture.drawings ?? []) {
      const row = rowOf(drawing), entry = {drawing, row, ...boundsOf(drawing)};
      byLayer[layerOf(drawing)].push(entry);
      if (row < 0) continue;
      if (byRow.has(row)) byRow.get(row).push(entry);
      else byRow.set(row, [entry]);
    }
    Object.defineProperty(this, "sorted", {value: {byLayer, byRow}});
    return this.sorted;
  }
  has(row) { return this.byRow.has(row); }
  usesLayer(layer) { return (this.picture.drawings ?? []).some((drawing) => layerOf(drawing) === layer); }
  get isVisible() { return this.frame.clientWidth > 0; }

  // ---- where the picture lies in the frame ----

  get fitScale() {
    const {clientWidth, clientHeight} = this.frame;
    return Math.min(clientWidth / this.width, clientHeight / this.height, Math.max(4, 200 / this.width));
  }
  get isFit() { return this.scale <= this.fitScale * 1.001; }

  // The view, in terms that another frame can take over.
  get view() {
    const {clientWidth, clientHeight} = this.frame;
    return {zoom: this.isFit ? 1 : this.scale / this.fitScale,
      x: (clientWidth / 2 - this.left) / this.scale, y: (clientHeight / 2 - this.top) / this.scale};
  }
  set view({zoom, x, y}) { this.centre(zoom * this.fitScale, x, y); }

  // The point of the picture, from its upper left corner, comes to the middle of the frame.
  centre(scale, x, y) {
    this.place(scale, this.frame.clientWidth / 2 - x * scale, this.frame.clientHeight / 2 - y * scale);
  }
  fit() { this.place(0, 0, 0); this.tell(); }
  zoomBy(factor, x = this.frame.clientWidth / 2, y = this.frame.clientHeight / 2) {
    this.zoomTo(this.scale * factor, x, y);
  }
  // The point of the frame stays where it is.
  zoomTo(wanted, x = this.frame.clientWidth / 2, y = this.frame.clientHeight / 2) {
    const scale = Math.min(Math.max(wanted, this.fitScale), Math.max(kMostScale, this.fitScale));
    const factor = scale / this.scale;
    this.place(scale, x - (x - this.left) * factor, y - (y - this.top) * factor);
    this.tell();
  }
  // What lies between these places of the picture comes to fill `share` of the frame.
  show(left, top, right, bottom, share = 1, most = kMostScale) {
    const {clientWidth, clientHeight} = this.frame;
    const scale = Math.min(share * clientWidth / Math.max(right - left, 1e-6),
      share * clientHeight / Math.max(bottom - top, 1e-6), most);
    this.centre(scale, (left + right + 1) / 2, (top + bottom + 1) / 2);
    this.tell();
  }
  // The drawings of a row take a third of the frame; a single pixel does not fill it.
  reveal(row) {
    const drawings = this.byRow.get(row);
    if (!drawings || !this.isVisible) return;
    const reach = (side, of) => of(...drawings.map((entry) => entry[side]));
    this.show(reach("left", Math.min), reach("top", Math.min), reach("right", Math.max), reach("bottom", Math.max),
      0.35, 12);
  }
  // No edge of the picture leaves the frame's for its inside; a picture that is smaller lies in the middle.
  place(scale, left, top) {
    const within = (at, size, room) =>
      size <= room ? (room - size) / 2 : Math.min(0, Math.max(room - size, at));
    this.scale = Math.max(scale, this.fitScale);
    this.left = within(left, this.width * this.scale, this.frame.clientWidth);
    this.top = within(top, this.height * this.scale, this.frame.clientHeight);
    this.image.style.cssText = `width:${this.width}px;height:${this.height}px;` +
      `transform:translate(${this.left}px,${this.top}px) scale(${this.scale});`;
    this.image.classList.toggle("near", this.scale * devicePixelRatio >= 2);
    this.frame.classList.toggle("moves", !this.isFit);
    this.redraw();
  }
  tell() { this.events.moved?.(this); }
  resized() {
    if (!this.isVisible) return;
    const {view} = this, wasPlaced = this.scale > 0 && Number.isFinite(view.x);
    const width = Math.round(this.frame.clientWidth * devicePixelRatio);
    const height = Math.round(this.frame.clientHeight * devicePixelRatio);
    if (wasPlaced && this.canvas.width === width && this.canvas.height === height) return;
    for (const canvas of [this.canvas, this.front]) Object.assign(canvas, {width, height});
    if (wasPlaced && view.zoom > 1) this.view = view;
    else this.place(0, 0, 0);
  }

  // ---- drawing ----

  redraw() {
    this.isOld = true;
    this.redrawFront();
  }
  redrawFront() {
    if (this.isWaiting) return;
    this.isWaiting = true;
    requestAnimationFrame(() => {
      this.isWaiting = false;
      if (!this.isVisible) return;
      if (this.isOld) this.begun = this.drawAll();
      this.isOld = false;
      this.drawFront();
      if (this.begun) this.goOn();
    });
  }
  // Thousands of drawings take several frames, between which the page answers.
  goOn() {
    const end = performance.now() + kFrameTime;
    let isDone;
    do isDone = this.begun.next().done; while (!isDone && performance.now() < end);
    if (isDone) this.begun = null;
    else this.redrawFront();
  }
  light(rows) { this.rowsOn = rows; this.redrawFront(); }

  toX(x) { return (x + 0.5) * this.scale + this.left; }
  toY(y) { return (y + 0.5) * this.scale + this.top; }
  isSeen({left, top, right, bottom}) {
    const {clientWidth, clientHeight} = this.frame;
    return this.toX(right) > -20 && this.toX(left) < clientWidth + 20 &&
      this.toY(bottom) > -20 && this.toY(top) < clientHeight + 20;
  }

  cleared(canvas) {
    const context = canvas.getContext("2d");
    context.setTransform(devicePixelRatio, 0, 0, devicePixelRatio, 0, 0);
    context.clearRect(0, 0, this.frame.clientWidth, this.frame.clientHeight);
    context.lineJoin = "round";
    return context;
  }

  // Some at a time, one layer after the other.
  *drawAll() {
    const context = this.cleared(this.canvas);
    const taken = new Set();  // the places of labels: none hides another
    for (const [layer, {shown, colour}] of this.layers.entries()) {
      if (!shown) continue;
      const seen = this.byLayer[layer].filter((entry) => this.isSeen(entry)).map(({drawing}) => drawing);
      for (let i = 0; i < seen.length; i += kAtOnce) {
        const drawings = seen.slice(i, i + kAtOnce);
        this.stroke(context, drawings, colour, 1.4);
        this.write(context, drawings, colour, taken);
        yield;
      }
    }
  }

  // The rows that are pointed at or picked, with their labels, and the rectangle of a drag.
  drawFront() {
    const context = this.cleared(this.front);
    const entries = this.rowsOn.flatMap((row) => this.byRow.get(row) ?? []);
    this.canvas.style.opacity = entries.length ? 0.3 : 1;
    for (const {drawing} of entries) {
      const {shown, colour} = this.layers[layerOf(drawing)];
      if (shown) this.stroke(context, [drawing], colour, 2.6);
      this.write(context, [drawing], colour, new Set());
    }
    if (!this.span) return;
    context.strokeStyle = "#fff";
    context.lineWidth = 1.4;
    context.setLineDash([5, 4]);
    context.strokeRect(this.span.x, this.span.y, this.span.width, this.span.height);
    context.setLineDash([]);
  }

  // One stroke for each: a path of thousands takes ten times as long. Crosses are two small rectangles.
  stroke(context, drawings, colour, width) {
    context.strokeStyle = context.fillStyle = colour;
    context.lineWidth = width;
    const arm = Math.max(kLeastArm, Math.min(kArm, 12 * this.scale));  // small where things are small
    const dot = Math.max(width + 1.6, Math.min(this.scale * 0.5, 6));
    for (const drawing of drawings) {
      const kind = kindOf(drawing), end = endOf(drawing);
      const x = this.toX(drawing[kFirst]), y = this.toY(drawing[kFirst + 1]);
      if (kind === kKinds.box) {
        context.strokeRect(x, y, this.toX(drawing[kFirst + 2]) - x, this.toY(drawing[kFirst + 3]) - y);
      } else if (kind === kKinds.polygon) {
        context.beginPath();
        context.moveTo(x, y);
        for (let i = kFirst + 2; i < end; i += 2) context.lineTo(this.toX(drawing[i]), this.toY(drawing[i + 1]));
        context.closePath();
        context.stroke();
      } else if (kind === kKinds.cross) {
        context.fillRect(x - arm, y - width / 2, 2 * arm, width);
        context.fillRect(x - width / 2, y - arm, width, 2 * arm);
      } else if (kind === kKinds.dots) {
        for (let i = kFirst; i < end; i += 2) {
          context.fillRect(this.toX(drawing[i]) - dot / 2, this.toY(drawing[i + 1]) - dot / 2, dot, dot);
        }
      }
    }
  }

  write(context, drawings, colour, taken) {
    context.font = `600 ${0.76 * parseFloat(getComputedStyle(document.documentElement).fontSize)}px system-ui, sans-serif`;
    context.lineWidth = 3;
    for (const drawing of drawings) {
      if (kindOf(drawing) !== kKinds.label) continue;
      const text = drawing[endOf(drawing)];
      const x = Math.max(2, this.toX(drawing[kFirst])), y = Math.max(12, this.toY(drawing[kFirst + 1]) - 2);
      const place = `${Math.floor(x / kLabelWidth)} ${Math.floor(y / kLabelHeight)}`;
      if (taken.has(place)) continue;
      taken.add(place);
      context.strokeStyle = "#000c";
      context.strokeText(text, x, y);
      context.fillStyle = colour;
      context.fillText(text, x, y);
    }
  }

  // The row of the smallest drawing around a point of the frame.
  rowAt(x, y) {
    let found = null, least = Infinity;
    this.layers.forEach((layer, number) => {
      if (!layer.shown) return;
      for (const entry of this.byLayer[number]) {
        const left = this.toX(entry.left) - kSlack, right = this.toX(entry.right) + kSlack;
        const top = this.toY(entry.top) - kSlack, bottom = this.toY(entry.bottom) + kSlack;
        const area = (right - left) * (bottom - top);
        if (entry.row < 0 || x < left || x > right || y < top || y > bottom || area >= least) continue;
        found = entry.row;
        least = area;
      }
    });
    return found;
  }

  // ---- pointers and keys ----

  at(event) {
    const box = this.frame.getBoundingClientRect();
    return [event.clientX - box.left - this.frame.clientLeft, event.clientY - box.top - this.frame.clientTop];
  }

  listen() {
    const {frame} = this;
    frame.addEventListener("wheel", (event) => {
      if (event.deltaY > 0 && this.isFit) return;  // the page scrolls on
      event.preventDefault();
      const lines = event.deltaMode ? 30 : 1;
      this.zoomBy(Math.exp(-event.deltaY * lines * 0.0022), ...this.at(event));
    }, {passive: false});
    frame.addEventListener("pointerdown", (event) => this.pressed(event));
    frame.addEventListener("pointermove", (event) => this.dragged(event));
    frame.addEventListener("pointerup", (event) => this.released(event));
    frame.addEventListener("pointercancel", (event) => this.released(event, true));
    frame.addEventListener("pointerleave", () => this.events.pointed?.(null));
    frame.addEventListener("dragstart", (event) => event.preventDefault());
    frame.addEventListener("keydown", (event) => this.typed(event));
  }

  pressed(event) {
    if (event.button > 0) return;
    const [x, y] = this.at(event);
    this.pointers.set(event.pointerId, {x, y});
    this.start = {x, y, left: this.left, top: this.top, hasMoved: false,
      spans: event.pointerType === "mouse" && (event.shiftKey || this.isFit)};
  }
  dragged(event) {
    const [x, y] = this.at(event);
    if (!this.pointers.has(event.pointerId)) {
      this.events.pointed?.(this.rowAt(x, y));
      return;
    }
    if (this.pointers.size === 2) return this.pinched(event.pointerId, x, y);
    this.pointers.set(event.pointerId, {x, y});
    const {start} = this;
    if (!start.hasMoved && Math.hypot(x - start.x, y - start.y) < 4) return;
    if (!start.hasMoved) this.frame.setPointerCapture(event.pointerId);
    start.hasMoved = true;
    if (start.spans) {
      this.span = {x: Math.min(x, start.x), y: Math.min(y, start.y),
        width: Math.abs(x - start.x), height: Math.abs(y - start.y)};
      this.redrawFront();
    } else if (!this.isFit) {
      this.place(this.scale, start.left + x - start.x, start.top + y - start.y);
      this.tell();
    }
  }
  pinched(id, x, y) {
    const other = [...this.pointers].find(([key]) => key !== id)[1], old = this.pointers.get(id);
    const factor = Math.hypot(x - other.x, y - other.y) / Math.max(1, Math.hypot(old.x - other.x, old.y - other.y));
    this.pointers.set(id, {x, y});
    this.start.hasMoved = true;
    this.zoomBy(factor, (x + other.x) / 2, (y + other.y) / 2);
  }
  released(event, isCancelled = false) {
    const {start, span} = this;
    if (!this.pointers.delete(event.pointerId) || this.pointers.size) return;
    this.span = null;
    this.redrawFront();
    if (isCancelled) return;
    if (!start.hasMoved) {
      const row = this.rowAt(...this.at(event));
      if (row !== null) this.events.picked?.(row);
    } else if (span && span.width > 6 && span.height > 6) {
      const x = (span.x - this.left) / this.scale - 0.5, y = (span.y - this.top) / this.scale - 0.5;
      this.show(x, y, x + span.width / this.scale, y + span.height / this.scale);
    }
  }
  typed(event) {
    const step = 60, moves = {ArrowLeft: [step, 0], ArrowRight: [-step, 0], ArrowUp: [0, step], ArrowDown: [0, -step]};
    const zooms = {"+": 1.5, "=": 1.5, "-": 1 / 1.5};
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    if (zooms[event.key]) this.zoomBy(zooms[event.key]);
    else if (event.key === "0") this.fit();
    else if (moves[event.key] && !this.isFit) {
      const [x, y] = moves[event.key];
      this.place(this.scale, this.left + x, this.top + y);
      this.tell();
    } else return;
    event.preventDefault();
  }
}
