#!/usr/bin/env python3
"""make_manual.py SCDOC API_DOCUMENT VERSION OUTPUT PAGE.scd...: makes the manual below OUTPUT.

The pages of the functions come from API_DOCUMENT, the others from their own sources.
"""
import pathlib
import re
import shutil
import subprocess
import sys

import function_pages
import interface


def main(scdoc, api_document, version, output, *sources):
    headers = interface.read(pathlib.Path(api_document))
    pages = {}
    for source in map(pathlib.Path, sources):
        pages[source.stem] = function_pages.filled_in(source.read_text(encoding="utf-8"), headers)
    links = {}
    for (name, *others), page in function_pages.pages(headers):
        pages[f"{name}.3"] = page
        links.update((f"{other}.3", f"{name}.3") for other in others)

    # Made anew, so that no page is left whose source is gone.
    output = pathlib.Path(output)
    shutil.rmtree(output, ignore_errors=True)
    for name, page in pages.items():
        page = page.replace("@VERSION@", version)
        made = subprocess.run([scdoc], input=page, stdout=subprocess.PIPE,
                              encoding="utf-8", check=False)
        if made.returncode != 0:
            sys.exit(f"make_manual.py: scdoc cannot read {name}, see above")
        write(output, name, whole(made.stdout))
    for name, target in links.items():
        (output / "man3" / name).symlink_to(target)


def whole(page):
    """Keeps together what scdoc would let break: names, options, short cells, tables on a screen."""
    def unwrapped(cell):
        shown = re.sub(r"\\(f[BIR]|&)", "", cell[1])
        return cell[1] if len(shown) <= 32 else cell[0]
    # No date either: the version says enough, and the same sources give the same pages.
    page = re.sub(r'^(\.TH "\S+" "\d" )"\S+"(.*)$', r'\1""\2\n.nh\n.if n .pl 1000i', page,
                  count=1, flags=re.M)
    return re.sub(r"T\{\n(.*)\nT\}", unwrapped, page)


def write(output, name, content):
    folder = output / ("man" + re.search(r"\d$", name)[0])
    folder.mkdir(parents=True, exist_ok=True)
    (folder / name).write_text(content, encoding="utf-8")


if __name__ == "__main__":
    main(*sys.argv[1:])
