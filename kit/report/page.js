"use strict";
// Rows of the table and drawings on the pictures that carry the same data-row belong together.
const parts = new Map();
for (const part of document.querySelectorAll("[data-row]")) {
  const row = part.dataset.row;
  if (!parts.has(row)) parts.set(row, []);
  parts.get(row).push(part);
}
const pictures = document.querySelectorAll("svg");
const body = document.querySelector("tbody");
let shown = null, pinned = null;

function show(row) {
  if (row === shown) return;
  for (const part of parts.get(shown) ?? []) part.classList.remove("on");
  shown = row;
  for (const part of parts.get(shown) ?? []) part.classList.add("on");
  for (const picture of pictures) {
    picture.classList.toggle("focus", !!picture.querySelector(".on"));
  }
}

// Within its own scrolling box only: the page stays where it is.
function reveal(part) {
  const box = part.closest(".frame, .rows");
  const inner = part.getBoundingClientRect(), outer = box.getBoundingClientRect();
  const outside = (low, high, from, to) => low < from || high > to;
  if (outside(inner.top, inner.bottom, outer.top, outer.bottom)) {
    box.scrollTop += (inner.top + inner.bottom - outer.top - outer.bottom) / 2;
  }
  if (!part.matches("tr") && outside(inner.left, inner.right, outer.left, outer.right)) {
    box.scrollLeft += (inner.left + inner.right - outer.left - outer.right) / 2;
  }
}

document.addEventListener("pointerover", (event) => {
  show(event.target.closest("[data-row]")?.dataset.row ?? pinned);
});

// A click keeps a row shown and brings its counterparts into view; a second click lets it go.
document.addEventListener("click", (event) => {
  const part = event.target.closest("[data-row]");
  if (!part) return;
  const row = part.dataset.row;
  for (const old of parts.get(pinned) ?? []) old.classList.remove("pinned");
  pinned = pinned === row ? null : row;
  for (const now of parts.get(pinned) ?? []) {
    now.classList.add("pinned");
    if (now !== part) reveal(now);
  }
  show(row);
});

for (const box of document.querySelectorAll("[data-layer]")) {
  const apply = () => {
    for (const part of document.querySelectorAll("svg .layer" + box.dataset.layer)) {
      part.classList.toggle("off", !box.checked);
    }
  };
  box.addEventListener("change", apply);
  apply();  // browsers restore the boxes of a page that is loaded again
}

for (const button of document.querySelectorAll("[data-zoom]")) {
  button.addEventListener("click", () => {
    document.querySelector("[data-zoom].on").classList.remove("on");
    button.classList.add("on");
    const zoom = button.dataset.zoom;
    for (const picture of pictures) {
      picture.style.width = zoom && zoom * picture.dataset.width + "px";
      picture.classList.toggle("near", zoom > 1);
    }
  });
}

// Numbers by value, texts by their letters; rows that tie keep their order.
const headings = [...document.querySelectorAll("th")];
headings.forEach((heading, column) => heading.addEventListener("click", () => {
  const down = heading.getAttribute("aria-sort") === "ascending";
  for (const other of headings) other.removeAttribute("aria-sort");
  heading.setAttribute("aria-sort", down ? "descending" : "ascending");
  const key = (row) => row.cells[column].textContent;
  const compare = (a, b) => {
    const x = Number(key(a)), y = Number(key(b));
    return isNaN(x) || isNaN(y) ? key(a).localeCompare(key(b)) : x - y;
  };
  const sign = down ? -1 : 1;
  body.append(...[...body.rows].sort((a, b) => sign * compare(a, b)));
}));
