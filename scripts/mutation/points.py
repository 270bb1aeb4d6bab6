"""Finds in C++ sources what can be mutated, by clang's syntax tree, and writes the sources in which
each place calls a function of schemata.h."""

import collections
import json
import multiprocessing
import os
import re
import shlex

from clang.cindex import (CursorKind as Kind, Index, StorageClass, TranslationUnit, TypeKind)

# A place with `mutants`, [(kind, mutant's text)], of which the first has the number that replaces @0
# in the edits, the second that of @1. `wraps` are (start, end, text before, text behind) and
# `replaced` (start, end, text), all at offsets of the file.
Place = collections.namedtuple("Place", "file start end kind wraps replaced mutants is_constant")

COMPARISONS = {"<": ("less", "<=", ">="), "<=": ("less_equal", "<", ">"),
               ">": ("greater", ">=", "<="), ">=": ("greater_equal", ">", "<"),
               "==": ("equal", "!="), "!=": ("not_equal", "==")}
OPERATIONS = {"+": ("plus", "-"), "-": ("minus", "+"), "*": ("times", "+"), "/": ("divided", "*"),
              "%": ("modulo", "/"), "&": ("bit_and", "|"), "|": ("bit_or", "&"),
              "^": ("bit_xor", "|"), "<<": ("left", ">>"), ">>": ("right", "<<")}
ASSIGNMENTS = {"+=": ("add_to", "-="), "-=": ("take_from", "+="), "*=": ("multiply", "+="),
               "/=": ("divide", "*="), "&=": ("and_to", "|="), "|=": ("or_to", "&="),
               "^=": ("xor_to", "|="), "<<=": ("shift_left", ">>="), ">>=": ("shift_right", "<<=")}
LOGICAL = {"&&": ("||", "always"), "||": ("&&", "never")}
STEPS = {"++": ("increment", "--"), "--": ("decrement", "++")}
UNARY = {"~": "complement", "-": "negative"}
BITS = {"&", "|", "^", "<<", ">>", "&=", "|=", "^=", "<<=", ">>="}

COMMENT = re.compile(r"//[^\n]*|/\*.*?\*/", re.S)
INTEGER = re.compile(r"(0[xX][0-9a-fA-F']+|[0-9][0-9']*)([uUlLzZ]*)$")
CHARACTER = re.compile(r"'([ -&(-\[\]-}])'$")
EMPTY_RETURN = re.compile(r"std::(string|vector|optional|map|set|unique_ptr|span|u?int|pair)\b")
RETURNS_EMPTY = {"return {}", "return std::nullopt", 'return ""', "return std::string()"}
LOG_MACRO = re.compile(r"LOG_[A-Z]+$|REPORT$")
UNEVALUATED = {Kind.STATIC_ASSERT, Kind.ENUM_DECL, Kind.CXX_UNARY_EXPR, Kind.TYPE_ALIAS_DECL,
               Kind.TYPEDEF_DECL, Kind.TYPE_REF, Kind.TEMPLATE_REF, Kind.DECL_REF_EXPR,
               Kind.TEMPLATE_NON_TYPE_PARAMETER, Kind.TEMPLATE_TYPE_PARAMETER,
               Kind.TYPE_ALIAS_TEMPLATE_DECL}
FUNCTIONS = {Kind.FUNCTION_DECL, Kind.CXX_METHOD, Kind.CONSTRUCTOR, Kind.DESTRUCTOR,
             Kind.FUNCTION_TEMPLATE, Kind.CONVERSION_FUNCTION}
SCOPES = {Kind.TRANSLATION_UNIT, Kind.NAMESPACE, Kind.STRUCT_DECL, Kind.CLASS_DECL,
          Kind.LINKAGE_SPEC, Kind.UNEXPOSED_DECL}
