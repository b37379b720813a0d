#!/usr/bin/env python3
"""Looks up every relative link of every tracked Markdown page; prints those that lead nowhere."""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent


def main():
    pages = subprocess.run(["git", "ls-files", "*.md"], cwd=ROOT, capture_output=True, text=True, check=True)
    broken = 0
    for page in pages.stdout.split():
        text = (ROOT / page).read_text()
        text = re.sub(r"```.*?```", "", text, flags=re.S)
        for target in re.findall(r"\[[^\]]*\]\(([^)\s]+)\)", text):
            if re.match(r"[a-z]+:|#", target):
                continue
            if not (ROOT / page).parent.joinpath(target.split("#")[0]).exists():
                print(f"{page}: the link to {target} leads nowhere")
                broken += 1
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main())
