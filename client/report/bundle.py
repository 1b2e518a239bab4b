#!/usr/bin/env python3
"""Writes a source with the script and the style of a report's page, and what a policy calls them.

Usage: bundle.py OUTPUT WEB_FOLDER LIBRARY

The script is the library and the modules that WEB_FOLDER/report/page.js needs. A module of the folder report stands for
the one of the same name above it.
"""

import base64
import hashlib
import pathlib
import re
import sys

IMPORT = re.compile(r"^import \{ ([\w, ]+) \} from '\./([\w-]+\.js)';\n", re.MULTILINE)
EXPORT = re.compile(r"^export (?=(?:async )?(?:function|class|const) (\w+))", re.MULTILINE)
STYLES = ["console.css", "report/report.css"]
BYTES_A_LINE = 24


def module_name(file):
    return "module_" + re.sub(r"\W", "_", file)


def module_text(text, file):
    imports = "".join(f"const {{ {names} }} = {module_name(source)};\n"
                      for names, source in IMPORT.findall(text))
    exports = ", ".join(EXPORT.findall(text))
    body = EXPORT.sub("", IMPORT.sub("", text))
    if re.search(r"^(import|export)\b", body, re.MULTILINE):
        sys.exit(f"bundle.py: {file}: an import or export of a form that is not known here")
    return f"const {module_name(file)} = (() => {{\n{imports}{body}return {{ {exports} }};\n}})();\n"


def script_of(web, library):
    done, texts = set(), []

    def add(file, above):
        if file in above:
            sys.exit(f"bundle.py: {file} needs itself")
        if file in done:
            return
        own = web / "report" / file
        text = (own if own.exists() else web / file).read_text(encoding="utf-8")
        for _, source in IMPORT.findall(text):
            add(source, above | {file})
        done.add(file)
        texts.append(module_text(text, file))

    add("page.js", set())
    return (library.read_text(encoding="utf-8") + "\n(() => {\n'use strict';\n" + "".join(texts)
            + "})();\n")


def literal(data):
    lines = (data[start:start + BYTES_A_LINE] for start in range(0, len(data), BYTES_A_LINE))
    return "\n".join('    "' + "".join(f"\\{byte:03o}" for byte in line) + '"' for line in lines)


def entry(text, end):
    if end in text.lower():
        sys.exit(f"bundle.py: the text has a {end}, which would end its element")
    data = text.encode("utf-8")
    digest = base64.b64encode(hashlib.sha256(data).digest()).decode("ascii")
    return f'std::string_view(\n{literal(data)},\n    {len(data)}), "sha256-{digest}"'


def main(output, web, library):
    web = pathlib.Path(web)
    style = "".join((web / name).read_text(encoding="utf-8") for name in STYLES)
    text = ('#include "client/report/PageParts.h"\n\n'
            "const PageParts& ReportPageParts() {\n"
            f"  static constexpr PageParts kParts{{{entry(script_of(web, pathlib.Path(library)), '</script')},\n"
            f"    {entry(style, '</style')}}};\n"
            "  return kParts;\n}\n")
    pathlib.Path(output).write_text(text, encoding="ascii")


if __name__ == "__main__":
    main(*sys.argv[1:])
