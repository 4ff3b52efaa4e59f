"""Generates the mutants of C++ sources from their syntax tree.

A mutant replaces one expression by another, or drops one statement. See OPERATORS for the kinds.
"""
import collections
import dataclasses
import itertools
import re

from clang import cindex
from clang.cindex import CursorKind as Kind
from clang.cindex import TokenKind, TypeKind

# The operators, with what each does.
OPERATORS = {
    "argument": "two neighbouring arguments of one type are swapped",
    "arithmetic": "an arithmetic or bit operator is replaced",
    "assignment": "an assignment is dropped",
    "boolean": "a negation is dropped, && and || are exchanged, or one of their operands is dropped",
    "call": "a call is dropped",
    "comparison": "a comparison is negated or moved by one",
    "condition": "a branch is always or never taken, or two alternatives are exchanged",
    "constant": "a number is increased by one, a truth value is negated",
    "result": "another result is returned",
    "text": "a string literal is emptied",
}

COMPARISONS = {"==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"]}
OVERLOADED_COMPARISONS = {f"operator{comparison}" for comparison in COMPARISONS}
LOGICAL = {"&&": "||", "||": "&&"}
ARITHMETIC = {"+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "<<": ">>", ">>": "<<", "&": "|", "|": "&", "^": "&"}
COMPOUND = {f"{operator}=": f"{other}=" for operator, other in ARITHMETIC.items()}
INTEGERS = {TypeKind.CHAR_S, TypeKind.CHAR_U, TypeKind.SCHAR, TypeKind.UCHAR, TypeKind.SHORT, TypeKind.USHORT,
            TypeKind.INT, TypeKind.UINT, TypeKind.LONG, TypeKind.ULONG, TypeKind.LONGLONG, TypeKind.ULONGLONG}
# Without the streams, whose operators look like shifts.
ARITHMETIC_TYPES = INTEGERS | {TypeKind.FLOAT, TypeKind.DOUBLE, TypeKind.POINTER}
FUNCTIONS = {Kind.FUNCTION_DECL, Kind.CXX_METHOD, Kind.CONSTRUCTOR, Kind.DESTRUCTOR, Kind.FUNCTION_TEMPLATE,
             Kind.CONVERSION_FUNCTION}
CLASSES = {Kind.CLASS_DECL, Kind.STRUCT_DECL, Kind.CLASS_TEMPLATE, Kind.CLASS_TEMPLATE_PARTIAL_SPECIALIZATION}
SCOPES = CLASSES | {Kind.NAMESPACE, Kind.LINKAGE_SPEC, Kind.UNEXPOSED_DECL}
# Functions whose arguments can be swapped without an effect.
COMMUTATIVE = {"min", "max", "swap", "IsEqualGUID"}
# The compiler evaluates their operands, so these cannot depend on the mutant that is active.
CONSTANT_CONTEXTS = {Kind.STATIC_ASSERT, Kind.ENUM_CONSTANT_DECL, Kind.TEMPLATE_NON_TYPE_PARAMETER}


@dataclasses.dataclass(frozen=True)
class Site:
    """A piece of a source, and what replaces it."""
    begin: int  # offsets in bytes
    end: int
    line: int
    function: str
    operator: str
    replacement: str  # empty: the statement is dropped


@dataclasses.dataclass(frozen=True)
class Mutant:
    number: int
    source: str  # relative to the root of the tree
    line: int
    function: str
    operator: str
    occurrence: int  # among the mutants of this operator in the function, from 1
    original: str
    replacement: str

    @property
    def key(self):
        """Identifies the mutant across edits of other functions."""
        return f"{self.source} {self.function} {self.operator} {self.occurrence}"

    @property
    def change(self):
        return f"{self.original} -> {self.replacement or '(dropped)'}"


def is_constant_evaluated(cursor):
    specifiers = itertools.takewhile(lambda word: word not in ("(", "{", "="),
                                     (token.spelling for token in cursor.get_tokens()))
    return any(word in ("constexpr", "consteval") for word in specifiers)


class Unit:
    """A translation unit. Collects the sites of the wanted files among its main file and headers."""

    def __init__(self, path, compiler_arguments, wanted):
        self.parsed = cindex.Index.create().parse(str(path), args=compiler_arguments,
                                                  options=cindex.TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
        self.errors = [str(problem) for problem in self.parsed.diagnostics
                       if problem.severity >= cindex.Diagnostic.Error]
        self.texts = {file: open(file, "rb").read() for file in wanted}
        self.macros = collections.defaultdict(list)
        self.sites = collections.defaultdict(dict)
        self.branches = set()
        self.macro_cursors = collections.defaultdict(list)
        for cursor in self.parsed.cursor.get_children():
            if cursor.kind == Kind.MACRO_INSTANTIATION and self.file(cursor):
                extent = cursor.extent
                self.macros[self.file(cursor)].append((extent.start.offset, extent.end.offset))
                self.macro_cursors[self.file(cursor)].append(cursor)
        self.walk_scope(self.parsed.cursor, "")

    def file(self, cursor):
        """The file of a cursor if it is a wanted one."""
        file = cursor.location.file
        return file.name if file is not None and file.name in self.texts else None

    def spelling(self, cursor):
        return self.texts[self.file(cursor)][cursor.extent.start.offset:cursor.extent.end.offset].decode()

    def add(self, cursor, operator, replacement, function, may_be_macro=False):
        self.add_range(self.file(cursor), cursor.extent.start, cursor.extent.end, operator, replacement, function,
                       may_be_macro)

    def add_range(self, file, start, end, operator, replacement, function, may_be_macro=False):
        begin, end = start.offset, end.offset
        for macro_begin, macro_end in self.macros[file]:
            overlaps = macro_begin < end and begin < macro_end
            contains = begin <= macro_begin and macro_end <= end
            if overlaps and (not contains or ((begin, end) == (macro_begin, macro_end) and not may_be_macro)):
                return
        if "//" in replacement or begin == end:
            return
        replacement = " ".join(replacement.split())
        self.sites[file].setdefault((begin, end, replacement),
                                    Site(begin, end, start.line, function, operator, replacement))

    # --- Declarations ---

    def walk_scope(self, cursor, scope):
        for child in cursor.get_children():
            if child.kind in FUNCTIONS:
                if self.file(child) and child.is_definition() and not is_constant_evaluated(child):
                    self.walk_function(child)
            elif child.kind == Kind.FIELD_DECL and self.file(child):
                self.walk_children(child, child.semantic_parent.spelling)
            elif child.kind in SCOPES:
                self.walk_scope(child, scope)

    def walk_function(self, cursor):
        parent = cursor.semantic_parent
        name = cursor.spelling.partition("<")[0]
        if parent is not None and parent.kind in CLASSES:
            name = f"{parent.spelling}::{name}"
        self.walk_children(cursor, name)
        extent = cursor.extent
        for macro in self.macro_cursors[self.file(cursor)]:
            if extent.start.offset <= macro.extent.start.offset and macro.extent.end.offset <= extent.end.offset:
                self.visit_macro(macro, name)

    def visit_macro(self, macro, function):
        """The literals among the arguments of a macro, for example the text of a log message."""
        file = self.file(macro)
        for token in macro.get_tokens():
            if token.kind != TokenKind.LITERAL or token.extent.start.offset == macro.extent.start.offset:
                continue
            quote = re.match(r'(L|u8?|U)?"', token.spelling)
            change = ("text", quote.group() + '"') if quote else ("constant", f"{token.spelling} + 1")
            if change[1] != token.spelling and (quote or token.spelling.isdigit()):
                self.sites[file].setdefault(
                    (token.extent.start.offset, token.extent.end.offset, change[1]),
                    Site(token.extent.start.offset, token.extent.end.offset, token.extent.start.line, function,
                         *change))

    # --- Statements and expressions ---

    def walk_children(self, cursor, function):
        children = list(cursor.get_children())
        if cursor.kind == Kind.CASE_STMT:
            children = children[1:]
        elif cursor.kind == Kind.IF_STMT and is_constant_evaluated_if(cursor):
            children = children[1:]
        for child in children:
            if child.kind in CONSTANT_CONTEXTS or (child.kind == Kind.VAR_DECL and is_constant_evaluated(child)):
                continue
            if self.file(child):
                self.visit(child, function, cursor)
            self.walk_children(child, function)

    def visit(self, cursor, function, parent):
        kind = cursor.kind
        children = list(cursor.get_children())
        if kind.is_expression() and parent.kind == Kind.COMPOUND_STMT:
            self.visit_statement(cursor, function)
        if kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR) and len(children) == 2:
            self.visit_binary(cursor, children, function)
        elif kind == Kind.UNARY_OPERATOR and len(children) == 1:
            self.visit_unary(cursor, children[0], function)
        elif kind in (Kind.IF_STMT, Kind.WHILE_STMT):
            self.visit_branch(cursor, children, function)
        elif kind == Kind.CONDITIONAL_OPERATOR and len(children) == 3:
            condition, first, second = (self.spelling(child) for child in children)
            self.add(cursor, "condition", f"({condition}) ? ({second}) : ({first})", function)
        elif kind == Kind.INTEGER_LITERAL and self.spelling(cursor)[:1].isdigit():
            self.add(cursor, "constant", f"{self.spelling(cursor)} + 1", function)
        elif kind == Kind.DECL_REF_EXPR:
            self.visit_reference(cursor, function)
        elif kind == Kind.CXX_BOOL_LITERAL_EXPR:
            self.add(cursor, "constant", "false" if self.spelling(cursor) == "true" else "true", function)
        elif kind == Kind.STRING_LITERAL:
            quote = re.match(r'(L|u8?|U)?"', self.spelling(cursor))
            if quote and self.spelling(cursor) != quote.group() + '"':
                self.add(cursor, "text", quote.group() + '"', function)
        elif kind == Kind.CALL_EXPR:
            self.visit_call(cursor, function)
        elif kind == Kind.RETURN_STMT and children:
            self.visit_return(children[0], function)

    def visit_statement(self, cursor, function):
        text = self.spelling(cursor)
        is_assignment = cursor.kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR, Kind.UNARY_OPERATOR) \
            or cursor.spelling == "operator="
        if text and not text.startswith("co_"):
            self.add(cursor, "assignment" if is_assignment else "call", "", function, may_be_macro=True)

    def visit_binary(self, cursor, children, function):
        left, right = (self.spelling(child) for child in children)
        start, end = children[0].extent.end.offset, children[1].extent.start.offset
        operator = self.texts[self.file(cursor)][start:end].decode().strip()
        for other in COMPARISONS.get(operator, []):
            if operator in ("==", "!=") and self.is_branch(cursor):
                continue
            self.add(cursor, "comparison", f"{left} {other} {right}", function)
        if operator in LOGICAL:
            for replacement in (f"({left}) {LOGICAL[operator]} ({right})", f"static_cast<bool>({left})",
                                f"static_cast<bool>({right})"):
                self.add(cursor, "boolean", replacement, function)
        elif operator in ARITHMETIC and cursor.type.get_canonical().kind in ARITHMETIC_TYPES:
            self.add(cursor, "arithmetic", f"({left}) {ARITHMETIC[operator]} ({right})", function)
        elif operator in COMPOUND:
            self.add(cursor, "arithmetic", f"{left} {COMPOUND[operator]} {right}", function)

    def is_branch(self, cursor):
        """Whether a branch depends on this expression alone. Both results of it are mutants already."""
        return (self.file(cursor), cursor.extent.start.offset, cursor.extent.end.offset) in self.branches

    def visit_unary(self, cursor, operand, function):
        text = self.spelling(cursor)
        if "!" in text and self.is_branch(cursor):
            return
        # A != that the compiler rewrites as the negation of an overloaded == is a comparison, its operand.
        if text.startswith("!") and not text.startswith("!="):
            self.add(cursor, "boolean", f"!!({self.spelling(operand)})", function)
        elif text.startswith(("++", "--")) or text.endswith(("++", "--")):
            self.add(cursor, "arithmetic", text.translate(str.maketrans("+-", "-+")), function)

    def visit_branch(self, cursor, children, function):
        is_declaration = children[0].kind == Kind.VAR_DECL
        if is_declaration or (cursor.kind == Kind.IF_STMT and is_constant_evaluated_if(cursor)):
            return
        condition = next((child for child in children[:2] if child.kind.is_expression()), None)
        if condition is None or self.file(condition) is None or self.spelling(condition) in ("true", "false"):
            return
        self.branches.add((self.file(condition), condition.extent.start.offset, condition.extent.end.offset))
        if cursor.kind == Kind.IF_STMT:
            self.add(condition, "condition", "true", function, may_be_macro=True)
        self.add(condition, "condition", "false", function, may_be_macro=True)

    def visit_reference(self, cursor, function):
        """A named number."""
        named = cursor.referenced
        if named is None or named.kind != Kind.VAR_DECL or not named.type.is_const_qualified():
            return
        is_name = re.fullmatch(r"[\w:]+", self.spelling(cursor))
        if is_name and named.type.get_canonical().kind in INTEGERS and is_constant_evaluated(named):
            self.add(cursor, "constant", f"{self.spelling(cursor)} + 1", function)

    def visit_call(self, cursor, function):
        is_operator = re.match(r"operator\W", cursor.spelling)
        if cursor.spelling in OVERLOADED_COMPARISONS:
            # The extent of a comparison that the compiler rewrites with <=> lacks the right operand.
            if not self.is_branch(cursor) and not self.spelling(cursor).endswith(("<", ">", "=")):
                self.add(cursor, "comparison", f"!({self.spelling(cursor)})", function)
        if is_operator or cursor.spelling in COMMUTATIVE:
            return
        arguments = [argument for argument in cursor.get_arguments() if argument is not None and self.file(argument)]
        text = self.texts[self.file(cursor)]
        for first, second in zip(arguments, arguments[1:]):
            ranges = [first.extent.start.offset, first.extent.end.offset, second.extent.start.offset,
                      second.extent.end.offset]
            is_swappable = (first.type.get_canonical().spelling == second.type.get_canonical().spelling and
                            sorted(ranges) == ranges and self.spelling(first) != self.spelling(second) and
                            cursor.extent.start.offset <= ranges[0] and ranges[3] <= cursor.extent.end.offset)
            if is_swappable and self.spelling(first):
                pieces = [text[begin:end].decode() for begin, end in
                          zip([cursor.extent.start.offset, *ranges], [*ranges, cursor.extent.end.offset])]
                swapped = [pieces[0], pieces[3], pieces[2], pieces[1], pieces[4]]
                self.add(cursor, "argument", "".join(swapped), function)

    def visit_return(self, value, function):
        if self.file(value) is None:
            return
        text = self.spelling(value)
        kind = value.type.get_canonical().kind
        if value.type.spelling == "HRESULT":
            self.add(value, "result", "E_UNEXPECTED" if text == "S_OK" else "S_OK", function, may_be_macro=True)
        elif kind == TypeKind.BOOL:
            if text not in ("true", "false") and not text.startswith("!") and value.kind != Kind.BINARY_OPERATOR:
                self.add(value, "result", f"!({text})", function, may_be_macro=True)
        elif kind in INTEGERS and not text.isdigit():
            self.add(value, "result", f"({text}) + 1", function, may_be_macro=True)
        elif kind == TypeKind.POINTER and text != "nullptr":
            self.add(value, "result", "nullptr", function, may_be_macro=True)


