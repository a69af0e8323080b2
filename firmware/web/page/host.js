// The panel "Host": the records that the PC has reported to the firmware. What has just changed is highlighted.

import { el, card } from "./dom.js";
import * as describe from "./describe.js";

const HIGHLIGHT_MILLISECONDS = 6000;
// Records that come again and again; the panel "Wire" has them.
const STREAMS = new Set(["WriteEncodedBuffer", "SendEncodedDrvFrameBuffer", "WriteDASHPacket", "WriteKVMPacket"]);

// Finds what differs from the last time, by the path of each value.
export class Changes {
  constructor() {
    this.known = null;
    this.changed = new Map();
  }

  take(object, now) {
    const values = new Map();
    flatten(object, "", values);
    if (this.known)
      for (const [path, value] of values)
        if (this.known.get(path) !== value) this.changed.set(path, { was: this.known.get(path), at: now });
    this.known = values;
  }

  // What the value at this path was before, when it has changed lately.
  of(path, now) {
    const change = this.changed.get(path);
    return change && now - change.at < HIGHLIGHT_MILLISECONDS ? change : null;
  }
}

function flatten(value, path, values) {
  if (value === null || typeof value !== "object") return void values.set(path, value);
  for (const [name, member] of Object.entries(value)) flatten(member, path ? `${path}.${name}` : name, values);
}

