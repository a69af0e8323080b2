// Sends the keys and the pointer over a canvas to the firmware's virtual keyboard and mouse.

import { buttonsOf, keysymOf, wheelButton } from "./keys.js";

const WHEEL_PAUSE = 50; // milliseconds between two steps

// `send(verb, members)` does not wait; `isOn()` says whether the screen is shown.
export function takeInput(canvas, send, isOn) {
  const held = new Map(); // keysyms by the place of the key, so that a release fits its press
  let waiting = null, lastWheel = 0, sent = "";

  function key(event, down) {
    if (!isOn()) return;
    if (event.ctrlKey && event.altKey && event.shiftKey) return canvas.blur(); // the way out of the canvas
    const keysym = down ? keysymOf(event) : held.get(event.code) ?? keysymOf(event);
    if (!keysym) return;
    event.preventDefault();
    event.stopPropagation();
    if (down) held.set(event.code, keysym);
    else held.delete(event.code);
    send("key", { keysym, down });
  }

  function place(event) {
    const area = canvas.getBoundingClientRect();
    const scale = (at, from, size, most) => Math.min(Math.max(Math.floor((at - from) * most / size), 0), most - 1);
    return {
      x: scale(event.clientX, area.left, area.width, canvas.width), y: scale(event.clientY, area.top, area.height, canvas.height),
      width: canvas.width, height: canvas.height,
    };
  }

  function flush() {
    if (!waiting) return;
    const members = waiting, text = JSON.stringify(members);
    waiting = null;
    if (text !== sent) send("pointer", members);
    sent = text;
  }

  // Moves are sent once for each frame of the browser, buttons at once.
  function pointer(event) {
    if (!isOn()) return;
    const moved = !waiting;
    waiting = { buttons: buttonsOf(event.buttons), ...place(event) };
    if (event.type !== "pointermove") flush();
    else if (moved) requestAnimationFrame(flush);
  }

  function wheel(event) {
    if (!isOn()) return;
    event.preventDefault();
    if (event.timeStamp - lastWheel < WHEEL_PAUSE) return;
    lastWheel = event.timeStamp;
    const buttons = buttonsOf(event.buttons), at = place(event);
    send("pointer", { buttons: buttons | wheelButton(event), ...at });
    send("pointer", { buttons, ...at });
  }

  canvas.addEventListener("keydown", (event) => key(event, true));
  canvas.addEventListener("keyup", (event) => key(event, false));
  canvas.addEventListener("blur", () => {
    for (const keysym of held.values()) send("key", { keysym, down: false });
    held.clear();
  });
  canvas.addEventListener("pointerdown", (event) => {
    canvas.focus();
    canvas.setPointerCapture(event.pointerId);
    pointer(event);
  });
  for (const type of ["pointermove", "pointerup", "pointercancel"]) canvas.addEventListener(type, pointer);
  canvas.addEventListener("wheel", wheel, { passive: false });
  canvas.addEventListener("contextmenu", (event) => event.preventDefault());
}
