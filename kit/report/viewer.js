// A picture in a frame, with drawings over it: wheel, pinch, buttons and keys magnify it, a drag moves
// it, or magnifies what it spans while the whole picture is seen. Drawings keep their thickness.
//
//   const viewer = new Viewer(frame, picture, layers, {moved, pointed, picked});
//
// The frame holds an <img>. picture.drawings are lists of layer, row, kind and coordinates, as the page
// holds them; (0, 0) is the centre of the top left pixel. A layer has a colour and `shown`.
const kKinds = {box: 0, polygon: 1, dots: 2, cross: 3, label: 4};
const kMostScale = 64;  // pixels of the page for one of the picture
const kArm = 5, kLeastArm = 1.5, kSlack = 4, kLabelWidth = 34, kLabelHeight = 14;  // in pixels of the page

function unpack([layer, row, kind, ...rest]) {
  const text = kind === kKinds.label ? rest.pop() : "";
  const xs = rest.filter((_, i) => i % 2 === 0), ys = rest.filter((_, i) => i % 2 === 1);
  const least = (values) => values.reduce((a, b) => Math.min(a, b), Infinity);
  const most = (values) => values.reduce((a, b) => Math.max(a, b), -Infinity);
  return {layer, row, kind, xs, ys, text, left: least(xs), top: least(ys), right: most(xs), bottom: most(ys)};
}

export class Viewer {
  constructor(frame, picture, layers, events = {}) {
    Object.assign(this, {frame, layers, events, width: picture.width, height: picture.height});
    this.image = frame.querySelector("img");
    this.canvas = frame.appendChild(document.createElement("canvas"));
    this.byLayer = layers.map(() => []);
    this.byRow = new Map();
    for (const drawing of (picture.drawings ?? []).map(unpack)) {
      this.byLayer[drawing.layer].push(drawing);
      if (drawing.row < 0) continue;
      if (!this.byRow.has(drawing.row)) this.byRow.set(drawing.row, []);
      this.byRow.get(drawing.row).push(drawing);
    }
    this.rowsOn = [];
    this.scale = this.left = this.top = 0;  // the picture's place in the frame
    this.pointers = new Map();
    frame.tabIndex = 0;
    new ResizeObserver(() => this.resized()).observe(frame);
    this.listen();
  }

  has(row) { return this.byRow.has(row); }
  usesLayer(layer) { return this.byLayer[layer].length > 0; }
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
    const reach = (side, of) => of(...drawings.map((drawing) => drawing[side]));
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
    this.canvas.width = Math.round(this.frame.clientWidth * devicePixelRatio);
    this.canvas.height = Math.round(this.frame.clientHeight * devicePixelRatio);
    if (wasPlaced && view.zoom > 1) this.view = view;
    else this.place(0, 0, 0);
  }

  // ---- drawing ----

  redraw() {
    if (this.isWaiting) return;
    this.isWaiting = true;
    requestAnimationFrame(() => { this.isWaiting = false; if (this.isVisible) this.draw(); });
  }
  light(rows) { this.rowsOn = rows; this.redraw(); }

  toX(x) { return (x + 0.5) * this.scale + this.left; }
  toY(y) { return (y + 0.5) * this.scale + this.top; }
  isSeen(drawing) {
    const {clientWidth, clientHeight} = this.frame;
    return this.toX(drawing.right) > -20 && this.toX(drawing.left) < clientWidth + 20 &&
      this.toY(drawing.bottom) > -20 && this.toY(drawing.top) < clientHeight + 20;
  }

  draw() {
    const context = this.canvas.getContext("2d");
    context.setTransform(devicePixelRatio, 0, 0, devicePixelRatio, 0, 0);
    context.clearRect(0, 0, this.frame.clientWidth, this.frame.clientHeight);
    context.lineJoin = "round";
    const on = new Set(this.rowsOn.filter((row) => this.byRow.has(row)));
    const taken = new Set();  // the places of labels: none hides another
    for (const isOn of on.size ? [false, true] : [false]) {
      context.globalAlpha = on.size && !isOn ? 0.3 : 1;
      this.layers.forEach((layer, number) => {
        const drawings = this.byLayer[number].filter((drawing) =>
          (layer.shown || (isOn && drawing.kind === kKinds.label)) && on.has(drawing.row) === isOn && this.isSeen(drawing));
        this.stroke(context, drawings, layer.colour, isOn ? 2.6 : 1.4);
        this.write(context, drawings, layer.colour, isOn ? new Set() : taken);
      });
    }
    if (this.span) {
      context.globalAlpha = 1;
      context.strokeStyle = "#fff";
      context.setLineDash([5, 4]);
      context.strokeRect(this.span.x, this.span.y, this.span.width, this.span.height);
      context.setLineDash([]);
    }
  }

  stroke(context, drawings, colour, width) {
    context.strokeStyle = context.fillStyle = colour;
    context.lineWidth = width;
    context.beginPath();
    const arm = Math.max(kLeastArm, Math.min(kArm, 12 * this.scale));  // small crosses where things are small
    const dot = Math.max(width + 1.6, Math.min(this.scale * 0.5, 6));
    for (const {kind, xs, ys} of drawings) {
      const [x, y] = [this.toX(xs[0]), this.toY(ys[0])];
      if (kind === kKinds.box) {
        context.rect(x, y, this.toX(xs[1]) - x, this.toY(ys[1]) - y);
      } else if (kind === kKinds.polygon) {
        context.moveTo(x, y);
        for (let i = 1; i < xs.length; ++i) context.lineTo(this.toX(xs[i]), this.toY(ys[i]));
        context.closePath();
      } else if (kind === kKinds.cross) {
        context.moveTo(x - arm, y), context.lineTo(x + arm, y);
        context.moveTo(x, y - arm), context.lineTo(x, y + arm);
      } else if (kind === kKinds.dots) {
        xs.forEach((px, i) => context.fillRect(this.toX(px) - dot / 2, this.toY(ys[i]) - dot / 2, dot, dot));
      }
    }
    context.stroke();
  }

  write(context, drawings, colour, taken) {
    context.font = `600 ${0.76 * parseFloat(getComputedStyle(document.documentElement).fontSize)}px system-ui, sans-serif`;
    context.lineWidth = 3;
    for (const {kind, xs, ys, text} of drawings) {
      if (kind !== kKinds.label) continue;
      const x = Math.max(2, this.toX(xs[0])), y = Math.max(12, this.toY(ys[0]) - 2);  // below the upper edge
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
      for (const drawing of this.byLayer[number]) {
        const left = this.toX(drawing.left) - kSlack, right = this.toX(drawing.right) + kSlack;
        const top = this.toY(drawing.top) - kSlack, bottom = this.toY(drawing.bottom) + kSlack;
        const area = (right - left) * (bottom - top);
        if (drawing.row < 0 || x < left || x > right || y < top || y > bottom || area >= least) continue;
        found = drawing.row;
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
      this.redraw();
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
    this.redraw();
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