export function mountHost(root, { store }) {
  const changes = new Changes();
  let host = null, timer;

  // A value, highlighted while one of its paths is new.
  function value(text, ...paths) {
    const change = paths.map((path) => changes.of(path, Date.now())).find(Boolean);
    const shown = text === "" || text === undefined || text === null ? "–" : String(text);
    const was = change && `before: ${change.was === undefined ? "not known" : change.was}`;
    return el("span", { class: change ? "changed" : null, title: was }, shown);
  }

  function facts(rows) {
    return el("dl", { class: "facts" }, rows.filter(Boolean).map(([name, ...content]) =>
      [el("dt", {}, name), el("dd", {}, content)]).flat());
  }

  function identity(host) {
    const os = host.WriteOsInfo ?? {}, path = (name) => `WriteOsInfo.${name}`;
    return card("System", facts([
      ["Name", value(os.HostName, path("HostName"))],
      ["Domain", value(os.DomainName, path("DomainName"))],
      ["System", value(os.OSName, path("OSName"))],
      ["Version", value([os.Version, os.OtherTypeDescription].filter(Boolean).join(", "), path("Version"), path("OtherTypeDescription"))],
      ["Service version", value(os.ZELVersion, path("ZELVersion"))],
      ["Time zone", value(host.WriteADInfo ? describe.timeZoneText(host.WriteADInfo.TimezoneDiff) : "", "WriteADInfo.TimezoneDiff")],
    ]));
  }

  function state(host) {
    const display = host.WriteDisplayConfig, certificate = host.certificate;
    return card("State", facts([
      ["Host", value(host.up ? "up" : "not up", "up")],
      ["Mailbox", value(host.listening ? "the host reads it" : "not read", "listening")],
      ["Service", value(host.WriteZELStatus ? describe.serviceStateText(host.WriteZELStatus.state) : "", "WriteZELStatus.state")],
      ["Network", value(host.WriteNetworkStatusInfo ? describe.networkText(host.WriteNetworkStatusInfo.status) : "",
        "WriteNetworkStatusInfo.status")],
      ["Screen", value(host.WriteCapabilityConfig ? (host.WriteCapabilityConfig.encode ? "can be encoded" : "cannot be encoded") : "",
        "WriteCapabilityConfig.encode"), display ? ", " : null,
      display ? value(`${display.width} × ${display.height}`, "WriteDisplayConfig.width", "WriteDisplayConfig.height") : null],
      certificate ? ["Certificate", value(certificate.verdict, "certificate.verdict")] : null,
    ]));
  }

  function sessions() {
    return card("Sessions", facts(store.sessions.list().map(({ name, port, peer, begun, ended }) => [
      `${name}, port ${port}`,
      !begun ? el("span", { class: "hint" }, "none yet")
        : el("span", { class: ended ? null : "good-text" },
          ended ? `ended at ${describe.clockText(ended)}` : `${peer} since ${describe.clockText(begun)}`),
    ])));
  }

  function wifi(host) {
    const info = host.WriteWiFiSyncInfo;
    if (!info) return card("Wi-Fi", el("p", { class: "hint" }, "No profile has been reported."));
    const path = (name) => `WriteWiFiSyncInfo.${name}`;
    return card("Wi-Fi", facts([
      ["Network", value(info.ssid, path("ssid"))],
      ["Security", value(describe.wifiKindText(info.wpaauth), path("wpaauth"))],
      ["Channel", value(`${info.channel}, ${describe.bandText(info.band)}`, path("channel"), path("band"))],
      ["Key", value(info.key_material, path("key_material"))],
    ]));
  }

  function adapters(host) {
    const several = host.WriteMultiNwInfo;
    const entries = several?.Entries ?? (host.WriteNwInfo ? [host.WriteNwInfo] : []);
    if (!entries.length) return card("Adapters", el("p", { class: "hint" }, "No adapter has been reported."));
    const columns = [
      ["Name", "Name", (text) => text], ["MAC", "MACAddress", describe.macText], ["Address", "IPv4Address", (text) => text],
      ["Mask", "Subnet", (text) => text], ["Gateway", "Gateway", (text) => text], ["Origin", "AddressOrigin", describe.originText],
      ["Speed", "Speed", describe.speedText], ["Kind", "LinkTechnology", describe.technologyText],
      ["Link", "StatusInfo", describe.linkText],
    ];
    const rest = (several?.Count ?? 0) - entries.length;
    return el("section", { class: "card whole" }, el("h2", {}, "Adapters"),
      el("div", { class: "scroll" }, el("table", {},
        el("thead", {}, el("tr", {}, columns.map(([title]) => el("th", { scope: "col" }, title)))),
        el("tbody", {}, entries.map((entry, place) => el("tr", {}, columns.map(([, name, text]) => el("td", {},
          value(entry[name] === undefined ? "" : text(entry[name]),
            several ? `WriteMultiNwInfo.Entries.${place}.${name}` : `WriteNwInfo.${name}`)))))))),
      rest > 0 ? el("p", { class: "hint" }, `and ${rest} more`) : null);
  }

  const records = el("div", { class: "records" });
  const all = el("details", { class: "card whole", open: true }, el("summary", {}, "All records, field by field"), records);
  all.addEventListener("toggle", () => show());
  const cards = el("div", { class: "cards" });
  root.append(cards);

  function showRecords(host) {
    records.replaceChildren(...Object.entries(host).filter(([, record]) => typeof record === "object" && record).map(([name, record]) => {
      const values = new Map();
      flatten(record, "", values);
      return el("section", {}, el("h3", {}, name), facts([...values].map(([path, content]) =>
        [path, value(describe.valueText(content), `${name}.${path}`)])));
    }));
  }

  function show() {
    if (!host) return cards.replaceChildren(el("p", { class: "empty" }, "The firmware has not reported yet."));
    if (all.open) showRecords(host);
    cards.replaceChildren(identity(host), state(host), sessions(), wifi(host), adapters(host), all);
  }

  function showChanges() {
    show();
    clearTimeout(timer);
    timer = setTimeout(show, HIGHLIGHT_MILLISECONDS + 50);
  }

  store.on("host", () => {
    const known = Object.fromEntries(Object.entries(store.host.host ?? {}).filter(([name]) => !STREAMS.has(name)));
    if (JSON.stringify(known) === JSON.stringify(host)) return;
    host = known;
    changes.take(host, Date.now());
    showChanges();
  });
  store.on("sessions", show);
  show();
}
