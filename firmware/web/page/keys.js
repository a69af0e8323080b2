// The keys of the browser as X keysyms, which the firmware's keyboard takes.

const NAMED = {
  Backspace: 0xFF08, Tab: 0xFF09, Enter: 0xFF0D, Pause: 0xFF13, ScrollLock: 0xFF14, Escape: 0xFF1B, Home: 0xFF50,
  ArrowLeft: 0xFF51, ArrowUp: 0xFF52, ArrowRight: 0xFF53, ArrowDown: 0xFF54, PageUp: 0xFF55, PageDown: 0xFF56, End: 0xFF57,
  PrintScreen: 0xFF61, Insert: 0xFF63, ContextMenu: 0xFF67, NumLock: 0xFF7F, CapsLock: 0xFFE5, AltGraph: 0xFE03, Delete: 0xFFFF,
};
const SIDED = { Shift: [0xFFE1, 0xFFE2], Control: [0xFFE3, 0xFFE4], Alt: [0xFFE9, 0xFFEA], Meta: [0xFFEB, 0xFFEC] };
const RIGHT = 2; // KeyboardEvent.DOM_KEY_LOCATION_RIGHT
const UNICODE = 0x1000000;

// 0 for a key that has none.
export function keysymOf({ key, location }) {
  if (SIDED[key]) return SIDED[key][location === RIGHT ? 1 : 0];
  if (NAMED[key]) return NAMED[key];
  const functionKey = /^F([1-9]|1[0-9]|2[0-4])$/.exec(key);
  if (functionKey) return 0xFFBE + Number(functionKey[1]) - 1;
  if ([...key].length !== 1) return 0;
  const point = key.codePointAt(0);
  return (point >= 0x20 && point < 0x7F) || (point >= 0xA0 && point <= 0xFF) ? point : UNICODE + point;
}

// The buttons of a pointer event as RFB has them: bit 0 left, 1 middle, 2 right.
export function buttonsOf(buttons) {
  return (buttons & 1) | (buttons & 4) >> 1 | (buttons & 2) << 1;
}

// The button of a step of the wheel.
export function wheelButton({ deltaX, deltaY }) {
  if (Math.abs(deltaX) > Math.abs(deltaY)) return deltaX < 0 ? 32 : 64;
  return deltaY < 0 ? 8 : 16;
}