def is_constant_evaluated_if(cursor):
    return [token.spelling for _, token in zip(range(2), cursor.get_tokens())] == ["if", "constexpr"]


# What encloses what, if it has the same extent: a statement the expression it consists of, and a branch its condition.
# The value is the type to which the alternatives are converted.
CONVERSIONS = {"statement": "static_cast<void>", "branch": "static_cast<bool>", "expression": ""}
LEVELS = list(CONVERSIONS)


def level(site):
    if not site.replacement:
        return LEVELS.index("statement")
    return LEVELS.index("branch" if site.replacement in ("true", "false") and site.operator == "condition"
                        else "expression")


def mutants_of(source, text, sites, first_number):
    """Returns (site, mutant) pairs in the order of the source."""
    occurrences = collections.Counter()
    pairs = []
    for site in sorted(sites, key=lambda site: (site.begin, -site.end, level(site), site.operator, site.replacement)):
        occurrences[site.function, site.operator] += 1
        original = " ".join(text[site.begin:site.end].decode().split())
        pairs.append((site, Mutant(first_number + len(pairs), source, site.line, site.function, site.operator,
                                   occurrences[site.function, site.operator], original, site.replacement)))
    return pairs


@dataclasses.dataclass(frozen=True)
class Range:
    """The bytes of an instrumented text that exist because of some mutants."""
    begin: int
    end: int
    mutants: tuple


