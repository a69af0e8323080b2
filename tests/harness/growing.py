"""Text files that another process writes on, read a piece at a time."""

import codecs
import io
import os


class GrowingText:
    """What stands in a text file. Each look reads only what has been written since the one before.

    A file that begins anew under its name, as after a rotation, is read anew."""

    def __init__(self, path):
        self.path = path
        self._forget()

    def _forget(self):
        self._file = None
        self._size = 0
        self._text = ""
        self._decoder = io.IncrementalNewlineDecoder(codecs.getincrementaldecoder("utf-8")("replace"), True)

    def text(self):
        """Nothing when there is no file, or none any more."""
        try:
            with open(self.path, "rb") as file:
                status = os.fstat(file.fileno())
                if self._file != status.st_ino or status.st_size < self._size:
                    self._forget()
                    self._file = status.st_ino
                file.seek(self._size)
                piece = file.read()
        except (FileNotFoundError, NotADirectoryError):
            self._forget()
            return ""
        self._size += len(piece)
        self._text += self._decoder.decode(piece)
        return self._text


class GrowingLines:
    """The complete lines of such a file, each put through `parse` once."""

    def __init__(self, path, parse):
        self._source = GrowingText(path)
        self._parse = parse
        self._place = 0
        self._lines = []

    def all(self):
        text = self._source.text()
        if len(text) < self._place:
            self._place, self._lines = 0, []
        end = text.rfind("\n") + 1
        self._lines += map(self._parse, text[self._place:end].split("\n")[:-1])
        self._place = max(self._place, end)
        return self._lines
