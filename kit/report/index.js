// The index of a run. After csv.js. Buttons show the images of one verdict, bars of the histograms those
// of one bin, the search those whose names hold its words; all together. Pointing at an image shows where
// it lies in every histogram.
const kCards = 60;  // on one page
const kOrder = ["fail", "error", "unreadable", "pass"];  // what wants to be looked at comes first

const page = JSON.parse(document.getElementById("page").textContent);
const csv = document.getElementById("csv").textContent;
const [heads, ...records] = parseCsv(csv);
const {measurements} = page;
const errorAt = heads.length - 1;
const images = records.map((cells, number) => {
  const [link, thumbnail, ...bins] = page.images[number];
  const [path, verdict] = cells;
  return {number, path, name: path.split("/").pop(), verdict, link, thumbnail, bins, error: cells[errorAt],
    values: cells.slice(2, 2 + measurements.length), key: path.toLowerCase()};
});
const [search] = document.querySelectorAll("input[type=search]");
const [choice] = document.querySelectorAll(".tools select");
const [turn] = document.querySelectorAll("[data-order]");
const chosen = document.querySelector(".chosen");
const cards = document.querySelector(".cards");
const bars = [...document.querySelectorAll(".bin")].map((bar) => ({
  bar, bin: Number(bar.dataset.bin), measurement: Number(bar.closest(".histogram").dataset.measurement),
}));

// What is shown; it stands in the address too, so that the way back from an image leads to it.
const state = {verdict: "", bin: -1, find: "", sort: "verdict", down: "", page: 0};

// ---- which images, in which order ----

const collator = new Intl.Collator(undefined, {numeric: true});
const byNumber = (a, b) => a.number - b.number;
const orders = {
  verdict: (a, b) => kOrder.indexOf(a.verdict) - kOrder.indexOf(b.verdict),
  order: byNumber,
  name: (a, b) => collator.compare(a.path, b.path),
};
choice.add(new Option("verdict", "verdict"));
choice.add(new Option("order of the run", "order"));
choice.add(new Option("name", "name"));
measurements.forEach(({name}, i) => {
  const value = (image) => image.values[i] === "" ? Infinity : Number(image.values[i]);
  orders[`value${i}`] = (a, b) => { const [x, y] = [value(a), value(b)]; return x < y ? -1 : x > y ? 1 : 0; };
  choice.add(new Option(name, `value${i}`));
});

function wanted() {
  const words = state.find.toLowerCase().split(/\s+/).filter(Boolean);
  const bar = bars[state.bin];
  const found = images.filter((image) => (!state.verdict || image.verdict === state.verdict) &&
    (!bar || image.bins[bar.measurement] === bar.bin) && words.every((word) => image.key.includes(word)));
  const compare = orders[state.sort] ?? orders.verdict, sign = state.down ? -1 : 1;
  return found.sort((a, b) => sign * compare(a, b) || byNumber(a, b));
}

// ---- what is seen of them ----

const made = (name, className, text) => Object.assign(document.createElement(name),
  {className: className ?? "", textContent: text ?? ""});

function cardOf(image) {
  const card = made(image.link ? "a" : "div", "card");
  if (image.link) card.href = image.link;
  card.dataset.verdict = image.verdict;
  const thumb = card.appendChild(made("span", "thumb"));
  if (image.thumbnail) {
    const picture = thumb.appendChild(document.createElement("img"));
    picture.alt = "";
    picture.loading = "lazy";
    picture.src = image.thumbnail;
  } else {
    thumb.append(made("span", "blank", "no picture"));
  }
  const name = card.appendChild(made("span", "name", image.name));
  name.title = image.path;
  card.append(made("span", `verdict ${image.verdict}`, image.verdict[0].toUpperCase() + image.verdict.slice(1)));
  if (image.error) {
    card.append(made("p", "", image.error));
    return card;
  }
  const list = card.appendChild(document.createElement("dl"));
  measurements.forEach(({name: title, decimals, isJudged, passes}, i) => {
    const bin = image.bins[i], fails = bin < 0 ? isJudged : !passes[bin];
    const line = list.appendChild(made("div", fails ? "fail" : ""));
    line.append(made("dt", "", title), made("dd", "", image.values[i] === "" ? "none" : fixed(image.values[i], decimals)));
  });
  for (const event of ["pointerenter", "focus"]) card.addEventListener(event, () => markBins(image.bins));
  for (const event of ["pointerleave", "blur"]) card.addEventListener(event, () => markBins([]));
  return card;
}
function markBins(bins) {
  for (const {bar, bin, measurement} of bars) bar.classList.toggle("here", bins[measurement] === bin);
}

