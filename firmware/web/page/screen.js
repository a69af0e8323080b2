// The panel "Screen": the frames that the firmware pulls, decoded here, or a VNC client on port 22 of the service.

import { button, el, remembered, select, toast } from "./dom.js";
import { FramePainter, canDecode } from "./decoder.js";
import { Player } from "./player.js";
import { VncView } from "./vnc.js";
import { bytesText } from "./describe.js";
import { takeInput } from "./input.js";

const TRIES = 12, TRY_PAUSE = 500; // for the port of a service that has just been asked to open it
const SETTLE = 300; // milliseconds in which a connection that the port refuses has ended
const CLEAN_UP = 2500; // milliseconds after the end of a session in which the service begins no other
const MAX_FAILURES = 3;
const MODES = [["av1", "AV1 frames"], ["picture", "Pictures"], ["vnc", "VNC client"]];

export function mountScreen(root, lab) {
  const { store, connection } = lab;
  const player = new Player(lab, () => {});
  const canvas = el("canvas", { tabindex: 0, width: 1280, height: 720, "aria-label": "The PC's screen; it takes keys and the mouse" });
  const vncPlace = el("div", { class: "vnc", hidden: true });
  const overlay = el("div", { class: "overlay" });
  const figures = el("dl", { class: "figures" });
  const note = el("span", { class: "hint" });
  const mode = select(MODES, { "aria-label": "How the screen is shown" });
  const start = button("Start", () => lab.attempt(() => alone(on ? stop : begin)), { class: "primary", disabled: true });
  let on = false, holds = false, watched = "off", failures = 0;

  const painter = new FramePainter(canvas, (text) => {
    if (++failures >= MAX_FAILURES) mode.value = "picture";
    toast(`the browser could not decode a frame: ${text}`, "error");
    watch(true);
  });
  const vnc = new VncView(vncPlace, (text) => {
    note.textContent = `VNC client: ${text}`;
    if (mode.value === "vnc") setOn(false);
  });

  function setOn(value) {
    on = value;
    remembered.write("watching", on);
    start.textContent = on ? "Stop" : "Start";
    start.classList.toggle("primary", !on);
    showPlace();
    watch();
  }

  function showPlace() {
    const usesVnc = mode.value === "vnc";
    figures.hidden = usesVnc; // the client measures nothing
    vncPlace.hidden = !(on && usesVnc);
    canvas.hidden = on && usesVnc;
    showOverlay();
  }

  function showOverlay() {
    const waits = on && mode.value !== "vnc" && !painter.meter.drawn;
    overlay.hidden = on && !waits;
    overlay.textContent = waits ? "Waiting for the first frame…"
      : "Start enables KVM, opens a session, and shows the screen of the PC. Keys and the mouse go to the PC while the "
        + "picture has the focus; Ctrl+Alt+Shift gives them back to this page.";
  }

  // Asks for the frames that this page can show now: none while the panel is out of sight.
  function watch(again = false) {
    const wanted = on && mode.value !== "vnc" && !root.hidden && !document.hidden ? mode.value : "off";
    if ((wanted === watched && !again) || connection.state !== "open") return;
    watched = wanted;
    painter.stop();
    lab.attempt(() => lab.request("watch", { screen: wanted }));
  }

  // Whether a viewer has a session already: another page, or a VNC client.
  async function hasSession() {
    try {
      const { screen } = await lab.request("screen");
      return screen.viewer.connected;
    } catch {
      return false; // the screen is not served yet
    }
  }

  const lastSession = () => store.sessions.of("KVM");

  async function awaitEnd() {
    for (let left = TRIES; lastSession().begun && !lastSession().ended && left; --left) await player.wait(TRY_PAUSE / 2);
  }

  // The service opens its port again when the firmware has closed the earlier session, and everything of it is gone.
  async function endEarlierSession() {
    if (!lastSession().begun) return;
    if (!lastSession().closed) await player.send("MPM_ZEL_CMD_VNC_SOC_CLOSE");
    await awaitEnd();
    await player.wait(Date.parse(lastSession().ended ?? lastSession().closed) + CLEAN_UP - Date.now());
  }

  async function prepare() {
    await endEarlierSession();
    const display = store.host?.settings?.Kvm;
    if (display !== "screen" && !String(display).startsWith("bridge"))
      await lab.request("set", { values: { Kvm: "screen" } });
    await player.send("MPM_ZEL_CMD_KVM_ENABLE_STATUS");
  }

  // The service opens its port a moment after it was asked to.
  async function untilTaken(connect) {
    for (let left = TRIES; ; --left) {
      try {
        return await connect();
      } catch (problem) {
        if (left === 1) throw problem;
        await player.wait(TRY_PAUSE);
      }
    }
  }

  async function holdSession() {
    await untilTaken(async () => {
      await lab.request("hold", { session: true });
      await player.wait(SETTLE);
      if (!store.state.held) throw new Error("the KVM port takes no viewer");
    });
    holds = true;
  }

  // The session of a page that was reloaded goes on; one that has ended elsewhere is over here too.
  function followHold() {
    const { held } = store.state;
    if (held && !on && !start.disabled && mode.value !== "vnc" && remembered.read("watching", false)) {
      holds = true;
      setOn(true);
    } else if (!held && on && holds) {
      holds = false;
      setOn(false);
      note.textContent = "The session has ended.";
    }
  }

  // One at a time: what begins or ends a session takes a moment.
  async function alone(action) {
    start.disabled = mode.disabled = true;
    note.textContent = "";
    try {
      await action();
    } finally {
      start.disabled = mode.disabled = false;
    }
  }

  async function begin() {
    overlay.hidden = true;
    try {
      if (mode.value === "vnc") {
        await prepare();
        await connectVnc();
      } else if (!await hasSession()) {
        await prepare();
        await holdSession();
      }
      setOn(true);
      if (mode.value !== "vnc") canvas.focus();
    } catch (problem) {
      setOn(false);
      throw problem;
    }
  }

  async function connectVnc() {
    vncPlace.hidden = false; // the client takes its size
    canvas.hidden = true;
    note.textContent = "VNC client: connects";
    await untilTaken(() => vnc.connect());
    note.textContent = "VNC client: connected";
  }

  async function stop() {
    const ends = holds || vnc.client;
    setOn(false);
    vnc.disconnect();
    if (holds) await lab.request("hold", { session: false });
    holds = false;
    if (ends) await awaitEnd();
  }

  function showFigures() {
    if (root.hidden) return;
    const drawn = painter.meter.read(performance.timeOrigin + performance.now());
    const pulled = store.screen?.screen;
    const rows = [
      ["Size", painter.meter.drawn ? `${canvas.width} × ${canvas.height}` : "–"],
      ["Frames a second", drawn ? drawn.rate.toFixed(1) : "–"],
      ["Frame", drawn ? bytesText(Math.round(drawn.bytes)) : "–"],
      ["Host takes", drawn ? `${drawn.host.toFixed(0)} ms` : "–"],
      ["Until shown", drawn ? `${drawn.whole.toFixed(0)} ms` : "–"],
      ["Shown", String(painter.meter.drawn)],
      ["Pulled", String(pulled?.frames?.count ?? "–")],
    ];
    figures.replaceChildren(...rows.flatMap(([name, text]) => [el("dt", {}, name), el("dd", { "data-figure": name }, text)]));
    if (on && mode.value !== "vnc") note.textContent = pulled?.state ? `The firmware ${pulled.state}.` : "";
    showOverlay();
  }

  async function learnFeatures() {
    const { features } = store;
    const can = { av1: features.screen && await canDecode(), picture: features.screen, vnc: features.vnc };
    for (const option of mode.options) option.disabled = !can[option.value];
    if (!on) mode.value = remembered.read("screen", "av1");
    if (!can[mode.value]) mode.value = MODES.map(([name]) => name).find((name) => can[name]) ?? "av1";
    start.disabled = !can[mode.value];
    // A new connection watches nothing, and holds no session.
    watched = "off";
    showPlace();
    watch();
    followHold();
  }

  mode.addEventListener("change", () => {
    remembered.write("screen", mode.value);
    const staysInSession = mode.value !== "vnc" && !vnc.client;
    if (on && !staysInSession) lab.attempt(() => alone(async () => {
      await stop();
      await begin();
    }));
    showPlace();
    watch();
  });
  connection.addEventListener("frame", (event) => {
    if (watched === "off") return;
    try {
      painter.take(event.detail);
    } catch (problem) {
      note.textContent = problem.message;
    }
  });
  takeInput(canvas, (verb, members) => {
    lab.request(verb, members).catch((problem) => { note.textContent = problem.message; });
  }, () => on);
  root.addEventListener("shown", () => watch());
  document.addEventListener("visibilitychange", () => watch());
  store.on("greeting", learnFeatures);
  store.on("state", followHold);
  setInterval(showFigures, 500);
  root.append(
    el("div", { class: "toolbar" }, start, mode,
      button("Full screen", () => (mode.value === "vnc" ? vncPlace : canvas).requestFullscreen(), {}),
      note, el("span", { class: "stretch" }), figures),
    el("div", { class: "stage" }, canvas, vncPlace, overlay));
  showPlace();
}
