// The panel "PC": plays Windows to the service. The buttons are for what is common; the forms of all commands are made
// from the PC's own list of them.

import { button, card, el, labelled, select } from "./dom.js";
import { argumentsForm } from "./form.js";
import { valueText } from "./describe.js";

const STATES = { 1: "stopped", 2: "start pending", 3: "stop pending", 4: "running", 7: "paused" };
const UNPLUGGED = 2, CONNECTED = 4, UP = 5; // states of an adapter
const JOINED = 1; // state of a Wi-Fi interface
const REFRESH = 2000; // milliseconds

const isRecord = (value) => value !== null && typeof value === "object" && !Array.isArray(value);

function tableOf(rows) {
  const names = [...new Set(rows.flatMap(Object.keys))];
  const head = el("tr", {}, names.map((name) => el("th", { scope: "col" }, name)));
  const lines = rows.map((row) => el("tr", {}, names.map((name) => el("td", {}, name in row ? resultOf(row[name]) : ""))));
  return el("div", { class: "scroll" }, el("table", {}, el("thead", {}, head), el("tbody", {}, lines)));
}

function resultOf(value) {
  if (Array.isArray(value) && value.length && value.every(isRecord)) return tableOf(value);
  if (Array.isArray(value))
    return value.length ? el("ol", {}, value.map((each) => el("li", {}, resultOf(each)))) : el("span", { class: "hint" }, "nothing");
  if (!isRecord(value)) return el("span", {}, valueText(value));
  const members = Object.entries(value);
  if (!members.length) return el("span", { class: "hint" }, "done");
  return el("dl", { class: "facts" }, members.flatMap(([name, member]) => [el("dt", {}, name), el("dd", {}, resultOf(member))]));
}

