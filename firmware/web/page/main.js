// Brings the panels, the store and the connection together.

import { Connection } from "./connection.js";
import { Store } from "./store.js";
import { button, el, remembered, toast } from "./dom.js";
import { mountHost } from "./host.js";
import { mountWire } from "./wire.js";
import { mountCommands } from "./commands.js";
import { mountScreen } from "./screen.js";
import { mountLog } from "./log.js";
import { mountPc } from "./pc.js";

const store = new Store();
const address = new URL("events", location.href);
address.protocol = "ws:";
address.hash = "";
const connection = new Connection(address.href, { progress: () => store.progress() });

// What every panel gets.
const lab = {
  store,
  connection,
  request: (verb, members) => connection.request(verb, members),
  // Runs an action of a button, and shows why it failed.
  async attempt(action, done) {
    try {
      const result = await action();
      if (done) toast(done);
      return result;
    } catch (problem) {
      toast(problem.message, "error");
      return undefined;
    }
  },
  show: (panel) => choose(document.getElementById(`tab-${panel}`)),
};

const tabs = [...document.querySelectorAll("[role=tab]")];
const panelOf = (tab) => document.getElementById(tab.getAttribute("aria-controls"));

function choose(chosen, focus = false) {
  for (const tab of tabs) {
    tab.setAttribute("aria-selected", tab === chosen);
    tab.tabIndex = tab === chosen ? 0 : -1;
    panelOf(tab).hidden = tab !== chosen;
  }
  remembered.write("panel", chosen.id);
  if (focus) chosen.focus();
  for (const tab of tabs) panelOf(tab).dispatchEvent(new CustomEvent("shown", { detail: tab === chosen }));
}

document.getElementById("tabs").addEventListener("keydown", (event) => {
  const place = tabs.indexOf(event.target);
  const next = { ArrowRight: place + 1, ArrowLeft: place - 1, Home: 0, End: tabs.length - 1 }[event.key];
  if (place < 0 || next === undefined) return;
  event.preventDefault();
  choose(tabs[(next + tabs.length) % tabs.length], true);
});
tabs.forEach((tab) => tab.addEventListener("click", () => choose(tab)));

const panels = { host: mountHost, wire: mountWire, commands: mountCommands, screen: mountScreen, log: mountLog, pc: mountPc };
for (const [name, mount] of Object.entries(panels)) mount(document.getElementById(name), lab);
choose(document.getElementById(remembered.read("panel", "tab-host")) ?? tabs[0]);

function pill(kind, text, title) {
  return el("span", { class: `pill ${kind}`, title }, text);
}

function showPills() {
  const { state, host, features } = store;
  const open = connection.state === "open";
  const pills = [pill(open ? "good" : "bad", open ? "connected" : "disconnected", "this page and the firmware")];
  if (open && host) {
    const up = host.host?.up;
    pills.push(state.vanished ? pill("bad", "firmware vanished", "no driver answers the host")
      : pill(state.listening ? "good" : "off", state.listening ? (up ? "host up" : "host listens") : "host not there",
        "whether the host reads the mailbox"));
    pills.push(pill("", `level ${host.settings?.uVORKVersion ?? "?"}`, "the firmware's level"));
  }
  if (open && state.pc && state.pc !== "none") pills.push(pill(state.pc === "on" ? "good" : "off", `PC ${state.pc}`));
  if (open && state.pages > 1) pills.push(pill("", `${state.pages} pages`, "pages that are open"));
  if (open && features.dash) pills.push(pill("wide", `DASH ${features.dash}`, "where a console connects"));
  document.getElementById("pills").replaceChildren(...pills);
}

function showBanner() {
  const banner = document.getElementById("banner");
  banner.hidden = connection.state === "open" || !connection.lostOnce;
  document.body.classList.toggle("disconnected", !banner.hidden);
  if (banner.hidden) return;
  const seconds = Math.max(Math.ceil((connection.retryAt - Date.now()) / 1000), 0);
  banner.replaceChildren(
    el("span", {}, `Disconnected${connection.reason ? `: ${connection.reason}` : ""}. What you see is as of the last connection. `),
    el("span", { class: "hint" }, connection.state === "waiting" ? `The page tries again in ${seconds} s.` : "The page tries again now."),
    button("Try now", () => connection.state === "waiting" && connection.start(), { class: "small" }));
}

connection.addEventListener("open", (event) => store.greet(event.detail));
connection.addEventListener("message", (event) => store.take(event.detail));
connection.addEventListener("state", () => {
  connection.lostOnce ||= connection.state === "waiting";
  showPills();
  showBanner();
});
setInterval(() => connection.state === "waiting" && showBanner(), 1000);
for (const topic of ["state", "host", "greeting"]) store.on(topic, showPills);

// A page that comes back from sleep does not wait for the end of its pause.
document.addEventListener("visibilitychange", () => {
  if (!document.hidden && connection.state === "waiting") connection.start();
});
showPills();
connection.start();