SCALARS = {TypeKind.CHAR_U, TypeKind.UCHAR, TypeKind.USHORT, TypeKind.UINT, TypeKind.ULONG,
           TypeKind.ULONGLONG, TypeKind.CHAR_S, TypeKind.SCHAR, TypeKind.SHORT, TypeKind.INT,
           TypeKind.LONG, TypeKind.LONGLONG, TypeKind.POINTER, TypeKind.ENUM}


def start(cursor):
    return cursor.extent.start.offset


def end(cursor):
    return cursor.extent.end.offset


def one_line(text):
    return " ".join(COMMENT.sub(" ", text).split())


class File:
    """Collects the places of one file. The offsets are those of bytes."""

    def __init__(self, name, path, macros):
        self.name = name
        with open(path, "rb") as file:
            self.bytes = file.read()
        self.macros = macros
        self.places = []
        self.result = None
        self.is_constant = False
        for macro, begin, finish in macros:
            if LOG_MACRO.match(macro) and not self.line_before(begin).lstrip().startswith("#"):
                self.drop_statement(begin, finish)

    def text(self, begin, finish):
        return self.bytes[begin:finish].decode(errors="replace")

    def line_before(self, offset):
        return self.text(self.bytes.rfind(b"\n", 0, offset) + 1, offset)

    def add(self, kind, begin, finish, wraps, mutants, replaced=()):
        ends = {begin, finish} | {offset for wrap in wraps for offset in wrap[:2]}
        if begin == finish or any(first < offset < last or (first, last) == (begin, finish)
                                  for offset in ends for _, first, last in self.macros):
            return
        self.places.append(Place(self.name, begin, finish, kind, wraps, replaced, mutants,
                                 self.is_constant))

    def wrap(self, kind, cursor, before, behind, mutants, replaced=(), last=None):
        begin, finish = start(cursor), end(last or cursor)
        self.add(kind, begin, finish, [(begin, finish, before, behind)], mutants, replaced)

    def operator(self, left, right):
        """(operator, its start, its end), or None."""
        gap = self.text(end(left), start(right))
        found = COMMENT.sub(lambda comment: " " * len(comment[0]), gap)
        if not found.strip():
            return None
        begin = end(left) + len(found) - len(found.lstrip())
        return found.strip(), begin, begin + len(found.strip())

    def infix(self, left, operator, right):
        return one_line(f"{self.text(start(left), end(left))} {operator} "
                        f"{self.text(start(right), end(right))}")

    def binary(self, cursor, left, right, is_condition):
        found = self.operator(left, right)
        if not found:
            return
        operator, begin, finish = found
        comma = [(begin, finish, ",")]
        shown = self.infix(left, operator, right)
        if operator in COMPARISONS:
            name, *others = COMPARISONS[operator]
            if is_condition and len(others) == 1:
                return
            mutants = [(shown, self.infix(left, other, right)) for other in others]
            self.wrap("comparison", left, f"mutants::{name}(@0, ", ")", mutants, comma, right)
        elif operator in LOGICAL:
            self.logical(cursor, left, right, operator)
        elif cursor.kind == Kind.CALL_EXPR:
            return
        elif operator in OPERATIONS or operator in ASSIGNMENTS:
            kinds = {left.type.get_canonical().kind, right.type.get_canonical().kind}
            if TypeKind.RECORD in kinds or (operator == "-" and kinds == {TypeKind.POINTER}):
                return
            name, other = OPERATIONS.get(operator) or ASSIGNMENTS[operator]
            self.wrap("bit operation" if operator in BITS else "arithmetic", cursor,
                      f"mutants::{name}(@0, ", ")", [(shown, self.infix(left, other, right))], comma)

    def logical(self, cursor, left, right, operator):
        other, drop = LOGICAL[operator]
        shown = self.infix(left, operator, right)
        sides = [(side, f"mutants::flip(@0, mutants::{drop}(@{1 + index}, static_cast<bool>(")
                 for index, side in enumerate((left, right))]
        wraps = [(start(cursor), end(cursor), "mutants::flip(@0, ", ")")]
        wraps += [(start(side), end(side), before, ")))") for side, before in sides]
        self.add("logical", start(cursor), end(cursor), wraps,
                 [(shown, self.infix(left, other, right)),
                  (shown, one_line(self.text(start(right), end(right)))),
                  (shown, one_line(self.text(start(left), end(left))))])

    def unary(self, cursor, operand, is_condition):
        text = self.text(start(cursor), end(cursor))
        inner = one_line(self.text(start(operand), end(operand)))
        operator, shown = text[:2] if text[:2] in STEPS else text[:1], one_line(text)
        prefix = [(start(cursor), start(operand), "")]
        if operator == "!" and text[:2] != "!=" and not is_condition:
            self.wrap("logical", cursor, "mutants::flip(@0, ", ")", [(shown, inner)])
        elif operator in UNARY and operand.kind != Kind.INTEGER_LITERAL:
            self.wrap("arithmetic" if operator == "-" else "bit operation", cursor,
                      f"mutants::{UNARY[operator]}(@0, ", ")", [(shown, inner)], prefix)
        elif operator in STEPS:
            name, other = STEPS[operator]
            self.wrap("arithmetic", cursor, f"mutants::{name}(@0, ", ")", [(shown, other + inner)],
                      prefix)
        elif text[-2:] in STEPS:
            name, other = STEPS[text[-2:]]
            self.wrap("arithmetic", cursor, f"mutants::{name}_after(@0, ", ")",
                      [(shown, inner + other)], [(end(operand), end(cursor), "")])

    def literal(self, cursor, parent):
        text = self.text(start(cursor), end(cursor))
        before = self.bytes[:start(cursor)].rstrip()[-1:]
        if before == b"<" and not parent.kind == Kind.BINARY_OPERATOR:
            return
        number, character = INTEGER.match(text), CHARACTER.match(text)
        if number:
            digits = number[1].replace("'", "").lower()
            base = 16 if digits.startswith("0x") else 8 if digits.startswith("0") else 10
            other = 0 if int(digits, base) == 1 else int(digits, base) + 1
            mutant = {16: "0x%x", 8: "0%o", 10: "%d"}[base] % other + number[2]
            mutant = "1" + number[2] if digits == "0" else mutant
        elif character:
            other = chr(ord(character[1]) + 1)
            mutant = "'\\" + other + "'" if other in "'\\" else f"'{other}'"
        elif text in ("true", "false"):
            mutant = "false" if text == "true" else "true"
        else:
            return
        self.wrap("constant", cursor, "mutants::number(@0, ", f", decltype({text})({mutant}))",
                  [(text, mutant)])

    def condition(self, cursor, kind="condition", before="mutants::condition(@0, ", mutants=None):
        shown = one_line(self.text(start(cursor), end(cursor)))
        self.wrap(kind, cursor, before + "static_cast<bool>(", "))",
                  mutants or [(f"if ({shown})", "if (true)"), (f"if ({shown})", "if (false)")])

    def loop(self, cursor):
        shown = one_line(self.text(start(cursor), end(cursor)))
        self.condition(cursor, "condition", "mutants::never(@0, ", [(f"while ({shown})", "while (false)")])

    def declared_condition(self, variable):
        shown = one_line(self.text(start(variable), end(variable)))
        tail = f"; mutants::never(@0, static_cast<bool>({variable.spelling}))"
        self.wrap("condition", variable, "", tail, [(f"if ({shown})", "if (false)")])

    def drop_expression(self, cursor):
        shown = one_line(self.text(start(cursor), end(cursor)))
        if shown.startswith("throw") and not self.returns_nothing():
            return
        kind = "dropped call" if re.match(r"[\w:.>-]+\(", shown) else "dropped statement"
        self.wrap(kind, cursor, "mutants::is(@0) ? void() : void(", ")", [(f"{shown};", ";")])

    def drop_statement(self, begin, finish, kind="dropped call", instead=""):
        behind = self.text(finish, finish + 40)
        if not behind.lstrip().startswith(";"):
            return
        shown = one_line(self.text(begin, finish)) + ";"
        finish += behind.index(";") + 1
        before = "{ if (mutants::is(@0)) return {}; " if instead else "{ if (!mutants::is(@0)) "
        self.add(kind, begin, finish, [(begin, finish, before, " }")], [(shown, instead or ";")])

    def returns_nothing(self):
        return self.result and self.result.type.get_result().kind == TypeKind.VOID

    def returned(self, cursor, value):
        kind = value.type.get_canonical().kind
        result = self.result.type.get_result() if self.result else None
        shown = one_line(self.text(start(cursor), end(cursor)))
        if result and result.get_canonical().kind == TypeKind.LVALUEREFERENCE:
            return
        if value.kind in {Kind.INTEGER_LITERAL, Kind.CXX_BOOL_LITERAL_EXPR,
                          Kind.CXX_NULL_PTR_LITERAL_EXPR} or self.is_zero(value):
            return
        if kind == TypeKind.BOOL and self.calls(value):
            self.condition(value, "returned value", "mutants::flip(@0, ",
                           [(f"{shown};", shown.replace("return ", "return !", 1) + ";")])
        elif kind in SCALARS and shown not in ("return 0", "return nullptr"):
            self.wrap("returned value", value, "mutants::zero(@0, ", ")", [(f"{shown};", "return 0;")])
        elif result and EMPTY_RETURN.match(result.spelling) and shown not in RETURNS_EMPTY:
            self.drop_statement(start(cursor), end(cursor), "returned value", "return {};")

    def without_casts(self, value):
        while value.kind == Kind.UNEXPOSED_EXPR:
            inner = list(value.get_children())
            if len(inner) != 1:
                break
            value = inner[0]
        return value

    def is_zero(self, value):
        """The name of an enumerator, or of a constant, that is 0."""
        named = self.without_casts(value).referenced
        if named and named.kind == Kind.VAR_DECL:
            words = [token.spelling for token in named.get_tokens()]
            return words[:1] == ["constexpr"] and words[-2:] == ["=", "0"]
        return named and named.kind == Kind.ENUM_CONSTANT_DECL and named.enum_value == 0

    def calls(self, value):
        """Neither an operator nor a constant, which have mutants of their own."""
        value = self.without_casts(value)
        is_operator = value.kind == Kind.CALL_EXPR and re.match(r"operator[=!<>]", value.spelling)
        return value.kind in {Kind.CALL_EXPR, Kind.DECL_REF_EXPR, Kind.MEMBER_REF_EXPR} and not is_operator

    # The walk.

    def visit(self, cursor, parent, is_condition=False):
        kind = cursor.kind
        if kind in UNEVALUATED:
            return
        children = list(cursor.get_children())
        if kind in FUNCTIONS:
            self.function(cursor, children)
        elif kind == Kind.LAMBDA_EXPR:
            self.function(cursor, children)
        elif kind in (Kind.VAR_DECL, Kind.FIELD_DECL, Kind.PARM_DECL):
            self.variable(cursor, children)
        else:
            self.statement(cursor, children)
            self.expression(cursor, children, parent, is_condition)

    def function(self, cursor, children):
        saved = self.result, self.is_constant
        is_lambda = cursor.kind == Kind.LAMBDA_EXPR
        self.result = None if is_lambda else cursor
        body = next((child for child in children if child.kind == Kind.COMPOUND_STMT), None)
        head = self.text(start(cursor), start(body)) if body else ""
        if body and "consteval" not in head:
            for child in children:
                is_capture = is_lambda and start(child) < start(body)
                if is_capture or child.kind == Kind.PARM_DECL or start(child) > cursor.location.offset:
                    self.is_constant = saved[1] and child is not body
                    self.visit(child, cursor)
        self.result, self.is_constant = saved

    def variable(self, cursor, children):
        saved = self.is_constant
        head = self.text(start(cursor), cursor.location.offset) + self.line_before(start(cursor))
        is_static = cursor.kind == Kind.VAR_DECL and (
            cursor.semantic_parent.kind in SCOPES or cursor.storage_class == StorageClass.STATIC)
        self.is_constant |= is_static or "constexpr" in head or "constinit" in head
        if not (cursor.kind == Kind.FIELD_DECL and cursor.is_bitfield()):
            for child in children:
                is_bound = self.bytes[:start(child)].rstrip()[-1:] == b"["
                if start(child) > cursor.location.offset and not is_bound:
                    self.visit(child, cursor)
        self.is_constant = saved

    def expression(self, cursor, children, parent, is_condition):
        kind = cursor.kind
        if kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR) and len(children) == 2:
            self.binary(cursor, *children, is_condition)
        elif kind == Kind.CALL_EXPR and re.match(r"operator([=!]=|[<>]=?$|<=>)", cursor.spelling):
            ordered = sorted(children, key=start)
            if len(ordered) >= 2 and start(ordered[-1]) > end(ordered[0]):
                self.binary(cursor, ordered[0], ordered[-1], is_condition)
        elif kind == Kind.UNARY_OPERATOR and len(children) == 1:
            self.unary(cursor, children[0], is_condition)
        elif kind in (Kind.INTEGER_LITERAL, Kind.CXX_BOOL_LITERAL_EXPR, Kind.CHARACTER_LITERAL):
            self.literal(cursor, parent)
        elif kind == Kind.CONDITIONAL_OPERATOR and children:
            shown = one_line(self.text(start(cursor), end(cursor)))
            test, yes, no = (one_line(self.text(start(each), end(each))) for each in children)
            self.condition(children[0], "swapped branch", "mutants::flip(@0, ",
                           [(shown, f"{test} ? {no} : {yes}")])
        passes = is_condition and kind == Kind.UNEXPOSED_EXPR and len(children) == 1
        if kind in (Kind.IF_STMT, Kind.FOR_STMT, Kind.WHILE_STMT, Kind.CASE_STMT):
            return
        for child in children:
            if kind != Kind.MEMBER_REF_EXPR or start(child) < cursor.location.offset:
                self.visit(child, cursor, passes)

    # What encloses comes before what is in it, so that its call is written around the other.
    def statement(self, cursor, children):
        kind = cursor.kind
        if kind == Kind.COMPOUND_STMT:
            self.drop_expressions(children)
        elif kind == Kind.IF_STMT:
            self.if_statement(cursor, children)
        elif kind in (Kind.FOR_STMT, Kind.WHILE_STMT):
            self.loop_statement(cursor, children)
        elif kind == Kind.CASE_STMT:
            self.drop_expressions(children[1:])
            for child in children[1:]:
                self.visit(child, cursor)
        elif kind in (Kind.DEFAULT_STMT, Kind.CXX_FOR_RANGE_STMT):
            self.drop_expressions(children[-1:])
        elif kind in (Kind.BREAK_STMT, Kind.CONTINUE_STMT):
            self.drop_statement(start(cursor), end(cursor), "dropped statement")
        elif kind == Kind.RETURN_STMT and children:
            self.returned(cursor, children[0])
        elif kind == Kind.RETURN_STMT:
            self.drop_statement(start(cursor), end(cursor), "dropped statement")

    def drop_expressions(self, statements):
        for each in statements:
            if each.kind.is_expression():
                self.drop_expression(each)

    def if_statement(self, cursor, children):
        head = self.text(start(cursor), start(children[0]))
        index, test = next((index, child) for index, child in enumerate(children)
                           if child.kind.is_expression() or child.kind == Kind.VAR_DECL)
        is_declared = test.kind == Kind.VAR_DECL
        bodies = children[index + (2 if is_declared else 1):]
        if is_declared:
            self.declared_condition(test)
        elif "constexpr" not in head:
            self.condition(test)
        self.drop_expressions(bodies)
        for child in children[:index] + bodies:
            self.visit(child, cursor)
        if "constexpr" not in head:
            self.visit(test, cursor, True)

    def loop_statement(self, cursor, children):
        body = children[-1]
        head = self.text(start(cursor), start(body))
        semicolons = [start(cursor) + index for index, each in enumerate(head) if each == ";"]
        for child in children[:-1]:
            is_test = child.kind.is_expression()
            if cursor.kind == Kind.FOR_STMT:
                is_test &= len(semicolons) == 2 and semicolons[0] < start(child) < semicolons[1]
            else:
                is_test &= len(children) == 2
            if is_test:
                self.loop(child)
            self.visit(child, cursor, is_test)
        self.drop_expressions([body])
        self.visit(body, cursor)


