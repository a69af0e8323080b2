"""The seeds of the fuzz targets: what the tests send, in the form in which a target takes it. A finding lies in
fuzz/corpus too, as finding-...; it stays.

    python3 fuzz/seeds           writes them to fuzz/corpus
    python3 fuzz/seeds --check   prints what is missing in fuzz/corpus, or differs; ends with 1 then
"""

import sys

import console
import corpus
import display
import identity
import mailbox
import packaged
import service
import texts

for add in (
    mailbox.host_records, mailbox.gate_frames, mailbox.cloud_frames, mailbox.cloud_streams, mailbox.link, mailbox.frames,
    mailbox.device, mailbox.pipes, console.console, texts.descriptions, texts.control_lines, texts.page_requests, texts.texts,
    texts.wifi_profiles, service.answers, service.platform, service.dispatch, service.errands, service.each_command,
    identity.certificates, display.agents, display.escapes, display.runtimes, packaged.readers, packaged.packages,
):  # fmt: skip
    add()
if sys.argv[1:] != ["--check"]:
    corpus.write()
elif found := corpus.differences():
    print(*found, "Write the seeds with: python3 fuzz/seeds", sep="\n")
    sys.exit(1)
