"""How the tests follow the files that the service and the firmware write."""

from harness.growing import GrowingLines, GrowingText


def test_a_growing_text_is_read_on(tmp_path):
    log = GrowingText(tmp_path / "log")
    assert log.text() == ""
    with open(log.path, "wb") as file:
        for piece, text in ((b"a\r\n\xc3", "a\n"), (b"\xa4", "a\n\u00e4"), (b"\xff\n", "a\n\u00e4\ufffd\n")):
            file.write(piece)
            file.flush()
            assert log.text() == text


def test_a_text_that_begins_anew_is_read_anew(tmp_path):
    log = GrowingText(tmp_path / "log")
    log.path.write_text("old\n")
    assert log.text() == "old\n"
    log.path.rename(tmp_path / "moved")
    log.path.write_text("a longer one\n")
    assert log.text() == "a longer one\n"
    log.path.write_text("short\n")
    assert log.text() == "short\n"
    log.path.unlink()
    assert log.text() == ""


def test_each_line_is_parsed_once_and_whole(tmp_path):
    parsed = []
    numbers = GrowingLines(tmp_path / "numbers", lambda line: parsed.append(line) or int(line))
    for piece, expected in (("1\n2", [1]), ("3\n", [1, 23]), ("", [1, 23])):
        with open(tmp_path / "numbers", "a", encoding="utf-8") as file:
            file.write(piece)
        assert numbers.all() == expected
    assert parsed == ["1", "23"]
