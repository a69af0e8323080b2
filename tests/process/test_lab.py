"""The panels of the lab in a real browser, with a PC and its service."""

import json
import subprocess

import pytest

from harness.browser import what_is_missing
from harness.lab import Room
from harness.needs import needs_packages
from harness.processes import build_folder
from harness.waiting import eventually

pytestmark = [
    needs_packages(what_is_missing()),
    pytest.mark.xdist_group("lab"),
]


@pytest.fixture(scope="module")
def room(tmp_path_factory):
    room = Room(tmp_path_factory.mktemp("lab"))
    yield room
    room.close()


@pytest.fixture
def page(room):
    room.page.run("""for (const filter of document.querySelectorAll("input[type=search]")) {
        filter.value = "";
        filter.dispatchEvent(new Event("input"));
    }""")
    yield room.page
    assert room.browser.complaints() == []


def select_entry(page, name):
    """Clicks on the newest entry of this name in the panel "Wire"."""
    page.show("wire")
    page.fill("#wire input[type=search]", name)

    def click():
        return page.run("""const rows = [...document.querySelectorAll("#wire .row:not([hidden])")]
            .filter((row) => row.querySelector(".name").textContent === arguments[0]);
            rows.at(-1)?.click();
            return rows.length > 0;""", name)
    eventually(click, f"{name} on the wire")
    page.await_text("#wire .detail h2", name)


def test_the_host_panel_follows_what_the_host_reports(room, page):
    page.show("host")
    page.await_text("#host .facts dd", "WINHOST-PC")
    page.await_text("#host td", "192.168.1.10")
    room.host.ctl("wlan", "join", "office")
    page.await_text("#host .changed", "office")
    text = page.text("#host")
    assert "WPA2 personal" in text and "not shown" in text and "correct horse" not in text


def test_an_entry_of_the_wire_is_shown_with_its_fields_and_bytes(page):
    select_entry(page, "WriteZELStatus")
    assert page.texts("#wire .fields tr") == ["state1"]
    page.await_text("#wire .hex", "000000  01 00 00 00")


def test_secrets_are_not_in_the_bytes(room, page):
    room.host.ctl("wlan", "join", "office")
    room.firmware.await_request("WriteWiFiSyncInfo")
    select_entry(page, "WriteWiFiSyncInfo")
    dump = page.await_text("#wire .hex", "**")
    assert "horse" not in dump.replace("\n", "")


def test_the_wire_is_filtered_by_name_and_direction(page):
    page.show("wire")
    page.fill("#wire input[type=search]", "zel -version")
    eventually(lambda: set(page.texts("#wire .row:not([hidden]) .name")) == {"WriteZELStatus"}, "the filtered entries")
    boxes = page.all("#wire .toolbar input[type=checkbox]")
    boxes[0].click()
    eventually(lambda: page.texts("#wire .row:not([hidden])") == [], "no entry of the host")
    boxes[0].click()


def test_a_paused_wire_stays_as_it_is(room, page):
    page.show("wire")
    page.fill("#wire input[type=search]", "S0i3")
    page.press("wire", "Pause")
    room.firmware.send("S0i3_RESUME")
    page.await_text("#wire .count", ", 1 new")
    page.fill("#wire input[type=search]", "S0i3 WriteOsInfo")
    page.await_text("#wire .row:not([hidden]) .name", "WriteOsInfo")
    assert "S0i3_RESUME" not in page.texts("#wire .row:not([hidden]) .name")
    page.press("wire", "Resume")
    page.await_text("#wire .row:not([hidden]) .name", "S0i3_RESUME")


def test_the_entries_are_saved_as_lines_of_json(room, page):
    page.show("wire")
    page.fill("#wire input[type=search]", "WriteOsInfo")
    page.await_text("#wire .row:not([hidden]) .name", "WriteOsInfo")
    page.press("wire", "Download")
    saved = room.downloads / "wire.jsonl"
    eventually(saved.exists, "the saved entries")
    entries = [json.loads(line) for line in saved.read_text().splitlines()]
    assert entries and all(entry["name"] == "WriteOsInfo" and entry["fields"]["HostName"] == "WINHOST-PC" for entry in entries)


