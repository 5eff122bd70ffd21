// A table of any number of rows, of which the page holds those that are in sight.
//
//   const table = new Table(section, columns, rows, {pointed, picked});
//
// A row is a list of texts; a column has a heading, its place in the rows, `decimals`, and whether it
// `isText`. A click on a heading sorts. Arrows, Page Up and Down, Home and End move along the rows, Enter
// picks one.
const kExtra = 12;  // rows beyond those in sight, above and below
const kWidestText = 30;  // characters; a longer text takes a second line

export class Table {
  constructor(section, columns, rows, events) {
    Object.assign(this, {section, columns, rows, events});
    this.order = rows.map((_, row) => row);
    this.pointed = this.picked = null;
    const table = section.appendChild(document.createElement("table"));
    table.setAttribute("role", "grid");
    table.setAttribute("aria-rowcount", rows.length + 1);
    const widths = columns.map((column) => this.widthOf(column));
    const isTall = widths.some((width) => width > kWidestText);
    section.classList.toggle("tall", isTall);
    this.lineHeight = Math.round((isTall ? 2.75 : 1.7) * parseFloat(getComputedStyle(document.documentElement).fontSize));
    section.style.setProperty("--line-height", `${this.lineHeight}px`);
    const group = table.createTHead().insertRow();
    columns.forEach((column, i) => {
      const heading = group.appendChild(document.createElement("th"));
      heading.className = column.isText ? "text" : "";
      const width = Math.min(widths[i], kWidestText) * (column.isText ? 0.9 : 1);
      heading.style.width = `calc(${Math.max(width, column.heading.length + 1)}ch + 1.1rem)`;
      const button = heading.appendChild(document.createElement("button"));
      button.type = "button";
      button.textContent = column.heading;
      button.addEventListener("click", () => this.sort(heading, column));
    });
    this.body = table.createTBody();
    section.tabIndex = 0;
    section.setAttribute("aria-label", "Rows: arrows move, Enter picks one and zooms to it");
    section.addEventListener("scroll", () => this.show());
    section.addEventListener("keydown", (event) => this.typed(event));
    this.body.addEventListener("pointerover", (event) => this.events.pointed(this.rowOf(event)));
    this.body.addEventListener("pointerleave", () => this.events.pointed(null));
    this.body.addEventListener("click", (event) => {
      const row = this.rowOf(event);
      if (row !== null) this.events.picked(row);
    });
    new ResizeObserver(() => this.show()).observe(section);
    addEventListener("beforeprint", () => this.show(true));
    addEventListener("afterprint", () => this.show());
    this.show();
  }

  text(row, {place, decimals, isText}) {
    const cell = this.rows[row][place];
    return isText ? cell : fixed(cell, decimals);
  }
  // The longest text, or that of the least or the greatest number.
  widthOf({heading, place, decimals, isText}) {
    let widest = heading.length, least = 0, most = 0;
    for (const {[place]: cell} of this.rows) {
      if (isText) widest = Math.max(widest, cell.length);
      else least = Math.min(least, cell), most = Math.max(most, cell);
    }
    return Math.max(widest, least.toFixed(decimals).length, most.toFixed(decimals).length);
  }
  rowOf(event) {
    const line = event.target.closest("tr[data-row]");
    return line && Number(line.dataset.row);
  }

  // Only rows for which the condition holds are shown.
  filter(condition) {
    this.order = this.rows.map((_, row) => row).filter(condition);
    if (this.sorting) this.arrange();
    this.show();
  }
  // Numbers by value, texts by their letters; rows that tie keep their order.
  sort(heading, column) {
    const isDown = heading.getAttribute("aria-sort") === "ascending";
    for (const other of heading.parentNode.children) other.removeAttribute("aria-sort");
    heading.setAttribute("aria-sort", isDown ? "descending" : "ascending");
    this.sorting = {column, sign: isDown ? -1 : 1};
    this.arrange();
    this.section.scrollTop = 0;
    this.show();
  }
  arrange() {
    const {column: {place, isText}, sign} = this.sorting;
    const {compare} = new Intl.Collator(undefined, {numeric: true});
    const key = this.rows.map((cells) => isText ? cells[place] : cells[place] === "" ? -Infinity : Number(cells[place]));
    this.order.sort((a, b) => sign * (isText ? compare(key[a], key[b]) : key[a] < key[b] ? -1 : key[a] > key[b] ? 1 : 0) || a - b);
  }

