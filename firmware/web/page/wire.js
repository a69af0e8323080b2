// The panel "Wire": every request, command and note, decoded. The entry that is selected is shown with its bytes and the
// lines that the service logged at that moment.

import { button, check, download, el, remembered } from "./dom.js";
import { VirtualList } from "./table.js";
import { Ring, Selection } from "./store.js";
import { bytesText, clockText, fieldsText, valueText } from "./describe.js";
import { dump } from "./hex.js";

const ARROWS = { host: "→", firmware: "←", note: "·" };
const SENDERS = { host: "request of the host", firmware: "command of the firmware", note: "note" };
const SHOWN_HEX = 4096 * 2;
const SHOWN_CONTENT = 500; // characters in a row
const MOMENT = 1000; // milliseconds before and after an entry
const MOST_LINES = 40;

// The filter of a text: words that the name must have one of, and words with a minus that it must not have.
export function matcher(text) {
  const words = text.toLowerCase().split(/\s+/).filter(Boolean);
  const wanted = words.filter((word) => !word.startsWith("-"));
  const unwanted = words.filter((word) => word.startsWith("-") && word.length > 1).map((word) => word.slice(1));
  return (name) => {
    const lower = name.toLowerCase();
    return (!wanted.length || wanted.some((word) => lower.includes(word))) && !unwanted.some((word) => lower.includes(word));
  };
}

function contentOf(entry, layout) {
  if (entry.dropped) return `${entry.dropped} entries are missing here: this page read too slowly`;
  return [entry.fault && `FAULT: ${entry.fault}`, entry.text, fieldsText(inOrder(entry.fields, layout))].filter(Boolean).join("  ")
    .slice(0, SHOWN_CONTENT);
}

// The lines of the log that are nearest to this time, in their order, and how far each is from it.
export function linesAt(log, time) {
  const at = Date.parse(time);
  const lines = [];
  for (const line of log) {
    const distance = line.time ? Math.abs(Date.parse(line.time) - at) : Infinity;
    if (distance <= MOMENT) lines.push({ line, distance });
  }
  const nearest = new Set([...lines].sort((a, b) => a.distance - b.distance).slice(0, MOST_LINES));
  return lines.filter((each) => nearest.has(each));
}

// The fields in the order of the record; what the table does not describe stands at the end.
function inOrder(fields, layout) {
  const places = new Map(layout?.fields.map(({ name }, place) => [name, place]));
  const place = (name) => places.get(name) ?? places.size;
  return Object.fromEntries(Object.entries(fields ?? {}).sort(([a], [b]) => place(a) - place(b)).map(([name, value]) => {
    const element = layout?.fields[place(name)]?.element;
    return [name, element && Array.isArray(value) ? value.map((each) => inOrder(each, element)) : value];
  }));
}

