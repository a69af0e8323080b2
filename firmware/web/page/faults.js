// The faults of the firmware, as forms.

import { button, card, el, labelled, select } from "./dom.js";

// `more` has the further words: [name, value at first, hint].
const FAULTS = [
  {
    name: "refuse", about: "Refuse: answer with an error",
    more: [["error", "1450", "Win32 error"], ["times", "", "how often; empty: always"]],
  },
  { name: "delay", about: "Delay the answer", more: [["milliseconds", "2000", "0 ends it"]] },
  { name: "hold", about: "Hold the request, without an answer", more: [] },
  { name: "release", about: "Release what is held", more: [] },
  { name: "answer-size", about: "Change the size of the answer", more: [["bytes", "0", "cut, or filled with zeros"]] },
];

export function mountFaults(lab, answers) {
  const kind = select(FAULTS.map(({ name, about }) => [name, about]), { name: "fault" });
  const request = el("input", { type: "text", list: "choices-requests", value: "WriteOsInfo", name: "request" });
  const place = el("div", { class: "fields-form" });
  const made = el("ul", { class: "made" });
  let inputs = [];

  function show() {
    const fault = FAULTS.find(({ name }) => name === kind.value);
    inputs = fault.more.map(([name, value]) => el("input", { type: "text", value, name }));
    place.replaceChildren(...fault.more.map(([name, , hint], index) => labelled(name, inputs[index], hint)));
  }

  async function play(words) {
    const done = await answers.run(`fault ${words.join(" ")}`, () => lab.request("fault", { words }));
    if (!done) return;
    if (words[0] === "clear") made.replaceChildren();
    else if (!["release", "come-back"].includes(words[0])) made.append(el("li", {}, words.join(" ")));
  }

  kind.addEventListener("change", show);
  show();
  const submit = (event) => {
    event.preventDefault();
    play([kind.value, request.value, ...inputs.map(({ value }) => value.trim()).filter(Boolean)]);
  };
  return card("Faults",
    el("form", { onsubmit: submit }, labelled("Fault", kind), labelled("Request", request), place,
      el("div", { class: "buttons" }, el("button", { type: "submit" }, "Make this fault"))),
    el("div", { class: "buttons" },
      button("Vanish", () => play(["vanish"]), { title: "As when the driver is unloaded" }),
      button("Come back", () => play(["come-back"])),
      button("Clear all faults", () => play(["clear"]))),
    made);
}
