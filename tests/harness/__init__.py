"""Stages a whole PC for the process tests, the windows tests and the demo: host, firmware and consoles."""
