"""docs/threads.md tells every variable that threads share, and what makes it safe, as the sources have it.

Functions are looked at as a whole: one that takes a lock counts as holding it wherever it touches what the lock
guards, and from there to its end where it calls others. Whom it calls is told by the name; a pointer to a function
leads to those that stand in tables, or nowhere.
"""

import dataclasses
import pathlib
import re
import unittest

from declarations import Declarations, pieces

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDERS = "service core network radio bios registry logging platform".split()
LOCK_TYPES = ("std::mutex", "CriticalSection")
# What takes a lock for a scope, and has a name: without one it would let go of it at once.
GUARD = re.compile(r"\bstd::(?:lock_guard|unique_lock|scoped_lock)\b(?:<[^;()]*>)?\s+\w+"
                   r"[({]\s*(?:[\w:]|\.|->)*?(\w+)\s*[)}]")
# What is called, behind an object or a scope; or the type of an object that is made.
CALL = re.compile(r"(?:(\w*)\s*(?:\.|->)\s*|((?:\w+::)+))?(?<![\w~])(?!return\b|new\b|throw\b|else\b)(~?\w+)"
                  r"(?:<[^;()]*>)?(?:\s+\w+)?\s*[({]")
FILE_GUARD = re.compile(r"\bOpenedLogFile\s+\w+\(")
FILE_LOCK = "LogFile::m_mutex"


def sources():
    return {path.relative_to(ROOT).as_posix(): path.read_text() for folder in FOLDERS
            for path in sorted((ROOT / folder).iterdir()) if path.suffix in (".h", ".cpp")}


def is_named(name, qualified):
    return f"::{qualified}".endswith(f"::{name}")


@dataclasses.dataclass
class Row:
    names: list
    kind: str
    lock: str
    functions: list
    threads: set


class Document:
    """The tables of the document."""

    def __init__(self, text):
        self.threads, self.rows, self.locks = set(), [], {}
        heading = ""
        self.single = re.findall(r"`([\w:]+)`", text.partition("## One thread each")[2])
        for line in text.splitlines():
            heading = line[3:] if line.startswith("## ") else heading
            cells = [cell.strip() for cell in line.strip("|").split("|")] if line.startswith("|") else []
            if not cells or cells[0] in ("thread", "variable", "lock") or set(line) <= set("|- "):
                continue
            if heading == "Who":
                self.threads.add(cells[0])
            elif heading == "Locks":
                self.locks[cells[0].strip("`")] = (cells[1], *(set(re.findall(r"`([\w:]+)`", each))
                                                                for each in cells[2:4]))
            else:
                found = re.fullmatch(r"([a-z ]+?)(?: `([\w:]+)`)?(?:, in (`.*`))?", cells[1])
                self.rows.append(Row(re.findall(r"`([\w:]+)`", cells[0]), found[1], found[2] or "",
                                     re.findall(r"`([\w:~]+)`", found[3] or ""),
                                     {each for cell in cells[2:4] for each in cell.split(", ")} - {""}))


