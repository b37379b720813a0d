#!/usr/bin/env python3
"""Renders the chart without helm, and keeps deploy/manifests equal to it.

    scripts/render_chart.py [--release NAME] [--namespace NS] [--values FILE]... [--set PATH=VALUE]...
    scripts/render_chart.py --write-manifests      what deploy/manifests/tessarin.yaml has to hold

The templates may use this subset of helm's language, and anything else is an error:

    {{ VALUE }}                  VALUE: .a.b, "text", include "name" ., .Files.Get "name"; then | quote, toYaml, toJson, nindent N, default V
    {{ if COND }} {{ else }}     COND: VALUE, not VALUE
    {{ with VALUE }} {{ range VALUE }} {{ define "name" }} {{ end }}

with {{- and -}} as in helm. The dot has .Values, .Release.{Name,Namespace,Service} and .Chart; below with and range it is
the value, and these are out of reach.
"""
import argparse
import functools
import json
import pathlib
import re
import sys

import yaml

ROOT = pathlib.Path(__file__).resolve().parent.parent
CHART = ROOT / "deploy/chart/tessarin"
MANIFESTS = ROOT / "deploy/manifests"


class Unsupported(Exception):
    pass


def split_template(text):
    """Texts and actions in turn; white space that an action eats is gone."""
    parts = re.split(r"(\{\{-?.*?-?\}\})", text, flags=re.S)
    for i in range(1, len(parts), 2):
        if parts[i].startswith("{{- "):
            parts[i - 1] = parts[i - 1].rstrip()
        if parts[i].endswith(" -}}"):
            parts[i + 1] = parts[i + 1].lstrip()
        parts[i] = parts[i].removeprefix("{{").removeprefix("-").removesuffix("}}").removesuffix("-").strip()
    return parts


WORD = r'"(?:[^"\\]|\\.)*"|\||[^\s|"]+'


def words_of(action):
    if not re.fullmatch(rf"(?:\s*(?:{WORD}))+", action):
        raise Unsupported(action)
    return re.findall(WORD, action)


class Renderer:
    def __init__(self, root, chart=CHART):
        self.root = root
        self.chart = chart
        self.defined = {}

    def render(self, text):
        parts = split_template(text)
        out, position = self.block(parts, 0, self.root, True)
        if position < len(parts):
            raise Unsupported("an end without a beginning")
        return out

    def block(self, parts, position, dot, active):
        """Renders up to the end or else of the block. Returns the text and the position of that action."""
        out = []
        while position < len(parts):
            if position % 2 == 0:
                out.append(parts[position] if active else "")
                position += 1
                continue
            action = parts[position]
            keyword, _, rest = action.partition(" ")
            if keyword in ("end", "else"):
                break
            if keyword in ("if", "with", "range", "define"):
                text, position = self.compound(keyword, rest, parts, position + 1, dot, active)
                out.append(text)
            else:
                out.append(self.text_of(self.value(action, dot)) if active else "")
            position += 1
        return "".join(out), position

    def compound(self, keyword, rest, parts, begin, dot, active):
        if keyword == "define":
            end = self.block(parts, begin, dot, False)[1]
            self.defined[json.loads(rest)] = parts[begin:end]
            return "", end
        value = self.value(rest, dot) if active else None
        texts = []
        dots = value if keyword == "range" and value else [value if keyword == "with" else dot]
        for item in dots:
            text, end = self.block(parts, begin, item, active and bool(value))
            texts.append(text)
        if parts[end] == "else":
            text, end = self.block(parts, end + 1, dot, active and not value)
            texts.append(text)
        if parts[end] != "end":
            raise Unsupported(parts[end])
        return "".join(texts), end

    def value(self, action, dot):
        words = words_of(action)
        negated = words[0] == "not"
        words = words[1:] if negated else words
        stages = [[]]
        for word in words:
            if word == "|":
                stages.append([])
            else:
                stages[-1].append(word)
        result = self.call(stages[0], [], dot)
        for stage in stages[1:]:
            result = self.call(stage, [result], dot)
        return not result if negated else result

    def call(self, words, piped, dot):
        name, arguments = words[0], [self.operand(word, dot) for word in words[1:]] + piped
        functions = {
            "quote": lambda value: json.dumps(self.text_of(value), ensure_ascii=False),
            "toYaml": lambda value: yaml.safe_dump(value, default_flow_style=False, width=10**6).strip(),
            "toJson": lambda value: json.dumps(value, separators=(",", ":"), sort_keys=True),
            "nindent": lambda count, text: "\n" + re.sub(r"(?m)^", " " * count, text),
            "default": lambda other, value: value or other,
            "include": self.include,
            ".Files.Get": lambda name: (self.chart / name).read_text(),
        }
        if name in functions:
            return functions[name](*arguments)
        if len(words) > 1 or piped:
            raise Unsupported(" ".join(words))
        return self.operand(name, dot)

    def operand(self, word, dot):
        if word.startswith('"'):
            return json.loads(word)
        if word.isdigit():
            return int(word)
        if not word.startswith("."):
            raise Unsupported(word)
        value = dot
        for key in word[1:].split(".") if word != "." else []:
            if not isinstance(value, dict) or key not in value:
                raise Unsupported(f"{word}: there is no such value")
            value = value[key]
        return value

    def include(self, name, dot):
        return self.block(self.defined[name], 0, dot, True)[0]

    @staticmethod
    def text_of(value):
        return {True: "true", False: "false", None: ""}.get(value) if isinstance(value, (bool, type(None))) else str(value)