def test_an_entry_leads_to_the_log_of_its_moment(page):
    select_entry(page, "WriteZELStatus")
    line = page.await_text("#wire .moment button", "ZEL Service UP")
    next(button for button in page.all("#wire .moment button") if button.text == line).click()
    assert page.find("#tab-log").get_attribute("aria-selected") == "true"
    page.await_text("#log .row[aria-selected=true] .content", "ZEL Service UP")
    page.await_text("#log .whole-line", "ZEL Service UP")


def test_the_log_is_filtered_by_level_and_text(page):
    page.show("log")
    boxes = page.all("#log .toolbar input[type=checkbox]")
    boxes[2].click()  # INFO
    eventually(lambda: "INFO" not in page.texts("#log .row:not([hidden]) .level"), "no INFO line")
    boxes[2].click()
    page.fill("#log input[type=search]", "registry")
    eventually(lambda: page.texts("#log .row:not([hidden])") and all(
        "registry" in text.lower() for text in page.texts("#log .row:not([hidden]) .content")), "the lines with this text")


def test_a_command_is_sent_with_the_fields_of_its_record(room, page):
    page.show("commands")
    page.choose("#command", "KVM_IP_PORT_INFO")
    page.fill("#commands input[name=address]", "127.0.0.999")
    page.press("commands", "Send")
    page.await_text("#commands .answers .error-text", "is no IPv4 address")
    page.fill("#commands input[name=address]", "127.0.0.1")
    page.press("commands", "Send")
    sent = eventually(lambda: [each for each in room.firmware.messages() if each["name"] == "MPM_ZEL_CMD_KVM_IP_PORT_INFO"],
                      "the command")
    assert [each["fields"] for each in sent] == [{"address": "127.0.0.1", "port": 0}]
    page.await_text("#commands .answers", "sent")


def controls_of_all_choices(page, choice, form):
    """The names of the controls that the form has for each choice of a list."""
    return dict(page.run("""const [choice, form] = [...arguments].map((selector) => document.querySelector(selector));
        return [...choice.options].map((option) => {
            choice.value = option.value;
            choice.dispatchEvent(new Event("change"));
            return [option.value, [...form.querySelectorAll(".fields-form [name], .fields-form .check")]
                .map((control) => control.name ?? control.textContent.split(":")[0])];
        });""", choice, form))


def test_each_command_of_the_firmware_has_a_form_of_its_record(page):
    page.show("commands")
    forms = controls_of_all_choices(page, "#command", "#commands form")
    catalogue = json.loads(subprocess.check_output([build_folder() / "mpmsim", "catalogue", "--json"], text=True))
    for command in catalogue["commands"]:
        fields = [field["name"] for field in command["payload"]["fields"] if field["kind"] not in ("reserved", "records")]
        bytes_only = ["payload"] if command["payload"]["maxSize"] and not fields else []
        assert forms[str(command["number"])] == fields + bytes_only, command["name"]


def test_each_command_of_the_pc_has_a_form_of_its_arguments(room, page):
    page.show("pc")
    forms = controls_of_all_choices(page, "#pc-command", "#pc form")
    commands = json.loads(room.host.ctl("help", "--json"))
    assert forms == {name: [argument["name"] for argument in command["arguments"]] for name, command in commands.items()}


def test_a_scenario_waits_for_the_answer_of_the_person(room, page):
    room.host.write_description()
    page.show("commands")
    with_answer = room.host.consent_client("--answer", "yes")
    try:
        page.press("commands", "Consent, then KVM")
        page.await_text("#commands .answers", "the answer is yes; KVM is enabled")
    finally:
        with_answer.end()
    assert "MPM_ZEL_CMD_KVM_ENABLE_STATUS" in [message["name"] for message in room.firmware.messages()]


