"""What the operators change, and what they leave alone."""

import unittest

from mutants.operators import mutations


def changes(kind, code):
    """The changed lines of `code`, as the body of a function."""
    text = f"int Function(int a, int b) {{\n{code}\n}}\n"
    results = [mutation.apply(text) for mutation in mutations("x.cpp", text) if mutation.kind == kind]
    return [result.removeprefix("int Function(int a, int b) {\n").removesuffix("\n}\n") for result in results]


class Operators(unittest.TestCase):
    def test_a_comparison_moves_by_one_or_is_inverted(self):
        self.assertEqual(changes("comparisons", "f(a < b, a == b);"), ["f(a <= b, a == b);", "f(a < b, a != b);"])

    def test_a_template_and_a_reference_are_no_comparison(self):
        self.assertEqual(changes("comparisons", "std::vector<int> v; auto&& w = v;"), [])

    def test_and_becomes_or(self):
        self.assertEqual(changes("comparisons", "f(a && b);"), ["f(a || b);"])

    def test_a_constant_grows_by_one(self):
        self.assertEqual(changes("constants", "f(0, 7, 0x2000, true);"), [
            "f(1, 7, 0x2000, true);", "f(0, (7 + 1), 0x2000, true);", "f(0, 7, (0x2000 + 1), true);", "f(0, 7, 0x2000, false);",
        ])  # fmt: skip

    def test_texts_comments_and_the_compilers_assertions_have_no_constants(self):
        self.assertEqual(changes("constants", 'f("1 true"); // 2 false\nstatic_assert(sizeof a == 4);\n#if 1\n#endif'), [])

    def test_a_negation_is_dropped_once(self):
        self.assertEqual(changes("negations", "if (!a) f();"), ["if (a) f();"])
        self.assertEqual(changes("conditions", "if (!a) f();"), [])

    def test_a_condition_is_inverted(self):
        self.assertEqual(changes("conditions", "while (a.b()) f();"), ["while (!(a.b())) f();"])
        self.assertEqual(changes("conditions", "if (f(); a) g();"), ["if (f(); !(a)) g();"])
        self.assertEqual(changes("conditions", "if (const int c = f()) g();"), ["if (const int c = f(); !(c)) g();"])

    def test_a_statement_is_removed(self):
        self.assertEqual(changes("removals", "f([&] {\n    g();\n});"), [";", "f([&] {\n    ;\n});"])
        self.assertEqual(changes("removals", "if (a)\n    b = 1;\nelse\n    break;"), [
            "if (a)\n    ;\nelse\n    break;", "if (a)\n    b = 1;\nelse\n    ;",
        ])  # fmt: skip

    def test_a_declaration_and_a_silent_log_line_stay(self):
        self.assertEqual(changes("removals", 'std::lock_guard lock(m);\nint c = 1;\nLogDebug("x");'), [])

    def test_only_bodies_of_functions_have_statements(self):
        text = "namespace n {\nstruct S {\n    int f();\n    std::atomic<int> m{0};\n};\n}  // namespace n\n"
        self.assertEqual([each.kind for each in mutations("x.h", text) if each.kind != "constants"], [])

    def test_a_result_is_dropped(self):
        self.assertEqual(changes("returns", "return error;"), ["return {};"])
        self.assertEqual(changes("returns", "return false;"), [])

    def test_two_arguments_are_swapped(self):
        self.assertEqual(changes("swaps", "f(a, g(b, 1), 2);"), ["f(g(b, 1), a, 2);", "f(a, g(1, b), 2);"])

    def test_a_mutation_names_its_place(self):
        text = "void f() {\n    g(true);\n}\n"
        self.assertEqual([each.describe(text) for each in mutations("dash/F.cpp", text)], [
            "dash/F.cpp:2: removals: g(true);  ->  ;", "dash/F.cpp:2: constants: true  ->  false",
        ])  # fmt: skip


if __name__ == "__main__":
    unittest.main()