export function mountWire(root, lab) {
  const { store } = lab;
  const filter = remembered.read("wire", { name: "", host: true, firmware: true, note: true });
  let paused = null; // a Selection of the entries that were there when the list was paused
  let missed = 0;

  function accepts() {
    const matches = matcher(filter.name);
    return (entry) => entry.dropped || (filter[entry.direction] !== false && matches(entry.name));
  }

  function layoutOf({ name, direction }) {
    return direction === "host" ? store.catalogue.requests.find((request) => request.name === name)?.input
      : store.catalogue.commands.find((command) => command.name === name)?.payload;
  }

  const selection = new Selection(store.wire, accepts());
  const detail = el("aside", { class: "detail", "aria-label": "The selected entry" });
  const list = new VirtualList({
    label: "Requests, commands and notes",
    columns: [
      { name: "serial", text: (entry) => entry.serial ?? "" },
      { name: "time", text: (entry) => clockText(entry.time) },
      { name: "direction", text: (entry) => ARROWS[entry.direction] ?? "" },
      { name: "name", text: (entry) => entry.name.replace(/^MPM_ZEL_(CMD_)?/, "") },
      { name: "size", text: (entry) => (entry.bytes === undefined ? "" : bytesText(entry.bytes)) },
      { name: "content", text: (entry) => contentOf(entry, layoutOf(entry)) },
    ],
    rowClass: (entry) => (entry.dropped ? "dropped" : `${entry.direction}${entry.fault ? " fault" : ""}`),
    select: showDetail,
  });

  const shown = () => (paused ?? selection).list;
  const count = el("span", { class: "hint count" });
  const name = el("input", {
    type: "search", placeholder: "Filter by name: os dash -kvm", "aria-label": "Filter by name", value: filter.name,
    oninput: () => change("name", name.value),
  });
  const pause = button("Pause", () => setPause(!paused), { "aria-pressed": "false" });
  const follow = button("Newest", () => list.follow(true), { title: "Go to the newest entry and follow the new ones" });
  list.onFollow = (follows) => follow.classList.toggle("on", follows);
  follow.classList.add("on");

  function change(key, setting) {
    filter[key] = setting;
    remembered.write("wire", filter);
    selection.change(accepts());
    paused?.change(accepts());
    list.show(shown());
    showCount();
  }

  function setPause(pausing) {
    missed = 0;
    paused = null;
    if (pausing) {
      const all = new Ring();
      all.push([...store.wire]);
      paused = new Selection(all, accepts());
    }
    pause.textContent = pausing ? "Resume" : "Pause";
    pause.setAttribute("aria-pressed", pausing);
    list.show(shown());
    showCount();
  }

  function showCount() {
    const all = (paused ?? selection).source.length;
    const of = shown().length === all ? "" : ` of ${all}`;
    const news = paused ? `, ${missed} new` : "";
    const text = `${shown().length}${of} entries${news}`;
    if (count.textContent !== text) count.textContent = text;
  }

  function save() {
    const lines = [...shown()].filter((entry) => !entry.dropped).map(({ key, ...entry }) => `${JSON.stringify(entry)}\n`);
    download("wire.jsonl", lines, "application/jsonl");
  }

  function fieldRows(fields, depth = 0) {
    return Object.entries(fields ?? {}).flatMap(([field, content]) => {
      if (content === null || typeof content !== "object")
        return [el("tr", {}, el("th", { scope: "row", class: `depth${depth}` }, field), el("td", {}, valueText(content)))];
      return [el("tr", {}, el("th", { scope: "row", class: `depth${depth}` }, Array.isArray(fields) ? `${Number(field) + 1}` : field),
        el("td", {})), ...fieldRows(content, Math.min(depth + 1, 3))];
    });
  }

  async function showBytes(entry, place) {
    try {
      const { hex } = await lab.request("bytes", { serial: entry.serial });
      if (!hex.length) return place.replaceChildren(el("p", { class: "hint" }, "No bytes."));
      const text = el("pre", { class: "hex", tabindex: 0, "aria-label": "Bytes" }, dump(hex.slice(0, SHOWN_HEX)));
      const rest = hex.length > SHOWN_HEX && button(`Show all ${hex.length / 2} bytes`, () => {
        text.textContent = dump(hex);
        rest.remove();
      }, { class: "small" });
      place.replaceChildren(text, rest || "");
    } catch (problem) {
      place.replaceChildren(el("p", { class: "hint" }, problem.message));
    }
  }

  function moment(entry) {
    const lines = linesAt(store.log, entry.time);
    if (!lines.length) return el("p", { class: "hint" }, "The service logged nothing within a second of it.");
    const nearest = Math.min(...lines.map(({ distance }) => distance));
    return el("ol", { class: "moment" }, lines.map(({ line, distance }) =>
      el("li", { class: `${line.level ?? ""} ${distance === nearest ? "nearest" : ""}` },
        button(`${clockText(line.time)} ${line.level} ${line.text}`, () => {
          lab.show("log");
          lab.revealLog(line);
        }, { class: "plain", title: "Show this line in the log" }))));
  }

  function showDetail(entry) {
    if (!entry || entry.dropped) return detail.replaceChildren(hintOfDetail());
    const bytes = el("div"), fields = fieldRows(inOrder(entry.fields, layoutOf(entry)));
    detail.replaceChildren(
      el("h2", {}, entry.name),
      el("p", { class: "hint" }, [SENDERS[entry.direction], clockText(entry.time), entry.code !== undefined && `code ${entry.code}`,
        entry.bytes !== undefined && `${entry.bytes} bytes`].filter(Boolean).join(" · ")),
      entry.fault ? el("p", { class: "error-text" }, entry.fault) : "",
      entry.text ? el("p", {}, entry.text) : "",
      fields.length ? el("table", { class: "fields" }, el("tbody", {}, fields)) : "",
      ...(entry.bytes === undefined ? [] : [el("h3", {}, "Bytes"), bytes]),
      el("h3", {}, "The service's log at this moment"), moment(entry));
    if (entry.bytes !== undefined) showBytes(entry, bytes);
  }

  function hintOfDetail() {
    return el("p", { class: "empty" }, "Select an entry to see its fields, its bytes and the log of that moment.");
  }

  root.append(
    el("div", { class: "toolbar" }, name,
      el("div", { class: "group", role: "group", "aria-label": "Directions" },
        check("→ host", filter.host, (on) => change("host", on)), check("← firmware", filter.firmware, (on) => change("firmware", on)),
        check("· notes", filter.note, (on) => change("note", on))),
      pause, follow, el("span", { class: "stretch" }), count,
      button("Download", save, { title: "Save the entries that are shown as JSON lines" })),
    el("div", { class: "split" }, list.element, detail));
  detail.append(hintOfDetail());
  list.show(selection.list);
  showCount();

  store.on("wire", ({ added }) => {
    const dropped = selection.add(added);
    if (paused) missed += added.filter(selection.accepts).length;
    else list.refresh(dropped);
    showCount();
  });
  root.addEventListener("shown", () => list.refresh());
}
