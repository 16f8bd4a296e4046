"""Reads what C++ sources declare: variables that live as long as the process, types with their fields, functions.

No compiler: comments, texts and preprocessor lines are taken out, and what remains is divided at its brackets.
That understands this project's way of writing, which knows no macros that declare anything. What it cannot tell
from a function's declaration is a variable initialised in round brackets by a mere name, at namespace scope.
"""

import dataclasses
import re

NOT_CODE = re.compile(
    r"//[^\n]*|/\*.*?\*/"  # comments
    r"|^[ \t]*#(?:[^\n\\]|\\.)*"  # the preprocessor's lines
    r"|(?<=[0-9a-fA-F])'(?=[0-9a-fA-F])"  # what divides digits
    r'|"(?:[^"\\\n]|\\.)*"'
    r"|'(?:[^'\\\n]|\\.)+'", re.DOTALL | re.MULTILINE)
NO_DECLARATION = re.compile(r"(using|typedef|friend|static_assert|extern|thread_local|return|case|default|goto)\b")
INITIAL_VALUE = re.compile(r"\(\s*(\d|-|\"|&|\*|nullptr\b|true\b|false\b|new\b|\w+(::\w+)*\()")
WORDS_OF_A_TYPE = ("const", "constexpr", "static", "inline", "mutable", "constinit", "volatile")


@dataclasses.dataclass
class Variable:
    """One with static storage, or a field of a type."""
    name: str  # with the scopes around it
    type: str  # as it is written, storage included
    file: str
    owner: str = ""  # of a field: the type's name
    function: str = ""  # of a static local variable: the function's name
    values: str = ""  # with which it begins, in curly brackets

    @property
    def short(self):
        return self.name.rpartition("::")[2]

    @property
    def is_atomic(self):
        return "std::atomic" in self.type

    @property
    def is_shared_pointer(self):
        return "std::atomic<std::shared_ptr<" in self.type

    @property
    def is_constant(self):
        """Whether the variable itself cannot be changed, whatever it refers to."""
        text = without_template_arguments(self.type)
        return "constexpr" in text or bool(re.search(r"\bconst\b[^*]*$", text)) or "&" in text

    @property
    def leads_to_constants_only(self):
        """Whether what it refers to cannot be changed either."""
        text = without_template_arguments(self.type)
        return "constexpr" in text or self.is_constant and bool(re.search(r"\bconst\b", re.split("[*&]", text)[0]))


@dataclasses.dataclass
class Type:
    name: str
    file: str
    bases: list  # the words of their names


@dataclasses.dataclass
class Function:
    name: str
    body: str
    file: str

    @property
    def short(self):
        return self.name.rpartition("::")[2]

    @property
    def owner(self):
        return self.name.rpartition("::")[0]


def code_of(text):
    """The text without what is no code; texts become empty ones."""
    return NOT_CODE.sub(lambda found: '""' if found[0][0] in "\"'" and len(found[0]) > 1 else " ", text)


def without_template_arguments(text):
    depth = 0
    kept = []
    for i, character in enumerate(text):
        if character == "<" and re.search(r"\w\s*$", text[:i]):
            depth += 1
        elif character == ">" and depth > 0 and text[i - 1] != "-":
            depth -= 1
        elif depth == 0:
            kept.append(character)
    return "".join(kept)


def end_of_brackets(code, start):
    """The place behind the bracket that closes the one at `start`."""
    pairs = {"(": ")", "{": "}", "[": "]"}
    opening, closing = code[start], pairs[code[start]]
    depth = 0
    for found in re.compile(f"[{re.escape(opening + closing)}]").finditer(code, start):
        depth += 1 if found[0] == opening else -1
        if depth == 0:
            return found.end()
    raise ValueError(f"a bracket without its other half: {code[start:start + 80]!r}")


def without_prefixes(head):
    """A declaration without access labels, attributes, alignment and template parameters."""
    head = re.sub(r"\[\[.*?\]\]|\balignas\([^)]*\)", " ", head).strip()
    while True:
        label = re.match(r"(public|private|protected)\s*:(?!:)\s*", head)
        if label:
            head = head[label.end():]
        elif re.match(r"template\s*<", head):
            head = without_template_arguments(re.sub(r"^template\s*", "template", head))[len("template"):].strip()
        else:
            return head


def top_level(text, character):
    """Where the character stands outside of template arguments and round brackets; -1 when nowhere."""
    depth = 0
    for i, each in enumerate(text):
        if each == character and depth == 0:
            return i
        if each == "(" or each == "<" and re.search(r"\w\s*$", text[:i]):
            depth += 1
        elif each in ")>" and depth > 0 and text[max(i - 1, 0)] != "-":
            depth -= 1
    return -1


def pieces(text, character):
    while (place := top_level(text, character)) >= 0:
        yield text[:place]
        text = text[place + 1:]
    yield text


