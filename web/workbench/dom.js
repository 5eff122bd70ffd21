// Building elements: h('button.primary', { onclick }, 'Save').

/** @returns {any} */
export function h(tag, ...rest) {
  const [name, ...classes] = tag.split('.');
  const element = document.createElement(name);
  if (classes.length) element.className = classes.join(' ');
  const isProperties = rest.length && rest[0]?.constructor === Object;
  if (isProperties) {
    for (const [key, value] of Object.entries(rest.shift())) {
      if (value === undefined || value === null || value === false) continue;
      if (key.startsWith('on') || key in element) element[key] = value;
      else element.setAttribute(key, value === true ? '' : value);
    }
  }
  element.append(...rest.flat(2).filter((child) => child !== null && child !== undefined && child !== false));
  return element;
}

/** @type {(id: string) => any} */
export const byId = (id) => document.getElementById(id);

// Puts new children in and keeps the focus where an element with the same data-key is again.
export function fill(element, ...children) {
  /** @type {any} */
  const focused = document.activeElement;
  const key = focused?.dataset?.key;
  const { scrollTop } = element;
  element.replaceChildren(...children.flat().filter(Boolean));
  element.scrollTop = scrollTop;
  if (key) element.querySelector(`[data-key="${CSS.escape(key)}"]`)?.focus();
}

export function download(name, bytes, type = 'application/octet-stream') {
  const url = URL.createObjectURL(new Blob([bytes], { type }));
  h('a', { href: url, download: name }).click();
  setTimeout(() => URL.revokeObjectURL(url), 10_000);
}

// A number as people write it.
export const plain = (value, decimals = 6) => String(Number(Number(value).toFixed(decimals)));

// A dialog that closes with Escape, its button, or `close`.
export function openDialog(title, ...children) {
  const dialog = h('dialog', { 'aria-label': title });
  const close = () => dialog.close();
  dialog.append(
    h('header', h('h2', title), h('button.icon', { onclick: close, 'aria-label': 'Close', title: 'Close' }, '✕')),
    ...children.filter(Boolean),
  );
  dialog.addEventListener('close', () => dialog.remove());
  dialog.addEventListener('click', (event) => event.target === dialog && close());
  document.body.append(dialog);
  dialog.showModal();
  return { dialog, close };
}

// A sentence at the bottom of the page, for some seconds.
export function say(message, isError = false) {
  const note = h(isError ? 'p.note.error' : 'p.note', { role: isError ? 'alert' : 'status' }, message);
  byId('notes').append(note);
  setTimeout(() => note.remove(), isError ? 12_000 : 5000);
}