def instrument(text, pairs):
    """Returns the text with all mutants, of which the environment selects one at run time, and the ranges of the
    mutants in it. Keeps line numbers."""
    groups = collections.defaultdict(list)
    for site, mutant in pairs:
        groups[site.begin, site.end, level(site)].append(mutant)
    openings, closings = collections.defaultdict(list), collections.defaultdict(list)
    for group in groups:
        openings[group[0]].append(group)
        closings[group[1]].append(group)

    output, ranges, begins, position = bytearray(), [], {}, 0
    for offset in sorted({*openings, *closings}):
        output += text[position:offset]
        position = offset
        for group in sorted(closings[offset], key=lambda group: (-group[0], -group[2])):
            output += b"))"
            ranges.append(Range(begins[group], len(output), tuple(groups[group])))
        for group in sorted(openings[offset], key=lambda group: (-group[1], group[2])):
            begins[group] = len(output)
            conversion = CONVERSIONS[LEVELS[group[2]]]
            output += b"("
            for mutant in groups[group]:
                output += f"NUVEQ_MUTANT({mutant.number}) ? ".encode()
                begin = len(output)
                output += f"{conversion}({mutant.replacement or 0})".encode()
                ranges.append(Range(begin, len(output), (mutant,)))
                output += b" : "
            output += f"{conversion}(".encode()
    return bytes(output + text[position:]), ranges
