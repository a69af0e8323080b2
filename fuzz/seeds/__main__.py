"""Writes the seeds of the fuzz targets to fuzz/corpus: what the tests send, in the form in which a target takes it.
Findings lie there too, under names of their own; they stay.

    python3 fuzz/seeds
"""

import console
import mailbox
import service
import texts

for write in (
    mailbox.host_records, mailbox.gate_frames, mailbox.link, mailbox.device, mailbox.pipes, console.console,
    texts.descriptions, texts.control_lines, texts.texts, service.answers, service.platform, service.dispatch,
):  # fmt: skip
    write()