def test_faults_and_settings_reach_the_firmware(room, page):
    page.show("commands")
    page.choose("#commands select[name=fault]", "Hold")
    page.fill("#commands input[name=request]", "WriteADInfo")
    page.press("commands", "Make this fault")
    page.await_text("#commands .made", "hold WriteADInfo")
    page.press("commands", "Clear all faults")
    eventually(lambda: page.text("#commands .made") == "", "no fault")
    page.fill("#commands input[name=MPMVersion]", "5.1.2.3")
    page.press("commands", "Apply")
    page.await_text("#commands .answers", "set MPMVersion=5.1.2.3")
    eventually(lambda: json.loads(room.firmware.show("--json"))["settings"]["MPMVersion"] == "5.1.2.3", "the setting")


def test_the_pc_panel_plays_windows(room, page):
    page.show("pc")
    page.await_text("#pc [data-fact=Service]", "running")
    page.press("pc", "Lock")
    page.await_text("#pc [data-fact=Desktop]", "locked")
    assert json.loads(room.host.ctl("description", "--json"))["desktopLocked"] is True
    page.press("pc", "Unlock")
    eventually(lambda: page.text("#pc [data-fact=Desktop]") == "unlocked", "the unlocked desktop")
    page.choose("#pc-command", "gate count")
    page.fill("#pc input[name=call]", "no such call")
    page.press("pc", "Run")
    page.await_text("#pc .output .error-text", "no such call")
    page.fill("#pc input[name=call]", "DeviceIoControl")
    page.press("pc", "Run")
    page.await_text("#pc .output dt", "calls")


def test_an_adapter_is_unplugged_by_a_button(room, page):
    def state():
        return json.loads(room.host.ctl("description", "--json"))["adapters"][0]["operStatus"]
    page.show("pc")
    page.await_text("#pc .item", "Simulated Ethernet Adapter")
    page.press("pc", "Unplug")
    page.await_text("#pc .item button", "Plug in")
    assert state() == 2
    page.press("pc", "Plug in")
    page.await_text("#pc .item button", "Unplug")
    assert state() == 5


def test_the_keyboard_alone_reaches_the_panels_and_the_entries(page):
    from selenium.webdriver.common.keys import Keys
    page.show("host")
    page.find("#tab-host").send_keys(Keys.ARROW_RIGHT)
    focused = page.driver.switch_to.active_element
    assert focused.get_attribute("id") == "tab-wire" and page.find("#wire").is_displayed()
    entries = page.find("#wire .vlist")
    entries.send_keys(Keys.HOME)
    page.await_text("#wire .row[aria-selected=true] .serial", "1")
    entries.send_keys(Keys.ARROW_DOWN)
    eventually(lambda: page.text("#wire .row[aria-selected=true] .serial") == "2", "the second entry")


def test_two_pages_show_the_same(room, page):
    page.show("wire")
    page.press("wire", "Newest")
    other = room.open()
    try:
        other.show("wire")
        room.firmware.send("S0i3_RESUME")
        for each in (page, other):
            each.await_text("#wire .row:not([hidden]) .name", "S0i3_RESUME")
        other.await_text("#pills .pill", "2 pages")
    finally:
        other.close()
    eventually(lambda: not any("pages" in text for text in page.texts("#pills .pill")), "one page")


def test_a_reloaded_page_has_its_panel_its_filter_and_all_entries(page):
    page.show("wire")
    page.fill("#wire input[type=search]", "WriteOsInfo")
    page.await_text("#wire .row:not([hidden]) .name", "WriteOsInfo")
    before = page.text("#wire .row:not([hidden])")
    page.driver.refresh()
    page.await_connected()
    assert page.find("#tab-wire").get_attribute("aria-selected") == "true"
    eventually(lambda: page.text("#wire .row:not([hidden])") == before, "the entries of before")


def test_a_pc_that_is_off_is_shown_and_comes_back(room, page):
    page.show("pc")
    room.host.stop_service()
    page.await_text("#pills .pill", "PC off")
    eventually(lambda: page.text("#pc .error-text"), "the reason why the PC does not answer")
    room.start_service()
    page.await_text("#pills .pill", "PC on")
    page.await_text("#pc [data-fact=Service]", "running")
