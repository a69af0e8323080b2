// The values of records in words.

const NETWORK = ["not connected", "over LAN", "over WLAN"];
const WIFI_KINDS = ["open", "?", "WPA2 personal", "WPA2 enterprise", "WPA3 personal", "WPA3 enterprise", "enterprise"];
const BANDS = ["no band", "2.4 GHz", "5 GHz", "6 GHz", "any band"];
const LINKS = ["not operational", "unreachable", "disconnected", "connecting", "connected", "operational"];
const STATES = { 1: "up", 2: "down", 3: "up in safe boot", 4: "up in safe boot with networking" };

export const networkText = (status) => NETWORK[status] ?? `status ${status}`;
export const bandText = (band) => BANDS[band] ?? `band ${band}`;
export const wifiKindText = (kind) => WIFI_KINDS[kind] ?? `kind ${kind}`;
export const serviceStateText = (state) => STATES[state] ?? `state ${state}`;
export const linkText = (state) => LINKS[state] ?? `state ${state}`;
export const originText = (origin) => ({ 3: "static", 4: "DHCP" })[origin] ?? "–";
export const technologyText = (technology) => ({ 2: "Ethernet", 11: "wireless" })[technology] ?? "";

export function timeZoneText(seconds) {
  const minutes = Math.floor(Math.abs(seconds) / 60);
  const two = (number) => String(number).padStart(2, "0");
  return `UTC${seconds < 0 ? "-" : "+"}${two(Math.floor(minutes / 60))}:${two(minutes % 60)}`;
}

export function macText(mac) {
  return /^[0-9a-f]{12}$/i.test(mac) ? mac.match(/../g).join(":") : mac || "–";
}

export function speedText(bits) {
  for (const [size, unit] of [[1e9, "Gbit/s"], [1e6, "Mbit/s"], [1e3, "kbit/s"]])
    if (bits >= size) return `${Number((bits / size).toFixed(1))} ${unit}`;
  return bits ? `${bits} bit/s` : "–";
}

export function bytesText(bytes) {
  if (bytes >= 1 << 20) return `${(bytes / (1 << 20)).toFixed(1)} MiB`;
  return bytes >= 10240 ? `${(bytes / 1024).toFixed(0)} KiB` : `${bytes} B`;
}

// "12:03:04.123" of an ISO time.
export const clockText = (time) => (time ? time.slice(11, 23) : "");

export function valueText(value) {
  if (value === null || value === undefined) return "–";
  return typeof value === "object" ? JSON.stringify(value) : String(value);
}

// "state=1 port=22"
export function fieldsText(fields) {
  const quoted = (value) => (typeof value === "string" ? JSON.stringify(value) : valueText(value));
  return Object.entries(fields ?? {}).map(([name, value]) => `${name}=${quoted(value)}`).join(" ");
}