class Comparison:
    """What does not fit between sources and document, a line each in `problems`."""

    def __init__(self, declared, document):
        self.declared, self.document, self.problems = declared, document, []
        variables = [each for each in declared.variables if not each.leads_to_constants_only]
        self.locks = [each for each in variables + declared.fields if self._kind_of_lock(each)]
        self.variables = [each for each in variables if each not in self.locks]
        self.fields = [each for each in declared.fields if each not in self.locks]
        self.aliases = {found[1]: re.findall(r"\w+", found[2]) for code in declared.code.values()
                        for found in re.finditer(r"\busing (\w+) = ([^;]*);", code)}
        self.taken = {id(function): self._locks_taken(function) for function in declared.functions}
        self.rows = {}  # by the variable's qualified name
        self._find_rows()
        self._compare_variables()
        self._compare_types()
        self._compare_locks()

    def _fail(self, text):
        self.problems.append(text)

    # Locks

    def _kind_of_lock(self, variable):
        for type_name in LOCK_TYPES:
            if re.search(rf"(^|\s){type_name}$", variable.type):
                return type_name
        if variable.type.endswith("UniqueHandle"):
            made = re.compile(rf"\b{variable.short}(\.Reset)?\(\s*CreateMutexW\b")
            folder = variable.file.partition("/")[0]
            if any(made.search(code) for file, code in self.declared.code.items() if file.startswith(folder + "/")):
                return "named mutex"
        return ""

    def _locks_taken(self, function):
        names = set()
        for found in GUARD.finditer(function.body):
            meant = [lock for lock in self.locks if lock.short == found[1] and (
                not lock.owner or is_named(function.owner, lock.owner) or is_named(lock.owner, function.owner))]
            if len(meant) != 1:
                self._fail(f"{function.name} takes {found[1]}, of which there are {len(meant)}")
            names |= {lock.name for lock in meant}
        if FILE_GUARD.search(function.body):
            names |= {lock.name for lock in self.locks if is_named(FILE_LOCK, lock.name)}
        return names

    def _compare_locks(self):
        told = {}
        for name, (kind, functions, inside) in self.document.locks.items():
            found = [lock for lock in self.locks if is_named(name, lock.name)]
            if len(found) != 1:
                self._fail(f"lock {name} is told, and declared {len(found)} times")
                continue
            told[found[0].name] = name
            if kind != self._kind_of_lock(found[0]):
                self._fail(f"lock {name} is no {kind}")
            taken = {function.name for function in self.declared.functions if found[0].name in self.taken[id(function)]}
            for function in taken:
                if not any(is_named(each, function) for each in functions):
                    self._fail(f"{function} takes {name} untold")
            for each in functions:
                if not any(is_named(each, function) for function in taken):
                    self._fail(f"{each} does not take {name}")
            for each in inside - set(self.document.locks):
                self._fail(f"inside of {name} comes {each}, which is no lock")
        for lock in self.locks:
            if lock.name not in told:
                self._fail(f"lock {lock.name} is not told")
        self._find_circle({name: inside for name, (_, _, inside) in self.document.locks.items()})
        self._compare_order(told)

    def _find_circle(self, order):
        while innermost := [name for name, inside in order.items() if not inside & set(order)]:
            order = {name: inside for name, inside in order.items() if name not in innermost}
        if order:
            self._fail(f"locks wait for each other: {', '.join(sorted(order))}")

    # What is called while a lock is held

    def _compare_order(self, told):
        types = {each.name for each in self.declared.types}
        short_types = {name.rpartition("::")[2] for name in types}
        self.members, self.free = {}, {}
        for function in self.declared.functions:
            (self.members if function.owner in types else self.free).setdefault(function.short, []).append(function)
        self.field_types = {(field.owner, field.short): short_types & set(re.findall(r"\w+", field.type))
                            for field in self.declared.fields}
        self.pointed = self._functions_in_tables()
        self.callees = {}
        for lock in self.locks:
            reached = set()
            for function in self.declared.functions:
                if lock.name in told and lock.name in self.taken[id(function)]:
                    reached |= self._follow(lock, told[lock.name], function)
            for name in self.document.locks[told[lock.name]][2] if lock.name in told else ():
                if not any(is_named(name, inner) for inner in reached):
                    self._fail(f"{name} is never taken while {lock.name} is held")

    def _functions_in_tables(self):
        """What a field that points to functions may lead to, by its name: what constants of its type have there."""
        found = {}
        for constant in self.declared.variables:
            kind = constant.type.rpartition(" ")[2]
            fields = [field for field in self.declared.fields if is_named(kind, field.owner)]
            rows = re.findall(r"\{[^{}]*\}", constant.values) if fields else []
            for row in rows:
                for field, value in zip(fields, pieces(row[1:-1], ",")):
                    name = re.fullmatch(r"\s*&((?:\w+::)*)(\w+)\s*", value)
                    if "(*" in field.type and name:
                        found.setdefault(field.short, []).extend(self.free.get(name[2], []))
        return found

    def _follow(self, lock, told, function):
        """Looks at all that is reached by name from where the function takes the lock on."""
        guards = FILE_GUARD if is_named(FILE_LOCK, lock.name) else re.compile(rf"{GUARD.pattern}(?<={lock.short}[)}}])")
        way = [(self._calls(function, guards.search(function.body).end()), function.name)]
        seen, reached = set(), set()
        while way:
            callees, path = way.pop()
            for callee in callees:
                if id(callee) in seen:
                    continue
                seen.add(id(callee))
                reached |= self.taken[id(callee)]
                for inner in self.taken[id(callee)]:
                    if not any(is_named(each, inner) for each in self.document.locks[told][2]):
                        self._fail(f"{inner} is taken while {told} is held: {path}, {callee.name}")
                if id(callee) not in self.callees:
                    self.callees[id(callee)] = self._calls(callee)
                way.append((self.callees[id(callee)], f"{path}, {callee.name}"))
        return reached

    def _calls(self, function, start=0):
        """What the body calls or makes, from `start` on."""
        found = []
        for receiver, scope, name in (call.groups() for call in CALL.finditer(function.body, start)):
            members = self.members.get(name, [])
            if receiver is not None:
                found += self.pointed.get(name, [])
                kinds = self.field_types.get((function.owner, receiver))
                found += [each for each in members if kinds is None or each.owner.rpartition("::")[2] in kinds]
            elif scope:
                found += [each for each in members + self.free.get(name, []) if is_named(scope[:-2], each.owner)]
            else:
                found += self.free.get(name, []) + [each for each in members if each.owner == function.owner]
            # An object that is made is unmade at its scope's end.
            found += [each for short in (name, f"~{name}") for each in self.members.get(short, [])
                      if each.owner.rpartition("::")[2] == name]
        return found

    # Variables

    def _find_rows(self):
        for row in self.document.rows:
            for name in row.names:
                found = [each for each in self.variables + self.fields if is_named(name, each.name)]
                if len(found) != 1:
                    self._fail(f"{name} has a row, and is declared {len(found)} times")
                elif found[0].name in self.rows:
                    self._fail(f"{name} has two rows")
                else:
                    self.rows[found[0].name] = row
                    self._compare_row(found[0], row)
            for thread in row.threads - self.document.threads:
                self._fail(f"{row.names[0]}: no thread is {thread!r}")

    def _compare_row(self, variable, row):
        fits = {
            "atomic": variable.is_atomic and not variable.is_shared_pointer,
            "shared pointer": variable.is_shared_pointer,
            "constant": variable.is_constant and not variable.is_atomic,
            "before others": not variable.is_atomic,
            "plain": not variable.is_atomic,
            "lock": not variable.is_atomic,
            "parts": not variable.is_atomic and self._has_parts(variable),
            "lock itself": variable.type == "CRITICAL_SECTION",
        }
        if not fits.get(row.kind, False):
            self._fail(f"{variable.name} is not {row.kind}: {variable.type}")
        elif row.kind == "lock":
            self._compare_users(variable, row)
        elif row.kind == "before others":
            self._compare_writers(variable, row)

    def _has_parts(self, variable):
        words = set(re.findall(r"\w+", variable.type))
        words |= {word for alias in words for word in self.aliases.get(alias, ())}
        return any(field.owner.rpartition("::")[2] in words and any(is_named(name, field.name) for row in
                   self.document.rows for name in row.names) for field in self.fields)

    def _compare_variables(self):
        for variable in self.variables:
            if variable.name not in self.rows:
                self._fail(f"{variable.name} has no row: {variable.type}, {variable.file}")

    def _functions_naming(self, variable):
        if variable.function:
            accessor = variable.function.rpartition("::")[2]
            inside = outside = re.compile(rf"\b{accessor}\s*\(")
        else:
            inside = outside = re.compile(rf"\b{variable.short}\b")
        scope, _, short = variable.name.rpartition("::")
        if scope and not variable.function and not variable.owner:
            outside = re.compile(rf"\b{scope.rpartition('::')[2]}::{short}\b")
        of_owner = variable.owner if short.startswith("m_") else ""
        own = variable.owner.rpartition("::")[2]
        for function in self.declared.functions:
            if function.name == variable.function or of_owner and not is_named(function.owner, of_owner):
                continue
            pattern = inside if function.name.startswith(f"{scope}::") else outside
            # Nobody else has an object that is being made or unmade.
            if own and function.short in (own, f"~{own}") or not pattern.search(function.body):
                continue
            if variable.owner or function.file == variable.file or self._is_known_outside(variable):
                yield function

    def _is_known_outside(self, variable):
        return variable.file.endswith(".h") or any(
            re.search(rf"\bextern\b[^;]*\b{variable.short};", code) for code in self.declared.code.values())

    def _compare_writers(self, variable, row):
        name = variable.short
        writes = re.compile(rf"(?<![\w.]){name}\s*(\[[^\]]*\]\s*)?([-+*/|&^]?=(?!=)|\+\+|--)|(\+\+|--){name}\b"
                            rf"|(\.|->){name}\s*=(?!=)|(?<!\w){name}(\.|->)(Reset|reset|clear|swap|Put)\(")
        writers = {function.name for function in self._functions_naming(variable) if writes.search(function.body)}
        for writer in writers:
            if not any(is_named(each, writer) for each in row.functions):
                self._fail(f"{writer} writes {variable.name}, which is written before others see it")
        for each in row.functions:
            if not any(is_named(each, function.name) for function in self.declared.functions):
                self._fail(f"{variable.name} is written in {each}, which is gone")

    # What is guarded by a lock

    def _compare_users(self, variable, row):
        lock = [each for each in self.locks if is_named(row.lock, each.name)]
        if len(lock) != 1:
            self._fail(f"{variable.name} is guarded by {row.lock}, declared {len(lock)} times")
            return
        users, seen, reached = list(self._functions_naming(variable)), set(), set()
        while users:
            function = users.pop()
            if id(function) in seen or lock[0].name in self.taken[id(function)]:
                continue
            seen.add(id(function))
            listed = [each for each in row.functions if each in (function.name, function.owner)
                      or is_named(each, function.name) or is_named(each, function.owner) and function.owner]
            if not listed:
                self._fail(f"{function.name} touches {variable.name} without {row.lock}")
                continue
            reached |= set(listed)
            users += self._callers(function)
        for each in set(row.functions) - reached:
            self._fail(f"{each} has nothing to do with {variable.name}, or takes {row.lock} itself")

    def _callers(self, callee):
        """Who calls the function, as far as its name tells; members by others in their folder only."""
        is_member = any(is_named(callee.owner, each.name) for each in self.declared.types) if callee.owner else False
        if is_member:
            inside = re.compile(rf"(?<![\w.>:~]){callee.short}\s*\(")
            outside = re.compile(rf"(?:\.|->){callee.short}\s*\(")
        else:
            inside = outside = re.compile(rf"(?<![\w.>~]){callee.short}\s*\(")
        guards = ("OpenedLogFile", callee.owner.rpartition("::")[2])
        for function in self.declared.functions:
            own = is_member and function.owner == callee.owner
            # A guard of the lock, and who makes or unmakes the object, have no need to take the lock.
            if function.name == callee.name or function.short.lstrip("~") in guards:
                continue
            near = function.file.partition("/")[0] == callee.file.partition("/")[0]
            if (inside if own else outside).search(function.body) and (near or not is_member):
                yield function

    # Types

    def _compare_types(self):
        fields = {}
        for field in self.fields:
            fields.setdefault(field.owner, []).append(field)
        shared = {each.owner for each in self.fields if each.name in self.rows}
        reached = self._words_reached(shared)
        for name in self.document.single:
            if not any(is_named(name, each) and each.rpartition("::")[2] in reached for each in fields):
                self._fail(f"{name} is in the list, and no such type with fields is shared")
        for each in self.declared.types:
            listed = any(is_named(name, each.name) for name in self.document.single)
            if each.name in shared:
                if listed:
                    self._fail(f"{each.name} has rows and is in the list, too")
                for field in fields[each.name]:
                    if field.name not in self.rows:
                        self._fail(f"{field.name} has no row: {field.type}, {field.file}")
            elif each.name in fields and not listed and each.name.rpartition("::")[2] in reached:
                self._fail(f"{each.name} is shared, and has fields in neither of the lists: {each.file}")

    def _words_reached(self, shared):
        """The names of the types of which variables and shared types are made, and of what is on the heap."""
        code = " ".join(self.declared.code.values())
        made = r"\b(?:new\s*(?:\([^()]*\)\s*)?|make_(?:unique|shared)<)(?:\w+::)*(\w+)"
        words = set(re.findall(made, code))
        for each in self.variables + [field for field in self.fields if field.owner in shared]:
            words |= set(re.findall(r"\w+", each.type))
        bases = {each.name.rpartition("::")[2]: each.bases for each in self.declared.types}
        todo = list(words)
        while todo:
            word = todo.pop()
            more = set(self.aliases.get(word, ())) | set(bases.get(word, ()))
            todo += more - words
            words |= more
        return words


