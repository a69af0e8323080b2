"""The parts of the lab's page that compute, run in a real browser."""

import pytest

from harness.browser import Browser, what_is_missing
from harness.lab import Lab
from harness.needs import needs_packages

pytestmark = [
    needs_packages(what_is_missing()),
    pytest.mark.xdist_group("lab modules"),
]


@pytest.fixture(scope="module")
def page(tmp_path_factory):
    with Lab(tmp_path_factory.mktemp("lab"), dash="none") as lab, Browser() as browser:
        yield browser.new_page(lab.url)


def evaluate(page, module, expression):
    """The value of an expression that sees what the module exports as `m`."""
    result = page.driver.execute_async_script(f"""const done = arguments[0];
        import(new URL("./{module}.js", location.href)).then((m) => done({{value: {expression}}}))
            .catch((problem) => done({{error: problem.message}}));""")
    return result["value"] if "value" in result else f"Error: {result['error']}"


@pytest.mark.parametrize("event, keysym", [
    ({"key": "a"}, 0x61), ({"key": "Z"}, 0x5A), ({"key": " "}, 0x20), ({"key": "ä"}, 0xE4), ({"key": "€"}, 0x10020AC),
    ({"key": "😀"}, 0x101F600),
    ({"key": "Enter"}, 0xFF0D), ({"key": "F1"}, 0xFFBE), ({"key": "F12"}, 0xFFC9), ({"key": "Shift", "location": 1}, 0xFFE1),
    ({"key": "Control", "location": 2}, 0xFFE4), ({"key": "Unidentified"}, 0), ({"key": "Dead"}, 0), ({"key": "F25"}, 0),
])
def test_keys_become_keysyms(page, event, keysym):
    assert evaluate(page, "keys", f"m.keysymOf({event})") == keysym


def test_the_buttons_of_a_pointer_become_those_of_a_viewer(page):
    assert evaluate(page, "keys", "[0, 1, 2, 4, 7].map(m.buttonsOf)") == [0, 1, 4, 2, 7]


def test_bytes_are_shown_with_their_offset_and_characters(page):
    first = "000000  41 ** 00 7e 7f 20 31 32  33 34 35 36 37 38 39 3a  A*.~. 123456789:"
    assert evaluate(page, "hex", "m.dump('41**007e7f203132333435363738393a42')").splitlines() == [
        first, "000010  42" + " " * 48 + "B"]


@pytest.mark.parametrize("text, bytes_of_it", [
    ("0a 0B", "0a0b"), ("0x01, 0x02", "0102"), ("", ""), ("1", "Error: this is no list of bytes in hexadecimal digits"),
    ("zz", "Error: this is no list of bytes in hexadecimal digits"),
])
def test_bytes_are_typed_in_hexadecimal_digits(page, text, bytes_of_it):
    assert evaluate(page, "hex", f"m.parseHex('{text}')") == bytes_of_it


@pytest.mark.parametrize("words, name, fits", [
    ("", "WriteOsInfo", True), ("os dash", "WriteDASHPacket", True), ("os", "WriteADInfo", False),
    ("-kvm", "WriteKVMPacket", False), ("write -kvm", "WriteOsInfo", True), ("-", "WriteOsInfo", True),
])
def test_a_filter_has_words_that_are_wanted_and_unwanted(page, words, name, fits):
    assert evaluate(page, "wire", f"m.matcher('{words}')('{name}')") is fits


def test_a_ring_keeps_the_newest(page):
    fill = "(() => { const ring = new m.Ring(3); const removed = [1, 2, 3, 4, 5, 6, 7, 8].map((item) => ring.push([item])); "
    assert evaluate(page, "store", fill + "return [ring.length, ring.at(0), [...ring], removed]; })()") == [
        3, 6, [6, 7, 8], [0, 0, 0, 1, 1, 1, 1, 1]]


def test_entries_that_come_again_are_taken_once(page):
    take = """(() => { const store = new m.Store(); const entry = (serial) => ({serial, name: "x", kind: "note"});
        store.take({wire: [entry(1), entry(2)]}); store.take({wire: [entry(2), entry(3)], dropped: {wire: 4}});
        return [...store.wire].map(({serial, dropped}) => serial ?? `dropped ${dropped}`); })()"""
    assert evaluate(page, "store", take) == [1, 2, "dropped 4", 3]


def test_a_change_is_remembered_for_a_while(page):
    look = """(() => { const changes = new m.Changes(); changes.take({a: {b: 1}, c: 2}, 0); changes.take({a: {b: 3}, c: 2}, 1000);
        return [changes.of("a.b", 1500)?.was, changes.of("c", 1500), changes.of("a.b", 8000)]; })()"""
    assert evaluate(page, "host", look) == [1, None, None]


@pytest.mark.parametrize("text, number", [("12", 12), ("0x1f", 31), ("-3", -3), ("", 'Error: "" is no whole number'),
                                          ("1.5", 'Error: "1.5" is no whole number')])
def test_numbers_are_decimal_or_hexadecimal(page, text, number):
    assert evaluate(page, "form", f"m.parseNumber('{text}')") == number


def test_a_frame_without_a_whole_head_is_refused(page):
    assert evaluate(page, "decoder", "m.readFrame(new ArrayBuffer(31))") == "Error: a frame without a head"
