// The CSV text that a page holds: read, shown as numbers, and given away as it is.

// The records of the text, with quotes resolved, and without the apostrophe that keeps a spreadsheet from
// taking a text for a formula.
export function parseCsv(text) {
  if (!text.includes('"')) return text.trimEnd().split("\n").map((line) => line.split(","));
  const records = [];
  const field = /("(?:[^"]|"")*"|[^,\n]*)(,|\n|$)/y;
  let record = [];
  while (field.lastIndex < text.length) {
    const [, value, end] = field.exec(text);
    const plain = value.startsWith('"') ? value.slice(1, -1).replaceAll('""', '"') : value;
    record.push(plain.startsWith("'") ? plain.slice(1) : plain);
    if (end === ",") continue;
    records.push(record);
    record = [];
  }
  return records;
}

// As the library prints numbers: what lies in the middle goes to the even digit.
export function fixed(text, decimals) {
  const value = Number(text);
  if (text === "" || !Number.isFinite(value)) return text;
  const power = 10 ** decimals, scaled = Math.abs(value) * power;
  const isMiddle = scaled % 1 === 0.5 && scaled / power === Math.abs(value);
  const shown = isMiddle ? (2 * Math.round(scaled / 2) / power * Math.sign(value)).toFixed(decimals) : value.toFixed(decimals);
  return /^-[0.]*$/.test(shown) ? shown.slice(1) : shown;
}

// Buttons that copy the text, or save it as a file.
export function csvButtons(place, text, name) {
  const button = (label, act) => {
    const made = place.appendChild(document.createElement("button"));
    made.type = "button";
    made.textContent = label;
    made.addEventListener("click", () => act(made));
  };
  button("Copy CSV", async (self) => {
    await copy(text);
    self.textContent = "Copied";
    setTimeout(() => { self.textContent = "Copy CSV"; }, 1500);
  });
  button("Save CSV", () => {
    const link = document.createElement("a");
    link.href = URL.createObjectURL(new Blob([text], {type: "text/csv"}));
    link.download = name.replace(/[^\p{L}\p{N}._ -]/gu, "_").replace(/^\.+/, "_").slice(0, 80) + ".csv";
    link.click();
    setTimeout(() => URL.revokeObjectURL(link.href), 10000);
  });
}

// Pages opened from a disk have no clipboard in every browser: then a selection is copied.
async function copy(text) {
  try {
    await navigator.clipboard.writeText(text);
  } catch {
    const area = document.body.appendChild(document.createElement("textarea"));
    area.value = text;
    area.select();
    document.execCommand("copy");
    area.remove();
  }
}
