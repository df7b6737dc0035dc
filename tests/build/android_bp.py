"""Holds the sources in Android.bp against those in the CMakeLists.txt files.

usage: android_bp.py FOLDER

FOLDER is the project's root. Prints every difference and ends with status 1 if there is one.
"""
import pathlib
import posixpath
import re
import sys


class Malformed(Exception):
    pass


# --- Blueprint ---

BLUEPRINT_TOKEN = re.compile(
    r"""(?P<skip>\s+|//[^\n]*|/\*.*?\*/)"""
    r"""|(?P<string>"(?:[^"\\]|\\.)*"|`[^`]*`)"""
    r"""|(?P<word>[A-Za-z_][\w.-]*|-?\d+)"""
    r"""|(?P<mark>\+=|[][{}():,=+])""",
    re.DOTALL,
)


class Blueprint:
    """The modules of one file: (type, properties) each, with variables and '+' worked out."""

    def __init__(self, text):
        self.tokens = []
        at = 0
        while at < len(text):
            match = BLUEPRINT_TOKEN.match(text, at)
            if match is None:
                raise Malformed(f"line {text.count(chr(10), 0, at) + 1}: {text[at:at + 20]!r}")
            if match.lastgroup != "skip":
                line = text.count("\n", 0, at) + 1
                self.tokens.append((match.lastgroup, match.group(), line))
            at = match.end()
        self.next = 0
        self.variables = {}
        self.modules = []
        while self.next < len(self.tokens):
            self.definition()

    def peek(self):
        return self.tokens[self.next][1] if self.next < len(self.tokens) else None

    def take(self, wanted=None):
        if self.next >= len(self.tokens):
            raise Malformed(f"the file ends where {wanted or 'more'} should be")
        kind, text, line = self.tokens[self.next]
        if wanted is not None and text != wanted:
            raise Malformed(f"line {line}: {text!r} where {wanted!r} should be")
        self.next += 1
        return kind, text, line

    def definition(self):
        name = self.take()[1]
        if self.peek() == "=":
            self.take()
            self.variables[name] = self.expression()
        elif self.peek() == "+=":
            self.take()
            self.variables[name] = self.variables[name] + self.expression()
        elif self.peek() == "(":
            self.modules.append((name, self.properties("(", ")", "=")))
        else:
            self.modules.append((name, self.properties("{", "}", ":")))

    def properties(self, opening, closing, between):
        self.take(opening)
        properties = {}
        while self.peek() != closing:
            name = self.take()[1].strip('"')
            self.take(between)
            properties[name] = self.expression()
            if self.peek() != closing:
                self.take(",")
        self.take(closing)
        return properties

    def expression(self):
        value = self.value()
        while self.peek() == "+":
            self.take()
            other = self.value()
            value = {**value, **other} if isinstance(value, dict) else value + other
        return value

    def value(self):
        if self.peek() == "{":
            return self.properties("{", "}", ":")
        kind, text, line = self.take()
        if text == "[":
            items = []
            while self.peek() != "]":
                items.append(self.expression())
                if self.peek() != "]":
                    self.take(",")
            self.take("]")
            return items
        if kind == "string":
            return text[1:-1]
        if text in ("true", "false"):
            return text == "true"
        if re.fullmatch(r"-?\d+", text):
            return int(text)
        if text not in self.variables:
            raise Malformed(f"line {line}: there is no variable {text!r}")
        return self.variables[text]

    def module(self, name):
        for kind, properties in self.modules:
            if properties.get("name") == name:
                return properties
        raise Malformed(f"there is no module {name!r}")

    def sources(self, name):
        """All sources of a module: its own, those of its defaults and of the groups it names."""
        module = self.module(name)
        found = []
        for source in module.get("srcs", []):
            found += self.sources(source[1:]) if source.startswith(":") else [source]
        for defaults in module.get("defaults", []):
            found += self.sources(defaults)
        return found


# --- CMake ---

CMAKE_COMMAND = re.compile(r"(\w+)\s*\(((?:[^()\"]|\"(?:[^\"\\]|\\.)*\")*)\)")