def merged(base, over):
    if not isinstance(base, dict) or not isinstance(over, dict):
        return over
    return {key: merged(base[key], over[key]) if key in base and key in over else over.get(key, base.get(key))
            for key in {**base, **over}}


def set_value(values, assignment):
    path, _, text = assignment.partition("=")
    value = yaml.safe_load(text)
    for key in reversed(path.split(".")):
        value = {key: value}
    return merged(values, value)


@functools.lru_cache
def default_values(chart):
    return yaml.safe_load((chart / "values.yaml").read_text())


def render(release="tessarin", namespace="tessarin", values=None, chart=CHART):
    """The chart's objects as texts, by template: {"agent.yaml": "..."}."""
    about = yaml.safe_load((chart / "Chart.yaml").read_text())
    about = {key[0].upper() + key[1:]: value for key, value in about.items()}
    all_values = merged(default_values(chart), values or {})
    renderer = Renderer({"Values": all_values, "Chart": about,
                         "Release": {"Name": release, "Namespace": namespace, "Service": "Helm"}}, chart)
    renderer.render((chart / "templates/_helpers.tpl").read_text())
    texts = {}
    for template in sorted((chart / "templates").iterdir()):
        if template.suffix in (".yaml", ".txt"):
            try:
                texts[template.name] = renderer.render(template.read_text()).strip("\n") + "\n"
            except Unsupported as fault:
                raise SystemExit(f"{template}: not in the subset: {fault}")
    return texts


def manifests():
    """One file to apply: the chart with its defaults, as if made by nobody's hand."""
    head = "# Made by scripts/render_chart.py --write-manifests from deploy/chart/tessarin. Change the chart, not this.\n"
    texts = [text.replace("app.kubernetes.io/managed-by: Helm", "app.kubernetes.io/managed-by: kubectl")
             for name, text in render().items() if name.endswith(".yaml")]
    documents = [part.strip("\n") for text in texts for part in re.split(r"(?m)^---$", text)]
    return head + "".join(f"---\n{document}\n" for document in documents if yaml.safe_load(document))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--release", default="tessarin")
    parser.add_argument("--namespace", default="tessarin")
    parser.add_argument("--values", action="append", default=[], metavar="FILE")
    parser.add_argument("--set", action="append", default=[], metavar="PATH=VALUE")
    parser.add_argument("--write-manifests", action="store_true")
    options = parser.parse_args()
    if options.write_manifests:
        (MANIFESTS / "tessarin.yaml").write_text(manifests())
        return 0
    values = {}
    for file in options.values:
        values = merged(values, yaml.safe_load(pathlib.Path(file).read_text()))
    for assignment in options.set:
        values = set_value(values, assignment)
    for name, text in render(options.release, options.namespace, values).items():
        if name.endswith(".yaml"):
            print("---\n" + text, end="")
    return 0


if __name__ == "__main__":
    sys.exit(main())
