"use strict";
// Buttons show the images of one verdict, bars those of one bin; pointing at an image shows where it
// lies in every histogram.
const cards = [...document.querySelectorAll(".card")];
const chosen = document.querySelector(".chosen");
let verdict = "", bin = null;

const binOf = (card, measurement) => card.dataset.bins.split(" ")[measurement];
const measurementOf = (part) => part.closest(".histogram").dataset.measurement;

function apply() {
  let shown = 0;
  for (const card of cards) {
    const fits = (!verdict || card.dataset.verdict === verdict) &&
      (!bin || binOf(card, measurementOf(bin)) === bin.dataset.bin);
    card.hidden = !fits;
    shown += fits;
  }
  for (const button of document.querySelectorAll("[data-filter]")) {
    button.classList.toggle("on", button.dataset.filter === verdict);
  }
  for (const part of document.querySelectorAll(".bin.on")) part.classList.remove("on");
  bin?.classList.add("on");
  chosen.hidden = !bin;
  if (!bin) return;
  const name = bin.closest(".histogram").querySelector("b").textContent;
  chosen.firstElementChild.textContent =
    `${name} ${bin.querySelector("title").textContent.split(":")[0]}: ${shown} shown`;
}

for (const button of document.querySelectorAll("[data-filter]")) {
  button.addEventListener("click", () => { verdict = button.dataset.filter; apply(); });
}
chosen.querySelector("button").addEventListener("click", () => { bin = null; apply(); });
for (const part of document.querySelectorAll(".bin")) {
  const choose = () => { bin = bin === part ? null : part; apply(); };
  part.addEventListener("click", choose);
  part.addEventListener("keydown", (event) => {
    if (event.key === "Enter" || event.key === " ") { event.preventDefault(); choose(); }
  });
}
for (const card of cards) {
  const mark = (on) => {
    for (const part of document.querySelectorAll(".bin")) {
      part.classList.toggle("here", on && binOf(card, measurementOf(part)) === part.dataset.bin);
    }
  };
  for (const event of ["pointerenter", "focus"]) card.addEventListener(event, () => mark(true));
  for (const event of ["pointerleave", "blur"]) card.addEventListener(event, () => mark(false));
}