def places_of(job):
    """The places of one translation unit's files, {file: [place]}."""
    root, folders, command, done = job
    arguments = [each for each in shlex.split(command["command"])[1:]
                 if each not in ("-c", "-o") and not each.endswith((".o", ".cc"))]
    unit = Index.create().parse(command["file"], args=arguments + ["-w"],
                                options=TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
    errors = [str(each) for each in unit.diagnostics if each.severity >= 3]
    if errors:
        raise RuntimeError(f"clang cannot read {command['file']}: {errors[0]}")
    cursors, macros = collections.defaultdict(list), collections.defaultdict(list)
    for cursor in unit.cursor.get_children():
        if cursor.location.file and cursor.location.file.name.startswith(root):
            name = os.path.relpath(cursor.location.file.name, root)
            if name in done or name.split("/")[0] not in folders:
                continue
            if cursor.kind == Kind.MACRO_INSTANTIATION:
                macros[name].append((cursor.spelling, start(cursor), end(cursor)))
            elif cursor.kind not in (Kind.INCLUSION_DIRECTIVE, Kind.MACRO_DEFINITION):
                cursors[name].append(cursor)
    found = {}
    for name, tops in cursors.items():
        file = File(name, os.path.join(root, name), macros[name])
        for cursor in tops:
            file.visit(cursor, unit.cursor)
        found[name] = [place._asdict() for place in file.places]
    return found


def find(root, build, folders, jobs):
    """All places below the root's folders, in the order of files and offsets."""
    with open(os.path.join(build, "compile_commands.json")) as file:
        commands = json.load(file)
    units = [each for each in commands
             if os.path.relpath(each["file"], root).split("/")[0] in folders]
    units = {each["file"]: each for each in units if each["file"].endswith(".cc")}
    found = {}
    with multiprocessing.Pool(jobs) as pool:
        for part in pool.imap(places_of, [(root + "/", folders, unit, ()) for unit in units.values()]):
            for name, places in part.items():
                found.setdefault(name, places)
    unique = {(place["file"], place["start"], place["end"], place["kind"], str(place["mutants"])): place
              for name in sorted(found) for place in found[name]}
    return sorted(unique.values(), key=lambda place: (place["file"], place["start"], -place["end"]))


def rewrite(content, places):
    """The content with the places' calls in it. Offsets are those of the original."""
    edits = []
    for order, place in enumerate(places):
        def numbered(text, place=place):
            for index in range(len(place["mutants"])):
                text = text.replace(f"@{index}", str(place["number"] + index))
            return text
        for begin, finish, before, behind in place["wraps"]:
            edits.append(((begin, 1, begin - finish, order), begin, begin, numbered(before)))
            edits.append(((finish, 0, finish - begin, -order), finish, finish, numbered(behind)))
        for begin, finish, text in place["replaced"]:
            edits.append(((begin, 2, 0, 0), begin, finish, text))
    written, position = [], 0
    for _, begin, finish, text in sorted(edits):
        written += [content[position:begin], text.encode()]
        position = finish
    return b"".join(written + [content[position:]])