function showPager(place, count, pages) {
  const from = state.page * kCards;
  const button = (label, title, to) => {
    const self = made("button", "", label);
    self.type = "button";
    self.title = title;
    self.setAttribute("aria-label", title);
    self.disabled = to < 0 || to >= pages || to === state.page;
    self.addEventListener("click", () => { change({page: to}); cards.scrollIntoView({block: "start"}); });
    return self;
  };
  const text = count === 0 ? "no images"
    : pages === 1 ? `${count} ${count === 1 ? "image" : "images"}` : `${from + 1} to ${Math.min(from + kCards, count)} of ${count}`;
  place.replaceChildren(made("span", "", text), ...(pages > 1 ? [button("«", "First page", 0),
    button("‹", "Previous page", state.page - 1), button("›", "Next page", state.page + 1),
    button("»", "Last page", pages - 1)] : []));
}

function show() {
  const found = wanted(), pages = Math.max(1, Math.ceil(found.length / kCards));
  state.page = Math.min(Math.max(0, state.page), pages - 1);
  cards.replaceChildren(...found.slice(state.page * kCards, (state.page + 1) * kCards).map(cardOf));
  for (const place of document.querySelectorAll(".pager")) showPager(place, found.length, pages);
  for (const button of document.querySelectorAll("[data-filter]")) {
    button.setAttribute("aria-pressed", button.dataset.filter === state.verdict);
  }
  bars.forEach(({bar}, i) => {
    bar.classList.toggle("on", i === state.bin);
    bar.setAttribute("aria-pressed", i === state.bin);
  });
  chosen.hidden = !bars[state.bin];
  if (!chosen.hidden) {
    const {bar, measurement} = bars[state.bin];
    chosen.firstElementChild.textContent = `${measurements[measurement].name} ${bar.querySelector("title").textContent.split(":")[0]}`;
  }
  search.value = state.find;
  choice.value = state.sort;
  turn.textContent = state.down ? "↓" : "↑";
}

function change(some) {
  Object.assign(state, {page: 0}, some);
  const words = Object.entries(state).filter(([key, value]) => value !== initial[key]);
  history.replaceState(null, "", "#" + new URLSearchParams(words));
  show();
}
const initial = {...state};
function fromAddress() {
  Object.assign(state, initial);
  for (const [key, value] of new URLSearchParams(location.hash.slice(1))) {
    if (key in state) state[key] = typeof state[key] === "number" ? Number(value) : value;
  }
  show();
}

// ---- buttons and fields ----

for (const button of document.querySelectorAll("[data-filter]")) {
  button.addEventListener("click", () => change({verdict: button.dataset.filter}));
}
bars.forEach(({bar}, i) => {
  const choose = () => change({bin: state.bin === i ? -1 : i});
  bar.addEventListener("click", choose);
  bar.addEventListener("keydown", (event) => {
    if (event.key !== "Enter" && event.key !== " ") return;
    event.preventDefault();
    choose();
  });
});
chosen.querySelector("button").addEventListener("click", () => change({bin: -1}));
search.addEventListener("input", () => change({find: search.value}));
choice.addEventListener("change", () => change({sort: choice.value, down: ""}));
turn.addEventListener("click", () => change({down: state.down ? "" : "1"}));
addEventListener("hashchange", fromAddress);
csvButtons(document.querySelector(".csv"), csv, document.title);
fromAddress();
