#!/usr/bin/python3 -IS
"""Plays Windows to a process that runs on a simulated PC, over its control socket.

usage: winhostctl [--json] SOCKET COMMAND [ARGUMENT...]

The running PC lists its commands and their arguments: winhostctl SOCKET help [COMMAND]
--json prints the answer as one line of JSON instead of one fact a line.
Exit codes: 0 done, 1 the PC refuses, 2 wrong usage, or no PC answers.
"""
import difflib
import json
import re
import socket
import sys


class Refused(Exception):
    """The PC answers with an error."""


class Usage(Exception):
    """What was typed is no command of the PC, or no PC answers."""


class Pc:
    """A connection to the control socket."""

    def __init__(self, path):
        self._path = path
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        try:
            self._socket.connect(path)
        except OSError as error:
            raise Usage(f"no PC listens at {path} ({error.strerror or error}); "
                        "a PC listens while its service runs, at the controlSocket of its description") from None
        self._lines = self._socket.makefile("r", encoding="utf-8")

    def ask(self, request):
        try:
            self._socket.sendall(json.dumps(request).encode() + b"\n")
            line = self._lines.readline()
            answer = json.loads(line) if line else None
        except OSError as error:
            raise Usage(f"{self._path}: {error.strerror or error}") from None
        except ValueError:
            raise Usage(f"{self._path}: the answer is not understood") from None
        if answer is None:
            raise Usage(f"{self._path}: the process ended before it answered")
        if not isinstance(answer, dict):
            raise Usage(f"{self._path}: the answer is not understood")
        if not answer.get("ok"):
            raise Refused(answer["error"])
        return answer["result"]


def option(argument):
    """How a flag is typed: forEver as --for-ever."""
    return "--" + re.sub("([A-Z])", lambda match: "-" + match[1].lower(), argument["name"])


def usage_of(name, form):
    words = [name]
    for argument in form["arguments"]:
        if argument["kind"] == "flag":
            words.append(f"[{option(argument)}]")
        else:
            words.append(f"<{argument['name']}>" if argument["required"] else f"[{argument['name']}]")
    return " ".join(words)


def print_help(forms, command):
    chosen = {name: form for name, form in forms.items() if command in ("", name, name.split()[0])}
    if not chosen:
        raise Usage(unknown(command, forms))
    for name, form in chosen.items():
        print(f"{usage_of(name, form)}\n    {form['help']}")
        for argument in form["arguments"]:
            print(f"    {argument['name']}: {argument['help']}")


def nearest(word, names):
    """The part of a message that names what the word is likely to mean, or an empty text."""
    found = difflib.get_close_matches(word.lower(), names, 1)
    return f'; did you mean "{found[0]}"?' if found else ""


def unknown(command, forms):
    # The command may be missing in front of an action.
    owners = [name for name in forms if name.split()[1:] == [command]]
    if len(owners) == 1:
        hint = f'; did you mean "{owners[0]}"?'
    else:
        hint = nearest(command, {*forms, *(name.split()[0] for name in forms)})
    return f'unknown command "{command}"{hint or ";"} there are ' + ", ".join(forms)


def find_form(words, forms):
    """The name of the command that the words begin with: one word, or two with its action."""
    for count in (2, 1):
        name = " ".join(words[:count])
        if name in forms:
            return name, words[count:]
    alternatives = [name for name in forms if name.split()[0] == words[0]]
    if not alternatives:
        raise Usage(unknown(words[0], forms))
    actions = [name.split()[1] for name in alternatives]
    problem = f"{words[0]}: an action is missing;"
    if len(words) > 1:
        problem = f'{words[0]}: unknown action "{words[1]}"' + (nearest(words[1], actions) or ";")
    raise Usage(f"{problem} there are " + ", ".join(actions))


def value_of(argument, word):
    is_number = re.fullmatch("-?[0-9]+|0x[0-9a-fA-F]+", word)
    if argument["kind"] == "number" or (argument["kind"] == "number or name" and is_number):
        if not is_number:
            raise ValueError("not a number")
        return int(word, 16 if word.startswith("0x") else 10)
    if argument["kind"] == "json":
        return json.loads(word)
    return word


def request_of(words, forms):
    name, words = find_form(words, forms)
    request = dict(zip(("command", "action"), name.split()))
    usage = usage_of(name, forms[name])
    flags = {option(entry): entry["name"] for entry in forms[name]["arguments"] if entry["kind"] == "flag"}
    positional = [entry for entry in forms[name]["arguments"] if entry["kind"] != "flag"]
    for word in words:
        if word.startswith("--"):
            if word not in flags:
                raise Usage(f'unknown option "{word}"; the usage is {usage}')
            request[flags[word]] = True
        elif not positional:
            raise Usage(f'"{word}" is one argument too many; the usage is {usage}')
        else:
            argument = positional.pop(0)
            try:
                request[argument["name"]] = value_of(argument, word)
            except ValueError as error:
                raise Usage(f'{argument["name"]} cannot be "{word}" ({error}); the usage is {usage}') from None
    if positional and positional[0]["required"]:
        raise Usage(f"{positional[0]['name']} is missing; the usage is {usage}")
    return request


def one_line(value):
    """The object {"state": 4, "waitHint": 0} as "state 4, waitHint 0"."""
    if isinstance(value, str):
        return value
    if not isinstance(value, dict):
        return json.dumps(value, separators=(",", ":"))
    return ", ".join(f"{name} {one_line(member)}" for name, member in value.items())


def print_result(result):
    if isinstance(result, list):
        for entry in result:
            print(one_line(entry))
    elif isinstance(result, dict):
        for name, member in result.items():
            print(f"{name}: {one_line(member)}")
    else:
        print(one_line(result))


def main(words):
    as_json = "--json" in words
    words = [word for word in words if word != "--json"]
    if words in (["--help"], ["-h"]):
        print(__doc__.strip())
        return
    if words and words[0].startswith("-"):
        raise Usage(f'unknown option "{words[0]}"\n' + __doc__.split("\n\n")[1])
    if len(words) < 2:
        raise Usage("a socket and a command are needed\n" + __doc__.split("\n\n")[1])
    pc = Pc(words[0])
    forms = pc.ask({"command": "help"})
    if words[1] == "help" and not as_json:
        print_help(forms, " ".join(words[2:]))
        return
    result = pc.ask(request_of(words[1:], forms))
    if as_json:
        print(json.dumps(result, separators=(",", ":")))
    else:
        print_result(result)


try:
    main(sys.argv[1:])
except (Refused, Usage) as problem:
    sys.exit(print(f"winhostctl: {problem}", file=sys.stderr) or (1 if isinstance(problem, Refused) else 2))
except KeyboardInterrupt:
    sys.exit(130)
