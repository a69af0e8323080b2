// Forms that are made from tables: of a record's fields, and of the arguments of the PC's commands.

import { check, el, labelled } from "./dom.js";
import { parseHex } from "./hex.js";

const NUMBER = /^(-?[0-9]+|0x[0-9a-f]+)$/i;
const ADDRESS = /^(\d{1,3}\.){3}\d{1,3}$/;

export function parseNumber(text) {
  if (!NUMBER.test(text.trim())) throw new Error(`"${text}" is no whole number`);
  return Number(text);
}

function parseAddress(text) {
  if (!ADDRESS.test(text) || text.split(".").some((part) => Number(part) > 255)) throw new Error(`"${text}" is no IPv4 address`);
  return text;
}

// How the text of a control becomes the value of a field, by the kind of the field.
const PARSE = {
  number: parseNumber, signed: parseNumber, port: parseNumber, address: parseAddress, text: String, "wide text": String,
  secret: String, data: parseHex,
};

function sizeText(field) {
  const bytes = field.size === 1 ? "1 byte" : `${field.size} bytes`;
  return field.size === 0 ? field.kind : `${field.kind}, ${bytes}`;
}

// One control and its message. read() returns the value, undefined for an empty control, or throws.
class Input {
  constructor(name, control, parse, hint) {
    this.name = name;
    this.parse = parse;
    this.control = control;
    this.message = el("span", { class: "error-text" });
    this.element = labelled(name, control, hint);
    this.element.append(this.message);
    control.addEventListener("input", () => this.complain(""));
  }

  complain(text) {
    this.message.textContent = text;
    this.control.setAttribute("aria-invalid", text !== "");
  }

  read() {
    const text = this.control.value;
    if (text === "") return undefined;
    try {
      return this.parse(text);
    } catch (problem) {
      this.complain(problem.message);
      this.control.focus();
      throw new Error(`${this.name}: ${problem.message}`, { cause: problem });
    }
  }
}

function inputOf(field, value) {
  const large = field.kind === "data" || (field.kind === "text" && (field.size === 0 || field.size > 512));
  const attributes = { value, spellcheck: "false", autocomplete: "off", name: field.name };
  const control = large ? el("textarea", { ...attributes, rows: 3 })
    : el("input", { type: field.kind === "secret" ? "password" : "text", ...attributes });
  return new Input(field.name, control, PARSE[field.kind], sizeText(field));
}

// {element, read()}; read returns the fields that are filled in. Fields that a person cannot fill are left out.
export function recordForm(layout, defaults = {}) {
  const inputs = layout.fields.filter((field) => PARSE[field.kind])
    .map((field) => inputOf(field, defaults[field.name] ?? (["number", "signed", "port"].includes(field.kind) ? "0" : "")));
  return {
    element: el("div", { class: "fields-form" }, inputs.map(({ element }) => element)),
    read: () => Object.fromEntries(inputs.map((input) => [input.name, input.read()]).filter(([, value]) => value !== undefined)),
  };
}

const PARSE_ARGUMENT = {
  number: parseNumber, text: String, json: (text) => JSON.parse(text),
  "number or name": (text) => (NUMBER.test(text) ? Number(text) : text),
};

function flagOf(argument) {
  let on = false;
  return {
    name: argument.name, element: check(`${argument.name}: ${argument.help}`, false, (checked) => { on = checked; }),
    read: () => on || undefined,
  };
}

function argumentOf(argument) {
  if (argument.kind === "flag") return flagOf(argument);
  const control = argument.kind === "json" ? el("textarea", { rows: 3, spellcheck: "false", name: argument.name })
    : el("input", { type: "text", spellcheck: "false", autocomplete: "off", name: argument.name });
  const input = new Input(argument.name, control, PARSE_ARGUMENT[argument.kind] ?? String,
    `${argument.help}${argument.required ? "" : " (optional)"}`);
  const read = input.read.bind(input);
  input.read = () => {
    const value = read();
    if (value !== undefined || !argument.required) return value;
    if (argument.kind === "text") return "";
    input.complain("is missing");
    control.focus();
    throw new Error(`${argument.name} is missing`);
  };
  return input;
}

// The form of one command of the PC; read() returns the whole request.
export function argumentsForm(name, form) {
  const [command, action] = name.split(" ");
  const inputs = form.arguments.map(argumentOf);
  return {
    element: el("div", { class: "fields-form" }, inputs.map(({ element }) => element)),
    read: () => ({
      command, ...(action ? { action } : {}),
      ...Object.fromEntries(inputs.map((input) => [input.name, input.read()]).filter(([, value]) => value !== undefined)),
    }),
  };
}
