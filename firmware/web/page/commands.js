// The panel "Commands": scenarios, every firmware command with a form of its record, faults and settings.

import { button, card, check, el, labelled, select } from "./dom.js";
import { recordForm } from "./form.js";
import { DEFAULTS, PRESETS } from "./presets.js";
import { Player } from "./player.js";
import { mountFaults } from "./faults.js";
import { mountSettings } from "./settings.js";
import { hexOfText, parseHex } from "./hex.js";

const KEPT_ANSWERS = 50;
const FIRST_CHOICE = "MPM_ZEL_CMD_GET_KVM_CONSENT";

// The last answers, newest first.
class Answers {
  constructor() {
    this.list = el("ol", { class: "answers", "aria-live": "polite" });
    this.element = card("Answers", this.list);
  }

  add(what, text, failed = false) {
    this.list.prepend(el("li", {}, el("time", {}, new Date().toTimeString().slice(0, 8)), el("b", {}, what),
      el("span", { class: failed ? "error-text" : null }, text)));
    while (this.list.children.length > KEPT_ANSWERS) this.list.lastChild.remove();
  }

  // Runs an action and shows its answer or why it failed.
  async run(what, action) {
    try {
      const result = await action();
      this.add(what, result?.text ?? "done");
      return true;
    } catch (problem) {
      this.add(what, problem.message, true);
      return false;
    }
  }
}

const shortName = (name) => name.replace(/^MPM_ZEL_(CMD_)?/, "");

// Bytes of any command, and any number: for what the table does not describe.
function payloadForm() {
  const kind = select([["text", "text"], ["hex", "hexadecimal"]], { "aria-label": "Payload as" });
  const text = el("textarea", { rows: 4, spellcheck: "false", name: "payload" });
  return {
    element: el("div", { class: "fields-form" }, labelled("Payload", text), labelled("as", kind)),
    read: () => (kind.value === "hex" ? parseHex(text.value) : hexOfText(text.value)),
  };
}

function mountSender(lab, answers) {
  const place = el("div");
  const number = el("input", { type: "text", value: "1", size: 4, "aria-label": "Number of the command" });
  const trailer = el("input", { type: "text", value: "0", name: "trailer" });
  const choice = el("select", { id: "command" });
  const raw = check("as bytes", false, () => show());
  const asBytes = () => raw.querySelector("input").checked;
  let form = null;

  function chosen() {
    return lab.store.catalogue.commands.find((command) => String(command.number) === choice.value);
  }

  function show() {
    const command = chosen();
    const isRecord = command && command.payload.fields.length > 0;
    const empty = command && command.payload.maxSize === 0;
    raw.hidden = !isRecord && !empty;
    form = isRecord && !asBytes() ? recordForm(command.payload, DEFAULTS[command.payload.record]) : null;
    const bytes = !form && (!empty || asBytes()) ? payloadForm() : null;
    place.replaceChildren(
      ...(command ? [] : [labelled("Number", number, "0 to 255")]),
      command && empty && !bytes ? el("p", { class: "hint" }, "This command has no payload.") : "",
      form?.element ?? bytes?.element ?? "");
    read = () => (form ? { fields: form.read() } : bytes ? { payload: bytes.read() } : {});
  }

  let read = () => ({});

  async function send(event) {
    event.preventDefault();
    const command = chosen();
    await answers.run(command ? shortName(command.name) : `command ${number.value}`, () =>
      lab.request("send", { command: command ? command.number : Number(number.value), trailer: Number(trailer.value), ...read() }));
  }

  lab.store.on("greeting", () => {
    const kept = choice.options.length ? choice.value : null;
    choice.replaceChildren(...lab.store.catalogue.commands.map((command) =>
      el("option", { value: command.number }, `${command.number}  ${shortName(command.name)}`)),
    el("option", { value: "" }, "any other number"));
    const first = lab.store.catalogue.commands.find(({ name }) => name === FIRST_CHOICE)?.number;
    if ([...choice.options].some(({ value }) => value === kept)) choice.value = kept;
    else if (first !== undefined) choice.value = first;
    show();
  });
  choice.addEventListener("change", show);
  return card("Command of the firmware", el("form", { onsubmit: send },
    labelled("Command", choice), place, raw,
    el("details", {}, el("summary", {}, "Trailer"), labelled("Last byte of the message", trailer, "0 to 255")),
    el("div", { class: "buttons" }, el("button", { type: "submit", class: "primary" }, "Send"))));
}

function mountPresets(lab, answers) {
  const list = el("div", { class: "presets" });
  const needingPc = [];

  function inputsOf(preset) {
    return (preset.inputs ?? []).map(({ name, value, choices }) => {
      const control = el("input", { type: "text", value, name, list: choices ? `choices-${choices}` : null, size: 8 });
      return { name, control, element: labelled(name, control) };
    });
  }

  function add(preset) {
    const inputs = inputsOf(preset);
    const progress = el("span", { class: "hint" });
    const player = new Player(lab, (text) => { progress.textContent = text; });
    const run = button(preset.name, async () => {
      run.disabled = true;
      progress.textContent = "";
      const values = Object.fromEntries(inputs.map(({ name, control }) => [name, control.value]));
      await answers.run(preset.name, async () => {
        await preset.run(player, values);
        return { text: progress.textContent || "sent" };
      });
      run.disabled = false;
    });
    run.title = preset.about;
    const element = preset.brief ? run : el("div", { class: "preset" }, run, el("span", { class: "about" }, preset.about, progress),
      inputs.length ? el("div", { class: "inline" }, inputs.map((input) => input.element)) : null);
    if (preset.needs === "pc") needingPc.push(element);
    return element;
  }

  for (const group of new Set(PRESETS.map((preset) => preset.group))) {
    const presets = PRESETS.filter((preset) => preset.group === group);
    const brief = presets.filter((preset) => preset.brief);
    list.append(el("h3", {}, group), ...presets.filter((preset) => !preset.brief).map(add),
      brief.length ? el("div", { class: "buttons" }, brief.map(add)) : "");
  }
  lab.store.on("greeting", () => {
    for (const element of needingPc) element.hidden = !lab.store.features.pc;
  });
  return card("Scenarios", list);
}

function choicesOf(lab) {
  const requests = el("datalist", { id: "choices-requests" }), levels = el("datalist", { id: "choices-levels" });
  const networks = el("datalist", { id: "choices-networks" });
  lab.store.on("greeting", async () => {
    const { catalogue, features } = lab.store;
    requests.replaceChildren(...catalogue.requests.map(({ name }) => el("option", { value: name })));
    levels.replaceChildren(...[...new Set(catalogue.levels.map(({ from }) => from))].map((level) => el("option", { value: level })));
    if (!features.pc) return;
    try {
      const description = await lab.request("pc", { request: { command: "description" } });
      networks.replaceChildren(...(description.wlanNetworks ?? []).map(({ name }) => el("option", { value: name })));
    } catch {
      networks.replaceChildren(); // the PC is off
    }
  });
  return [requests, levels, networks];
}

export function mountCommands(root, lab) {
  const answers = new Answers();
  root.append(
    ...choicesOf(lab),
    el("div", { class: "columns" },
      el("div", {}, mountPresets(lab, answers)),
      el("div", {}, mountSender(lab, answers), answers.element),
      el("div", {}, mountFaults(lab, answers), mountSettings(lab, answers))));
}
