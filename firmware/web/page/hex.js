// The bytes of a wire entry as people read them: offset, bytes, and the characters among them.

const WIDTH = 16;

// `hex` has two characters for each byte; "**" stands for a byte that is not shown.
export function dump(hex) {
  const lines = [];
  for (let start = 0; start < hex.length; start += 2 * WIDTH) {
    const pairs = hex.slice(start, start + 2 * WIDTH).match(/../g);
    const left = pairs.slice(0, 8).join(" "), right = pairs.slice(8).join(" ");
    lines.push(`${(start / 2).toString(16).padStart(6, "0")}  ${left.padEnd(23)}  ${right.padEnd(23)}  ${pairs.map(character).join("")}`);
  }
  return lines.join("\n");
}

function character(pair) {
  const code = parseInt(pair, 16);
  if (Number.isNaN(code)) return "*";
  return code >= 0x20 && code < 0x7F ? String.fromCharCode(code) : ".";
}

// What a person types: digits with blanks between them, or with 0x in front of each byte. Throws an Error for anything else.
export function parseHex(text) {
  const digits = text.replace(/\b0x/gi, "").replace(/[\s,:]/g, "");
  if (!/^([0-9a-f]{2})*$/i.test(digits)) throw new Error("this is no list of bytes in hexadecimal digits");
  return digits.toLowerCase();
}

export function hexOfText(text) {
  return Array.from(new TextEncoder().encode(text), (byte) => byte.toString(16).padStart(2, "0")).join("");
}
