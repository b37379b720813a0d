#!/usr/bin/env python3
"""Whether doc/troubleshooting.md has an entry for each message that an operator may meet in the agent's log, and none for
messages that are gone. With --list prints the messages by folder.

A message is the text of an ACE_ERROR or ACE_DEBUG at LM_WARNING or above, or what is wrong with a pool, in a folder that
runs in the agent or in the control pod. Its entry is a code span with the same text, with "..." for what is filled in.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
PAGE = ROOT / "doc/troubleshooting.md"
FOLDERS = ["client_io", "host", "http", "json_rpc", "json_spirit", "k8s", "kolt", "mtf", "mtf_backup", "task", "websvcs"]

STRING = r'"(?:[^"\\]|\\.)*"'
CALL = re.compile(rf"\((LM_WARNING|LM_ERROR|LM_CRITICAL|LM_ALERT|LM_EMERGENCY)\s*,\s*(?:ACE_TEXT\()?((?:\s*{STRING})+)")
# Where the storage client says no to a pool: `What: "value".`
REFUSAL = re.compile(rf"(?:\b|_)refuse\((?=\"[A-Z])({STRING})\s*,")


def plain(text):
    text = re.sub(r"%(?:-?\d*l?l?[CSNldiuxopqQBTDPstmfM]|\?|-?[\d.*]+[a-zA-Z])", "...", text)
    text = text.replace("\\n", " ").replace('\\"', '"')
    return re.sub(r"\s+", " ", text).strip().rstrip(".")


def messages():
    """{message: files that have it}"""
    found = {}
    for folder in FOLDERS:
        for file in sorted((ROOT / "src" / folder).rglob("*")):
            if file.suffix not in (".cpp", ".h") or "test" in file.parts:
                continue
            source = file.read_text()
            texts = ["".join(part[1:-1] for part in re.findall(STRING, call[2])) for call in CALL.finditer(source)]
            texts += [call[1][1:-1] + ': "%C"' for call in REFUSAL.finditer(source)]
            for text in texts:
                if re.search(r"\w", plain(text)):  # what is filled in alone was logged, or is told, by its own words
                    found.setdefault(plain(text), []).append(file.relative_to(ROOT / "src").as_posix())
    return found


def entries():
    """The code spans in the first columns of the page's tables of messages."""
    texts, in_table = [], False
    for line in PAGE.read_text().splitlines():
        in_table = line.startswith("|") and (in_table or line.startswith("| Message |"))
        if in_table:
            first = re.split(r"(?<!\\)\|", line)[1]
            texts += [plain(text.replace("\\|", "|")) for text in re.findall(r"`([^`]+)`", first)]
    return texts


def main():
    known = messages()
    if sys.argv[1:] == ["--list"]:
        for text, files in known.items():
            print(f"{files[0]}: {text}")
        return 0
    told = entries()
    faults = [f"{known[text][0]}: no entry in doc/troubleshooting.md for: {text}" for text in known
              if text not in told]
    faults += [f"doc/troubleshooting.md: no source logs: {text}" for text in told if text not in known]
    faults += [f"doc/troubleshooting.md: told twice: {text}" for text in sorted(set(told)) if told.count(text) > 1]
    print("\n".join(faults), end="\n" if faults else "")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
