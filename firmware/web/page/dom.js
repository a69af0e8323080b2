// Makes elements. Data reaches the page as text nodes and property values only, and is never parsed as HTML.

const PROPERTIES = new Set(["value", "checked", "disabled", "hidden", "selected", "tabIndex", "textContent", "htmlFor"]);

// el("button", {class: "small", onclick: run}, "Run"). Attributes that are null or false are left out.
export function el(tag, attributes = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (name.startsWith("on")) element.addEventListener(name.slice(2), value);
    else if (PROPERTIES.has(name)) element[name] = value;
    else if (value !== null && value !== undefined && value !== false) element.setAttribute(name, value === true ? "" : value);
  }
  element.append(...children.flat().filter((child) => child !== null && child !== undefined && child !== false));
  return element;
}

export function button(text, onclick, attributes = {}) {
  return el("button", { type: "button", onclick, ...attributes }, text);
}

let labels = 0;

// A label and the control that it belongs to; `hint` stands behind the label.
export function labelled(text, control, hint) {
  control.id ||= `control-${++labels}`;
  return el("div", { class: "field" },
    el("label", { htmlFor: control.id }, text, hint ? el("span", { class: "hint" }, hint) : null), control);
}

export function check(text, checked, onchange, attributes = {}) {
  const box = el("input", { type: "checkbox", checked, onchange: () => onchange(box.checked), ...attributes });
  return el("label", { class: "check" }, box, text);
}

export function select(options, attributes = {}) {
  return el("select", attributes, options.map((option) => {
    const [value, text] = Array.isArray(option) ? option : [option, option];
    return el("option", { value }, text);
  }));
}

export function card(title, ...children) {
  return el("section", { class: "card" }, el("h2", {}, title), children);
}

const TOAST_MILLISECONDS = 6000;

// A message that goes away by itself.
export function toast(text, kind = "info") {
  const place = document.getElementById("toasts");
  const message = el("div", { class: `toast ${kind}` }, text);
  place.append(message);
  while (place.children.length > 3) place.firstChild.remove();
  setTimeout(() => message.remove(), TOAST_MILLISECONDS);
}

// Saves bytes as a file of the browser's user.
export function download(name, parts, type) {
  const address = URL.createObjectURL(new Blob(parts, { type }));
  const link = el("a", { href: address, download: name });
  link.click();
  setTimeout(() => URL.revokeObjectURL(address), 10000);
}

// Remembers a choice across a reload of this page, not across pages.
export const remembered = {
  read(key, otherwise) {
    try {
      return JSON.parse(sessionStorage.getItem(key)) ?? otherwise;
    } catch {
      return otherwise;
    }
  },
  write(key, value) {
    sessionStorage.setItem(key, JSON.stringify(value));
  },
};
