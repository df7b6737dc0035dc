"""Checks that Android.bp and CMake list the same sources.

usage: android_bp_test.py ROOT LISTS

CMake writes LISTS: a line for each module of Android.bp, and a line "MODULE SOURCE" for each of its
sources, by its full path. Of Android.bp this reads variables, srcs and defaults; a filegroup's name
in srcs is a difference.
"""
import difflib
import pathlib
import re
import sys

VALUE = r"""(?:\w+|\[[^]]*\]|"[^"]*")"""
SUM = rf"({VALUE}(?:\s*\+\s*{VALUE})*)"
VARIABLE = re.compile(rf"^(\w+)\s*\+?=\s*{SUM}", re.MULTILINE)
MODULE = re.compile(r"^(\w+)\s*\{(.*?)^\}", re.MULTILINE | re.DOTALL)


def strings(value, variables):
    """The strings of a sum of strings, lists and variables."""
    for text, variable in re.findall(r'"([^"]*)"|(\w+)', value):
        yield from variables[variable] if variable else [text]


def listed_by_android(text):
    text = re.sub(r"(^|\s)//.*", "", text)
    variables = {}
    for name, value in VARIABLE.findall(text):
        variables[name] = variables.get(name, []) + list(strings(value, variables))

    def items(module, name):
        for value in re.findall(rf"\b{name}:\s*{SUM}", module):
            yield from strings(value, variables)

    modules = {next(items(module, "name")): (kind, module)
               for kind, module in MODULE.findall(text) if kind.startswith("cc_")}

    def sources(name):
        module = modules[name][1]
        yield from items(module, "srcs")
        for defaults in items(module, "defaults"):
            yield from sources(defaults)

    for name, (kind, _) in modules.items():
        if kind != "cc_defaults":
            yield name
            yield from (f"{name} {source}" for source in sources(name))


def main():
    root = pathlib.Path(sys.argv[1])
    android = sorted(listed_by_android((root / "Android.bp").read_text(encoding="utf-8")))
    cmake = pathlib.Path(sys.argv[2]).read_text(encoding="utf-8")
    cmake = sorted(cmake.replace(f" {root}/", " ").splitlines())
    found = list(difflib.unified_diff(cmake, android, "only in CMake's list", "only in Android.bp",
                                      n=0, lineterm=""))
    found += [f"there is no file {line}" for line in android
              if " " in line and not (root / line.split()[1]).is_file()]
    print("\n".join(found))
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
