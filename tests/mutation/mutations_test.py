#!/usr/bin/env python3
"""The mutation operators' results on small sources."""
import unittest

from mutations import mutations


def made(source, operator):
    """The sources that an operator produces."""
    return [mutation.apply(source) for mutation in mutations(source)
            if mutation.operator == operator]


def body(text):
    return f"int F() {{ {text} }}"


class MutationsTest(unittest.TestCase):
    def check(self, operator, source, *expected):
        self.assertEqual(made(source, operator), list(expected))

    def check_body(self, operator, text, *expected):
        self.check(operator, body(text), *map(body, expected))

    def test_comparison(self):
        self.check_body("comparison", "x = a == b;", "x = a != b;")
        self.check_body("comparison", "x = a < b;", "x = a <= b;", "x = a > b;")

    def test_brackets_of_templates_are_no_comparisons(self):
        self.check_body("comparison", "x = static_cast<int>(b);")

    def test_arithmetic(self):
        self.check_body("arithmetic", "x += a + b;", "x -= a + b;", "x += a - b;")
        self.check_body("arithmetic", "x = a && --b;", "x = a || --b;", "x = a && ++b;")

    def test_pointers_and_references_are_no_arithmetic(self):
        self.check_body("arithmetic", "auto* x = &a; const T& y = *b;")

    def test_negation(self):
        self.check_body("negation", "if (!x) G();", "if (x) G();")

    def test_log_line(self):
        self.check("log_line", 'constexpr LogSite kSite{kFile, "F", 60, kTrace};',
                   'constexpr LogSite kSite{kFile, "F", 61, kTrace};')

    def test_constant(self):
        self.check("constant", "constexpr int kMask = 0xF;", "constexpr int kMask = 0x10;",
                   "constexpr int kMask = 0xE;")
        self.check_body("constant", "x = 0; y = 'a'; return true;", "x = 1; y = 'a'; return true;",
                        "x = 0; y = 'b'; return true;", "x = 0; y = 'a'; return false;")

    def test_what_only_the_compiler_sees_stays(self):
        self.assertEqual(mutations("static_assert(sizeof(int) == 4);"), [])
        self.assertEqual(made("class A { virtual int F() = 0; };", "constant"), [])
        self.assertEqual(made("__attribute__((format(printf, 2, 3))) void F();", "constant"), [])

    def test_comments_and_includes_stay(self):
        self.assertEqual(mutations('#include "a.h"\n// "text" 1\n/* 2 == 3 */\n'), [])

    def test_text(self):
        self.check_body("text", 'G("%u abc");', 'G("");', 'G("%u aqc");')
        self.check_body("text", 'G(", ");', 'G("");', 'G("q ");')

    def test_condition(self):
        self.check_body("condition", "if (m.has_x()) G();", "if (!(m.has_x())) G();",
                        "if (false) G();", "if (true) G();")

    def test_alternatives(self):
        self.check_body("alternatives", "return a ? f(b, 1) : c;", "return a ? c : f(b, 1);")

    def test_removal(self):
        self.check_body("removal", "int x = G(); H(x); return x;", "int x = G(); ; return x;")
        self.check_body("removal", "for (int x : y) G(x);", ";", "for (int x : y) ;")
        self.check_body("removal", "if (x) return; G();", "if (x) ; G();", "if (x) return; ;")
        self.check_body("removal", "a.b.reserve(c.size());")

    def test_order(self):
        self.check_body("order", "A a; G(a); if (a) H(); return 1;",
                        "A a; if (a) H(); G(a); return 1;")
        self.check_body("order", "A a(1); B b(2);", "B b(2); A a(1);")
        self.check_body("order", "const MutexLock lock(&mutex_); G();")
        self.check_body("order", "a.reserve(c.size()); for (int x : c) a.push_back(G(x));")

    def test_order_of_what_sets_different_things(self):
        self.check_body("order", "a = 1; ++b;")
        self.check_body("order", "a->b = c; a->d = 2;")
        self.check_body("order", "a->set_b(c); a->set_d(*c.e);")
        self.check_body("order", "if (a.b) c->set_b(*a.b); for (int x : a.d) c->add_d(x);")
        self.check_body("order", "a = 1; b = steady_clock::now();")
        self.check_body("order", "a.b = [this] { G(); }; a.c = [this] { H(); };")
        self.check_body("order", "const auto a = static_cast<int>(b); if (!c.empty()) c += 'd';")
        self.check_body("order", "a.b = 1; c.push_back(&a);")
        self.check_body("order", "a = 1; b = a;", "b = a; a = 1;")
        self.check_body("order", "a = 1; ++a;", "++a; a = 1;")
        self.check_body("order", "a = 1; b = G();", "b = G(); a = 1;")
        self.check_body("order", "a->set_b(1); a->set_b(2);", "a->set_b(2); a->set_b(1);")
        for one, other in (
            ("if (a.b) c->set_b(1);", "if (c.b) a->set_b(2);"),
            ("a.push_back(b);", "a.push_back(c);"),
            ("a.push_back(b);", "++b;"),
            ("a = x.size();", "x.push_back(1);"),
            ("a = 1;", "b.log(c);"),
            ("a = 1;", "b.clear();"),
            ("a = 1;", "b = F<int>(c);"),
            ("a = 1;", "b = [c = G()] { };"),
            ("a = 1;", "b = c << 2;"),
            ("a = 1;", "b >> c;"),
            ("a = 1;", "b->c_.clear();"),
            ("a = 1;", "b << F();"),
            ("a = 1;", "b << a;"),
            ("if (a) b = 1;", "a << c;"),
            ("a << 'x';", "b << 'y';"),
            ("a_.clear();", "b = a_.size();"),
            ("a = 1;", "b.reserve(c);"),
            ("a = 1;", "if (b) return 2;"),
            ("a = 1;", "b = B{2};"),
            ("a.b = 1;", "c = *a;"),
        ):
            with self.subTest(one + other):
                self.assertIn(body(f"{other} {one}"), made(body(f"{one} {other}"), "order"))

    def test_order_of_what_only_reads(self):
        self.check_body("order", "++a; B b = WithoutPayload(c.d);")
        self.check_body("order", "const auto a = std::chrono::duration_cast<s>(b - c); d = 0;")
        self.check_body("order", "const string a = Printable(b->c); const bool d = !HasResult(e);")
        self.check_body("order", "*a << HalKindName(b.first) << ' ' << c; if (d != 1) ++e;")
        self.check_body("order", "a_.clear(); b_ = c_ = 0;")

    def test_order_of_a_declaration_before_a_guard(self):
        self.check_body("order", "T* const t = &this->table(k); if (a == 1) return F(k);")
        self.check_body("order", "const int a = b.size(); if (c) { G(); continue; }")
        for one, other in (
            ("if (a == 1) return F(k);", "T* const t = &this->table(k);"),
            ("const int a = b.size();", "if (++b) return;"),
            ("const int a = b.size();", "if (G()) return;"),
            ("const int a = b.size();", "if (a) return;"),
            ("const int a = b.size();", "if (c) return a;"),
            ("const int a = b.size();", "if (c) G();"),
            ("const int a = b.size();", "if (c) return; else G();"),
            ("const int a = G();", "if (c) return;"),
            ("const int a = size(b++);", "if (c) return;"),
            ("d = b;", "if (c) return;"),
        ):
            with self.subTest(one + other):
                self.assertIn(body(f"{other} {one}"), made(body(f"{one} {other}"), "order"))

    def test_continues_at_the_end_of_a_loop_stay(self):
        self.check_body("removal", "while (G()) continue;", ";")
        self.check_body("removal", "while (G()) { continue; }", ";")
        self.check_body("removal", "while (a) { if (b) continue; G(); }", ";",
                        "while (a) { if (b) ; G(); }", "while (a) { if (b) continue; ; }")

    def test_result(self):
        self.check("result", "bool F() { return G(1); }", "bool F() { return !(G(1)); }")
        self.check_body("result", "return g; ", "return {}; ")
        self.check_body("result", "return std::nullopt; ")
        self.check_body("result", "return false; ")

    def test_arguments(self):
        self.check_body("arguments", "G(a, H(b), c);", "G(H(b), a, c);", "G(a, c, H(b));")
        self.check_body("arguments", "x = std::max(a, b);")
        self.check_body("arguments", "x = std::max<std::size_t>(a, b);")
        self.check_body("arguments", "static constexpr std::array kTable = {A, B};",
                        "static constexpr std::array kTable = {B, A};")

    def test_parameters_stay(self):
        self.check("arguments", "int F(int a, int b) { return a; }")
        self.check_body("arguments", "x = [](int a, int b) { return G(b, a); };",
                        "x = [](int a, int b) { return G(a, b); };")

    def test_initialisers_of_members_stay(self):
        self.check("arguments", "namespace a { A::A(int b) : c_(b), d_(b) { } }")
        self.check("arguments", "namespace a::b { A::A(int b) : c_(b), d_(b) { } }")

    def test_related_name(self):
        self.check_body("related_name", "c.InstallVlan();", "c.DestroyVlan();", "c.ReplaceVlan();")
        self.check_body("related_name", "c.Success();", "c.Error();")

    def test_constant_name(self):
        constants = "constexpr int kA = 1; constexpr int kB = 2; "
        self.check("constant_name", constants + body("G(kA);"), constants + body("G(kB);"))

    def test_accessor(self):
        self.check_body("accessor", "m.set(r.a()); m.set(r.b());", "m.set(r.b()); m.set(r.b());",
                        "m.set(r.a()); m.set(r.a());")

    def test_initialiser(self):
        self.check("initialiser", "class A { int a_ = 0; };", "class A { int a_; };")
        self.check_body("initialiser", "std::array<char, 6> a{};", "std::array<char, 6> a;")

    def test_storage(self):
        self.check_body("storage", "static A a; static constexpr int b = 1;",
                        "A a; static constexpr int b = 1;")

    def test_virtual(self):
        self.check("virtual", "class A { virtual ~A(); };", "class A { ~A(); };")

    def test_static(self):
        self.check("static",
                   "class A {\n A();\n virtual int F();\n int G(int a);\n int H() const;\n int b;\n};",
                   "class A {\n A();\n virtual int F();\n static int G(int a);\n int H() const;\n"
                   " int b;\n};")

    def test_logging(self):
        self.check_body("logging", 'ZUSKUX_TRACE(kSite, "a"); ZUSKUX_LOG(kSite, "b");',
                        'ZUSKUX_LOG(kSite, "a"); ZUSKUX_LOG(kSite, "b");',
                        'ZUSKUX_TRACE(kSite, "a"); ZUSKUX_TRACE(kSite, "b");')

    def test_setter(self):
        self.check_body("setter", "m->add_flags(1); m->set_id(2);",
                        "m->mutable_flags()->Add(1); m->set_id(2);")

    def test_layout(self):
        self.check("layout", "class A : public B, public C {};", "class A : public C, public B {};")
        self.check("layout", "class A { int a_; char b_; void F(); };",
                   "class A { char b_; int a_; void F(); };")
        self.check("layout", "class A { virtual int F() = 0; virtual int G() = 0; };",
                   "class A { virtual int G() = 0; virtual int F() = 0; };")

    def test_numbers_keep_their_suffix(self):
        self.check_body("constant", "a = 1'000U;", "a = 1001U;", "a = 999U;")
        self.check_body("constant", "a = 0x1FUL;", "a = 0x1EUL;", "a = 0x20UL;")
        self.check_body("constant", "a = 1.5;")

    def test_statements_of_a_switch(self):
        self.check_body("removal", "switch (a) { case A::kB: case 'c': G(); break; default: H(); }",
                        "switch (a) { case A::kB: case 'c': ; break; default: H(); }",
                        "switch (a) { case A::kB: case 'c': G(); ; default: H(); }",
                        "switch (a) { case A::kB: case 'c': G(); break; default: ; }")

    def test_breaks_before_nothing_but_breaks_stay(self):
        self.check_body("removal", "switch (a) { case 1: G(); break; case 2: break; }",
                        "switch (a) { case 1: ; break; case 2: break; }")

    def test_statements_of_a_try(self):
        self.check_body("removal", "try { F(); } catch (const E& e) { G(); } catch (...) { H(); }",
                        "try { ; } catch (const E& e) { G(); } catch (...) { H(); }",
                        "try { F(); } catch (const E& e) { ; } catch (...) { H(); }",
                        "try { F(); } catch (const E& e) { G(); } catch (...) { ; }")

    def test_statements_of_a_do_loop(self):
        self.check_body("removal", "do { F(); } while (a); G();", "; G();",
                        "do { ; } while (a); G();", "do { F(); } while (a); ;")

    def test_a_constexpr_condition(self):
        self.check_body("condition", "if constexpr (kA) F();", "if constexpr (!(kA)) F();",
                        "if constexpr (false) F();", "if constexpr (true) F();")

    def test_only_the_named_operators(self):
        self.assertEqual({mutation.operator for mutation in mutations(body("a = 1;"), ["constant"])},
                         {"constant"})

    def test_an_unfinished_statement_is_an_error(self):
        with self.assertRaisesRegex(ValueError, "line 2"):
            mutations("void F() {\n  a = b\n}")

    def test_a_place_is_changed_in_each_way_once(self):
        results = [mutation.apply(body("if (a == 0) G(0, 1);"))
                   for mutation in mutations(body("if (a == 0) G(0, 1);"))]
        self.assertEqual(len(results), len(set(results)))
        self.assertNotIn(body("if (a == 0) G(0, 1);"), results)


if __name__ == "__main__":
    unittest.main()
