// Elements of the page, found and made.

export const byId = (id) => document.getElementById(id);

export function element(name, attributes = {}, ...children) {
  return filled(document.createElement(name), attributes, children);
}

export function svg(name, attributes = {}, ...children) {
  return filled(document.createElementNS("http://www.w3.org/2000/svg", name), attributes, children);
}

function filled(made, attributes, children) {
  for (const [key, value] of Object.entries(attributes)) {
    if (typeof value === "function") made.addEventListener(key, value);
    else if (value === true) made.setAttribute(key, "");
    else if (value !== false && value !== null && value !== undefined) made.setAttribute(key, value);
  }
  made.append(...children);
  return made;
}

/// Leaves alone what is so already: a screen reader tells each change.
export function setText(at, text) {
  if (at.textContent !== text) at.textContent = text;
}

export function show(at, isShown) {
  at.hidden = !isShown;
}

/// "12.3", without a tail of zeros.
export const shortly = (number) => String(Math.round(number * 10) / 10);