class CMakeFile:
    """The commands of one CMakeLists.txt, in order: variables of set() put in, foreach() carried out."""

    def __init__(self, path):
        self.path = path
        text = re.sub(r"#[^\n]*", "", path.read_text())
        self.commands = []
        self.carry_out([(name.lower(), arguments.split())
                        for name, arguments in CMAKE_COMMAND.findall(text)], {})

    def carry_out(self, commands, variables):
        while commands:
            (name, words), commands = commands[0], commands[1:]
            words = [expanded for word in words for expanded in expand(word, variables)]
            self.commands.append((name, words))
            if name == "set" and words:
                variables[words[0]] = words[1:]
            if name == "foreach":
                end = end_of_foreach(commands)
                for value in words[1:]:
                    self.carry_out(commands[:end], {**variables, words[0]: [value]})
                commands = commands[end:]

    def arguments(self, command, first):
        """What follows `first` in the call of `command` that begins with it."""
        for name, words in self.commands:
            if name == command and words[:1] == [first]:
                return words[1:]
        raise Malformed(f"{self.path}: there is no {command}({first} ...) that was expected")


def expand(word, variables):
    """A list that is the whole word, or a single value within it; else the word as it is."""
    whole = re.fullmatch(r"\$\{(\w+)\}", word)
    if whole:
        return variables.get(whole[1], [word])
    return [re.sub(r"\$\{(\w+)\}", lambda part: " ".join(variables.get(part[1], [part[0]])), word)]


def end_of_foreach(commands):
    depth = 1
    for index, (name, _) in enumerate(commands):
        depth += (name == "foreach") - (name == "endforeach")
        if depth == 0:
            return index
    raise Malformed("a foreach() does not end")


def between(words, begin, end):
    """The words between two keywords."""
    rest = words[words.index(begin) + 1:]
    return rest[:rest.index(end)] if end in rest else rest


# --- the comparison ---

def cmake_sources(root):
    """The sources of every module, as CMake has them."""
    def read(folder):
        return CMakeFile(root / folder / "CMakeLists.txt")

    def listed(folder, names):
        return [posixpath.normpath(posixpath.join(folder, name)) for name in names]

    product = listed("audio", read("audio").arguments("add_library", "sound_trigger_objects"))
    product = [source for source in product if source.endswith(".cpp")]
    utilities = listed("host/vendor", read("host/vendor").arguments("add_library",
                                                                    "vendor_audio_utils"))
    utilities = [source for source in utilities
                 if source.endswith(".cpp") and not source.endswith("/file.cpp")]
    tests = read("tests/product").arguments("sthal_test", "hal_test")
    modules = {
        "libsoundtrigger_hal": product,
        "soundtrigger_hal_test": product + listed("tests/product",
                                                  between(tests, "SOURCES", "LIBS")),
    }
    fuzzers = [words for name, words in read("fuzz").commands
               if name == "add_executable" and words[0].startswith("fuzz_")]
    if not fuzzers:
        raise Malformed("fuzz/CMakeLists.txt: there is no add_executable(fuzz_... )")
    for name, *own in fuzzers:
        modules[f"soundtrigger_hal_{name}"] = (
            product + utilities + listed("fuzz", own + ["scripted_nodes.cpp"]))
    return modules


def differences(root):
    blueprint = Blueprint((root / "Android.bp").read_text())
    expected_modules = cmake_sources(root)
    found = []
    for name, expected in expected_modules.items():
        try:
            actual = blueprint.sources(name)
        except Malformed as problem:
            found.append(f"Android.bp: {problem}, but CMake builds its sources")
            continue
        found += [f"{name}: {source} is in Android.bp twice"
                  for source in sorted(set(actual)) if actual.count(source) > 1]
        found += [f"{name}: {source} is only in CMake's list"
                  for source in sorted(set(expected) - set(actual))]
        found += [f"{name}: {source} is only in Android.bp"
                  for source in sorted(set(actual) - set(expected))]
        found += [f"{name}: there is no file {source}"
                  for source in sorted(set(actual)) if not (root / source).is_file()]
    for kind, properties in blueprint.modules:
        if kind.startswith("cc_") and kind != "cc_defaults":
            if properties["name"] not in expected_modules:
                found.append(f"{properties['name']}: is only in Android.bp")
    return found


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    try:
        found = differences(pathlib.Path(sys.argv[1]))
    except (Malformed, OSError, ValueError) as problem:
        sys.exit(f"android_bp: {problem}")
    print("\n".join(found) if found else "Android.bp and CMake list the same sources")
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