class Declarations:
    """What a number of sources declare; `sources` gives the text of each by its path."""

    def __init__(self, sources):
        self.variables = []  # with static storage
        self.fields = []
        self.types = []
        self.functions = []
        self.code = {}
        for file, text in sources.items():
            self.code[file] = code_of(text)
            self._file = file
            self._read_scope(self.code[file] + "}", 0, (), None)

    def _read_scope(self, code, place, scopes, owner):
        """Reads to the end of a namespace or, with `owner`, of a type. The place behind its bracket."""
        head = values = ""
        while True:
            found = re.compile(r"[(){};]").search(code, place)
            head += code[place:found.start()]
            place = found.end()
            if found[0] == "(":
                end = end_of_brackets(code, found.start())
                head += code[found.start():end]
                place = end
            elif found[0] == ";":
                self._read_declaration(without_prefixes(head), values, scopes, owner)
                head = values = ""
            elif found[0] == "}":
                return place
            else:
                head, place = self._read_block(code, found.start(), without_prefixes(head), scopes, owner)
                values = code[found.start():place]

    def _read_block(self, code, start, head, scopes, owner):
        """What stands before the next declaration or belongs to it, and the place behind the block."""
        end = end_of_brackets(code, start)
        if re.match(r"(inline\s+)?namespace\b", head):
            name = re.search(r"namespace\s*([\w:]*)$", head.strip())[1]
            self._read_scope(code, start + 1, scopes + tuple(filter(None, name.split("::"))), None)
            return "", end
        if re.match(r"enum\b", head):
            return "", end
        is_type = re.match(r"(class|struct|union)\s+([\w:]+)[^=(]*$", head)
        if is_type:
            name = "::".join((*scopes, is_type[2]))
            bases = re.split(r"(?<!:):(?!:)", head, maxsplit=1)[1:]
            self.types.append(Type(name, self._file, re.findall(r"\w+", "".join(bases))))
            self._read_scope(code, start + 1, tuple(name.split("::")), name)
            return is_type[2], end  # a variable of the type may follow
        if self._is_function(head):
            self._read_function(head, code[start:end], scopes)
            return "", end
        return head + "{}", end

    @staticmethod
    def _is_function(head):
        if re.search(r"\boperator\b", head):
            return True
        if "(" not in without_template_arguments(head) or top_level(head, "=") >= 0:
            return False
        # A field that a constructor initialises in curly brackets goes before its body.
        return not re.search(r"\)[^()]*(?<!:):(?!:).*[\w>]\s*$", head, re.DOTALL) or \
            bool(re.search(r"\)\s*(const|noexcept|override|final|&|\s)*$", head))

    def _read_function(self, head, body, scopes):
        name = head[:top_level(head, "(")] if "operator" not in head else head[:head.rindex("(")]
        name = re.search(r"((?:[\w~]+::)*(?:operator.*|~?\w+))\s*$", without_template_arguments(name), re.DOTALL)
        if name is None:  # a macro's argument list, or none that is understood
            raise ValueError(f"{self._file}: not understood: {head!r}")
        function = Function("::".join((*scopes, re.sub(r"\s", "", name[1]))), body, self._file)
        self.functions.append(function)
        for static in re.finditer(r"\bstatic\s(?:\[[^\]]*\]|[^;{=(\[])*", body):
            for variable in self._variables(without_prefixes(static[0]), tuple(function.name.split("::"))):
                variable.function = function.name
                self.variables.append(variable)

    def _read_declaration(self, text, values, scopes, owner):
        for variable in self._variables(text, scopes):
            variable.values = values
            if owner is None or re.search(r"\bstatic\b", variable.type):
                self.variables.append(variable)
            else:
                variable.owner = owner
                self.fields.append(variable)

    def _variables(self, text, scopes):
        if NO_DECLARATION.match(text) or re.match(r"(class|struct|union|enum)\b[^=(]*$|.*\boperator\b", text):
            return
        pointer = re.match(r"([^()]*)\(\s*\w*\s*\*\s*(const\s+)?(\w+)\s*\)\s*\(", text)
        if pointer:
            yield Variable("::".join((*scopes, pointer[3])), f"{pointer[1]}(*{pointer[2] or ''})", self._file)
            return
        type_text = ""
        for each in pieces(re.sub(r"\[[^\]]*\]", "", text), ","):
            declared = each[:min((i for i in (top_level(each, "="), top_level(each, "{")) if i >= 0),
                                 default=len(each))]
            bracket = without_template_arguments(declared).find("(")
            if bracket >= 0:
                if not INITIAL_VALUE.match(without_template_arguments(declared)[bracket:]):
                    return
                declared = declared[:top_level(declared, "(")]
            found = re.search(r"((?:\w+::)*\w+)\s*$", declared)
            if found is None:
                return
            type_text = type_text or " ".join(declared[:found.start()].split())
            if not set(re.findall(r"\w+", type_text)) - set(WORDS_OF_A_TYPE):
                return
            yield Variable("::".join((*scopes, found[1])), type_text, self._file)