export function mountPc(root, lab) {
  const { store } = lab;
  const output = el("div", { class: "output", "aria-live": "polite" }, el("p", { class: "hint" }, "The answers of the PC."));
  const facts = el("dl", { class: "facts" });
  const adapters = el("div"), networks = el("div");
  let description = null;

  const ask = (request) => lab.request("pc", { request });

  // Requests of a button one after another; the answer of the last one is shown.
  async function act(title, ...requests) {
    try {
      let result;
      for (const request of requests) result = await ask(request);
      output.replaceChildren(el("h3", {}, title), resultOf(result));
    } catch (problem) {
      output.replaceChildren(el("h3", {}, title), el("p", { class: "error-text" }, problem.message));
    }
    refresh();
  }

  const action = (text, title, ...requests) => button(text, () => act(text, ...requests), { title });
  const control = (code, event) => ({ command: "control", code, ...(event ? { event } : {}) });
  const change = (patch) => ({ command: "change", patch });

  const common = card("Windows",
    el("h3", {}, "Session"),
    el("div", { class: "buttons" },
      action("Lock", "locks the desktop", { command: "lock" }), action("Unlock", "unlocks the desktop", { command: "unlock" })),
    el("h3", {}, "Power"),
    el("div", { class: "buttons" },
      action("Suspend", "the PC goes to sleep", control("suspend")),
      action("Resume", "the PC wakes up, and a user is there", control("resume-automatic"), control("resume-suspend")),
      action("Shut down", "Windows shuts down", control("shutdown"))),
    el("h3", {}, "Next start of the service"),
    el("div", { class: "buttons" },
      action("Safe boot", "without networking", change({ cleanBoot: 1 })),
      action("With networking", "safe boot with networking", change({ cleanBoot: 2 })),
      action("Regular boot", "neither of the two", change({ cleanBoot: 0 }))),
    el("h3", {}, "Service"),
    el("div", { class: "buttons" },
      action("Stop the service", "as the service manager; its PC goes off with it", control("stop")),
      action("Interrogate", "the service reports its state", control("interrogate")),
      action("Event log", "", { command: "event-log" })),
    el("h3", {}, "What happened"),
    el("div", { class: "buttons" },
      action("Processes", "what runs on the PC", { command: "processes" }),
      action("Launches", "programs that the service has started", { command: "launches" }),
      action("Power actions", "what the service has asked Windows for", { command: "power-actions" })));

  // A line with a lamp, a name and a button.
  function item(isOn, name, hint, text, onclick) {
    return el("div", { class: "item" }, el("span", { class: isOn ? "dot on" : "dot" }),
      el("span", { class: "grow" }, name, el("span", { class: "hint" }, ` ${hint}`)), button(text, onclick, { class: "small" }));
  }

  function showAdapters() {
    const all = description.adapters;
    if (!Array.isArray(all)) return adapters.replaceChildren(el("p", { class: "hint" }, "The PC has this machine's own adapters."));
    return adapters.replaceChildren(...all.map((adapter, place) => {
      const up = (adapter.operStatus ?? UP) >= CONNECTED;
      const changed = all.map((each, index) => (index === place ? { ...each, operStatus: up ? UNPLUGGED : UP } : each));
      const name = adapter.description || adapter.name, verb = up ? "Unplug" : "Plug in";
      return item(up, name, adapter.address || "no address", verb, () => act(`${verb} ${name}`, change({ adapters: changed })));
    }));
  }

  function showNetworks() {
    const [radio] = description.wlanInterfaces ?? [];
    if (!radio) return networks.replaceChildren(el("p", { class: "hint" }, "The PC has no Wi-Fi adapter."));
    return networks.replaceChildren(...(description.wlanNetworks ?? []).map(({ name, authentication }) => {
      const joined = radio.state === JOINED && radio.network === name;
      return item(joined, name, authentication ?? "", joined ? "Leave" : "Join", joined
        ? () => act("Leave", { command: "wlan", action: "leave" })
        : () => act(`Join ${name}`, { command: "wlan", action: "join", network: name }));
    }));
  }

  function showFacts(status) {
    const rows = [["Service", STATES[status?.state] ?? "not reported"], ["Name", description.computerName],
      ["Session", description.consoleSession === 4294967295 ? "none" : description.consoleSession],
      ["Desktop", description.desktopLocked ? "locked" : "unlocked"],
      ["Boot", ["regular", "safe boot", "safe boot with networking"][description.cleanBoot ?? 0]]];
    facts.replaceChildren(...rows.flatMap(([name, text]) => [el("dt", {}, name), el("dd", { "data-fact": name }, valueText(text))]));
  }

  // A PC that was off when this page was opened has not named its commands yet.
  async function learnCommands() {
    if (store.pcHelp || !store.features.pc || store.state.pc !== "on") return;
    store.pcHelp = await lab.attempt(() => ask({ command: "help" }));
    if (store.pcHelp) build();
  }

  async function refresh() {
    if (root.hidden || !store.features.pc || lab.connection.state !== "open") return;
    try {
      const status = await ask({ command: "status" });
      const read = await ask({ command: "description" });
      const news = JSON.stringify(read) !== JSON.stringify(description);
      description = read;
      showFacts(status);
      if (!news) return;
      showAdapters();
      showNetworks();
    } catch (problem) {
      description = null;
      facts.replaceChildren(el("dt", {}, "PC"), el("dd", { class: "error-text", "data-fact": "PC" }, problem.message));
      adapters.replaceChildren();
      networks.replaceChildren();
    }
  }

  function formsCard() {
    const names = Object.keys(store.pcHelp ?? {}).sort();
    const choice = select(names, { id: "pc-command" });
    const place = el("div");
    let form;
    const show = () => {
      const help = store.pcHelp[choice.value];
      form = argumentsForm(choice.value, help);
      place.replaceChildren(el("p", { class: "hint" }, help.help), form.element);
    };
    choice.addEventListener("change", show);
    if (names.length) show();
    const submit = (event) => {
      event.preventDefault();
      try {
        act(choice.value, form.read());
      } catch (problem) {
        output.replaceChildren(el("p", { class: "error-text" }, problem.message));
      }
    };
    return card("All commands", el("form", { onsubmit: submit }, labelled("Command", choice), place,
      el("div", { class: "buttons" }, el("button", { type: "submit", class: "primary" }, "Run"))));
  }

  function build() {
    if (!store.features.pc)
      return root.replaceChildren(el("p", { class: "empty" }, "The firmware was started without the control socket of a simulated PC."));
    root.replaceChildren(el("div", { class: "columns" },
      el("div", {}, card("PC", facts), common),
      el("div", {}, card("Adapters", adapters), card("Wi-Fi", networks), store.pcHelp ? formsCard() : null),
      el("div", {}, card("Answer", output))));
    return refresh();
  }

  store.on("greeting", build);
  store.on("state", () => {
    learnCommands();
    refresh();
  });
  root.addEventListener("shown", refresh);
  setInterval(refresh, REFRESH);
  root.append(el("p", { class: "empty" }, "Not connected yet."));
}