  // The lines in sight, between two rows as high as all others.
  show(isWhole = false) {
    const height = this.lineHeight, {section, order} = this;
    const first = isWhole ? 0 : Math.max(0, Math.floor(section.scrollTop / height) - kExtra);
    const end = isWhole ? order.length
      : Math.min(order.length, first + Math.ceil(section.clientHeight / height) + 2 * kExtra);
    const space = (count) => {
      const line = document.createElement("tr");
      line.className = "space";
      line.setAttribute("aria-hidden", "true");
      line.appendChild(document.createElement("td")).colSpan = this.columns.length;
      line.firstChild.style.height = `${count * height}px`;
      return line;
    };
    const lines = order.slice(first, end).map((row, i) => this.line(row, first + i));
    this.body.replaceChildren(space(first), ...lines, space(order.length - end));
  }
  line(row, index) {
    const line = document.createElement("tr");
    line.dataset.row = row;
    line.id = `row-${row}`;
    line.setAttribute("aria-rowindex", index + 2);
    line.setAttribute("aria-selected", row === this.picked);
    line.classList.toggle("on", row === this.pointed || row === this.picked);
    line.classList.toggle("pinned", row === this.picked);
    for (const column of this.columns) {
      const cell = line.insertCell(), text = this.text(row, column);
      if (!column.isText) {
        cell.textContent = text;
        continue;
      }
      cell.className = "text";
      const inner = cell.appendChild(document.createElement("span"));
      inner.textContent = text;
      if (text.length > kWidestText) inner.title = text;
    }
    return line;
  }

  light(pointed, picked) {
    Object.assign(this, {pointed, picked});
    for (const line of this.body.querySelectorAll("[data-row]")) {
      const row = Number(line.dataset.row);
      line.classList.toggle("on", row === pointed || row === picked);
      line.classList.toggle("pinned", row === picked);
      line.setAttribute("aria-selected", row === picked);
    }
    if (pointed ?? picked) this.section.setAttribute("aria-activedescendant", `row-${pointed ?? picked}`);
    else this.section.removeAttribute("aria-activedescendant");
  }
  // Within the table's own box: the page stays where it is.
  reveal(row) {
    const index = this.order.indexOf(row), height = this.lineHeight, {section} = this;
    if (index < 0) return;
    const room = section.clientHeight - section.querySelector("thead tr").offsetHeight;
    const from = index * height;
    if (from < section.scrollTop || from + height > section.scrollTop + room) {
      section.scrollTop = from - (room - height) / 2;
      this.show();
    }
  }
  typed(event) {
    const {order} = this;
    if (event.target.matches("button") && (event.key === "Enter" || event.key === " ")) return;
    const page = Math.max(1, Math.floor(this.section.clientHeight / this.lineHeight) - 2);
    const moves = {ArrowDown: 1, ArrowUp: -1, PageDown: page, PageUp: -page, Home: -Infinity, End: Infinity};
    const current = this.pointed ?? this.picked, at = order.indexOf(current);
    if (event.key in moves && order.length) {
      const start = at < 0 ? (moves[event.key] > 0 ? -1 : 0) : at;
      const row = order[Math.min(Math.max(start + moves[event.key], 0), order.length - 1)];
      this.reveal(row);
      this.events.pointed(row);
    } else if ((event.key === "Enter" || event.key === " ") && at >= 0) {
      this.events.picked(current);
    } else return;
    event.preventDefault();
  }
}