class Service(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.declared = Declarations(sources())

    def test_document_tells_what_the_sources_have(self):
        document = Document((ROOT / "docs/threads.md").read_text())
        self.assertEqual(Comparison(self.declared, document).problems, [])

    def test_sources_were_understood(self):
        code = "\n".join(self.declared.code.values())
        declared = {each.short for each in self.declared.variables + self.declared.fields}
        kinds = r"(?:std::(?:atomic<[^;{=()]*>|mutex)|\bCriticalSection|\bextern\b[^;{(]*[\s&*])&? ?"
        names = re.findall(kinds + r"\b([\w:]+)(?:\{[^}]*\})?(?: =[^;]*)?;", code)
        safe = {name.rpartition("::")[2] for name in names}
        self.assertGreater(len(safe), 20)
        self.assertLessEqual(safe, declared)


SOURCES = {"queue.h": """
/// Waits; "int inText = 0;" and int inComment = 0;
namespace Log {
class Queue {
  public:
    Queue() { m_count = 0; }
    ~Queue();
    void Add() {
        const std::lock_guard hold(m_lock);
        Count();
    }
    static void Make(int size = 0);

  private:
    void Count() noexcept { ++m_count; }

    mutable std::mutex m_lock;
    int m_count;
    std::array<std::atomic<int>, 3> m_waiting{};
    static inline int s_made = 0;
    static constexpr int kMost = 3;
};
struct Entry {
    int level = 0;
};
extern std::atomic<bool> running;
}  // namespace Log
""", "queue.cpp": """
#include "queue.h"
namespace {
struct Step {
    int number;
    void (*run)();
};
void Fill();
constexpr Step kSteps[] = {{1, &Fill}, {2, [] { return Step(); }}};
using Lines = Log::Queue;
struct Part {
    std::atomic<int> number{1'000};
};
struct Stack {
    int depth = 0;
};
std::mutex nameLock;
std::wstring& name = *new std::wstring(L"}{");
Part part;
Lines lines;
const wchar_t* word = nullptr;
std::atomic<std::shared_ptr<int>>& last = *new std::atomic<std::shared_ptr<int>>();
}  // namespace
std::atomic<bool> Log::running{false};
void Log::Queue::Make(int size) {
    s_made = size;
    Stack stack;
    queue.Take(std::make_unique<Log::Entry>());
    static Queue& queue = *new Queue;
}
void Fill() {
    lines.Add();
}
void Rename() {
    const std::lock_guard hold(nameLock);
    name = L"a";
    kSteps[0].run();
}
const wchar_t* Read() {
    return word;
}
"""}

DOCUMENT = """
## Who

| thread | in these tables |
|---|---|
| main | all |

## Any

| variable | safe by | written by | read by | why |
|---|---|---|---|---|
| `name` | lock `nameLock` | main | main | |
| `part`, `lines` | parts | main | main | |
| `Part::number`, `m_waiting`, `Log::running` | atomic | main | main | |
| `word` | plain | main | main | |
| `last` | shared pointer | main | main | |
| `s_made` | before others, in `Log::Queue::Make` | main | main | |
| `Make::queue` | before others | main | main | |
| `m_count` | lock `Queue::m_lock`, in `Queue::Count` | main | main | |

## Locks

| lock | is | taken in | inside |
|---|---|---|---|
| `nameLock` | std::mutex | `Rename` | `Queue::m_lock` |
| `Queue::m_lock` | std::mutex | `Queue::Add` | |

## One thread each

`Entry`
"""

# A change of the sources or of the document, and what is said about it.
CHANGES = {
    "a variable that is new": ("queue.cpp", "Part part;", "Part part;\nint added;", "added has no row: int, queue.cpp"),
    "one of several in a line": ("queue.cpp", "Part part;", "Part part, other;", "other has no row: Part, queue.cpp"),
    "one initialised in round brackets": ("queue.cpp", "Part part;", "Part part;\nint added(1);",
                                          "added has no row: int, queue.cpp"),
    "a function's pointer": ("queue.cpp", "Part part;", "Part part;\nvoid (*hook)(int) = nullptr;",
                             "hook has no row: void (*), queue.cpp"),
    "a constant pointer to what changes": ("queue.cpp", "Part part;", "Part part;\nint* const added = new int;",
                                           "added has no row: int* const, queue.cpp"),
    "a static local variable": ("queue.cpp", "Stack stack;", "static Stack stack[sizeof(int)];",
                                "Log::Queue::Make::stack has no row: static Stack, queue.cpp"),
    "a static field": ("queue.h", "s_made = 0;", "s_made = 0;\nstatic int s_lost;",
                       "Log::Queue::s_lost has no row: static int, queue.h"),
    "a field of a shared type": ("queue.h", "int m_count;", "int m_count;\nint m_lost;",
                                 "Log::Queue::m_lost has no row: int, queue.h"),
    "a type of which a variable is made": ("queue.cpp", "Part part;", "Part part;\nstd::map<int, Stack> stacks;",
                                           "Stack is shared, and has fields in neither of the lists: queue.cpp"),
    "a type that is made on the heap": ("queue.cpp", "Stack stack;", "new (std::nothrow) Stack;",
                                        "Stack is shared, and has fields in neither of the lists: queue.cpp"),
    "a type on which a shared one is based": (
        "queue.h", "class Queue {", "struct Base {\n int size;\n};\nclass Queue : public Base {",
        "Log::Base is shared, and has fields in neither of the lists: queue.h"),
    "a variable that has gone": ("queue.cpp", "const wchar_t* word = nullptr;", "",
                                 "word has a row, and is declared 0 times"),
    "a name that is not one variable's": ("queue.cpp", "Part part;", "Part part;\nnamespace Other {\nint word;\n}",
                                          "word has a row, and is declared 2 times"),
    "an atomic that is none any more": ("queue.cpp", "std::atomic<int> number{1'000}", "int number{1'000}",
                                        "Part::number is not atomic: int"),
    "a plain value that became atomic": ("queue.cpp", "const wchar_t* word", "std::atomic<const wchar_t*> word",
                                         "word is not plain: std::atomic<const wchar_t*>"),
    "a shared pointer that is not exchanged as a whole": (
        "queue.cpp", "std::atomic<std::shared_ptr<int>>& last", "std::shared_ptr<int>& last",
        "last is not shared pointer: std::shared_ptr<int>&"),
    "parts without rows": ("queue.cpp", "Part part;", "Parts part;", "part is not parts: Parts"),
    "a lock that is not declared": ("document", "lock `nameLock`", "lock `otherLock`",
                                    "name is guarded by otherLock, declared 0 times"),
    "a lock that is not told": ("queue.cpp", "std::mutex nameLock;", "std::mutex nameLock, otherLock;",
                                "lock otherLock is not told"),
    "a lock that has gone": ("document", "| `nameLock` |", "| `oldLock` |",
                             "lock oldLock is told, and declared 0 times"),
    "a lock of another kind": ("queue.cpp", "std::mutex nameLock", "CriticalSection nameLock",
                               "lock nameLock is no std::mutex"),
    "a lock that is not taken": ("queue.h", "const std::lock_guard hold(m_lock);", "",
                                 "Queue::Add does not take Queue::m_lock"),
    "a lock that is let go of at once": ("queue.cpp", "std::lock_guard hold(nameLock)", "std::lock_guard(nameLock)",
                                         "Rename touches name without nameLock"),
    "a lock that is taken elsewhere": (
        "queue.cpp", "return word;", "std::unique_lock hold(nameLock);\nreturn word;", "Read takes nameLock untold"),
    "a guarded variable that is touched without its lock": (
        "queue.cpp", "return word;", "return name.c_str();", "Read touches name without nameLock"),
    "a function called without the lock that it needs": (
        "queue.h", "const std::lock_guard hold(m_lock);", "", "Log::Queue::Add touches Log::Queue::m_count without "
                                                         "Queue::m_lock"),
    "a function that needs no lock any more": ("queue.h", "++m_count;", "",
                                               "Queue::Count has nothing to do with Log::Queue::m_count, or takes "
                                               "Queue::m_lock itself"),
    "a late writer": ("queue.cpp", "return word;", "s_made = 2;\nLog::Queue::s_made = 2;\nreturn word;",
                      "Read writes Log::Queue::s_made, which is written before others see it"),
    "a writer that has gone": ("document", "`Log::Queue::Make`", "`Log::Queue::Unmake`",
                               "Log::Queue::s_made is written in Log::Queue::Unmake, which is gone"),
    "an unknown thread": ("document", "| plain | main |", "| plain | nobody |", "word: no thread is 'nobody'"),
    "an unknown reason": ("document", "| plain |", "| luck |", "word is not luck: const wchar_t*"),
    "two rows": ("document", "| `word` |", "| `word`, `m_waiting` |", "m_waiting has two rows"),
    "a type in the list that has gone": ("queue.h", "struct Entry", "struct Line",
                                         "Entry is in the list, and no such type with fields is shared"),
    "a type in the list that is no longer shared": ("queue.cpp", "make_unique<Log::Entry>()", "",
                                                    "Entry is in the list, and no such type with fields is shared"),
    "a type in both lists": ("document", "`Entry`", "`Entry`, `Queue`", "Log::Queue has rows and is in the list, too"),
    "locks in a circle": ("document", "| `Queue::Add` | |", "| `Queue::Add` | `nameLock` |",
                          "locks wait for each other: Queue::m_lock, nameLock"),
    "a lock that is taken inside of another": (
        "queue.h", "        Count();", "        Count();\n        Rename();",
        "nameLock is taken while Queue::m_lock is held: Log::Queue::Add, Rename"),
    "a lock that is taken twice": ("queue.h", "++m_count;", "lines.Add();",
                                   "Log::Queue::m_lock is taken while Queue::m_lock is held: Log::Queue::Add, "
                                   "Log::Queue::Count, Log::Queue::Add"),
    "an order that nothing follows": ("queue.cpp", "{1, &Fill}", "{1, &Read}",
                                      "Queue::m_lock is never taken while nameLock is held"),
    "an order of what is no lock": ("document", "| `Queue::Add` | |", "| `Queue::Add` | `noLock` |",
                                    "inside of Queue::m_lock comes noLock, which is no lock"),
}


class MadeUp(unittest.TestCase):
    def problems(self, texts):
        declared = Declarations({file: text for file, text in texts.items() if file != "document"})
        return Comparison(declared, Document(texts["document"])).problems

    def test_what_fits_has_no_problem(self):
        self.assertEqual(self.problems({**SOURCES, "document": DOCUMENT}), [])

    def test_each_change_is_noticed(self):
        for change, (file, old, new, problem) in CHANGES.items():
            with self.subTest(change):
                texts = {**SOURCES, "document": DOCUMENT}
                self.assertEqual(texts[file].count(old), 1)
                texts[file] = texts[file].replace(old, new)
                self.assertIn(problem, self.problems(texts))

    def test_what_is_no_declaration_has_no_problem(self):
        for text in ("using Name = int;", "class Later;", "int Function(int number);",
                     "int Pair(const Part& part, int);", "extern int elsewhere;", "static_assert(1 < 2);",
                     "constexpr int kNumbers[] = {1, 2};", "constexpr const wchar_t* kNames[] = {L\"a\"};",
                     "const wchar_t* const kName = nullptr;",
                     "template <class T, int most = 3>\nT* Find(T first) {\n    return first < most;\n}",
                     "enum class Kind : bool { kOne, kTwo };", "Part::Part() : number(1) { number = 2; }",
                     "#define NOTHING int nothing;"):
            with self.subTest(text):
                self.assertEqual(self.problems({**SOURCES, "more.cpp": text, "document": DOCUMENT}), [])


if __name__ == "__main__":
    unittest.main()
