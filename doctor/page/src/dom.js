// Elements are made of text and properties alone: nothing from the data is ever read as markup.

export const byId = id => document.getElementById(id);

// make("button", {type: "button", class: "x", onclick: f, "aria-label": "..."}, "text", element, ...)
export function make(tag, properties = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    if (value === null || value === undefined || value === false) continue;
    if (name.startsWith("on")) element[name] = value;
    else element.setAttribute(name, value === true ? "" : value);
  }
  element.append(...children.filter(child => child !== null && child !== undefined));
  return element;
}

// The text with what `pattern` finds in it marked; `pattern` is global, or null.
export function marked(text, pattern) {
  const pieces = document.createDocumentFragment();
  let begin = 0;
  if (pattern) {
    for (const found of text.matchAll(pattern)) {
      pieces.append(text.slice(begin, found.index), make("mark", {}, found[0]));
      begin = found.index + found[0].length;
    }
  }
  pieces.append(text.slice(begin));
  return pieces;
}

// Calls `work` once, before the next picture, however often it is asked to.
export function oncePerFrame(work) {
  let asked = false;
  return () => {
    if (asked) return;
    asked = true;
    requestAnimationFrame(() => {
      asked = false;
      work();
    });
  };
}

// Calls `work` when there was no further call for `pause` milliseconds.
export function afterPause(pause, work) {
  let timer = 0;
  return () => {
    clearTimeout(timer);
    timer = setTimeout(work, pause);
  };
}
