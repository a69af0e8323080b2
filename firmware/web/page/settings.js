// The settings of the firmware; only those that a person has changed are sent.

import { card, el, labelled } from "./dom.js";

// {"Cloud": {"Port": 1}} as [["Cloud.Port", 1]].
export function flat(settings, prefix = "") {
  return Object.entries(settings ?? {}).flatMap(([name, value]) =>
    (value && typeof value === "object" && !Array.isArray(value) ? flat(value, `${prefix}${name}.`) : [[prefix + name, value]]));
}

const FIRST = ["uVORKVersion", "ProvisionStatus", "MPMStatus", "MPMVersion", "Kvm", "Dash"];
const rank = (key) => (FIRST.includes(key) ? FIRST.indexOf(key) : FIRST.length);

export function mountSettings(lab, answers) {
  const controls = new Map();
  const first = el("div", { class: "settings" }), rest = el("div", { class: "settings" });
  const levels = el("ul", { class: "levels" });

  function controlOf(key, value) {
    const control = typeof value === "boolean" ? el("select", {}, ["true", "false"].map((text) => el("option", { value: text }, text)))
      : el("input", { type: "text", spellcheck: "false", autocomplete: "off" });
    control.name = key;
    control.addEventListener("input", () => mark(key));
    return control;
  }

  function mark(key) {
    const { control, shown } = controls.get(key);
    control.classList.toggle("edited", control.value !== shown);
  }

  // A value that a person edits stays as it is.
  function show() {
    const settings = flat(lab.store.host?.settings).filter(([, value]) => !String(value).includes("not shown") && !Array.isArray(value));
    for (const [key, value] of settings.sort(([a], [b]) => rank(a) - rank(b))) {
      const text = String(value ?? "");
      if (!controls.has(key)) {
        const control = controlOf(key, value);
        controls.set(key, { control, shown: undefined });
        (FIRST.includes(key) ? first : rest).append(labelled(key, control));
      }
      const entry = controls.get(key);
      if (entry.shown === undefined || entry.control.value === entry.shown) entry.control.value = text;
      entry.shown = text;
      mark(key);
    }
    levels.replaceChildren(...(lab.store.host?.levels ?? []).map(({ from, effect, on }) =>
      el("li", { class: on ? "on" : "off" }, el("b", {}, from), ` ${effect}`)));
  }

  async function apply(event) {
    event.preventDefault();
    const edited = [...controls].filter(([, { control, shown }]) => control.value !== shown);
    if (!edited.length) return answers.add("settings", "nothing is changed");
    const values = Object.fromEntries(edited.map(([key, { control }]) => [key, control.value]));
    return answers.run(`set ${Object.entries(values).map(([key, value]) => `${key}=${value}`).join(" ")}`, async () => {
      const answer = await lab.request("set", { values });
      for (const [key, entry] of edited) {
        entry.shown = entry.control.value;
        mark(key);
      }
      return answer;
    });
  }

  lab.store.on("host", show);
  return card("Settings", el("form", { onsubmit: apply }, first,
    el("details", {}, el("summary", {}, "All settings"), rest),
    el("div", { class: "buttons" }, el("button", { type: "submit" }, "Apply"))),
  el("details", {}, el("summary", {}, "What the level turns on"), levels));
}
