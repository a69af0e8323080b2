// The panel "Log": the service's log, coloured by level.

import { button, check, el, remembered } from "./dom.js";
import { VirtualList } from "./table.js";
import { Selection } from "./store.js";
import { clockText } from "./describe.js";
import { matcher } from "./wire.js";

const LEVELS = ["ERROR", "WARN", "INFO"];

export function mountLog(root, lab) {
  const { store } = lab;
  const filter = remembered.read("log", { text: "", hidden: [] });
  const tab = document.getElementById("tab-log");

  function accepts() {
    const matches = matcher(filter.text);
    return (line) => line.dropped || (!filter.hidden.includes(levelOf(line)) && matches(line.text));
  }

  // Any other level counts as INFO.
  const levelOf = (line) => (LEVELS.includes(line.level) ? line.level : "INFO");

  const selection = new Selection(store.log, accepts());
  const list = new VirtualList({
    label: "The service's log",
    rowHeight: 22,
    columns: [
      { name: "time", text: (line) => clockText(line.time) },
      { name: "level", text: (line) => line.level ?? "" },
      { name: "content", text: (line) => (line.dropped ? `${line.dropped} lines are missing here: this page read too slowly` : line.text) },
    ],
    rowClass: (line) => (line.dropped ? "dropped" : levelOf(line)),
    select: (line) => { whole.textContent = line?.text ?? ""; },
  });
  const whole = el("pre", { class: "whole-line", tabindex: 0, "aria-label": "The selected line" });
  const count = el("span", { class: "hint count" });
  const text = el("input", {
    type: "search", placeholder: "Filter: kvm dash -socket", "aria-label": "Filter the log", value: filter.text,
    oninput: () => { filter.text = text.value; change(); },
  });
  const follow = button("Newest", () => list.follow(true), { class: "on", title: "Go to the newest line and follow the new ones" });
  list.onFollow = (follows) => follow.classList.toggle("on", follows);

  function change() {
    remembered.write("log", filter);
    selection.change(accepts());
    list.show(selection.list);
    showCount();
  }

  function showCount() {
    const of = selection.list.length === store.log.length ? "" : ` of ${store.log.length}`;
    count.textContent = `${selection.list.length}${of} lines`;
  }

  let errors = 0;
  function countErrors(added) {
    errors += added.filter((line) => line.level === "ERROR").length;
    tab.dataset.errors = errors || "";
    tab.title = errors ? `${errors} errors in the log` : "";
  }

  lab.revealLog = (line) => {
    if (!selection.accepts(line)) {
      filter.text = text.value = "";
      filter.hidden = [];
      for (const box of boxes) box.querySelector("input").checked = true;
      change();
    }
    requestAnimationFrame(() => requestAnimationFrame(() => list.reveal(line)));
  };

  const boxes = LEVELS.map((level) => check(level, !filter.hidden.includes(level), (on) => {
    filter.hidden = filter.hidden.filter((each) => each !== level).concat(on ? [] : [level]);
    change();
  }));
  root.append(
    el("div", { class: "toolbar" }, text, el("div", { class: "group", role: "group", "aria-label": "Levels" }, boxes),
      follow, el("span", { class: "stretch" }), count),
    list.element, whole);
  list.show(selection.list);
  showCount();

  store.on("log", ({ added }) => {
    list.refresh(selection.add(added));
    countErrors(added);
    showCount();
  });
  store.on("greeting", () => {
    if (store.features.log === false) count.textContent = "the firmware was started without the service's log";
  });
  root.addEventListener("shown", () => list.refresh());
}
