// A report: pictures with drawings, and the table of their rows. After viewer.js, csv.js and table.js.
const page = JSON.parse(document.getElementById("page").textContent);
const csv = document.getElementById("csv")?.textContent ?? "";
const figures = [...document.querySelectorAll("figure[data-picture]")];
const boxes = [...document.querySelectorAll("[data-layer]")];
const layers = boxes.map((box) => ({
  colour: getComputedStyle(box.closest("label")).getPropertyValue("--tone"), shown: box.checked,
}));

let pointed = null, pinned = null;

// The row under the pointer, or else the one that a click has pinned.
function point(row) {
  if (row === pointed) return;
  pointed = row;
  light();
}
function light() {
  const rows = [pointed, pinned].filter((row) => row !== null);
  for (const viewer of viewers) viewer.light(rows);
  table?.light(pointed, pinned);
}
// Pinned again, it is let go.
function pin(row) {
  pinned = pinned === row ? null : row;
  light();
  return pinned !== null;
}

// ---- pictures ----

const images = figures.map((figure) => figure.querySelector("img"));
page.pictures.forEach((picture, i) => {
  if (picture.like !== undefined) images[i].src = images[picture.like].src;
});

// Pictures of one size move together.
function moved(viewer) {
  for (const other of viewers) {
    if (other !== viewer && other.width === viewer.width && other.height === viewer.height && other.isVisible) {
      other.view = viewer.view;
    }
  }
  lastView = {viewer, view: viewer.view};
  tellZoom();
}
let lastView = null;
const viewers = figures.map((figure, i) => new Viewer(figure.querySelector(".frame"), page.pictures[i], layers, {
  moved, resized: tellZoom, pointed: point,
  picked: (row) => { if (pin(row)) showRow(row); },
}));

// Of steps one picture is seen at a time, the one that was chosen from the strip.
const steps = [...document.querySelectorAll(".strip button")];
let current = 0;
function choose(number) {
  current = number;
  steps.forEach((button, i) => button.setAttribute("aria-pressed", i === number));
  if (steps.length) figures.forEach((figure, i) => { figure.hidden = i !== number; });
  const viewer = viewers[number];
  viewer.resized();
  const isAlike = lastView && lastView.viewer.width === viewer.width && lastView.viewer.height === viewer.height;
  if (steps.length && isAlike) viewer.view = lastView.view;
  steps[number]?.scrollIntoView?.({block: "nearest", inline: "nearest"});
  showLegend();
  light();
  tellZoom();
}
steps.forEach((button, i) => {
  button.addEventListener("click", () => choose(i));
  button.addEventListener("keydown", (event) => {
    const to = i + ({ArrowRight: 1, ArrowLeft: -1}[event.key] ?? 0);
    if (to === i || !steps[to]) return;
    event.preventDefault();
    choose(to);
    steps[to].focus();
  });
});

// The legend shows the layers of what is seen.
const ground = document.querySelector("[data-ground]");
function showLegend() {
  const seen = steps.length ? [viewers[current]] : viewers;
  boxes.forEach((box, i) => { box.closest("label").hidden = !seen.some((viewer) => viewer.usesLayer(i)); });
  if (!ground) return;
  ground.closest("label").hidden = page.pictures[current].ground === undefined;
}
// What a step found can be shown over another picture, whose pixels lie at the same places.
function applyGround() {
  page.pictures.forEach((picture, i) => {
    if (picture.ground === undefined) return;
    const own = picture.like ?? i;
    picture.source ??= images[own].src;
    images[i].src = ground.checked ? images[picture.ground].src : picture.source;
  });
}
ground?.addEventListener("change", applyGround);
if (ground) applyGround();  // browsers restore it too

for (const [i, box] of boxes.entries()) {
  const apply = () => {
    layers[i].shown = box.checked;
    for (const viewer of viewers) viewer.redraw();
  };
  box.addEventListener("change", apply);
  apply();  // browsers restore the boxes of a page that is loaded again
}

const zoomed = document.querySelector(".zoom output");
function tellZoom() {
  const viewer = steps.length ? viewers[current] : lastView?.viewer ?? viewers[0];
  if (zoomed) zoomed.textContent = `${Math.round(100 * viewer.scale)} %`;
}
for (const button of document.querySelectorAll("[data-zoom]")) {
  button.addEventListener("click", () => {
    const zoom = button.dataset.zoom;
    for (const viewer of viewers.filter((each) => each.isVisible)) {
      if (zoom === "fit") viewer.fit();
      else if (zoom === "1") viewer.zoomTo(1);
      else viewer.zoomBy(Number(zoom));
    }
  });
}

// ---- rows ----

const [, ...rows] = parseCsv(csv);
const section = document.querySelector(".rows");
const table = section && new Table(section.querySelector(".table"), page.columns, rows, {
  pointed: point,
  picked: (row) => { if (pin(row)) zoomToRow(row); },
});
if (section) {
  csvButtons(section.querySelector(".tools"), csv, document.title);
  const names = [...new Set(rows.map(([step]) => step))];
  if (steps.length && names.length > 1) section.querySelector(".tools").prepend(choiceOf(names));
}
// Which step's rows are shown.
function choiceOf(names) {
  const choice = document.createElement("select");
  choice.setAttribute("aria-label", "Rows of");
  choice.add(new Option("all steps", ""));
  names.forEach((name, i) => choice.add(new Option(name, i)));
  choice.addEventListener("change", () => {
    table.filter((row) => choice.value === "" || rows[row][0] === names[choice.value]);
  });
  return choice;
}

function showRow(row) { table?.reveal(row); }
function zoomToRow(row) {
  if (steps.length && !viewers[current].has(row)) {
    const holder = viewers.findIndex((viewer) => viewer.has(row));
    if (holder >= 0) choose(holder);
  }
  for (const viewer of viewers) viewer.reveal(row);
}
addEventListener("keydown", (event) => {
  if (event.key !== "Escape") return;
  pointed = pinned = null;
  light();
});
if (figures.length) choose(page.first);
